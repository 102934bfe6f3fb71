#pragma once

#include <chrono>
#include <functional>

namespace tavi::test {

// Runs the Qt event loop of the test's QCoreApplication until `condition` holds or `limite`
// passes; says whether it held. The application is created once for the whole executable by
// linking support/application_qt.cpp (a QApplication on the offscreen platform where the target
// defines TAVI_TEST_FENETRES).
bool attendreQue(const std::function<bool()>& condition,
                 std::chrono::milliseconds limite = std::chrono::seconds(10));

} // namespace tavi::test
