#include "temoignage_gardien.h"

#include "lecture.h"

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
                absence.fin != "session_finie")
                refuser("« " + a.nom("fin") + " » est inconnu : " + absence.fin + ".");
            t.absences.push_back(std::move(absence));
        }
    }
    if (const json* relances = champs.tableau("relances", listeMax))
        for (std::size_t i = 0; i < relances->size(); ++i)
            t.relances.push_back(
                instantDe((*relances)[i], "gardien.relances[" + std::to_string(i) + "]", recente));
    if (champs.trouver("absences_perdues"))
        t.absencesPerdues = champs.entier("absences_perdues", 0, 1'000'000'000);
    return t;
}

} // namespace tavi::famille
