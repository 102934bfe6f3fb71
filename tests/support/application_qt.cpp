#include "support/application_qt.h"

#include <QCoreApplication>
#include <QTimer>
#ifdef TAVI_TEST_FENETRES
#include <QApplication>
#endif
#include <gtest/gtest.h>
#include <memory>

namespace tavi::test {

namespace {

class ApplicationQt : public testing::Environment {
public:
    void SetUp() override {
#ifdef TAVI_TEST_FENETRES
        // Windows are drawn offscreen: no display needed, the user's left alone.
        qputenv("QT_QPA_PLATFORM", "offscreen");
        application_ = std::make_unique<QApplication>(argc_, argv_);
#else
        application_ = std::make_unique<QCoreApplication>(argc_, argv_);
#endif
    }
    void TearDown() override { application_.reset(); }

private:
    int argc_ = 1;
    char nom_[16] = "tests";
    char* argv_[2] = {nom_, nullptr};
    std::unique_ptr<QCoreApplication> application_;
};

[[maybe_unused]] const testing::Environment* const environnement =
    testing::AddGlobalTestEnvironment(new ApplicationQt);

} // namespace

bool attendreQue(const std::function<bool()>& condition, std::chrono::milliseconds limite) {
    const auto fin = std::chrono::steady_clock::now() + limite;
    // The loop sleeps until an event comes; this timer is one every 20 ms, so that a condition
    // changed by another thread is seen too.
    QTimer reveil;
    reveil.start(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= fin) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace tavi::test
