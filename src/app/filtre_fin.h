#pragma once

#include <QObject>

class QCoreApplication;

namespace tavi {

class Delegue;

// The application's quit requests (QEvent::Quit: what `quit()` sends, the session manager's
// end of session, the desktop's "quit" where it has one) put to the delegate: a paired agent
// refuses them, or ends once it has reported its stop.
class FiltreFin : public QObject {
public:
    FiltreFin(QCoreApplication& application, Delegue& delegue);

protected:
    bool eventFilter(QObject* objet, QEvent* evenement) override;

private:
    QCoreApplication& application_;
    Delegue& delegue_;
};

} // namespace tavi
