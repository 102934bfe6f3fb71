#pragma once

#include "engine/voile.h"

namespace tavi {

// A veil with no window, for the headless agent and the tests: it keeps the reason the engine
// gives it, and counts what a windowed veil would have drawn.
class VoileConsole : public Voile {
public:
    void montrer(const MotifVoile& motif) override;
    void maintenir() override;
    void retirerFenetres() override { fenetres_ = false; }
    Presentation presentation() const override { return presentation_; }
    void presenter(Presentation presentation) override { presentation_ = presentation; }

    // Whether "windows" are up, and how many times they were built.
    bool fenetres() const { return fenetres_; }
    int constructions() const { return constructions_; }

private:
    bool fenetres_ = false;
    int constructions_ = 0;
    Presentation presentation_ = Presentation::normale;
};

} // namespace tavi
