#include "platform/linux/inhibitions.h"

#include "platform/linux/bus_sd.h"

#include <cstdint>
#include <string_view>
#include <systemd/sd-bus.h>

namespace tavi {

namespace {

using Horloge = std::chrono::steady_clock;

// More inhibitors than this is not a list logind would give; the rest is not read.
constexpr int inhibiteursMax = 4096;
// GNOME's session manager's flag for "the session may not be marked idle".
constexpr std::uint32_t drapeauInactivite = 8;

// `quoi` lists what an inhibitor holds, separated by colons ("sleep:idle").
bool retientInactivite(std::string_view quoi) {
    while (!quoi.empty()) {
        const auto fin = quoi.find(':');
        if (quoi.substr(0, fin) == "idle") return true;
        if (fin == std::string_view::npos) break;
        quoi.remove_prefix(fin + 1);
    }
    return false;
}

std::optional<bool> inhibiteurs(sd_bus_message* m) {
    if (!m || sd_bus_message_enter_container(m, SD_BUS_TYPE_ARRAY, "(ssssuu)") <= 0)
        return std::nullopt;
    const char *quoi = nullptr, *qui = nullptr, *pourquoi = nullptr, *mode = nullptr;
    std::uint32_t uid = 0, pid = 0;
    for (int n = 0; n < inhibiteursMax; ++n) {
        if (sd_bus_message_read(m, "(ssssuu)", &quoi, &qui, &pourquoi, &mode, &uid, &pid) <= 0)
            break;
        // A "delay" inhibitor only postpones; only "block" keeps the display on.
        if (quoi && mode && std::string_view(mode) == "block" && retientInactivite(quoi))
            return true;
    }
    return false;
}

// One question asked again when its answer is stale.
struct Question {
    std::optional<bool> valeur;
    std::optional<Horloge::time_point> posee;
    bool enVol = false;
    int generation = 0;

    bool aReposer() const {
        return !enVol && (!posee || Horloge::now() - *posee >= Inhibitions::fraicheur);
    }
    void oublier() {
        valeur.reset();
        posee.reset();
        enVol = false;
        ++generation;
    }
};

} // namespace

struct Inhibitions::Etat : std::enable_shared_from_this<Inhibitions::Etat> {
    BusSd& systeme;
    BusSd& session;
    Question logind, bureau;

    Etat(BusSd& s, BusSd& b) : systeme(s), session(b) {}

    void poser(BusSd& bus, Question Etat::*question, const char* destination, const char* chemin,
               const char* interface, const char* methode, const BusSd::Remplir& remplir,
               std::optional<bool> (*lire)(sd_bus_message*)) {
        Question& q = this->*question;
        q.enVol = true;
        q.posee = Horloge::now();
        bus.appeler(
            destination, chemin, interface, methode, remplir,
            [faible = weak_from_this(), question, g = q.generation, lire](sd_bus_message* m) {
                auto e = faible.lock();
                if (!e || (e.get()->*question).generation != g) return;
                Question& reponse = e.get()->*question;
                reponse.enVol = false;
                reponse.valeur = lire(m);
            });
    }

    void rafraichir() {
        if (logind.aReposer())
            poser(systeme, &Etat::logind, "org.freedesktop.login1", "/org/freedesktop/login1",
                  "org.freedesktop.login1.Manager", "ListInhibitors", {}, inhibiteurs);
        if (bureau.aReposer())
            poser(
                session, &Etat::bureau, "org.gnome.SessionManager", "/org/gnome/SessionManager",
                "org.gnome.SessionManager", "IsInhibited",
                [](sd_bus_message* m) { return sd_bus_message_append(m, "u", drapeauInactivite); },
                [](sd_bus_message* m) -> std::optional<bool> {
                    int retenu = 0;
                    if (!m || sd_bus_message_read(m, "b", &retenu) <= 0) return std::nullopt;
                    return retenu != 0;
                });
    }
};

Inhibitions::Inhibitions(BusSd& systeme, BusSd& session)
    : etat(std::make_shared<Etat>(systeme, session)) {
    // A new connection asks at once; a lost one forgets, so nothing stale outlives it.
    auto suivre = [this](BusSd& bus, Question Etat::*question) {
        return bus.suivre(
            [faible = std::weak_ptr<Etat>(etat), question] {
                if (auto e = faible.lock()) {
                    (e.get()->*question).oublier();
                    e->rafraichir();
                }
            },
            [faible = std::weak_ptr<Etat>(etat), question] {
                if (auto e = faible.lock()) (e.get()->*question).oublier();
            });
    };
    suiviSysteme = suivre(systeme, &Etat::logind);
    suiviSession = suivre(session, &Etat::bureau);
}

Inhibitions::~Inhibitions() = default;

std::optional<bool> Inhibitions::veilleEcranRetenue() const {
    etat->rafraichir();
    const auto l = etat->logind.valeur;
    const auto b = etat->bureau.valeur;
    if (l == true || b == true) return true;
    if (l || b) return false;
    return std::nullopt;
}

std::optional<bool> Inhibitions::parLogind() const {
    return etat->logind.valeur;
}

std::optional<bool> Inhibitions::parBureau() const {
    return etat->bureau.valeur;
}

void Inhibitions::rafraichir() const {
    etat->rafraichir();
}

} // namespace tavi
