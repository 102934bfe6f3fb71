#include <QCoreApplication>
#include <QTimer>

// The baseline of the agent's cost: Qt's loop woken by a 1-second timer that does nothing.
int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QTimer minuterie;
    QObject::connect(&minuterie, &QTimer::timeout, [] {});
    minuterie.start(1000);
    return QCoreApplication::exec();
}
