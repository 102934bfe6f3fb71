#include "depot.h"
#include "temps.h"

#include <algorithm>
#include <date/tz.h>

namespace tavi::famille {

using nlohmann::json;

namespace {

// What the agent reports of the child's attempts on it: a veil put back after another program
// hid it, a keyboard grab refused, the agent's process held stopped.
constexpr const char* naturesInterruption = "('voile_repare', 'saisie_refusee', 'agent_arrete')";

json ligneOrdinateur(Requete& r, std::int64_t maintenantMs) {
    json o = {{"id", r.texte(0)},
              {"nom", r.texte(1)},
              {"version", r.texte(2)},
              {"relie_ms", r.entier(5)},
              {"utilise_jour_min", r.reel(9)}};
    // Beside the day's use, the two figures it is the higher of.
    if (!r.nulle(10)) o["agent_jour_min"] = r.reel(10);
    if (!r.nulle(11)) o["gardien_jour_min"] = r.reel(11);
    if (auto plateforme = r.texteOuRien(3)) o["plateforme"] = *plateforme;
    if (auto systeme = r.texteOuRien(4)) o["systeme"] = *systeme;
    auto dernierMs = r.entierOuRien(6);
    auto genre = r.texteOuRien(7);
    o["derniere_nouvelle_ms"] = dernierMs ? json(*dernierMs) : json(nullptr);
    // Protection runs while the agent beats; a stop report or a long silence (crash, power
    // off, agent removed) both mean nothing enforces the rules on that computer now.
    if (!dernierMs) {
        o["protection"] = "coupée";
        o["pourquoi"] = "aucune nouvelle depuis l'appairage";
    } else if (genre && *genre == "arret") {
        o["protection"] = "coupée";
        o["pourquoi"] = "arrêt signalé";
    } else if (maintenantMs - *dernierMs > Depot::silenceMaxMs) {
        o["protection"] = "coupée";
        o["pourquoi"] =
            "aucune nouvelle depuis " + std::to_string((maintenantMs - *dernierMs) / 1000) + " s";
    } else {
        o["protection"] = "active";
    }
    if (auto texte = r.texteOuRien(8)) {
        json dit = json::parse(*texte, nullptr, false);
        if (dit.is_object()) {
            if (auto actif = dit.find("actif"); actif != dit.end() && actif->is_boolean())
                o["demarrage_auto"] = *actif;
            if (auto a = dit.find("autorisations"); a != dit.end() && a->is_object())
                o["autorisations"] = *a;
            // Whether the latest message came through the guardian, and from its agent.
            if (auto g = dit.find("gardien"); g != dit.end() && g->is_object()) {
                o["gardien"] = *g;
                // Without X the guardian sees the session only through logind: it cannot
                // tell the veil or idleness, and enforces rest by locking alone.
                if (g->value("controle", "") == "partiel")
                    o["controle"] = "Wayland : contrôle partiel";
            }
        }
    }
    return o;
}

} // namespace

std::vector<json> Depot::rapport(const std::string& prenom, std::int64_t maintenantMs) {
    Enfant e = enfant(prenom);
    const auto& zone = fuseauDe(e);
    std::string jour = jourLocal(maintenantMs, zone);
    std::int64_t debutJour = debutJourMs(maintenantMs, zone);
    UsageDuJour usage = usageDuJour(e.id, jour, std::nullopt);
    std::vector<json> lignes;

    json fiche = {{"prenom", e.prenom},
                  {"id", e.id},
                  {"fuseau", e.fuseau},
                  {"jour", jour},
                  {"tirelire_min", e.tirelireMin},
                  {"utilise_jour_min", usage.utiliseMin},
                  {"ajoutes_jour_min", usage.ajoutesMin}};
    json c = consigne(e, usage, maintenantMs, zone);
    for (const char* cle : {"limite_jour_min", "reste_jour_min", "ouvert_jusqu_ms"})
        if (auto v = c.find(cle); v != c.end()) fiche[cle] = *v;
    if (c.value("protege_maintenant", false)) fiche["pause_jusqu_ms"] = c.at("fin_ms");
    Requete attente = base_.requete(
        "SELECT COUNT(*) FROM demandes WHERE enfant_id = ? AND statut = 'en_attente'");
    attente.avec(e.id);
    if (attente.ligne()) fiche["demandes_en_attente"] = attente.entier(0);
    lignes.push_back({{"enfant", fiche}});

    Requete ordis = base_.requete(
        "SELECT o.id, o.nom, o.version, o.plateforme, o.systeme, o.relie_ms, o.dernier_ms, "
        "o.dernier_genre, o.dernier_resume, COALESCE(u.minutes, 0), u.agent_min, "
        "u.gardien_min FROM ordinateurs o "
        "LEFT JOIN usage_jour u ON u.ordinateur_id = o.id AND u.jour = ? "
        "WHERE o.enfant_id = ? ORDER BY o.nom, o.id");
    ordis.avec(jour, e.id);
    while (ordis.ligne()) {
        json o = ligneOrdinateur(ordis, maintenantMs);
        Requete annonce = base_.requete("SELECT texte, recu_ms FROM evenements WHERE "
                                        "ordinateur_id = ? AND genre = 'annonce' "
                                        "ORDER BY recu_ms DESC LIMIT 1");
        annonce.avec(o["id"].get<std::string>());
        if (annonce.ligne())
            o["derniere_annonce"] = {{"texte", annonce.texte(0)}, {"recu_ms", annonce.entier(1)}};
        // A flood of evidence past its quota is still counted, so its size shows.
        auto preuves = volumes(o["id"].get<std::string>(), jour).preuves;
        if (preuves > quotaJour.preuves)
            o["interruptions_non_detaillees"] = preuves - quotaJour.preuves;
        lignes.push_back({{"ordinateur", o}});
    }

    // Each kept day of each computer, latest first: what the agent and the guardian counted,
    // and what was counted against the limit.
    Requete jours = base_.requete(
        "SELECT u.ordinateur_id, u.jour, u.minutes, u.agent_min, u.gardien_min FROM usage_jour u "
        "JOIN ordinateurs o ON o.id = u.ordinateur_id WHERE o.enfant_id = ? "
        "ORDER BY u.jour DESC, o.nom, o.id");
    jours.avec(e.id);
    while (jours.ligne()) {
        json j = {{"ordinateur", jours.texte(0)},
                  {"jour", jours.texte(1)},
                  {"utilise_min", jours.reel(2)}};
        if (!jours.nulle(3)) j["agent_min"] = jours.reel(3);
        if (!jours.nulle(4)) j["gardien_min"] = jours.reel(4);
        lignes.push_back({{"compte_jour", j}});
    }

    Requete applis =
        base_.requete("SELECT u.ordinateur_id, u.appli, n.nom, u.minutes FROM usage_applis u "
                      "JOIN ordinateurs o ON o.id = u.ordinateur_id LEFT JOIN noms_applis n "
                      "ON n.ordinateur_id = u.ordinateur_id AND n.appli = u.appli "
                      "WHERE o.enfant_id = ? AND u.jour = ? ORDER BY u.minutes DESC, u.appli");
    applis.avec(e.id, jour);
    while (applis.ligne()) {
        json a = {
            {"ordinateur", applis.texte(0)}, {"id", applis.texte(1)}, {"minutes", applis.reel(3)}};
        if (auto nom = applis.texteOuRien(2)) a["nom"] = *nom;
        lignes.push_back({{"appli", a}});
    }

    Requete sites = base_.requete(
        "SELECT s.domaine, SUM(s.secondes), MAX(s.dernier_ms) FROM sites s JOIN ordinateurs o "
        "ON o.id = s.ordinateur_id WHERE o.enfant_id = ? AND s.dernier_ms >= ? "
        "GROUP BY s.domaine ORDER BY SUM(s.secondes) DESC, s.domaine");
    sites.avec(e.id, debutJour);
    while (sites.ligne())
        lignes.push_back({{"site",
                           {{"domaine", sites.texte(0)},
                            {"secondes", sites.entier(1)},
                            {"dernier_ms", sites.entier(2)}}}});

    Requete installees = base_.requete(
        "SELECT a.ordinateur_id, a.appli, a.nom, a.categorie FROM applis_installees a "
        "JOIN ordinateurs o ON o.id = a.ordinateur_id WHERE o.enfant_id = ? "
        "ORDER BY a.ordinateur_id, a.nom");
    installees.avec(e.id);
    while (installees.ligne()) {
        json a = {{"ordinateur", installees.texte(0)},
                  {"id", installees.texte(1)},
                  {"nom", installees.texte(2)}};
        if (auto categorie = installees.texteOuRien(3)) a["categorie"] = *categorie;
        lignes.push_back({{"installee", a}});
    }

    Requete signaux = base_.requete(
        std::string("SELECT s.ordinateur_id, s.nature, s.detail, s.recu_ms FROM signaux s "
                    "JOIN ordinateurs o ON o.id = s.ordinateur_id WHERE o.enfant_id = ? "
                    "AND s.recu_ms >= ? AND s.nature NOT IN ") +
        naturesInterruption + " ORDER BY s.recu_ms");
    signaux.avec(e.id, debutJour);
    while (signaux.ligne())
        lignes.push_back({{"signal",
                           {{"ordinateur", signaux.texte(0)},
                            {"nature", signaux.texte(1)},
                            {"detail", signaux.texte(2)},
                            {"recu_ms", signaux.entier(3)}}}});

    // The day's interruptions, in the order they reached the server: what the server saw
    // (stops, silences, gaps, restarts, drops of the day's use) and what the agent reported
    // of the child's attempts on it.
    Requete interruptions = base_.requete(
        std::string("SELECT v.ordinateur_id, v.genre, v.texte, v.recu_ms, 0 FROM evenements v "
                    "JOIN ordinateurs o ON o.id = v.ordinateur_id WHERE o.enfant_id = ?1 "
                    "AND v.recu_ms >= ?2 AND v.genre != 'annonce' UNION ALL "
                    "SELECT s.ordinateur_id, s.nature, s.detail, s.recu_ms, 1 FROM signaux s "
                    "JOIN ordinateurs o ON o.id = s.ordinateur_id WHERE o.enfant_id = ?1 "
                    "AND s.recu_ms >= ?2 AND s.nature IN ") +
        naturesInterruption + " ORDER BY 4");
    interruptions.avec(e.id, debutJour);
    while (interruptions.ligne()) {
        json i = {{"ordinateur", interruptions.texte(0)}, {"genre", interruptions.texte(1)}};
        auto texte = interruptions.texteOuRien(2);
        if (interruptions.entier(4) == 1) {
            i["detail"] = texte.value_or("");
        } else if (texte) {
            json details = json::parse(*texte, nullptr, false);
            if (details.is_object()) i.update(details);
        }
        i["recu_ms"] = interruptions.entier(3);
        lignes.push_back({{"interruption", i}});
    }
    return lignes;
}

void Depot::elaguer(std::int64_t maintenantMs) {
    Transaction t(base_);
    std::int64_t limite = maintenantMs - conservationMs;
    const BornesJours bornes = bornesJours(maintenantMs, conservationMs);
    for (const char* table :
         {"usage_jour", "minutes_limites", "usage_applis", "ajouts", "volumes_jour"})
        base_.requete(std::string("DELETE FROM ") + table + " WHERE jour < ?")
            .avec(bornes.premier)
            .executer();
    // The only days a client names: one after every zone's today comes from a broken clock or
    // a liar; kept, it would never age out.
    base_.requete("DELETE FROM usage_applis WHERE jour > ?").avec(bornes.dernier).executer();
    base_
        .requete("DELETE FROM noms_applis WHERE (ordinateur_id, appli) NOT IN "
                 "(SELECT ordinateur_id, appli FROM usage_applis)")
        .executer();
    // A site dated more than a day ahead comes from a broken clock or a liar; kept, it would
    // never age out.
    base_.requete("DELETE FROM sites WHERE dernier_ms < ? OR premier_ms > ?")
        .avec(limite, maintenantMs + 24 * 3600 * 1000)
        .executer();
    base_.requete("DELETE FROM signaux WHERE recu_ms < ?").avec(limite).executer();
    base_.requete("DELETE FROM evenements WHERE recu_ms < ?").avec(limite).executer();
    base_.requete("DELETE FROM demandes WHERE statut != 'en_attente' AND reponse_ms < ?")
        .avec(limite)
        .executer();
    base_.requete("DELETE FROM codes WHERE expire_ms < ?").avec(maintenantMs).executer();
    t.valider();
}

} // namespace tavi::famille
