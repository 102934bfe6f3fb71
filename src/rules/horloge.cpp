#include "rules/horloge.h"

#include <cmath>
#include <optional>
#include <string>

namespace tavi::Horloge {

namespace {

const std::string cleServeur = "h_serveur_a";
const std::string cleMono = "h_mono_a";
const std::string cleDemarrage = "h_demarrage";
const std::string cleEcart = "h_ecart";
const std::string cleAllerRetour = "h_ar";

// Beyond this round trip the server time may be off by more than we accept.
constexpr std::int64_t allerRetourMaxMs = 3000;
// Within this time of a retained sample, a sample with a longer round trip is worse, not newer.
constexpr std::int64_t dureeSansRivalMs = 5 * 60 * 1000;

// Integers are stored as doubles and read back truncated toward zero. A value that is not
// finite or lies outside the 64-bit range was not written by us: it reads as absent, so an
// edited store resynchronises instead of stopping the agent.
std::optional<std::int64_t> entier(const Reglages& reglages, const std::string& cle) {
    auto nombre = reglages.nombre(cle);
    if (!nombre || !std::isfinite(*nombre)) return std::nullopt;
    const double tronque = std::trunc(*nombre);
    if (tronque < -0x1p63 || tronque >= 0x1p63) return std::nullopt;
    return static_cast<std::int64_t>(tronque);
}

std::optional<std::int64_t> somme(std::int64_t a, std::int64_t b) {
    std::int64_t resultat;
    if (__builtin_add_overflow(a, b, &resultat)) return std::nullopt;
    return resultat;
}

std::optional<std::int64_t> difference(std::int64_t a, std::int64_t b) {
    std::int64_t resultat;
    if (__builtin_sub_overflow(a, b, &resultat)) return std::nullopt;
    return resultat;
}

std::int64_t moitieParDefaut(std::int64_t n) {
    return n / 2 - (n % 2 < 0 ? 1 : 0);
}

} // namespace

std::int64_t demarrage(const Horloges& horloges) {
    return horloges.demarrage();
}

void noter(Reglages& reglages, const Horloges& horloges, std::int64_t serveurMs,
           std::int64_t envoiMs, std::int64_t recuMs) {
    if (serveurMs < 1) return;
    const auto allerRetour = difference(recuMs, envoiMs);
    if (!allerRetour || *allerRetour > allerRetourMaxMs) return;

    const auto demarrageActuel = demarrage(horloges);
    const auto monoRetenu = entier(reglages, cleMono).value_or(0);
    const bool memeDemarrage = entier(reglages, cleDemarrage).value_or(0) == demarrageActuel;
    if (monoRetenu >= 1 && monoRetenu <= recuMs && recuMs - monoRetenu <= dureeSansRivalMs &&
        memeDemarrage) {
        const auto allerRetourRetenu = entier(reglages, cleAllerRetour);
        if (allerRetourRetenu && *allerRetourRetenu < *allerRetour) return;
    }

    const auto serveurA = somme(serveurMs, moitieParDefaut(*allerRetour));
    if (!serveurA) return;
    const auto ecart = difference(*serveurA, horloges.muraleMs());
    if (!ecart) return;

    reglages.grouper([&] {
        reglages.ecrire(cleServeur, static_cast<double>(*serveurA));
        reglages.ecrire(cleMono, static_cast<double>(recuMs));
        reglages.ecrire(cleDemarrage, static_cast<double>(demarrageActuel));
        reglages.ecrire(cleEcart, static_cast<double>(*ecart));
        reglages.ecrire(cleAllerRetour, static_cast<double>(*allerRetour));
    });
}

std::int64_t maintenant(const Reglages& reglages, const Horloges& horloges) {
    const auto serveurA = entier(reglages, cleServeur).value_or(0);
    const auto monoA = entier(reglages, cleMono).value_or(0);
    const bool memeDemarrage = entier(reglages, cleDemarrage).value_or(0) == demarrage(horloges);
    const auto mono = horloges.monotoniqueMs();

    // The monotonic clock cannot be moved by the child: while the sample belongs to this boot,
    // a change of the wall clock changes nothing.
    if (serveurA >= 1 && memeDemarrage && monoA <= mono) {
        if (auto ecoule = difference(mono, monoA))
            if (auto heure = somme(serveurA, *ecoule)) return *heure;
    }
    const auto murale = horloges.muraleMs();
    return somme(murale, entier(reglages, cleEcart).value_or(0)).value_or(murale);
}

} // namespace tavi::Horloge
