#pragma once

namespace tavi {

// One visitor made of several lambdas, for std::visit: Selon{[](const A&) {...}, ...}.
template <class... F>
struct Selon : F... {
    using F::operator()...;
};
// Clang 14 does not deduce an aggregate's template arguments by itself.
template <class... F>
Selon(F...) -> Selon<F...>;

} // namespace tavi
