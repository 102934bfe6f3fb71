#include "gardien/garde_repos.h"

#include "commun/jour.h"
#include "gardien/journal.h"
#include "rules/consigne_json.h"
#include "rules/programme.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

// Past this, the guardian was held up rather than the seconds used.
constexpr std::int64_t ecartMaxMs = 5'000;

const char* nomVoile(EtatVoile voile) {
    switch (voile) {
    case EtatVoile::present:
        return "present";
    case EtatVoile::absent:
        return "absent";
    case EtatVoile::inconnu:
        break;
    }
    return "inconnu";
}

// A console of the kernel's ("tty3", "pts/2"): anything else is not written to.
bool consoleValide(const std::string& tty) {
    const auto chiffres = [](std::string_view v) {
        return !v.empty() && v.size() <= 4 &&
               std::all_of(v.begin(), v.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    const std::string_view v = tty;
    return (v.starts_with("tty") && chiffres(v.substr(3))) ||
           (v.starts_with("pts/") && chiffres(v.substr(4)));
}

void ecrireConsole(const std::string& tty, const std::string& texte) {
    if (!consoleValide(tty)) return;
    const std::string chemin = "/dev/" + tty;
    const int fd = open(chemin.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return;
    struct stat etat {};
    if (fstat(fd, &etat) == 0 && S_ISCHR(etat.st_mode)) {
        const std::string ligne = "\r\n*** " + texte + " ***\r\n";
        [[maybe_unused]] auto n = write(fd, ligne.data(), ligne.size());
    }
    close(fd);
}

} // namespace

const char* const GardeRepos::texteAvis =
    "Ta session va se fermer dans une minute : c'est l'heure de la pause.";

GardeRepos::GardeRepos(Ports ports, AgentDe agentDe, AutoritesDe autoritesDe)
    : p(std::move(ports)), agentDe_(std::move(agentDe)), autoritesDe_(std::move(autoritesDe)),
      horloge_(p.horloges, p.dossier + "/garde/horloge.json") {}

GardeRepos::Compte& GardeRepos::compte(uid_t uid) {
    auto it = comptes_.find(uid);
    if (it == comptes_.end())
        it = comptes_
                 .try_emplace(uid, p.dossier + "/garde/" + std::to_string(uid) + ".json")
                 .first;
    return it->second;
}

void GardeRepos::tic(const std::set<uid_t>& relies) {
    maintenant_ = p.horloges.monotoniqueEveilleMs();
    // The clock that stops during sleep: a suspend adds nothing.
    const std::int64_t ecart =
        dernierTicMs_ < 0 ? 0 : std::clamp<std::int64_t>(maintenant_ - dernierTicMs_, 0, ecartMaxMs);
    dernierTicMs_ = maintenant_;
    serveurMs_ = horloge_.maintenantMs();
    const std::string jour = jourLocal(serveurMs_);
    const auto sessions = p.sessions.locales();
    const bool veille = sessions && p.sessions.versLaVeille();

    for (auto it = comptes_.begin(); it != comptes_.end();) {
        if (relies.contains(it->first)) {
            ++it;
            continue;
        }
        it->second.etat.enregistrer(maintenant_, true);
        it = comptes_.erase(it);
    }
    std::set<std::string> affichages;
    for (const uid_t uid : relies) {
        Compte& c = compte(uid);
        const auto regle =
            Programme::regleCourante(c.etat.consigne(), serveurMs_, c.etat.depuisConsigne(),
                                     c.etat.secondesDuJour(jour));
        c.repos = regle && regle->bloquerTout;
        while (!c.verrousHeure.empty() && maintenant_ - c.verrousHeure.front() >= heureMs)
            c.verrousHeure.pop_front();
        // Without an answer from logind nothing is counted nor done: the sessions stay as
        // last seen.
        if (!sessions) continue;
        bool utilise = false;
        c.controle = "complet";
        std::set<std::string> vues;
        for (const auto& s : *sessions) {
            if (s.uid != uid) continue;
            vues.insert(s.id);
            suivre(uid, c, s, utilise, affichages);
        }
        for (auto it = c.suivis.begin(); it != c.suivis.end();) {
            if (vues.contains(it->first)) {
                ++it;
                continue;
            }
            fermerAbsence(c, it->second);
            it = c.suivis.erase(it);
        }
        if (utilise && !veille) c.etat.compter(jour, static_cast<double>(ecart) / 1000.0);
        c.etat.enregistrer(maintenant_);
    }
    if (sessions) p.regards.garderSeulement(affichages);
}

void GardeRepos::suivre(uid_t uid, Compte& c, const SessionLogind& s, bool& utilise,
                        std::set<std::string>& affichages) {
    Suivi& suivi = c.suivis[s.id];
    if (!s.verrouillee)
        suivi.verrouVuMs = -1;
    else if (suivi.verrouVuMs < 0)
        suivi.verrouVuMs = maintenant_;
    // A session in the background of its seat is not in use, and needs no veil.
    if (s.etat != "active") {
        fermerAbsence(c, suivi);
        retirerAvis(s, suivi);
        suivi.voile.clear();
        suivi.inactiviteS.reset();
        return;
    }
    const bool x11 = s.type == "x11" && !s.affichage.empty();
    if (!x11) c.controle = "partiel";
    std::optional<RegardX> regard;
    if (x11) {
        affichages.insert(s.affichage);
        regard = p.regards.regarder(acces(s, suivi), c.repos ? agentDe_(uid, s.id) : 0);
        if (regard && regard->ageMs > regardPerimeMs) regard.reset();
    }
    suivi.inactiviteS = regard ? regard->inactiviteS : std::nullopt;

    // Without the X server's word, logind's active session alone decides: counting too much
    // errs on the family's side. The lock hint is the account's own to set: it stands only
    // while no input came after it.
    bool enUsage = true;
    if (suivi.inactiviteS) {
        const double inactivite = *suivi.inactiviteS;
        const bool verrouSansSaisie =
            suivi.verrouVuMs >= 0 &&
            inactivite * 1000 >= static_cast<double>(maintenant_ - suivi.verrouVuMs);
        enUsage = inactivite < inactiviteMaxS && !verrouSansSaisie;
    }
    EtatVoile voile = EtatVoile::absent;
    std::string raison = s.type == "wayland" ? "wayland" : "console";
    if (x11) {
        voile = regard ? regard->voile : EtatVoile::inconnu;
        raison = regard && !regard->raison.empty() ? regard->raison : "x_injoignable";
    }
    suivi.voile = c.repos ? nomVoile(voile) : "";
    // Behind the veil nothing is used. While the computer must rest, only what the guardian
    // sees used counts: a session it cannot look into is locked or ended instead.
    if (enUsage && (!c.repos || (suivi.inactiviteS && voile == EtatVoile::absent)))
        utilise = true;

    if (!c.repos || voile == EtatVoile::present) {
        fermerAbsence(c, suivi);
        retirerAvis(s, suivi);
        return;
    }
    if (suivi.absentDepuisMs < 0) {
        suivi.absentDepuisMs = maintenant_;
        suivi.absentDepuisServeurMs = serveurMs_;
    }
    suivi.raison = raison;
    if (maintenant_ - suivi.absentDepuisMs < voileAbsentMaxMs) return;
    const bool saisieApresVerrou =
        suivi.inactiviteS && suivi.dernierVerrouMs >= 0 &&
        *suivi.inactiviteS * 1000 < static_cast<double>(maintenant_ - suivi.dernierVerrouMs);
    agir(c, s, suivi, saisieApresVerrou);
}

void GardeRepos::agir(Compte& c, const SessionLogind& s, Suivi& suivi, bool saisieApresVerrou) {
    const std::string& reaction = c.etat.reaction();
    if (reaction == "signaler") return;
    if (suivi.avisDepuisMs >= 0) {
        if (maintenant_ - suivi.avisDepuisMs < avisMs) return;
        if (p.sessions.terminer(s.id)) {
            c.fins.push_back(serveurMs_);
            borner(c);
            journal("session " + s.id + " fermée : le voile manquait pendant le repos (" +
                    suivi.raison + ")");
        }
        retirerAvis(s, suivi);
        return;
    }
    const std::int64_t depuis = maintenant_ - suivi.dernierVerrouMs;
    const bool encore = suivi.dernierVerrouMs >= 0 &&
                        (suivi.inactiviteS ? saisieApresVerrou && depuis >= reverrouillageMs
                                           : depuis >= reverrouillageAveugleMs);
    if (suivi.dernierVerrouMs >= 0 && !encore) return;
    if (!p.sessions.verrouiller(s.id)) return;
    suivi.dernierVerrouMs = maintenant_;
    c.verrous.push_back(serveurMs_);
    c.verrousHeure.push_back(maintenant_);
    borner(c);
    journal("session " + s.id + " verrouillée : le voile manque pendant le repos (" +
            suivi.raison + ")");
    // A text console has no lock screen: it is locked for the record and ended after the
    // notice, whatever the family chose beyond recording.
    const bool console = s.type != "x11" && s.type != "wayland";
    if (console || (reaction == "fermer_session" && c.verrousHeure.size() >= verrousAvantFin))
        avertir(s, suivi);
}

void GardeRepos::avertir(const SessionLogind& s, Suivi& suivi) {
    if (suivi.avisDepuisMs >= 0) return;
    suivi.avisDepuisMs = maintenant_;
    journal("session " + s.id + " : fermeture dans une minute");
    if (s.type == "x11" && !s.affichage.empty())
        p.regards.afficherAvis(acces(s, suivi), texteAvis);
    else
        ecrireConsole(s.tty, texteAvis);
}

void GardeRepos::retirerAvis(const SessionLogind& s, Suivi& suivi) {
    if (suivi.avisDepuisMs < 0) return;
    suivi.avisDepuisMs = -1;
    if (s.type == "x11" && !s.affichage.empty()) p.regards.retirerAvis(s.affichage);
}

void GardeRepos::fermerAbsence(Compte& c, Suivi& suivi) {
    if (suivi.absentDepuisMs >= 0 && maintenant_ - suivi.absentDepuisMs >= voileAbsentMaxMs) {
        c.voiles.push_back(
            {suivi.absentDepuisServeurMs, maintenant_ - suivi.absentDepuisMs, suivi.raison});
        borner(c);
    }
    suivi.absentDepuisMs = -1;
    suivi.dernierVerrouMs = -1;
}

const AccesX& GardeRepos::acces(const SessionLogind& s, Suivi& suivi) {
    // The session's processes are read again now and then: the authority may change.
    if (suivi.accesLuMs < 0 || maintenant_ - suivi.accesLuMs >= 60'000 ||
        suivi.acces.affichage != s.affichage) {
        suivi.acces = {s.affichage, s.uid, autoritesDe_(s)};
        suivi.accesLuMs = maintenant_;
    }
    return suivi.acces;
}

void GardeRepos::borner(Compte& c) {
    while (c.verrous.size() > gardesMax)
        c.verrous.pop_front();
    while (c.fins.size() > gardesMax)
        c.fins.pop_front();
    while (c.voiles.size() > gardesMax)
        c.voiles.pop_front();
}

void GardeRepos::consigneRecue(uid_t uid, const std::string& corps, std::int64_t envoiMs,
                               std::int64_t recuMs) {
    auto consigne = decoderConsigne(corps);
    if (!consigne) {
        // The last good rule set stays.
        journal("règles illisibles pour uid " + std::to_string(uid) + " : " +
                consigne.error().message);
        return;
    }
    horloge_.noter(consigne->heureServeurMs.value_or(0), envoiMs, recuMs);
    Compte& c = compte(uid);
    c.etat.consigneRecue(std::move(*consigne), corps);
    c.etat.enregistrer(p.horloges.monotoniqueEveilleMs(), true);
}

void GardeRepos::enregistrer() {
    for (auto& [uid, c] : comptes_)
        c.etat.enregistrer(maintenant_, true);
}

} // namespace tavi
