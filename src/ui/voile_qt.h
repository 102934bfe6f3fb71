#pragma once

#include "engine/voile.h"
#include "platform/garde_fenetres.h"
#include "platform/prise_entrees.h"
#include "ui/actions_voile.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <memory>
#include <vector>

class QScreen;

namespace tavi {

class FenetreVoile;

// The veil on Qt's screens: one window per screen, each tied to its screen (not to its place in
// the list), rebuilt when a screen comes or goes or changes size, and when the count of windows
// no longer matches the screens at `maintenir`. While the whole computer rests the first window
// holds the keyboard and the pointer (`prise`, absent where the display server allows none),
// taken again at every `maintenir` if another client held them.
//
// Another program may still unmap, move, resize or cover a window where the display server lets
// it (X11): the guard (`garde`) puts it back at once, and the veil says so through `signaler`,
// as it does when the keyboard or pointer stays refused for more than 5 s.
//
// Main thread only.
class VoileQt : public Voile {
public:
    // `prise` may be null: no grab where the display server allows none; `garde` too, where
    // no other client can touch our windows.
    VoileQt(std::unique_ptr<ActionsVoile> actions, std::unique_ptr<PriseEntrees> prise,
            std::unique_ptr<GardeFenetres> garde = nullptr);
    ~VoileQt() override;

    void montrer(const MotifVoile& motif) override;
    void maintenir() override;
    void retirerFenetres() override;
    Presentation presentation() const override { return presentation_; }
    void presenter(Presentation presentation) override;

    // The windows on screen now, in the order of the screens.
    std::vector<FenetreVoile*> fenetres() const;
    // Whether the keyboard and pointer are held now.
    bool prisTenue() const { return prisTenue_; }

private:
    void reconstruire();
    void suivreEcran(QScreen* ecran);
    void garderFenetres();
    void prendre();

    std::unique_ptr<ActionsVoile> actions_;
    std::unique_ptr<PriseEntrees> prise_;
    std::unique_ptr<GardeFenetres> garde_;
    std::vector<QPointer<FenetreVoile>> fenetres_;
    Presentation presentation_ = Presentation::normale;
    bool prisTenue_ = false;
    // Since when the grab has been refused, while it is; whether that has been said.
    QElapsedTimer refusDepuis_;
    bool refusSignale_ = false;
    // The context of the screen connections: they end with it.
    QObject contexte_;
};

} // namespace tavi
