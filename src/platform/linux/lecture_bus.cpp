#include "platform/linux/lecture_bus.h"

#include <cstring>
#include <systemd/sd-bus.h>

namespace tavi::LectureBus {

namespace {

// Enters the variant when it holds exactly `signature`; otherwise steps over it.
bool entrer(sd_bus_message* m, const char* signature) {
    char type = 0;
    const char* contenu = nullptr;
    if (sd_bus_message_peek_type(m, &type, &contenu) <= 0 || type != SD_BUS_TYPE_VARIANT)
        return false;
    if (contenu && std::strcmp(contenu, signature) == 0)
        return sd_bus_message_enter_container(m, SD_BUS_TYPE_VARIANT, signature) > 0;
    sd_bus_message_skip(m, "v");
    return false;
}

template <class T>
std::optional<T> simple(sd_bus_message* m, char type, const char* signature) {
    if (!entrer(m, signature)) return std::nullopt;
    T valeur{};
    const int r = sd_bus_message_read_basic(m, type, &valeur);
    sd_bus_message_exit_container(m);
    if (r <= 0) return std::nullopt;
    return valeur;
}

} // namespace

bool dictionnaire(sd_bus_message* m,
                  const std::function<bool(std::string_view nom, sd_bus_message*)>& valeur) {
    if (sd_bus_message_enter_container(m, SD_BUS_TYPE_ARRAY, "{sv}") <= 0) return false;
    std::size_t n = 0;
    while (sd_bus_message_enter_container(m, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
        if (++n > entreesMax) return false;
        const char* nom = nullptr;
        if (sd_bus_message_read_basic(m, SD_BUS_TYPE_STRING, &nom) <= 0 || !nom) return false;
        if (!valeur(nom, m) && sd_bus_message_skip(m, "v") < 0) return false;
        if (sd_bus_message_exit_container(m) < 0) return false;
    }
    return sd_bus_message_exit_container(m) >= 0;
}

std::optional<bool> booleen(sd_bus_message* m) {
    // sd-bus reads a D-Bus boolean into an int.
    const auto v = simple<int>(m, SD_BUS_TYPE_BOOLEAN, "b");
    if (!v) return std::nullopt;
    return *v != 0;
}

std::optional<std::uint64_t> entier64(sd_bus_message* m) {
    return simple<std::uint64_t>(m, SD_BUS_TYPE_UINT64, "t");
}

std::optional<std::string> texte(sd_bus_message* m) {
    const auto v = simple<const char*>(m, SD_BUS_TYPE_STRING, "s");
    if (!v || !*v || std::strlen(*v) > texteMax) return std::nullopt;
    return std::string(*v);
}

} // namespace tavi::LectureBus
