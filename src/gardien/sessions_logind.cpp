#include "gardien/sessions_logind.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <systemd/sd-bus.h>

namespace tavi {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* interfaceSession = "org.freedesktop.login1.Session";
constexpr const char* interfaceUtilisateur = "org.freedesktop.login1.User";
constexpr std::uint64_t delaiUs = 500'000;
constexpr std::size_t sessionsMax = 512;
constexpr std::size_t texteMax = 256;

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

template <class T>
std::optional<T> trivial(sd_bus* bus, const char* chemin, const char* interface, const char* nom,
                         char type) {
    Erreur erreur;
    T valeur{};
    if (sd_bus_get_property_trivial(bus, service, chemin, interface, nom, &erreur.e, type,
                                    &valeur) < 0)
        return std::nullopt;
    return valeur;
}

// A struct property (uid or seat id first, an object path after).
template <class T>
std::optional<std::pair<T, std::string>> paire(sd_bus* bus, const char* chemin, const char* nom,
                                               const char* signature) {
    Erreur erreur;
    Message reponse;
    if (sd_bus_get_property(bus, service, chemin, interfaceSession, nom, &erreur.e, &reponse.m,
                            signature) < 0)
        return std::nullopt;
    T premier{};
    const char* objet = nullptr;
    if (sd_bus_message_read(reponse.m, signature, &premier, &objet) <= 0 || !objet)
        return std::nullopt;
    return std::pair<T, std::string>(premier, objet);
}

std::optional<SessionGraphique> lireSession(sd_bus* bus, const char* chemin) {
    const auto type = texte(bus, chemin, interfaceSession, "Type");
    const auto classe = texte(bus, chemin, interfaceSession, "Class");
    const auto etat = texte(bus, chemin, interfaceSession, "State");
    const auto distant = trivial<int>(bus, chemin, interfaceSession, "Remote", 'b');
    if (!type || !classe || !etat || !distant || !estGraphique(*type, *classe, *distant, *etat))
        return std::nullopt;
    SessionGraphique s;
    s.type = *type;
    s.etat = *etat;
    const auto id = texte(bus, chemin, interfaceSession, "Id");
    const auto utilisateur = paire<std::uint32_t>(bus, chemin, "User", "(uo)");
    const auto nom = texte(bus, chemin, interfaceSession, "Name");
    const auto meneur = trivial<std::uint32_t>(bus, chemin, interfaceSession, "Leader", 'u');
    if (!id || !utilisateur || !nom || !meneur) return std::nullopt;
    s.id = *id;
    s.uid = static_cast<uid_t>(utilisateur->first);
    s.utilisateur = *nom;
    s.meneur = static_cast<pid_t>(*meneur);
    s.affichage = texte(bus, chemin, interfaceSession, "Display").value_or("");
    if (const auto siege = paire<const char*>(bus, chemin, "Seat", "(so)"))
        s.siege = siege->first ? siege->first : "";
    s.dossierExecution =
        texte(bus, utilisateur->second.c_str(), interfaceUtilisateur, "RuntimePath").value_or("");
    return s;
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

std::optional<std::vector<SessionGraphique>> SessionsLogind::graphiques() {
    if (bus && sd_bus_is_open(bus) <= 0) bus = sd_bus_flush_close_unref(bus);
    if (!bus) {
        if (sd_bus_open_system(&bus) < 0) {
            bus = nullptr;
            return std::nullopt;
        }
        sd_bus_set_method_call_timeout(bus, delaiUs);
    }
    Erreur erreur;
    Message reponse;
    if (sd_bus_call_method(bus, service, "/org/freedesktop/login1",
                           "org.freedesktop.login1.Manager", "ListSessions", &erreur.e, &reponse.m,
                           "") < 0) {
        // A bus that no longer answers is opened again next time; logind missing on a live
        // bus is only absent.
        if (sd_bus_is_open(bus) <= 0) bus = sd_bus_flush_close_unref(bus);
        return std::nullopt;
    }
    if (sd_bus_message_enter_container(reponse.m, 'a', "(susso)") <= 0) return std::nullopt;
    std::vector<SessionGraphique> sessions;
    std::size_t lues = 0;
    const char *id, *nom, *siege, *chemin;
    std::uint32_t uid;
    while (lues++ < sessionsMax &&
           sd_bus_message_read(reponse.m, "(susso)", &id, &uid, &nom, &siege, &chemin) > 0) {
        if (auto session = lireSession(bus, chemin)) sessions.push_back(std::move(*session));
    }
    return sessions;
}

} // namespace tavi
