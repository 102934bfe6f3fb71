#pragma once

#include "platform/notifications.h"
#include "ui/actions_barre.h"

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>

class QMessageBox;

namespace tavi {

// The agent's one permanent presence: its icon in the panel's notification area and the menu
// behind it, rebuilt each time it opens. On Linux the icon goes to a StatusNotifierItem host
// where the session has one, else to an XEmbed tray; where there is neither yet (a panel that
// starts after the agent), the bar looks again every 10 s and shows the icon once one appears.
//
// Main thread only; `actions` must outlive the bar.
class Barre : public QObject {
public:
    // `notifications`, when given, says the engine's messages; it must outlive the bar.
    explicit Barre(ActionsBarre& actions, Notifications* notifications = nullptr);
    ~Barre() override;

    // Set by the shell; called by the menu's entries.
    std::function<void()> ouvrirAccueil;
    std::function<void()> ouvrirCeQueVoient;

    // Draws the icon and its tooltip again when what they show has changed.
    void maj();
    // Says the engine's message when no veil is up to say it: as a desktop notification where
    // the session has a server for them, else in a window of its own.
    void informer();

    QSystemTrayIcon& icone() { return *icone_; }
    QMenu& menu() { return menu_; }
    // The key of the icon last drawn, and how many times it was drawn.
    int dessins() const { return dessins_; }
    // The message window, once a message was shown.
    QMessageBox* boiteMessage() const { return boite_.get(); }

private:
    void creerIcone();
    void guetterHote();
    void choisir(const EntreeMenu& entree);
    void montrerBoite(const QString& message);

    ActionsBarre& actions_;
    Notifications* notifications_;
    QMenu menu_;
    std::unique_ptr<QSystemTrayIcon> icone_;
    std::unique_ptr<QMessageBox> boite_;
    QTimer guet_;
    std::unique_ptr<Abonnement> abonnement_;
    std::string dernierTitre_;
    int dessins_ = 0;
};

} // namespace tavi
