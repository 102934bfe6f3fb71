#include "rules/horloge.h"

#include <algorithm>
#include <cmath>
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
// What a stored sample may be off from a fresh answer, beyond the answer's round trip, before
// the answer wins: the drift of a few minutes and the stored sample's own half round trip.
constexpr std::int64_t toleranceMs = 1000;
// The largest offset between the server and the wall clock that is worth applying.
constexpr std::int64_t ecartMaxMs = dernierInstantMs - premierInstantMs;

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

bool plausible(std::int64_t serveurMs) {
    return serveurMs >= premierInstantMs && serveurMs <= dernierInstantMs;
}

// The stored sample, when it is one `noter` could have written on this boot.
std::optional<Echantillon> stocke(const Reglages& reglages, std::int64_t demarrageActuel) {
    const auto serveur = entier(reglages, cleServeur);
    const auto mono = entier(reglages, cleMono);
    const auto demarrageStocke = entier(reglages, cleDemarrage);
    const auto allerRetour = entier(reglages, cleAllerRetour);
    if (!serveur || !plausible(*serveur) || !mono || *mono < 1 || !demarrageStocke ||
        *demarrageStocke != demarrageActuel || !allerRetour || *allerRetour < 1 ||
        *allerRetour > allerRetourMaxMs)
        return std::nullopt;
    return Echantillon{*serveur, *mono, *demarrageStocke, *allerRetour};
}

// The sample's time at the monotonic reading `mono`; nothing when the reading is not of the
// sample's boot or lies before it.
std::optional<std::int64_t> avance(const Echantillon& e, std::int64_t demarrageActuel,
                                   std::int64_t mono) {
    if (e.demarrage != demarrageActuel || e.monoMs > mono) return std::nullopt;
    const auto ecoule = difference(mono, e.monoMs);
    if (!ecoule) return std::nullopt;
    return somme(e.serveurMs, *ecoule);
}

std::int64_t borne(std::int64_t instantMs) {
    return std::clamp(instantMs, premierInstantMs, dernierInstantMs);
}

} // namespace

std::int64_t demarrage(const Horloges& horloges) {
    return horloges.demarrage();
}

void noter(Reglages& reglages, const Horloges& horloges, std::optional<Echantillon>& propre,
           std::int64_t serveurMs, std::int64_t envoiMs, std::int64_t recuMs) {
    if (!plausible(serveurMs)) return;
    const auto allerRetour = difference(recuMs, envoiMs);
    if (!allerRetour || *allerRetour < 0 || *allerRetour > allerRetourMaxMs) return;

    const auto demarrageActuel = demarrage(horloges);
    const Echantillon frais{serveurMs + moitieParDefaut(*allerRetour), recuMs, demarrageActuel,
                            std::max<std::int64_t>(*allerRetour, 1)};

    const auto retenu = propre ? propre : stocke(reglages, demarrageActuel);
    if (retenu && retenu->demarrage == demarrageActuel && retenu->monoMs <= recuMs &&
        recuMs - retenu->monoMs <= dureeSansRivalMs &&
        retenu->allerRetourMs < frais.allerRetourMs) {
        // A stored sample may have been moved by hand: it stands only while the server agrees.
        const auto attendu = avance(*retenu, demarrageActuel, recuMs);
        const auto desaccord = attendu ? difference(frais.serveurMs, *attendu) : std::nullopt;
        const bool contredit = !propre && (!desaccord || *desaccord > *allerRetour + toleranceMs ||
                                           *desaccord < -(*allerRetour + toleranceMs));
        if (!contredit) {
            propre = retenu;
            return;
        }
    }

    const auto ecart = difference(frais.serveurMs, horloges.muraleMs());
    propre = frais;
    reglages.grouper([&] {
        reglages.ecrire(cleServeur, static_cast<double>(frais.serveurMs));
        reglages.ecrire(cleMono, static_cast<double>(frais.monoMs));
        reglages.ecrire(cleDemarrage, static_cast<double>(frais.demarrage));
        if (ecart) reglages.ecrire(cleEcart, static_cast<double>(*ecart));
        reglages.ecrire(cleAllerRetour, static_cast<double>(frais.allerRetourMs));
    });
}

std::int64_t maintenant(const Reglages& reglages, const Horloges& horloges,
                        const std::optional<Echantillon>& propre) {
    const auto demarrageActuel = demarrage(horloges);
    const auto mono = horloges.monotoniqueMs();

    // The monotonic clock cannot be moved by the child: while a sample belongs to this boot, a
    // change of the wall clock changes nothing.
    if (propre)
        if (auto heure = avance(*propre, demarrageActuel, mono)) return borne(*heure);
    if (auto e = stocke(reglages, demarrageActuel))
        if (auto heure = avance(*e, demarrageActuel, mono)) return borne(*heure);

    auto ecart = entier(reglages, cleEcart).value_or(0);
    if (ecart > ecartMaxMs || ecart < -ecartMaxMs) ecart = 0;
    const auto murale = horloges.muraleMs();
    return borne(somme(murale, ecart).value_or(murale));
}

} // namespace tavi::Horloge
