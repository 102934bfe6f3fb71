#include "gardien/lanceur.h"

#include <chrono>
#include <cstdint>
#include <systemd/sd-bus.h>
#include <thread>
#include <time.h>

namespace tavi {

namespace {

constexpr const char* systemd1 = "org.freedesktop.systemd1";
constexpr const char* racine = "/org/freedesktop/systemd1";
constexpr const char* gestionnaire = "org.freedesktop.systemd1.Manager";

struct Bus {
    sd_bus* b = nullptr;
    ~Bus() { sd_bus_flush_close_unref(b); }
};
struct Message {
    sd_bus_message* m = nullptr;
    ~Message() { sd_bus_message_unref(m); }
};
struct Erreur {
    sd_bus_error e = SD_BUS_ERROR_NULL;
    ~Erreur() { sd_bus_error_free(&e); }
};

int texte(sd_bus_message* m, const char* nom, const std::string& valeur) {
    return sd_bus_message_append(m, "(sv)", nom, "s", valeur.c_str());
}

// The unit's properties: the user, the user's slice (so the session's end and the user's limits
// reach it), the environment as built, the agent alone on its command line.
int remplir(sd_bus_message* m, const std::string& nom, const Lancement& l) {
    int r = sd_bus_message_append(m, "ss", nom.c_str(), "fail");
    if (r >= 0) r = sd_bus_message_open_container(m, 'a', "(sv)");
    if (r >= 0) r = texte(m, "Description", "Tavi Home agent of " + l.utilisateur);
    if (r >= 0) r = texte(m, "User", l.utilisateur);
    if (r >= 0) r = texte(m, "Slice", "user-" + std::to_string(l.uid) + ".slice");
    if (r >= 0) r = texte(m, "WorkingDirectory", "-" + l.maison);
    if (r >= 0) r = texte(m, "Type", "exec");
    if (r >= 0) r = texte(m, "CollectMode", "inactive-or-failed");
    if (r >= 0) r = sd_bus_message_open_container(m, 'r', "sv");
    if (r >= 0) r = sd_bus_message_append(m, "s", "Environment");
    if (r >= 0) r = sd_bus_message_open_container(m, 'v', "as");
    if (r >= 0) r = sd_bus_message_open_container(m, 'a', "s");
    for (const auto& variable : l.environnement)
        if (r >= 0) r = sd_bus_message_append(m, "s", variable.c_str());
    if (r >= 0) r = sd_bus_message_close_container(m);
    if (r >= 0) r = sd_bus_message_close_container(m);
    if (r >= 0) r = sd_bus_message_close_container(m);
    if (r >= 0)
        r = sd_bus_message_append(m, "(sv)", "ExecStart", "a(sasb)", 1, l.executable.c_str(), 1,
                                  l.executable.c_str(), 0);
    if (r >= 0) r = sd_bus_message_close_container(m);
    if (r >= 0) r = sd_bus_message_append(m, "a(sa(sv))", 0);
    return r;
}

std::optional<pid_t> pidPrincipal(sd_bus* bus, const std::string& nom) {
    Erreur erreur;
    Message reponse;
    const char* unite = nullptr;
    if (sd_bus_call_method(bus, systemd1, racine, gestionnaire, "GetUnit", &erreur.e, &reponse.m,
                           "s", nom.c_str()) < 0 ||
        sd_bus_message_read(reponse.m, "o", &unite) <= 0 || !unite)
        return std::nullopt;
    std::uint32_t pid = 0;
    if (sd_bus_get_property_trivial(bus, systemd1, unite, "org.freedesktop.systemd1.Service",
                                    "MainPID", &erreur.e, 'u', &pid) < 0 ||
        pid == 0)
        return std::nullopt;
    return static_cast<pid_t>(pid);
}

} // namespace

std::optional<AgentLance> LanceurSystemd::lancer(const Lancement& lancement) {
    Bus bus;
    if (sd_bus_open_system(&bus.b) < 0) return std::nullopt;
    sd_bus_set_method_call_timeout(bus.b, 2'000'000);
    timespec maintenant{};
    clock_gettime(CLOCK_BOOTTIME, &maintenant);
    // A name of its own for each start: the unit of an agent that just died may not be
    // collected yet.
    const std::string nom = "tavi-agent-" + std::to_string(lancement.uid) + "-" +
                            std::to_string(maintenant.tv_sec) + "-" +
                            std::to_string(maintenant.tv_nsec) + ".service";
    Message appel;
    Message reponse;
    Erreur erreur;
    if (sd_bus_message_new_method_call(bus.b, &appel.m, systemd1, racine, gestionnaire,
                                       "StartTransientUnit") < 0 ||
        remplir(appel.m, nom, lancement) < 0 ||
        sd_bus_call(bus.b, appel.m, 0, &erreur.e, &reponse.m) < 0)
        return std::nullopt;
    // Type=exec: the job ends once the agent's program runs, and its pid is known a moment
    // before that.
    for (int essai = 0; essai < 20; ++essai) {
        if (const auto pid = pidPrincipal(bus.b, nom)) return AgentLance{*pid, false};
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return std::nullopt;
}

} // namespace tavi
