#pragma once

#include "rules/regle_mac.h"

#include <string>
#include <utility>

namespace tavi {

// Why a veil is up: the whole computer rests under a rule (`pause`), or one application naps
// (`appli`, named in the title). Compared by value: a reason that differs in any field of its
// rule is another reason, and the veil is rebuilt for it.
struct MotifVoile {
    enum class Genre { pause, appli };

    Genre genre = Genre::pause;
    std::string nom; // the application's name, for `appli`; empty for `pause`
    RegleMac regle;

    static MotifVoile pause(RegleMac regle) { return {Genre::pause, {}, std::move(regle)}; }
    static MotifVoile appli(std::string nom, RegleMac regle) {
        return {Genre::appli, std::move(nom), std::move(regle)};
    }
    bool estPause() const { return genre == Genre::pause; }

    friend bool operator==(const MotifVoile&, const MotifVoile&) = default;
};

} // namespace tavi
