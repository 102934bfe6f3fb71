#include "commun/texte.h"
#include "engine/moteur.h"
#include "rules/programme.h"

#include <cstdlib>

namespace tavi {

namespace {

constexpr std::int64_t minuteMs = 60'000;
// How far ahead the engine looks, and the closer warning.
constexpr std::int64_t horizonMs = 5 * minuteMs;
constexpr std::int64_t dernierAvertissementMs = minuteMs;
// Two computations of one coming rest differ when the child stops using the computer (a
// daily limit counts only use) or the server's clock is corrected; a rest that moved less
// than this is the same one.
constexpr std::int64_t memeReposMs = 5 * minuteMs;
// The warnings given survive a restart in the store, a handful of entries at most.
constexpr const char* cleAvertissements = "avertissements";
constexpr std::size_t entreesMax = 16;

// A text whose name texteAvec put in place (it fills "%@" first), with its number after it.
std::string avecNombre(std::string texte, const std::string& nombre) {
    if (auto pos = texte.find("%d"); pos != std::string::npos) texte.replace(pos, 2, nombre);
    return texte;
}

std::string phrase(std::int64_t minutes, const std::optional<std::string>& appli) {
    const std::string n = std::to_string(minutes);
    if (!appli)
        return minutes <= 1
                   ? texte("Plus que 1 minute avant la sieste de ton ordinateur.")
                   : texteAvec("Plus que %d minutes avant la sieste de ton ordinateur.", n);
    return minutes <= 1
               ? texteAvec("Plus que 1 minute avant la sieste de %@.", *appli)
               : avecNombre(texteAvec("Plus que %d minutes avant la sieste de %@.", *appli), n);
}

} // namespace

void Moteur::lireAvertissements() {
    avertissementsLus_ = true;
    const auto lus = p.reglages.dictionnaire(cleAvertissements);
    if (!lus) return;
    // The store is the child's file: what is not a warning this engine wrote is ignored.
    for (const auto& [cible, valeur] : lus->items()) {
        if (avertissements_.size() >= entreesMax) break;
        const auto seuil = valeur.find("seuil");
        const auto repos = valeur.find("repos_ms");
        if (!valeur.is_object() || seuil == valeur.end() || repos == valeur.end() ||
            !seuil->is_number() || !repos->is_number())
            continue;
        avertissements_[cible] = {seuil->get<double>() <= 1 ? dernierAvertissementMs : horizonMs,
                                  static_cast<std::int64_t>(repos->get<double>())};
    }
}

void Moteur::suivreRepos(const std::string& cible, const std::optional<std::string>& appli,
                         const std::function<std::optional<RegleMac>(std::int64_t)>& reposDans) {
    const auto vu = avertissements_.find(cible);
    if (!reposDans(horizonMs)) {
        // Nothing comes within the horizon (any more: time given, a pause lifted): the next
        // rest will be warned of afresh.
        if (vu != avertissements_.end()) avertissements_.erase(vu);
        return;
    }
    // The instant it comes, to the second: nothing rests now, everything at the horizon.
    std::int64_t avant = 0, apres = horizonMs;
    while (apres - avant > 1000) {
        const std::int64_t milieu = (avant + apres) / 2;
        (reposDans(milieu) ? apres : avant) = milieu;
    }
    const std::int64_t reposMs = maintenantServeur() + apres;
    const std::int64_t seuil = apres <= dernierAvertissementMs ? dernierAvertissementMs : horizonMs;
    if (vu != avertissements_.end() && std::llabs(vu->second.reposMs - reposMs) <= memeReposMs) {
        vu->second.reposMs = reposMs;
        if (vu->second.seuil <= seuil) return;
    }
    avertissements_[cible] = {seuil, reposMs};
    nlohmann::json garde = nlohmann::json::object();
    for (const auto& [c, a] : avertissements_)
        garde[c] = {{"seuil", a.seuil / minuteMs}, {"repos_ms", a.reposMs}};
    p.reglages.ecrire(cleAvertissements, Dictionnaire{std::move(garde)});

    const std::int64_t minutes = (apres + minuteMs - 1) / minuteMs;
    p.notifications->notifier(reposDans(apres)->titreAffiche(), phrase(minutes, appli),
                              "repos:" + cible, {});
}

void Moteur::avertir() {
    if (!p.notifications || !relie_ || !consigne_) return;
    // The veil says it already.
    if (regle_ && regle_->bloquerTout) return;
    if (!avertissementsLus_) lireAvertissements();
    const std::int64_t maintenant = maintenantServeur();
    const auto depuisConsigne = utiliseDepuisConsigne();
    const double duJour = compteur_.secondesDuJour();
    // The computer's rule `ms` from now, if the child uses it all along: that way the daily
    // limit comes as soon as it can.
    const auto regleDans = [&](std::int64_t ms) {
        const double s = static_cast<double>(ms) / 1000.0;
        return Programme::regleCourante(
            consigne_, maintenant + ms,
            depuisConsigne ? std::optional<double>(*depuisConsigne + s) : std::nullopt, duJour + s);
    };
    suivreRepos("ordinateur", std::nullopt, [&](std::int64_t ms) -> std::optional<RegleMac> {
        auto regle = regleDans(ms);
        if (regle && regle->bloquerTout) return regle;
        return std::nullopt;
    });

    const auto devant = p.bureau.applicationAuPremierPlan();
    if (!devant || estNotreAppli(*devant) || !devant->identifiant || devant->identifiant->empty() ||
        sieste(*devant))
        return;
    const std::string& id = *devant->identifiant;
    // Its own limit, counting its use all along, or a range that cuts it off.
    suivreRepos("appli:" + id, devant->nom.empty() ? id : devant->nom,
                [&](std::int64_t ms) -> std::optional<RegleMac> {
                    auto regle = regleDans(ms);
                    if (regle && !regle->bloquerTout &&
                        Programme::estCoupee(*devant, *regle, p.categories))
                        return regle;
                    const double s = static_cast<double>(ms) / 1000.0;
                    return Programme::siesteAppli(
                        id, consigne_,
                        [&](const std::string& autre) {
                            return compteur_.secondesAppliDuJour(autre) + (autre == id ? s : 0);
                        },
                        maintenant + ms);
                });
}

} // namespace tavi
