#include "observation/compteur.h"

#include "commun/jour.h"
#include "generique/utf8.h"
#include "observation/texte_borne.h"

#include <cmath>
#include <set>
#include <utility>

namespace tavi {

namespace {

const std::string cleJour = "compteur_jour";
const std::string cleSecondes = "compteur_s";
const std::string cleParAppli = "par_appli";
const std::string cleNoms = "noms_applis";

constexpr std::size_t joursGardes = 7;
constexpr double inactiviteMax = 300.0;
// The heartbeat leaves out what was in front for less than half a minute.
constexpr double secondesMinLot = 30.0;
// Identifiers and names come from desktop files and window properties.
constexpr std::size_t longueurMaxId = 512;
constexpr std::size_t longueurMaxNom = 256;

// A stored total the child has edited into something that is not a count reads as nothing.
double secondesSures(std::optional<double> valeur) {
    if (!valeur || !std::isfinite(*valeur) || *valeur < 0) return 0;
    return *valeur;
}

bool estCleJour(const std::string& cle) {
    if (cle.size() != 10) return false;
    for (std::size_t i = 0; i < cle.size(); ++i) {
        const bool tiret = i == 4 || i == 7;
        if (tiret ? cle[i] != '-' : (cle[i] < '0' || cle[i] > '9')) return false;
    }
    return true;
}

// The stored record, member by member: the store lives in a file the child can edit, so any
// member of another shape is dropped rather than trusted.
UsageParAppli decoderParAppli(const nlohmann::json& stocke) {
    UsageParAppli record;
    if (!stocke.is_object()) return record;
    for (const auto& [jour, applis] : stocke.items()) {
        if (!estCleJour(jour) || !applis.is_object()) continue;
        auto& duJour = record[jour];
        for (const auto& [id, secondes] : applis.items()) {
            if (id.empty() || id.size() > longueurMaxId || !secondes.is_number()) continue;
            const double s = secondes.get<double>();
            if (std::isfinite(s) && s >= 0) duJour[id] = s;
        }
    }
    return record;
}

void elaguer(UsageParAppli& record) {
    // Day keys sort chronologically as plain strings.
    while (record.size() > joursGardes)
        record.erase(record.begin());
}

nlohmann::json encoderParAppli(const UsageParAppli& record) {
    nlohmann::json objet = nlohmann::json::object();
    for (const auto& [jour, applis] : record) {
        nlohmann::json duJour = nlohmann::json::object();
        for (const auto& [id, secondes] : applis)
            duJour[id] = secondes;
        objet[jour] = std::move(duJour);
    }
    return objet;
}

nlohmann::json lireNoms(const Reglages& reglages) {
    nlohmann::json noms = nlohmann::json::object();
    if (auto stocke = reglages.dictionnaire(cleNoms))
        for (const auto& [id, nom] : stocke->items())
            if (nom.is_string()) noms[id] = nom;
    return noms;
}

// Minutes with one decimal, halves away from zero: 87 s is 1.5 min, 86 s 1.4.
double minutesUneDecimale(double secondes) {
    return std::round(secondes / 60 * 10) / 10;
}

} // namespace

Compteur::Compteur(Reglages& reglagesDuCompteur, Session& sessionObservee,
                   std::function<std::int64_t()> horlogeServeurMs)
    : reglages(reglagesDuCompteur), session(sessionObservee),
      maintenantMs(std::move(horlogeServeurMs)) {
    // The flags start as screens awake and session in front, whatever the truth at launch:
    // only the changes are known.
    abonnement = session.observer([this](EvenementSession evenement) {
        switch (evenement) {
        case EvenementSession::ecransEnVeille:
            ecransEnVeille = true;
            break;
        case EvenementSession::ecransEveilles:
            ecransEnVeille = false;
            break;
        case EvenementSession::sessionEnArriere:
            sessionAuPremierPlan = false;
            break;
        case EvenementSession::sessionAuPremierPlan:
            sessionAuPremierPlan = true;
            break;
        }
    });
}

std::optional<std::string> Compteur::jourDe(std::int64_t instantMs) const {
    try {
        return jourLocal(instantMs);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void Compteur::tic(double secondes, bool enPause, const std::optional<AppliDeFace>& appli) {
    // A gap of 30 s or more is a sleep, never use; the engine hands a stopped process's gap to
    // ticApresArret instead.
    if (!(secondes > 0.0 && secondes < 30.0) || enPause || !utiliseMaintenant()) return;
    compter(secondes, appli);
}

void Compteur::ticApresArret(double secondes, bool enPause,
                             const std::optional<AppliDeFace>& appli) {
    if (!(secondes > 0.0 && std::isfinite(secondes)) || enPause || !utiliseMaintenant()) return;
    // Input since the stop began: the child used the computer while the agent could not see
    // it. An unknown idle time counts, as it does for a tick.
    if (const auto inactivite = session.secondesInactivite(); inactivite && *inactivite >= secondes)
        return;
    compter(secondes, appli);
}

void Compteur::compter(double secondes, const std::optional<AppliDeFace>& appli) {
    const auto jour = jourDe(maintenantMs());
    if (!jour) return;
    reglages.grouper([&] {
        // The only rollover: the first counted tick of a new day starts from 0.
        const double base =
            reglages.texte(cleJour) == *jour ? secondesSures(reglages.nombre(cleSecondes)) : 0;
        reglages.ecrire(cleJour, Valeur{*jour});
        reglages.ecrire(cleSecondes, Valeur{base + secondes});
        if (appli) ajouterAppli(*jour, secondes, *appli);
    });
}

void Compteur::ajouterAppli(const std::string& jour, double secondes, const AppliDeFace& appli) {
    if (appli.id.empty() || appli.id.size() > longueurMaxId || !utf8Valide(appli.id)) return;
    parAppli();
    (*cacheParAppli)[jour][appli.id] += secondes;
    elaguer(*cacheParAppli);
    reglages.ecrire(cleParAppli, Valeur{Dictionnaire{encoderParAppli(*cacheParAppli)}});

    const std::string nom = texteBorne(appli.nom, longueurMaxNom);
    nlohmann::json noms = lireNoms(reglages);
    if (auto it = noms.find(appli.id); it != noms.end() && *it == nom) return;
    noms[appli.id] = nom;
    reglages.ecrire(cleNoms, Valeur{Dictionnaire{std::move(noms)}});
}

double Compteur::secondesDuJour() const {
    const auto jour = jourDe(maintenantMs());
    if (!jour || reglages.texte(cleJour) != *jour) return 0;
    return secondesSures(reglages.nombre(cleSecondes));
}

double Compteur::secondesAppliDuJour(const std::string& id) {
    const auto jour = jourDe(maintenantMs());
    if (!jour) return 0;
    const auto& record = parAppli();
    auto duJour = record.find(*jour);
    if (duJour == record.end()) return 0;
    auto it = duJour->second.find(id);
    return it == duJour->second.end() ? 0 : it->second;
}

DecisionUsage Compteur::decider(bool ecransEnVeille, bool sessionAuPremierPlan,
                                const Session& session) {
    if (ecransEnVeille) return {false, "ecrans_en_veille"};
    if (!sessionAuPremierPlan) return {false, "session_en_arriere"};
    // Absent answers cannot be observed here and decide nothing.
    if (session.ecranVerrouille() == true) return {false, "ecran_verrouille"};
    if (session.surConsole() == false) return {false, "hors_console"};
    const auto inactivite = session.secondesInactivite();
    // Some sessions (several Wayland compositors) do not tell the idle time at all. Counting
    // nothing there would give the child unlimited time; counting everything errs the other
    // way only while the child sits away with the screen unlocked, and the lock screen, which
    // comes on by itself after a while, stops the count then.
    if (!inactivite || !std::isfinite(*inactivite)) return {true, "inactivite_inconnue"};
    if (*inactivite < inactiviteMax) return {true, "saisie_recente"};
    // Five minutes without input still count while a video or a presentation keeps the
    // display awake: the child is watching.
    if (session.veilleEcranRetenue() == true) return {true, "affichage_retenu"};
    return {false, "inactif"};
}

DecisionUsage Compteur::decision() const {
    return decider(ecransEnVeille, sessionAuPremierPlan, session);
}

bool Compteur::utiliseMaintenant() const {
    return decision().utilise;
}

const UsageParAppli& Compteur::parAppli() {
    if (!cacheParAppli) {
        auto stocke = reglages.dictionnaire(cleParAppli);
        cacheParAppli = stocke ? decoderParAppli(*stocke) : UsageParAppli{};
        elaguer(*cacheParAppli);
    }
    return *cacheParAppli;
}

nlohmann::json Compteur::lotUsage() {
    nlohmann::json jours = nlohmann::json::object();
    std::set<std::string> listees;
    for (const auto& [jour, applis] : parAppli()) {
        nlohmann::json duJour = nlohmann::json::object();
        for (const auto& [id, secondes] : applis) {
            if (secondes < secondesMinLot) continue;
            duJour[id] = minutesUneDecimale(secondes);
            listees.insert(id);
        }
        if (!duJour.empty()) jours[jour] = std::move(duJour);
    }
    nlohmann::json noms = nlohmann::json::object();
    const nlohmann::json tousLesNoms = lireNoms(reglages);
    for (const auto& [id, nom] : tousLesNoms.items())
        if (listees.count(id)) noms[id] = nom;
    nlohmann::json lot = nlohmann::json::object();
    lot["jours"] = std::move(jours);
    lot["noms"] = std::move(noms);
    return lot;
}

void Compteur::oublierApplis() {
    cacheParAppli.reset();
    reglages.grouper([&] {
        reglages.supprimer(cleParAppli);
        reglages.supprimer(cleNoms);
    });
}

} // namespace tavi
