#pragma once

#include <stdexcept>
#include <utility>
#include <variant>

namespace tavi {

// A value or the error that prevented it: the C++23 std::expected in the little we need.
template <class T, class E>
class Attendu {
public:
    Attendu(T valeur) : contenu_(std::in_place_index<0>, std::move(valeur)) {}
    Attendu(E erreur) : contenu_(std::in_place_index<1>, std::move(erreur)) {}

    bool has_value() const { return contenu_.index() == 0; }
    explicit operator bool() const { return has_value(); }

    T& value() & { return verifier(), std::get<0>(contenu_); }
    const T& value() const& { return verifier(), std::get<0>(contenu_); }
    T&& value() && { return verifier(), std::get<0>(std::move(contenu_)); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    const E& error() const {
        if (has_value()) throw std::logic_error("Attendu::error sur une valeur");
        return std::get<1>(contenu_);
    }

private:
    void verifier() const {
        if (!has_value()) throw std::logic_error("Attendu::value sur une erreur");
    }
    std::variant<T, E> contenu_;
};

} // namespace tavi
