#include "gardien/sessions_logind.h"

#include <cstdlib>
#include <ctime>
#include <cstring>
#include <systemd/sd-bus.h>

namespace tavi {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* cheminManager = "/org/freedesktop/login1";
constexpr const char* interfaceManager = "org.freedesktop.login1.Manager";
constexpr const char* interfaceSession = "org.freedesktop.login1.Session";
constexpr const char* interfaceUtilisateur = "org.freedesktop.login1.User";
constexpr std::uint64_t delaiUs = 500'000;
constexpr std::size_t sessionsMax = 512;
constexpr std::size_t proprietesMax = 256;
constexpr std::size_t texteMax = 256;
// Within this, the count takes the listing the supervision just made in the same tick.
constexpr std::int64_t fraicheurMs = 500;

std::int64_t eveilleMs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1'000'000;
}

// Releases what sd-bus hands out, on every path.
struct Erreur {
    sd_bus_error e = SD_BUS_ERROR_NULL;
    ~Erreur() { sd_bus_error_free(&e); }
};
struct Message {
    sd_bus_message* m = nullptr;
    ~Message() { sd_bus_message_unref(m); }
};

std::optional<std::string> texte(sd_bus* bus, const char* chemin, const char* interface,
                                 const char* nom) {
    Erreur erreur;
    char* valeur = nullptr;
    if (sd_bus_get_property_string(bus, service, chemin, interface, nom, &erreur.e, &valeur) < 0)
        return std::nullopt;
    std::string lu(valeur ? valeur : "");
    std::free(valeur);
    if (lu.size() > texteMax) return std::nullopt;
    return lu;
}

// Reads the variant the message is at into `s` when its name is one we keep; skips it
// otherwise. False when the message is not what logind sends.
template <class Lue>
bool lireVariante(sd_bus_message* m, const char* nom, Lue& l, bool& complete) {
    SessionLogind& s = l.session;
    const char* contenu = nullptr;
    char type = 0;
    if (sd_bus_message_peek_type(m, &type, &contenu) <= 0 || type != 'v' || !contenu) return false;
    const auto chaine = [&](std::string& cible) {
        const char* v = nullptr;
        if (std::strcmp(contenu, "s") != 0 || sd_bus_message_read(m, "v", "s", &v) <= 0 || !v)
            return false;
        if (std::strlen(v) > texteMax) return false;
        cible = v;
        return true;
    };
    const auto paire = [&](const char* signature, auto& premier, const char*& objet) {
        return std::strcmp(contenu, signature) == 0 &&
               sd_bus_message_read(m, "v", signature, &premier, &objet) > 0;
    };
    const std::string n = nom;
    if (n == "Id") return chaine(s.id) && (complete = true);
    if (n == "Name") return chaine(s.utilisateur);
    if (n == "Type") return chaine(s.type);
    if (n == "Class") return chaine(l.classe);
    if (n == "State") return chaine(s.etat);
    if (n == "Display") return chaine(s.affichage);
    if (n == "TTY") return chaine(s.tty);
    if (n == "Remote" || n == "LockedHint") {
        int b = 0;
        if (std::strcmp(contenu, "b") != 0 || sd_bus_message_read(m, "v", "b", &b) <= 0)
            return false;
        (n == "Remote" ? l.distant : s.verrouillee) = b != 0;
        return true;
    }
    if (n == "Leader") {
        std::uint32_t pid = 0;
        if (std::strcmp(contenu, "u") != 0 || sd_bus_message_read(m, "v", "u", &pid) <= 0)
            return false;
        s.meneur = static_cast<pid_t>(pid);
        return true;
    }
    if (n == "User") {
        std::uint32_t uid = 0;
        const char* objet = nullptr;
        if (!paire("(uo)", uid, objet)) return false;
        s.uid = static_cast<uid_t>(uid);
        l.cheminUtilisateur = objet ? objet : "";
        return true;
    }
    if (n == "Seat") {
        const char* siege = nullptr;
        const char* objet = nullptr;
        if (!paire("(so)", siege, objet)) return false;
        s.siege = siege ? siege : "";
        return s.siege.size() <= texteMax;
    }
    return sd_bus_message_skip(m, "v") >= 0;
}

} // namespace

bool estGraphique(const std::string& type, const std::string& classe, bool distant,
                  const std::string& etat) {
    return (type == "x11" || type == "wayland") && classe == "user" && !distant &&
           (etat == "active" || etat == "online");
}

SessionsLogind::~SessionsLogind() {
    sd_bus_flush_close_unref(bus);
}

// One session's properties in one call.
std::optional<SessionsLogind::Lue> SessionsLogind::lireSession(sd_bus* bus, const char* chemin) {
    Erreur erreur;
    Message reponse;
    if (sd_bus_call_method(bus, service, chemin, "org.freedesktop.DBus.Properties", "GetAll",
                           &erreur.e, &reponse.m, "s", interfaceSession) < 0 ||
        sd_bus_message_enter_container(reponse.m, 'a', "{sv}") <= 0)
        return std::nullopt;
    Lue l;
    bool complete = false;
    for (std::size_t i = 0; i < proprietesMax; ++i) {
        if (sd_bus_message_enter_container(reponse.m, 'e', "sv") <= 0) break;
        const char* nom = nullptr;
        if (sd_bus_message_read(reponse.m, "s", &nom) <= 0 || !nom ||
            !lireVariante(reponse.m, nom, l, complete) ||
            sd_bus_message_exit_container(reponse.m) < 0)
            return std::nullopt;
    }
    if (!complete || l.session.utilisateur.empty()) return std::nullopt;
    return l;
}

bool SessionsLogind::ouvrir() {
    if (bus && sd_bus_is_open(bus) <= 0) bus = sd_bus_flush_close_unref(bus);
    if (bus) return true;
    if (sd_bus_open_system(&bus) < 0) {
        bus = nullptr;
        return false;
    }
    sd_bus_set_method_call_timeout(bus, delaiUs);
    return true;
}

const std::optional<std::vector<SessionsLogind::Lue>>& SessionsLogind::lister(bool recente) {
    const std::int64_t maintenant = eveilleMs();
    if (recente && liste && maintenant - listeeMs < fraicheurMs) return liste;
    liste.reset();
    if (!ouvrir()) return liste;
    Erreur erreur;
    Message reponse;
    if (sd_bus_call_method(bus, service, cheminManager, interfaceManager, "ListSessions",
                           &erreur.e, &reponse.m, "") < 0) {
        // A bus that no longer answers is opened again next time; logind missing on a live
        // bus is only absent.
        if (sd_bus_is_open(bus) <= 0) bus = sd_bus_flush_close_unref(bus);
        return liste;
    }
    if (sd_bus_message_enter_container(reponse.m, 'a', "(susso)") <= 0) return liste;
    std::vector<Lue> sessions;
    std::size_t lues = 0;
    const char *id, *nom, *siege, *chemin;
    std::uint32_t uid;
    while (lues++ < sessionsMax &&
           sd_bus_message_read(reponse.m, "(susso)", &id, &uid, &nom, &siege, &chemin) > 0) {
        if (auto lue = lireSession(bus, chemin)) sessions.push_back(std::move(*lue));
    }
    liste = std::move(sessions);
    listeeMs = maintenant;
    return liste;
}

std::optional<std::vector<SessionLogind>> SessionsLogind::graphiques() {
    const auto& lues = lister(false);
    if (!lues) return std::nullopt;
    std::vector<SessionLogind> sessions;
    for (const auto& l : *lues) {
        if (!estGraphique(l.session.type, l.classe, l.distant, l.session.etat)) continue;
        SessionLogind s = l.session;
        if (!l.cheminUtilisateur.empty())
            s.dossierExecution =
                texte(bus, l.cheminUtilisateur.c_str(), interfaceUtilisateur, "RuntimePath")
                    .value_or("");
        sessions.push_back(std::move(s));
    }
    return sessions;
}

std::optional<std::vector<SessionLogind>> SessionsLogind::locales() {
    const auto& lues = lister(true);
    if (!lues) return std::nullopt;
    std::vector<SessionLogind> sessions;
    for (const auto& l : *lues)
        if (l.classe == "user" && !l.distant && l.session.etat != "closing" &&
            (!l.session.siege.empty() || !l.session.tty.empty()))
            sessions.push_back(l.session);
    return sessions;
}

bool SessionsLogind::versLaVeille() {
    if (!ouvrir()) return false;
    Erreur erreur;
    int veille = 0;
    return sd_bus_get_property_trivial(bus, service, cheminManager, interfaceManager,
                                       "PreparingForSleep", &erreur.e, 'b', &veille) >= 0 &&
           veille != 0;
}

bool SessionsLogind::appeler(const char* methode, const std::string& id) {
    if (!ouvrir()) return false;
    Erreur erreur;
    return sd_bus_call_method(bus, service, cheminManager, interfaceManager, methode, &erreur.e,
                              nullptr, "s", id.c_str()) >= 0;
}

bool SessionsLogind::verrouiller(const std::string& id) {
    return appeler("LockSession", id);
}

bool SessionsLogind::terminer(const std::string& id) {
    return appeler("TerminateSession", id);
}

} // namespace tavi
