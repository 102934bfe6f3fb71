#include "battement.h"

#include "lecture.h"

namespace tavi::famille {

using nlohmann::json;

namespace {

// Bounds far above what a real agent sends (it caps its inventory at 400 applications and a
// day has at most 25 hours) but low enough to keep one message cheap to store.
constexpr double minutesMaxJour = 1500;
constexpr std::int64_t instantMax = 32503680000000; // year 3000
// The largest integer a JSON number keeps exactly everywhere.
constexpr std::int64_t entierExactMax = (std::int64_t(1) << 53) - 1;
constexpr std::size_t longueurId = 255;

[[noreturn]] void refuser(const std::string& detail) {
    throw ErreurRequete(400, detail);
}

std::string identifiantDe(const std::string& cle, const std::string& nom) {
    if (cle.empty() || cle.size() > longueurId)
        refuser("« " + nom + " » n'est pas un identifiant d'application valide.");
    return cle;
}

std::vector<EntreeSite> lireSites(const json& liste) {
    std::vector<EntreeSite> sites;
    for (std::size_t i = 0; i < liste.size(); ++i) {
        Champs entree(liste[i], "sites[" + std::to_string(i) + "]");
        EntreeSite site{entree.texte("d", 253), entree.entier("p", 0, instantMax),
                        entree.entier("f", 0, instantMax), entree.entier("s", 0, 3600)};
        if (site.domaine.empty()) refuser("« " + entree.nom("d") + " » est vide.");
        if (site.dernierMs < site.premierMs)
            refuser("« " + entree.nom("f") + " » précède « " + entree.nom("p") + " ».");
        sites.push_back(std::move(site));
    }
    return sites;
}

std::map<std::string, double> lireMinutes(const json& objet, const std::string& nom) {
    if (objet.size() > 5000) refuser("« " + nom + " » a trop d'éléments.");
    std::map<std::string, double> minutes;
    for (const auto& [appli, valeur] : objet.items())
        minutes[identifiantDe(appli, nom)] = nombreDe(valeur, nom + "." + appli, 0, minutesMaxJour);
    return minutes;
}

LotUsage lireUsage(const json& objet) {
    Champs usage(objet, "usage_applis");
    LotUsage lot;
    const json* jours = usage.objet("jours");
    if (!jours) refuser("Il manque « usage_applis.jours ».");
    if (jours->size() > 40) refuser("« usage_applis.jours » a trop de jours.");
    for (const auto& [jour, applis] : jours->items()) {
        std::string nom = "usage_applis.jours." + jour;
        if (!estJour(jour)) refuser("« " + nom + " » n'est pas une date aaaa-mm-jj.");
        if (!applis.is_object()) refuser("« " + nom + " » doit être un objet.");
        lot.jours[jour] = lireMinutes(applis, nom);
    }
    if (const json* noms = usage.objet("noms")) {
        if (noms->size() > 5000) refuser("« usage_applis.noms » a trop d'éléments.");
        for (const auto& [appli, valeur] : noms->items())
            lot.noms[identifiantDe(appli, "usage_applis.noms")] =
                texteDe(valeur, "usage_applis.noms." + appli, 255);
    }
    return lot;
}

std::vector<AppliInstallee> lireApplis(const json& liste) {
    std::vector<AppliInstallee> applis;
    for (std::size_t i = 0; i < liste.size(); ++i) {
        Champs entree(liste[i], "applis_installees[" + std::to_string(i) + "]");
        applis.push_back({identifiantDe(entree.texte("p", longueurId), entree.nom("p")),
                          entree.texte("n", 255), entree.texteOptionnel("c", 255)});
    }
    return applis;
}

} // namespace

Battement lireBattement(const json& corps, std::int64_t maintenantMs) {
    Champs champs(corps);
    Battement b;
    b.actif = champs.booleen("actif");
    b.incertain = champs.booleen("incertain");
    b.plateforme = champs.texte("plateforme", 32);
    b.version = champs.texte("version", 64);
    b.utiliseJourMin = champs.nombre("utilise_jour_min", 0, minutesMaxJour);
    b.systeme = champs.texteOptionnel("systeme", 128);
    b.annonce = champs.texteOptionnel("annonce", 500);
    const json* autorisations = champs.objet("autorisations");
    if (autorisations) {
        if (autorisations->size() > 16) refuser("« autorisations » a trop d'éléments.");
        // Read from the item itself: a key may hold a NUL, which a C string would cut short.
        for (const auto& [cle, valeur] : autorisations->items()) {
            if (cle.size() > 64) refuser("« autorisations » a une clé trop longue.");
            if (!valeur.is_boolean())
                refuser("« autorisations » ne doit contenir que des booléens.");
            b.autorisations[cle] = valeur.get<bool>();
        }
    }
    b.genre = b.annonce       ? GenreMessage::annonce
              : autorisations ? GenreMessage::battement
                              : GenreMessage::arret;
    if (const json* sites = champs.tableau("sites", 20000)) b.sites = lireSites(*sites);
    if (const json* minutes = champs.objet("minutes_limites"))
        b.minutesLimites = lireMinutes(*minutes, "minutes_limites");
    if (const json* usage = champs.objet("usage_applis")) b.usageApplis = lireUsage(*usage);
    if (const json* applis = champs.tableau("applis_installees", 5000))
        b.applisInstallees = lireApplis(*applis);
    if (champs.trouver("demarrage_id"))
        b.demarrageId = champs.entier("demarrage_id", 0, entierExactMax);
    if (champs.trouver("agent_lance_ms"))
        b.agentLanceMs = champs.entier("agent_lance_ms", 0, entierExactMax);
    if (const json* gardien = champs.trouver("gardien")) {
        try {
            b.gardien = lireTemoignageGardien(*gardien, maintenantMs);
        } catch (const ErreurRequete& e) {
            b.gardienEcarte = e.what();
        }
    }
    return b;
}

json resume(const Battement& b) {
    json r = {{"actif", b.actif},
              {"incertain", b.incertain},
              {"plateforme", b.plateforme},
              {"version", b.version},
              {"utilise_jour_min", b.utiliseJourMin}};
    if (b.systeme) r["systeme"] = *b.systeme;
    if (!b.autorisations.empty()) r["autorisations"] = b.autorisations;
    if (b.annonce) r["annonce"] = *b.annonce;
    if (b.gardien) {
        r["gardien"] = {{"agent", b.gardien->agent}};
        if (b.gardien->controle) r["gardien"]["controle"] = *b.gardien->controle;
    }
    return r;
}

} // namespace tavi::famille
