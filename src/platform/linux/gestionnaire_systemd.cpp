#include "platform/linux/gestionnaire_systemd.h"

#include "platform/linux/fichier_atomique.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <systemd/sd-bus.h>

namespace tavi {

namespace fs = std::filesystem;

namespace {

constexpr const char* service = "org.freedesktop.systemd1";
constexpr const char* racine = "/org/freedesktop/systemd1";
constexpr const char* interfaceGestionnaire = "org.freedesktop.systemd1.Manager";
constexpr const char* interfaceUnite = "org.freedesktop.systemd1.Unit";
constexpr std::size_t longueurMaxErreur = 200;
constexpr auto delaiUs = static_cast<std::uint64_t>(
    std::chrono::duration_cast<std::chrono::microseconds>(GestionnaireSystemd::delaiAppel).count());

std::uint64_t maintenantUs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(t.tv_nsec) / 1000u;
}

// Every byte but the few that a D-Bus address lets stand for themselves is written %XX.
std::string adresseUnix(const fs::path& socket) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string adresse = "unix:path=";
    for (unsigned char c : socket.native()) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            c == '-' || c == '_' || c == '/' || c == '.') {
            adresse += static_cast<char>(c);
        } else {
            adresse += '%';
            adresse += hex[c >> 4];
            adresse += hex[c & 0xF];
        }
    }
    return adresse;
}

// A connection to `adresse` ready for calls (authenticated and, on a bus, welcomed by the
// daemon) before `finUs`; null otherwise. sd-bus's own wait for the authentication is far
// longer than a call's bound: it is driven here instead.
sd_bus* connecter(const std::string& adresse, bool surBus, std::uint64_t finUs) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0) return nullptr;
    if (sd_bus_set_address(bus, adresse.c_str()) < 0 || sd_bus_set_bus_client(bus, surBus) < 0 ||
        sd_bus_set_method_call_timeout(bus, delaiUs) < 0 || sd_bus_start(bus) < 0)
        return sd_bus_close_unref(bus);
    for (;;) {
        const int pret = sd_bus_is_ready(bus);
        if (pret > 0) return bus;
        if (pret < 0) break;
        const int r = sd_bus_process(bus, nullptr);
        if (r < 0) break;
        if (r > 0) continue;
        const auto maintenant = maintenantUs();
        if (maintenant >= finUs || sd_bus_wait(bus, finUs - maintenant) < 0) break;
    }
    return sd_bus_close_unref(bus);
}

std::string description(int code, const char* nom, const char* message) {
    if (!nom) return nomErreur(-code);
    std::string texte = nom;
    // systemd's own errors carry an English message worth reading ("Unit file ... is
    // masked."); the others' messages come from the C library, in the user's language.
    if (message && texte.starts_with("org.freedesktop.systemd1."))
        texte += std::string(": ") + message;
    if (texte.size() > longueurMaxErreur) texte.resize(longueurMaxErreur);
    for (char& c : texte)
        if (c < 0x20 || c > 0x7e) c = '?';
    return texte;
}

// What one call holds until it ends.
struct Appel {
    // Zeroed, as SD_BUS_ERROR_NULL would make it, without that macro's C99 compound literal.
    sd_bus_error erreur{};
    sd_bus_message* reponse = nullptr;
    Appel() = default;
    ~Appel() {
        sd_bus_message_unref(reponse);
        sd_bus_error_free(&erreur);
    }
    Appel(const Appel&) = delete;
    Appel& operator=(const Appel&) = delete;
};

} // namespace

std::unique_ptr<GestionnaireSystemd> GestionnaireSystemd::joindre(const fs::path& dossierExecution,
                                                                  const std::string& adresseBus) {
    const auto finUs = maintenantUs() + delaiUs;
    sd_bus* bus = nullptr;
    if (dossierExecution.is_absolute())
        bus = connecter(adresseUnix(dossierExecution / "systemd/private"), false, finUs);
    std::string adresse = adresseBus;
    if (adresse.empty() && dossierExecution.is_absolute())
        adresse = adresseUnix(dossierExecution / "bus");
    if (!bus && !adresse.empty()) bus = connecter(adresse, true, finUs);
    if (!bus) return nullptr;
    return std::unique_ptr<GestionnaireSystemd>(new GestionnaireSystemd(bus));
}

GestionnaireSystemd::~GestionnaireSystemd() {
    // Not flushed: every call was answered or given up, and a flush would wait on the peer.
    sd_bus_close_unref(bus);
}

bool GestionnaireSystemd::noter(int code, const char* nom, const char* message) {
    if (code >= 0) return true;
    erreur_ = description(code, nom, message);
    if (code == -ETIMEDOUT || code == -ENOTCONN || code == -ECONNRESET || !sd_bus_is_open(bus))
        muet = true;
    return false;
}

std::optional<std::string> GestionnaireSystemd::etatFichier(const std::string& unite) {
    Appel appel;
    const char* etat = nullptr;
    if (muet ||
        !noter(sd_bus_call_method(bus, service, racine, interfaceGestionnaire, "GetUnitFileState",
                                  &appel.erreur, &appel.reponse, "s", unite.c_str()),
               appel.erreur.name, appel.erreur.message) ||
        !noter(sd_bus_message_read(appel.reponse, "s", &etat)))
        return std::nullopt;
    return std::string(etat);
}

std::optional<std::string> GestionnaireSystemd::objetUnite(const std::string& unite, bool charger) {
    Appel appel;
    const char* objet = nullptr;
    if (muet ||
        !noter(sd_bus_call_method(bus, service, racine, interfaceGestionnaire,
                                  charger ? "LoadUnit" : "GetUnit", &appel.erreur, &appel.reponse,
                                  "s", unite.c_str()),
               appel.erreur.name, appel.erreur.message) ||
        !noter(sd_bus_message_read(appel.reponse, "o", &objet)))
        return std::nullopt;
    return std::string(objet);
}

std::optional<std::string> GestionnaireSystemd::texte(const std::string& objet,
                                                      const char* propriete) {
    Appel appel;
    char* valeur = nullptr;
    if (muet || !noter(sd_bus_get_property_string(bus, service, objet.c_str(), interfaceUnite,
                                                  propriete, &appel.erreur, &valeur),
                       appel.erreur.name, appel.erreur.message))
        return std::nullopt;
    std::string resultat = valeur;
    std::free(valeur);
    return resultat;
}

std::optional<std::vector<std::string>> GestionnaireSystemd::liste(const std::string& objet,
                                                                   const char* propriete) {
    Appel appel;
    char** valeurs = nullptr;
    if (muet || !noter(sd_bus_get_property_strv(bus, service, objet.c_str(), interfaceUnite,
                                                propriete, &appel.erreur, &valeurs),
                       appel.erreur.name, appel.erreur.message))
        return std::nullopt;
    std::vector<std::string> resultat;
    for (char** v = valeurs; v && *v; ++v) {
        resultat.emplace_back(*v);
        std::free(*v);
    }
    std::free(valeurs);
    return resultat;
}

std::optional<bool> GestionnaireSystemd::booleen(const std::string& objet, const char* propriete) {
    Appel appel;
    int valeur = 0;
    if (muet || !noter(sd_bus_get_property_trivial(bus, service, objet.c_str(), interfaceUnite,
                                                   propriete, &appel.erreur, 'b', &valeur),
                       appel.erreur.name, appel.erreur.message))
        return std::nullopt;
    return valeur != 0;
}

std::optional<std::string> GestionnaireSystemd::recharger() {
    Appel appel;
    if (muet || !noter(sd_bus_call_method(bus, service, racine, interfaceGestionnaire, "Reload",
                                          &appel.erreur, nullptr, nullptr),
                       appel.erreur.name, appel.erreur.message))
        return "Reload: " + erreur_;
    return std::nullopt;
}

std::optional<std::string> GestionnaireSystemd::activer(const std::string& unite) {
    Appel appel;
    if (muet ||
        !noter(sd_bus_call_method(bus, service, racine, interfaceGestionnaire, "EnableUnitFiles",
                                  &appel.erreur, nullptr, "asbb", 1, unite.c_str(), 0, 1),
               appel.erreur.name, appel.erreur.message))
        return "EnableUnitFiles: " + erreur_;
    return std::nullopt;
}

std::optional<std::string> GestionnaireSystemd::desactiver(const std::string& unite) {
    Appel appel;
    if (muet ||
        !noter(sd_bus_call_method(bus, service, racine, interfaceGestionnaire, "DisableUnitFiles",
                                  &appel.erreur, nullptr, "asb", 1, unite.c_str(), 0),
               appel.erreur.name, appel.erreur.message))
        return "DisableUnitFiles: " + erreur_;
    return std::nullopt;
}

} // namespace tavi
