#pragma once

#include <string>
#include <string_view>

namespace tavi {

// The steps of the welcome window. They are not stored: each time the window is drawn, the
// first one still due is shown, so reopening it after pairing goes straight there.
enum class EtapeAccueil {
    ceQueVoientSeul, // the panel alone, opened from the menu or by a new report
    rejoindre,       // the pairing code
    accord,          // what the parents can see, before anything is reported
    demarrage,       // letting the agent start with the session
    fini,
};

struct SituationAccueil {
    bool seulementCeQueVoient = false;
    bool relie = false;
    bool accordVu = false;
    bool autorise = false;
};

EtapeAccueil etapeAccueil(const SituationAccueil& situation);

// A pairing code as the server expects it: upper case, letters and digits only ("abcd-2345"
// is "ABCD2345"). Letters outside ASCII are dropped: no code holds one.
std::string nettoyerCode(std::string_view code);

// The shortest cleaned code worth sending.
inline constexpr std::size_t longueurMinCode = 8;

} // namespace tavi
