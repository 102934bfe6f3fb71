#include "gardien/relais.h"

#include "gardien/configuration.h"
#include "gardien/journal.h"
#include "gardien/supervision.h"
#include "generique/json_borne.h"
#include "server/api.h"
#include "server/jeton.h"
#include "server/rejoindre.h"
#include "server/relais.h"

#include <chrono>
#include <pwd.h>
#include <unistd.h>

namespace tavi {

using nlohmann::json;

namespace {

constexpr std::string_view cheminAppariement = "/api/auth/ordinateur";
const char* const texteNonRelie = "Cet ordinateur n'est pas relié à ta famille.";

std::string dump(const json& document) {
    return document.dump(-1, ' ', false, json::error_handler_t::replace);
}

bool installationValide(const std::string& valeur) {
    if (valeur.empty() || valeur.size() > 64) return false;
    for (unsigned char c : valeur)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '-'))
            return false;
    return true;
}

std::string nomDuCompte(uid_t uid) {
    std::string tampon(16384, '\0');
    passwd entree{};
    passwd* trouve = nullptr;
    if (getpwuid_r(uid, &entree, tampon.data(), tampon.size(), &trouve) == 0 && trouve)
        return trouve->pw_name;
    return std::to_string(uid);
}

std::string qui(const Pair& pair) {
    return "uid " + std::to_string(pair.uid) + " pid " + std::to_string(pair.pid);
}

} // namespace

ReponseRelais Relais::erreur(int statut, const std::string& detail) {
    return {statut, "application/json", dump(json{{"detail", detail}})};
}

Relais::Decision Relais::decider(const RequeteRecue& requete, Pair pair) {
    const std::string chemin = requete.chemin();
    if (chemin == cheminPresence) {
        if (requete.methode != "POST") return erreur(405, "Méthode non permise.");
        return PresenceDemandee{};
    }
    if (chemin == cheminEtatGardien) {
        if (requete.methode != "GET") return erreur(405, "Méthode non permise.");
        if (pair.uid != 0) return erreur(403, "Réservé à root.");
        return etat(pair);
    }
    if (!chemin.starts_with("/api/")) return erreur(404, "Rien ici.");
    if (requete.methode != "GET" && requete.methode != "POST")
        return erreur(405, "Méthode non permise.");

    Envoi envoi;
    envoi.pair = pair;
    envoi.appariement = chemin == cheminAppariement && requete.methode == "POST";
    envoi.requete.methode = requete.methode;
    if (auto type = requete.entete("content-type")) {
        if (type->size() > 256) return erreur(400, "Content-Type trop long.");
        envoi.requete.entetes.emplace_back("Content-Type", *type);
    }
    if (auto installation = requete.entete("x-tavi-installation")) {
        if (!installationValide(*installation))
            return erreur(400, "X-Tavi-Installation mal formé.");
        envoi.requete.entetes.emplace_back("X-Tavi-Installation", *installation);
    }

    if (!envoi.appariement) {
        auto compte = p.registre.lire(pair.uid);
        if (!compte) {
            journal("compte illisible : " + compte.error());
            return erreur(503, "Le compte relié est illisible sur cet ordinateur.");
        }
        if (!*compte) return erreur(401, texteNonRelie);
        envoi.requete.entetes.emplace_back("Authorization", "Bearer " + (*compte)->jeton);
    }

    auto configuration = lireConfiguration(p.conf);
    if (!configuration) {
        journal("configuration refusée : " + configuration.error());
        return erreur(503, "La configuration du gardien est refusée.");
    }
    if (!configuration->serveur)
        return erreur(503, "Aucun serveur de famille n'est configuré sur cet ordinateur.");
    envoi.requete.url = Api::joindre(*configuration->serveur, requete.cible);

    if (chemin == LecteurRequete::cheminBattement && requete.methode == "POST") {
        // A copy the child started sends nothing in the account's name while the guardian's
        // own agent is expected.
        if (p.supervision.agentAttendu(pair.uid) && !p.supervision.estAgent(pair.uid, pair.pid)) {
            journal("battement refusé d'une copie : " + qui(pair));
            return erreur(403, "Seul l'agent lancé par le gardien envoie le battement.");
        }
        json battement;
        try {
            battement = analyserDocument(requete.corps, LecteurRequete::Bornes{}.corpsBattementMax);
        } catch (const DocumentInvalide& e) {
            return erreur(400, std::string("Battement illisible : ") + e.what());
        }
        if (!battement.is_object()) return erreur(400, "Battement illisible : objet attendu.");
        envoi.membre = p.supervision.prendre(pair.uid, pair.pid);
        battement["gardien"] = *envoi.membre;
        envoi.requete.corps = dump(battement);
    } else if (requete.methode == "POST") {
        envoi.requete.corps = requete.corps;
    }
    return envoi;
}

Relais::Decision Relais::etat(Pair) {
    json comptes = json::array();
    const auto liste = p.registre.lister();
    for (const auto& compte : liste.comptes) {
        json ligne = compte.public_();
        if (auto dernier = derniersBattementsMs_.find(compte.uid);
            dernier != derniersBattementsMs_.end())
            ligne["dernier_battement_ms"] = dernier->second;
        comptes.push_back(std::move(ligne));
    }
    json document = {
        {"comptes", comptes}, {"erreurs", liste.erreurs}, {"supervision", p.supervision.etat()}};
    return ReponseRelais{200, "application/json", dump(document)};
}

Attendu<ReponseHttp, ErreurTransport> Relais::echanger(Transport& transport, const Envoi& envoi) {
    return transport.echanger(envoi.requete);
}

ReponseRelais Relais::conclure(const Envoi& envoi,
                               const Attendu<ReponseHttp, ErreurTransport>& resultat) {
    const uid_t uid = envoi.pair.uid;
    const std::string quoi = qui(envoi.pair) + " " + envoi.requete.methode + " " +
                             envoi.requete.url.substr(envoi.requete.url.find("/api/"));
    if (!resultat) {
        if (envoi.membre) p.supervision.rendre(uid, *envoi.membre);
        journal(quoi + " : serveur injoignable (" + resultat.error().message + ")");
        return erreur(502, "Impossible de joindre le serveur de la famille.");
    }
    const ReponseHttp& reponse = *resultat;
    const bool reussi = reponse.statut >= 200 && reponse.statut < 300;
    if (envoi.membre && !reussi) p.supervision.rendre(uid, *envoi.membre);
    if (envoi.membre && reussi) {
        p.supervision.consigneRecue(uid, reponse.corps, envoi.envoiMs, envoi.recuMs);
        derniersBattementsMs_[uid] = std::chrono::duration_cast<std::chrono::milliseconds>(
                                         std::chrono::system_clock::now().time_since_epoch())
                                         .count();
    }
    journal(quoi + " : " + std::to_string(reponse.statut));

    if (envoi.appariement) return conclureAppariement(envoi, reponse);

    if (reponse.statut == 401) {
        // Two refusals in a row: the family unpaired this computer. One alone may be a
        // server's passing mistake.
        if (++refusSuivis_[uid] >= 2) {
            refusSuivis_.erase(uid);
            auto oublie = p.registre.oublier(uid);
            journal(oublie
                        ? "compte oublié après deux refus du serveur : uid " + std::to_string(uid)
                        : "oubli impossible : " + oublie.error());
        }
    } else if (reponse.statut > 0) {
        refusSuivis_.erase(uid);
    }

    if (auto renouvele = reponse.entetes.find("x-tavi-jeton");
        renouvele != reponse.entetes.end() && reussi) {
        if (!jetonValide(renouvele->second)) {
            journal("jeton renouvelé invalide, ignoré : uid " + std::to_string(uid));
        } else if (auto compte = p.registre.lire(uid); compte && *compte) {
            CompteRelie nouveau = **compte;
            nouveau.jeton = renouvele->second;
            auto ecrit = p.registre.ecrire(nouveau);
            journal(ecrit ? "jeton renouvelé : uid " + std::to_string(uid)
                          : "jeton renouvelé non enregistré : " + ecrit.error());
        }
    }

    ReponseRelais reponseAgent;
    reponseAgent.statut = static_cast<int>(reponse.statut);
    if (auto type = reponse.entetes.find("content-type"); type != reponse.entetes.end())
        reponseAgent.typeContenu = type->second;
    else
        reponseAgent.typeContenu.clear();
    reponseAgent.corps = reponse.corps;
    return reponseAgent;
}

ReponseRelais Relais::conclureAppariement(const Envoi& envoi, const ReponseHttp& reponse) {
    const bool reussi = reponse.statut >= 200 && reponse.statut < 300;
    if (!reussi) {
        ReponseRelais refus{static_cast<int>(reponse.statut), "application/json", reponse.corps};
        if (auto type = reponse.entetes.find("content-type"); type != reponse.entetes.end())
            refus.typeContenu = type->second;
        return refus;
    }
    auto rejoint = decoderRejoindre(reponse.corps);
    if (!rejoint) {
        journal("appariement : réponse du serveur invalide (" + rejoint.error().message + ")");
        return erreur(502, "Réponse du serveur de la famille invalide.");
    }
    CompteRelie compte{envoi.pair.uid, nomDuCompte(envoi.pair.uid), rejoint->jeton,
                       rejoint->ordinateur.id, rejoint->enfant.prenom};
    if (auto ecrit = p.registre.ecrire(compte); !ecrit) {
        journal("appariement non enregistré : " + ecrit.error());
        return erreur(503, "Le gardien n'a pas pu enregistrer ce lien.");
    }
    refusSuivis_.erase(envoi.pair.uid);
    journal("compte relié : uid " + std::to_string(compte.uid) + " (" + compte.compte + ")");
    // The agent keeps what the server said, but a stand-in for the token: the real one stays
    // with the guardian.
    json document = json::parse(reponse.corps);
    document["jeton"] = std::string(jetonGardien);
    return ReponseRelais{static_cast<int>(reponse.statut), "application/json", dump(document)};
}

} // namespace tavi
