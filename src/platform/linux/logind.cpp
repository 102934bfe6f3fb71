#include "platform/linux/logind.h"

#include "platform/boucle.h"
#include "platform/linux/bus_sd.h"
#include "platform/linux/lecture_bus.h"

#include <cstdint>
#include <cstring>
#include <ctime>
#include <map>
#include <string_view>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tavi {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* racine = "/org/freedesktop/login1";
constexpr const char* gestionnaire = "org.freedesktop.login1.Manager";
constexpr const char* interfaceSession = "org.freedesktop.login1.Session";
constexpr const char* interfaceUtilisateur = "org.freedesktop.login1.User";
constexpr const char* proprietes = "org.freedesktop.DBus.Properties";
constexpr std::string_view prefixeSession = "/org/freedesktop/login1/session/";

std::uint64_t horlogeUs(clockid_t horloge) {
    timespec t{};
    clock_gettime(horloge, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(t.tv_nsec) / 1000u;
}

// An object path from a reply, when it names a session (not "/", which means none).
std::optional<std::string> cheminSession(const char* chemin) {
    if (!chemin) return std::nullopt;
    const std::string_view c(chemin);
    if (c.size() <= prefixeSession.size() || c.size() > 256 || !c.starts_with(prefixeSession))
        return std::nullopt;
    return std::string(c);
}

// The session's properties as last read; absent when unknown or of an unexpected type.
struct Proprietes {
    std::optional<bool> verrouille, actif, distant, inactif;
    std::optional<std::uint64_t> inactifDepuisUs, inactifDepuisMuralUs;
    std::optional<std::string> type;
};

} // namespace

struct Logind::Etat : std::enable_shared_from_this<Logind::Etat> {
    BusSd& bus;
    Proprietes p;
    bool pret = false;
    // Each connection has its number; a reply for an older one is dropped.
    int generation = 0;
    std::string chemin;
    std::unique_ptr<Abonnement> changements;
    std::unique_ptr<Abonnement> changementsUtilisateur;
    std::vector<std::function<void()>> attentesPret;
    int prochainId = 0;
    std::map<int, std::function<void(bool)>> observateursActif;
    std::map<int, std::function<void()>> observateurs;
    std::optional<bool> actifAnnonce;

    explicit Etat(BusSd& b) : bus(b) {}

    void connecte() {
        ++generation;
        parUtilisateur();
    }

    void perdu() {
        ++generation;
        changements.reset();
        changementsUtilisateur.reset();
        chemin.clear();
        p = {};
        annoncer();
    }

    // A reply for this connection and this object, or nothing.
    template <class F>
    BusSd::Reponse reponse(F&& suite) {
        return [faible = weak_from_this(), g = generation,
                suite = std::forward<F>(suite)](sd_bus_message* m) {
            auto e = faible.lock();
            if (e && e->generation == g) suite(*e, m);
        };
    }

    // The session is the one logind elects as the user's desktop, whoever started us and from
    // where: neither $XDG_SESSION_ID nor the session we were started in (a console one, to
    // whose idle screen the child would point the counting) chooses it.
    void parUtilisateur() {
        const auto uid = static_cast<std::uint32_t>(getuid());
        bus.appeler(
            service, racine, gestionnaire, "GetUser",
            [uid](sd_bus_message* m) { return sd_bus_message_append(m, "u", uid); },
            reponse([](Etat& e, sd_bus_message* m) {
                const char* utilisateur = nullptr;
                if (!m || sd_bus_message_read(m, "o", &utilisateur) <= 0 || !utilisateur)
                    return e.echec();
                e.suivreUtilisateur(utilisateur);
            }));
    }

    // logind elects another display session when the user's desktop one ends and a new one
    // begins: the session followed goes with it.
    void suivreUtilisateur(const std::string& utilisateur) {
        changementsUtilisateur =
            bus.ecouter(service, utilisateur.c_str(), proprietes, "PropertiesChanged",
                        [faible = weak_from_this(), utilisateur](sd_bus_message* m) {
                            const char* interface = nullptr;
                            auto e = faible.lock();
                            if (e && sd_bus_message_read(m, "s", &interface) > 0 && interface &&
                                std::strcmp(interface, interfaceUtilisateur) == 0)
                                e->affichageDe(utilisateur);
                        });
        affichageDe(utilisateur);
    }

    void affichageDe(const std::string& utilisateur) {
        bus.appeler(
            service, utilisateur.c_str(), proprietes, "Get",
            [](sd_bus_message* m) {
                return sd_bus_message_append(m, "ss", interfaceUtilisateur, "Display");
            },
            reponse([](Etat& e, sd_bus_message* m) {
                const char* id = nullptr;
                const char* c = nullptr;
                std::optional<std::string> session;
                if (m && sd_bus_message_read(m, "v", "(so)", &id, &c) > 0)
                    session = cheminSession(c);
                if (!session) return e.echec();
                if (*session != e.chemin) e.suivreSession(*session);
            }));
    }

    void suivreSession(const std::string& session) {
        chemin = session;
        // Subscribed before reading, so that no change falls between the two: the daemon
        // takes the match before the call, which goes after it on the same connection.
        changements = bus.ecouter(service, chemin.c_str(), proprietes, "PropertiesChanged",
                                  [faible = weak_from_this()](sd_bus_message* m) {
                                      if (auto e = faible.lock()) e->changement(m);
                                  });
        lireTout();
    }

    void lireTout() {
        bus.appeler(
            service, chemin.c_str(), proprietes, "GetAll",
            [](sd_bus_message* m) { return sd_bus_message_append(m, "s", interfaceSession); },
            reponse([](Etat& e, sd_bus_message* m) {
                if (!m) return e.echec();
                Proprietes lues;
                if (!LectureBus::dictionnaire(m, [&lues](std::string_view nom, sd_bus_message* v) {
                        return lire(lues, nom, v);
                    }))
                    return e.echec();
                e.p = lues;
                e.devenirPret();
                e.annoncer();
            }));
    }

    // Reads one property into `q`; false when it is not one we follow.
    static bool lire(Proprietes& q, std::string_view nom, sd_bus_message* v) {
        if (nom == "LockedHint")
            q.verrouille = LectureBus::booleen(v);
        else if (nom == "Active")
            q.actif = LectureBus::booleen(v);
        else if (nom == "Remote")
            q.distant = LectureBus::booleen(v);
        else if (nom == "IdleHint")
            q.inactif = LectureBus::booleen(v);
        else if (nom == "IdleSinceHintMonotonic")
            q.inactifDepuisUs = LectureBus::entier64(v);
        else if (nom == "IdleSinceHint")
            q.inactifDepuisMuralUs = LectureBus::entier64(v);
        else if (nom == "Type")
            q.type = LectureBus::texte(v);
        else
            return false;
        return true;
    }

    void changement(sd_bus_message* m) {
        const char* interface = nullptr;
        if (sd_bus_message_read(m, "s", &interface) <= 0 || !interface ||
            std::strcmp(interface, interfaceSession) != 0)
            return;
        Proprietes q = p;
        if (!LectureBus::dictionnaire(
                m, [&q](std::string_view nom, sd_bus_message* v) { return lire(q, nom, v); }))
            return;
        p = q;
        // Properties announced without their value: read them all again.
        if (sd_bus_message_enter_container(m, SD_BUS_TYPE_ARRAY, "s") > 0) {
            const char* invalide = nullptr;
            if (sd_bus_message_read_basic(m, SD_BUS_TYPE_STRING, &invalide) > 0) lireTout();
            sd_bus_message_exit_container(m);
        }
        annoncer();
    }

    void echec() {
        changements.reset();
        chemin.clear();
        p = {};
        devenirPret();
        annoncer();
    }

    void devenirPret() {
        if (pret) return;
        pret = true;
        auto attentes = std::move(attentesPret);
        attentesPret.clear();
        bus.boucle().poster([faible = weak_from_this(), attentes = std::move(attentes)] {
            if (!faible.lock()) return;
            for (const auto& quand : attentes)
                quand();
        });
    }

    // Observers run after sd-bus's dispatching, so that they may do anything, even destroy
    // us.
    void annoncer() {
        bus.boucle().poster([faible = weak_from_this()] {
            auto e = faible.lock();
            if (!e) return;
            if (e->p.actif && e->p.actif != e->actifAnnonce) {
                e->actifAnnonce = e->p.actif;
                for (const auto& id : ids(e->observateursActif)) {
                    const auto o = e->observateursActif.find(id);
                    if (o != e->observateursActif.end()) o->second(*e->actifAnnonce);
                    if (faible.expired()) return;
                }
            }
            for (const auto& id : ids(e->observateurs)) {
                const auto o = e->observateurs.find(id);
                if (o != e->observateurs.end()) o->second();
                if (faible.expired()) return;
            }
        });
    }

    template <class M>
    static std::vector<int> ids(const M& m) {
        std::vector<int> v;
        for (const auto& [id, f] : m)
            v.push_back(id);
        return v;
    }
};

namespace {

template <class M>
class Observation : public Abonnement {
public:
    Observation(std::weak_ptr<Logind::Etat> lEtat, M Logind::Etat::*laListe, int lId)
        : etat(std::move(lEtat)), liste(laListe), id(lId) {}
    ~Observation() override {
        if (auto e = etat.lock()) ((*e).*liste).erase(id);
    }

private:
    std::weak_ptr<Logind::Etat> etat;
    M Logind::Etat::*liste;
    int id;
};

} // namespace

Logind::Logind(BusSd& systeme) : etat(std::make_shared<Etat>(systeme)) {
    suivi = systeme.suivre(
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) e->connecte();
        },
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) e->perdu();
        });
    // No bus at all: nothing more will come before a retry succeeds.
    if (!systeme.connecte()) etat->devenirPret();
}

Logind::~Logind() = default;

std::optional<bool> Logind::verrouille() const {
    return etat->p.verrouille;
}

std::optional<bool> Logind::actif() const {
    return etat->p.actif;
}

std::optional<bool> Logind::distant() const {
    return etat->p.distant;
}

std::optional<double> Logind::secondesInactivite() const {
    const Proprietes& p = etat->p;
    if (p.inactif != true) return std::nullopt;
    // logind stamps the monotonic time (CLOCK_MONOTONIC, which stops during suspend, as
    // logind's own clock does); the wall-clock stamp is only a fallback, the child can move
    // that clock.
    std::uint64_t depuis = 0, maintenant = 0;
    if (p.inactifDepuisUs.value_or(0) > 0) {
        depuis = *p.inactifDepuisUs;
        maintenant = horlogeUs(CLOCK_MONOTONIC);
    } else if (p.inactifDepuisMuralUs.value_or(0) > 0) {
        depuis = *p.inactifDepuisMuralUs;
        maintenant = horlogeUs(CLOCK_REALTIME);
    } else {
        return std::nullopt;
    }
    if (depuis > maintenant) return std::nullopt;
    return static_cast<double>(maintenant - depuis) / 1e6;
}

std::optional<std::string> Logind::type() const {
    return etat->p.type;
}

bool Logind::pret() const {
    return etat->pret;
}

void Logind::quandPret(std::function<void()> quand) {
    if (!etat->pret) return etat->attentesPret.push_back(std::move(quand));
    etat->bus.boucle().poster([faible = std::weak_ptr<Etat>(etat), quand = std::move(quand)] {
        if (faible.lock()) quand();
    });
}

std::unique_ptr<Abonnement> Logind::observerActif(std::function<void(bool)> quand) {
    const int id = etat->prochainId++;
    etat->observateursActif.emplace(id, std::move(quand));
    return std::make_unique<Observation<decltype(Etat::observateursActif)>>(
        etat, &Etat::observateursActif, id);
}

std::unique_ptr<Abonnement> Logind::observer(std::function<void()> quand) {
    const int id = etat->prochainId++;
    etat->observateurs.emplace(id, std::move(quand));
    return std::make_unique<Observation<decltype(Etat::observateurs)>>(etat, &Etat::observateurs,
                                                                       id);
}

} // namespace tavi
