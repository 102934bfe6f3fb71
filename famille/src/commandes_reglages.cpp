#include "commandes.h"
#include "semaine.h"
#include "temps.h"

#include <algorithm>

namespace tavi::famille {

using nlohmann::json;

namespace {

constexpr std::int64_t minuteMs = 60 * 1000;

std::string appliValide(const std::string& appli) {
    bool valide = !appli.empty() && appli.size() <= 255;
    for (unsigned char c : appli)
        valide = valide && c > 0x20 && c != 0x7f;
    if (!valide) throw ErreurUsage("identifiant d'application invalide : « " + appli + " »");
    return appli;
}

std::string texteCourt(const std::string& texte, const std::string& quoi) {
    if (texte.empty() || texte.size() > 100) throw ErreurUsage(quoi + " a de 1 à 100 caractères");
    return texte;
}

// The agent compares domains in lower case without a leading "www."; parents often paste an
// address, so its scheme and path are dropped before checking what is left.
std::string domaineValide(const std::string& saisi) {
    std::string d = saisi;
    std::transform(d.begin(), d.end(), d.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char* schema : {"https://", "http://"})
        if (d.rfind(schema, 0) == 0) d.erase(0, std::string(schema).size());
    d = d.substr(0, d.find_first_of("/?#"));
    if (d.rfind("www.", 0) == 0) d.erase(0, 4);
    if (!d.empty() && d.back() == '.') d.pop_back();
    bool valide = d.size() >= 3 && d.size() <= 253 && d.find('.') != std::string::npos &&
                  d.front() != '.' && d.find("..") == std::string::npos;
    for (char c : d)
        valide =
            valide && ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-');
    if (!valide) throw ErreurUsage("domaine invalide : « " + saisi + " » (par exemple exemple.fr)");
    return d;
}

json plageLisible(const PlageHebdo& p) {
    json ligne = {{"id", p.id},
                  {"jours", ecrireJours(p.jours)},
                  {"debut", ecrireHeure(p.debutMin)},
                  {"fin", ecrireHeure(p.finMin)}};
    if (p.familles) ligne["familles"] = *p.familles;
    if (p.cause) ligne["cause"] = *p.cause;
    if (p.titre) ligne["titre"] = *p.titre;
    return ligne;
}

json limiteLisible(const LimiteAppli& l) {
    return {{"id", l.id}, {"nom", l.nom}, {"minutes", l.minutes}, {"applis", l.applis}};
}

// The usual shape of a settings command: the child's name, the change, one line out.
Enfant changer(Contexte& c, const std::string& prenom,
               const std::function<void(Enfant&)>& changement) {
    c.args.fin();
    return c.depot.modifier(prenom, changement);
}

} // namespace

namespace Commandes {

void pause(Contexte& c) {
    auto titre = c.args.option("--titre");
    if (titre) texteCourt(*titre, "--titre");
    auto prenom = c.args.suivant("PRENOM");
    auto minutes = entierEntre(c.args.suivant("MINUTES"), "MINUTES", 1, 1440);
    Pause pause{c.maintenantMs + minutes * minuteMs, titre};
    changer(c, prenom, [&](Enfant& e) { e.reglages.pause = pause; });
    json ligne = {{"prenom", prenom}, {"pause", {{"fin_ms", pause.finMs}}}};
    if (titre) ligne["pause"]["titre"] = *titre;
    c.ecrire(ligne);
}

void finPause(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    changer(c, prenom, [](Enfant& e) { e.reglages.pause.reset(); });
    c.ecrire({{"prenom", prenom}, {"pause", nullptr}});
}

void ouvrir(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto minutes = entierEntre(c.args.suivant("MINUTES"), "MINUTES", 1, 1440);
    std::int64_t jusqua = c.maintenantMs + minutes * minuteMs;
    changer(c, prenom, [&](Enfant& e) { e.reglages.ouvertJusquMs = jusqua; });
    c.ecrire({{"prenom", prenom}, {"ouvert_jusqu_ms", jusqua}});
}

void finOuverture(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    changer(c, prenom, [](Enfant& e) { e.reglages.ouvertJusquMs.reset(); });
    c.ecrire({{"prenom", prenom}, {"ouvert_jusqu_ms", nullptr}});
}

void limite(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto valeur = c.args.suivant("MINUTES ou aucune");
    std::optional<double> minutes;
    // 0 would read as "no limit" on the agent's side: no time at all is a pause or a range.
    if (valeur != "aucune") minutes = static_cast<double>(entierEntre(valeur, "MINUTES", 1, 1440));
    changer(c, prenom, [&](Enfant& e) { e.reglages.limiteJourMin = minutes; });
    c.ecrire({{"prenom", prenom}, {"limite_jour_min", minutes ? json(*minutes) : json(nullptr)}});
}

void plage(Contexte& c) {
    PlageHebdo p;
    if (auto familles = c.args.option("--familles")) {
        std::set<std::string> noms;
        std::size_t debut = 0;
        while (debut <= familles->size()) {
            auto virgule = familles->find(',', debut);
            auto nom = familles->substr(debut, virgule - debut);
            if (!famillesConnues().contains(nom))
                throw ErreurUsage("famille inconnue : « " + nom +
                                  " » (jeux, reseaux, videos, musique, ecole, messages)");
            noms.insert(nom);
            if (virgule == std::string::npos) break;
            debut = virgule + 1;
        }
        p.familles = noms;
    }
    if (auto cause = c.args.option("--cause")) {
        bool valide = !cause->empty() && cause->size() <= 32;
        for (char ch : *cause)
            valide = valide && ((ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '_');
        if (!valide) throw ErreurUsage("--cause : lettres minuscules, chiffres et _ : " + *cause);
        p.cause = *cause;
    }
    if (auto titre = c.args.option("--titre")) p.titre = texteCourt(*titre, "--titre");
    auto prenom = c.args.suivant("PRENOM");
    auto jours = c.args.suivant("JOURS");
    auto lus = lireJours(jours);
    if (!lus) throw ErreurUsage("JOURS invalides : " + jours + " (par exemple lu-ve, sa,di, tous)");
    p.jours = *lus;
    auto debut = c.args.suivant("le début HH:MM");
    auto fin = c.args.suivant("la fin HH:MM");
    auto debutMin = lireHeure(debut, false);
    auto finMin = lireHeure(fin, true);
    if (!debutMin) throw ErreurUsage("heure de début invalide : " + debut + " (HH:MM)");
    if (!finMin) throw ErreurUsage("heure de fin invalide : " + fin + " (HH:MM)");
    if (*debutMin == *finMin % 1440)
        throw ErreurUsage("le début et la fin sont à la même heure : " + debut);
    p.debutMin = *debutMin;
    p.finMin = *finMin;
    changer(c, prenom, [&](Enfant& e) {
        for (const auto& autre : e.reglages.plages)
            p.id = std::max(p.id, autre.id);
        ++p.id;
        e.reglages.plages.push_back(p);
    });
    c.ecrire({{"prenom", prenom}, {"plage", plageLisible(p)}});
}

void plages(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    for (const auto& p : c.depot.enfant(prenom).reglages.plages)
        c.ecrire({{"prenom", prenom}, {"plage", plageLisible(p)}});
}

void supprimerPlage(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto id = entierEntre(c.args.suivant("NUMERO"), "NUMERO", 1, 1000000);
    changer(c, prenom, [&](Enfant& e) {
        auto& liste = e.reglages.plages;
        auto avant = liste.size();
        std::erase_if(liste, [&](const PlageHebdo& p) { return p.id == id; });
        if (liste.size() == avant)
            throw ErreurFamille("pas de plage " + std::to_string(id) + " pour " + prenom +
                                " (voir « plages " + prenom + " »)");
    });
    c.ecrire({{"prenom", prenom}, {"plage_supprimee", id}});
}

void limiteAppli(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    LimiteAppli l;
    l.id = c.args.suivant("ID");
    if (!idLimiteValide(l.id))
        throw ErreurUsage("ID de limite : lettres, chiffres, « - » et « . », 40 au plus : " + l.id);
    l.nom = texteCourt(c.args.suivant("NOM"), "NOM");
    l.minutes = static_cast<double>(entierEntre(c.args.suivant("MINUTES"), "MINUTES", 1, 1440));
    for (const auto& appli : c.args.reste())
        l.applis.insert(appliValide(appli));
    if (l.applis.empty()) throw ErreurUsage("il manque au moins une APPLI");
    changer(c, prenom, [&](Enfant& e) {
        auto& liste = e.reglages.limitesApplis;
        auto meme = std::find_if(liste.begin(), liste.end(),
                                 [&](const LimiteAppli& autre) { return autre.id == l.id; });
        if (meme != liste.end())
            *meme = l;
        else
            liste.push_back(l);
    });
    c.ecrire({{"prenom", prenom}, {"limite_appli", limiteLisible(l)}});
}

void supprimerLimiteAppli(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto id = c.args.suivant("ID");
    changer(c, prenom, [&](Enfant& e) {
        if (std::erase_if(e.reglages.limitesApplis,
                          [&](const LimiteAppli& l) { return l.id == id; }) == 0)
            throw ErreurFamille("pas de limite d'appli « " + id + " » pour " + prenom);
    });
    c.ecrire({{"prenom", prenom}, {"limite_appli_supprimee", id}});
}

void couper(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto appli = appliValide(c.args.suivant("APPLI"));
    auto e = changer(c, prenom, [&](Enfant& enfant) { enfant.reglages.coupees.insert(appli); });
    c.ecrire({{"prenom", prenom}, {"coupees", e.reglages.coupees}});
}

void retablir(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto appli = c.args.suivant("APPLI");
    auto e = changer(c, prenom, [&](Enfant& enfant) {
        if (enfant.reglages.coupees.erase(appli) == 0)
            throw ErreurFamille(appli + " n'est pas coupée pour " + prenom);
    });
    c.ecrire({{"prenom", prenom}, {"coupees", e.reglages.coupees}});
}

void filtre(Contexte& c) {
    auto bloquer = c.args.options("--bloquer");
    auto autoriser = c.args.options("--autoriser");
    auto retirer = c.args.options("--retirer");
    auto prenom = c.args.suivant("PRENOM");
    auto etat = c.args.suivant("actif ou inactif");
    if (etat != "actif" && etat != "inactif")
        throw ErreurUsage("le filtre est actif ou inactif, pas « " + etat + " »");
    auto e = changer(c, prenom, [&](Enfant& enfant) {
        Filtre f = enfant.reglages.filtre.value_or(Filtre{});
        f.actif = etat == "actif";
        for (const auto& d : retirer) {
            auto domaine = domaineValide(d);
            f.bloques.erase(domaine);
            f.autorises.erase(domaine);
        }
        // A domain is in one list only: the last word of the parents wins.
        for (const auto& d : bloquer) {
            f.autorises.erase(domaineValide(d));
            f.bloques.insert(domaineValide(d));
        }
        for (const auto& d : autoriser) {
            f.bloques.erase(domaineValide(d));
            f.autorises.insert(domaineValide(d));
        }
        enfant.reglages.filtre = f;
    });
    c.ecrire({{"prenom", prenom},
              {"filtre",
               {{"actif", e.reglages.filtre->actif},
                {"bloques", e.reglages.filtre->bloques},
                {"autorises", e.reglages.filtre->autorises}}}});
}

void rapports(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto quoi = c.args.suivant("applis ou sites");
    auto etat = c.args.suivant("on ou off");
    if (quoi != "applis" && quoi != "sites")
        throw ErreurUsage("rapports : applis ou sites, pas « " + quoi + " »");
    if (etat != "on" && etat != "off")
        throw ErreurUsage("rapports : on ou off, pas « " + etat + " »");
    auto e = changer(c, prenom, [&](Enfant& enfant) {
        (quoi == "applis" ? enfant.reglages.rapportApplis : enfant.reglages.historiqueSites) =
            etat == "on";
    });
    c.ecrire({{"prenom", prenom},
              {"rapport_applis", e.reglages.rapportApplis},
              {"historique_sites", e.reglages.historiqueSites}});
}

void reactionVoile(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto reaction = c.args.suivant("signaler, verrouiller ou fermer_session");
    if (!reactionsVoile().contains(reaction))
        throw ErreurUsage("reaction-voile : signaler, verrouiller ou fermer_session, pas « " +
                          reaction + " »");
    changer(c, prenom, [&](Enfant& e) { e.reglages.reactionVoile = reaction; });
    c.ecrire({{"prenom", prenom}, {"reaction_voile", reaction}});
}

void tirelire(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto texte = c.args.suivant("+N ou -N");
    if (texte.empty() || (texte.front() != '+' && texte.front() != '-'))
        throw ErreurUsage("tirelire : +N pour ajouter, -N pour retirer : " + texte);
    auto n = entierEntre(texte.substr(1), "N", 1, 100000);
    double delta = static_cast<double>(texte.front() == '+' ? n : -n);
    auto e = changer(c, prenom, [&](Enfant& enfant) {
        if (enfant.tirelireMin + delta < 0)
            throw ErreurFamille("la tirelire de " + prenom + " n'a que " +
                                json(enfant.tirelireMin).dump() + " min");
        enfant.tirelireMin += delta;
    });
    c.ecrire({{"prenom", prenom}, {"tirelire_min", e.tirelireMin}});
}

void fuseau(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    auto zone = c.args.suivant("ZONE");
    if (!trouverFuseau(zone))
        throw ErreurUsage("fuseau horaire inconnu : " + zone + " (par exemple Europe/Paris)");
    changer(c, prenom, [&](Enfant& e) { e.fuseau = zone; });
    c.ecrire({{"prenom", prenom}, {"fuseau", zone}});
}

void reglages(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    Enfant e = c.depot.enfant(prenom);
    json r = versJson(e.reglages);
    r["plages"] = json::array();
    for (const auto& p : e.reglages.plages)
        r["plages"].push_back(plageLisible(p));
    c.ecrire({{"prenom", e.prenom},
              {"langue", e.langue},
              {"fuseau", e.fuseau},
              {"tirelire_min", e.tirelireMin},
              {"reglages", r}});
}

} // namespace Commandes

} // namespace tavi::famille
