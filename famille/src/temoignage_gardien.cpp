#include "temoignage_gardien.h"

#include "lecture.h"
#include "temps.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tavi::famille {

using nlohmann::json;

namespace {

// The guardian keeps at most this many of each and counts the rest.
constexpr std::size_t listeMax = 100;
// The computer's clock may run ahead of the server's; a day further is a clock set wrong, or a
// lie, and would place evidence among days still to come.
constexpr std::int64_t avanceMaxMs = 24LL * 3600 * 1000;
// Evidence older than what the server keeps would be deleted at once.
constexpr std::int64_t ancienneteMaxMs = 30LL * 24 * 3600 * 1000;
// Linux's largest process identifier.
constexpr std::int64_t pidMax = 1 << 22;
constexpr std::size_t cheminMax = 4096;
// A day has at most 25 hours, at a change of time.
constexpr double minutesMaxJour = 1500;
constexpr std::array<std::string_view, 8> raisonsVoile = {
    "x_injoignable", "aucune_fenetre", "non_visible", "non_couvert",
    "recouvert",     "sans_agent",     "wayland",     "console"};

[[noreturn]] void refuser(const std::string& detail) {
    throw ErreurRequete(400, detail);
}

struct Fenetre {
    std::int64_t debut;
    std::int64_t fin;
};

std::int64_t instantDe(const json& valeur, const std::string& nom, Fenetre f) {
    if (!valeur.is_number_integer()) refuser("« " + nom + " » doit être un nombre entier.");
    // An unsigned above the signed range is out of the window anyway.
    if ((valeur.is_number_unsigned() && valeur.get<std::uint64_t>() > std::uint64_t(f.fin)) ||
        valeur.get<std::int64_t>() < f.debut || valeur.get<std::int64_t>() > f.fin)
        refuser("« " + nom + " » n'est pas un instant des 30 derniers jours.");
    return valeur.get<std::int64_t>();
}

std::vector<std::int64_t> instantsDe(const Champs& champs, const char* cle, Fenetre f) {
    std::vector<std::int64_t> instants;
    if (const json* liste = champs.tableau(cle, listeMax))
        for (std::size_t i = 0; i < liste->size(); ++i)
            instants.push_back(
                instantDe((*liste)[i], champs.nom(cle) + "[" + std::to_string(i) + "]", f));
    return instants;
}

void lireCompte(const Champs& champs, std::int64_t maintenantMs, TemoignageGardien& t) {
    if (!champs.trouver("utilise_jour_min") && !champs.trouver("jour")) return;
    t.utiliseJourMin = champs.nombre("utilise_jour_min", 0, minutesMaxJour);
    t.jour = champs.texte("jour", 10);
    // Only a day the server still keeps, up to the latest "today" of any zone.
    const BornesJours bornes = bornesJours(maintenantMs, ancienneteMaxMs);
    if (!estJour(*t.jour) || *t.jour < bornes.premier || *t.jour > bornes.dernier)
        refuser("« " + champs.nom("jour") + " » n'est pas un jour des 30 derniers jours.");
}

std::vector<VoileAbsent> lireVoileAbsent(const Champs& champs, Fenetre f) {
    std::vector<VoileAbsent> liste;
    const json* absences = champs.tableau("voile_absent", listeMax);
    for (std::size_t i = 0; absences && i < absences->size(); ++i) {
        Champs a((*absences)[i], champs.nom("voile_absent") + "[" + std::to_string(i) + "]");
        VoileAbsent v{a.entier("debut_ms", f.debut, f.fin), 0, a.texte("raison", 32)};
        v.dureeMs = a.entier("duree_ms", 0, f.fin - v.debutMs);
        if (std::find(raisonsVoile.begin(), raisonsVoile.end(), v.raison) == raisonsVoile.end())
            refuser("« " + a.nom("raison") + " » est inconnue : " + v.raison + ".");
        liste.push_back(std::move(v));
    }
    return liste;
}

} // namespace

TemoignageGardien lireTemoignageGardien(const json& membre, std::int64_t maintenantMs) {
    const Fenetre recente{maintenantMs - ancienneteMaxMs, maintenantMs + avanceMaxMs};
    Champs champs(membre, "gardien");
    TemoignageGardien t;
    t.agent = champs.booleen("agent");
    t.pid = champs.entier("pid", 1, pidMax);
    t.executable = champs.texteOptionnel("executable", cheminMax);
    if (champs.trouver("lance_ms")) t.lanceMs = champs.entier("lance_ms", 0, recente.fin);
    t.demarrage = champs.texteOptionnel("demarrage", 64);
    if (const json* absences = champs.tableau("absences", listeMax)) {
        for (std::size_t i = 0; i < absences->size(); ++i) {
            Champs a((*absences)[i], "gardien.absences[" + std::to_string(i) + "]");
            AbsenceAgent absence{a.entier("debut_ms", recente.debut, recente.fin), 0,
                                 a.texte("fin", 16)};
            // It ended before the heartbeat that reports it.
            absence.dureeMs = a.entier("duree_ms", 0, recente.fin - absence.debutMs);
            if (absence.fin != "relance" && absence.fin != "retour" &&
                absence.fin != "session_finie" && absence.fin != "arret")
                refuser("« " + a.nom("fin") + " » est inconnu : " + absence.fin + ".");
            t.absences.push_back(std::move(absence));
        }
    }
    t.relances = instantsDe(champs, "relances", recente);
    if (champs.trouver("absences_perdues"))
        t.absencesPerdues = champs.entier("absences_perdues", 0, 1'000'000'000);
    lireCompte(champs, maintenantMs, t);
    t.controle = champs.texteOptionnel("controle", 16);
    if (t.controle && *t.controle != "complet" && *t.controle != "partiel")
        refuser("« gardien.controle » est inconnu : " + *t.controle + ".");
    t.verrous = instantsDe(champs, "verrous", recente);
    t.finsSession = instantsDe(champs, "fins_session", recente);
    t.voileAbsent = lireVoileAbsent(champs, recente);
    return t;
}

} // namespace tavi::famille
