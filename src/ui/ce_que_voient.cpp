#include "ui/ce_que_voient.h"

#include "commun/texte.h"
#include "ui/textes_plateforme.h"

namespace tavi {

namespace {

bool actif(const std::optional<Interrupteur>& interrupteur) {
    return interrupteur && interrupteur->actif == true;
}

// A filter counts as on when it is switched on or blocks some sites by name.
bool filtreActif(const std::optional<FiltreJSON>& filtre) {
    return filtre && (filtre->actif == true ||
                      (filtre->domainesBloques && !filtre->domainesBloques->empty()));
}

} // namespace

CeQueVoient ceQueVoient(const std::optional<Consigne>& consigne) {
    const bool rapport = consigne && actif(consigne->rapportApplis);
    const bool historique = consigne && actif(consigne->historiqueSites);
    const bool filtre = consigne && filtreActif(consigne->filtreWeb);

    CeQueVoient panneau;
    auto voient = [&](const char* icone, const char* message) {
        panneau.voient.push_back({icone, texte(message)});
    };
    voient("✅", "Le temps passé sur cet ordinateur. Il compte dans ta limite du jour, avec celui "
                "de ton téléphone.");
    voient("✅", "Si Tavi Home tourne bien sur cet ordinateur, et s'il a été coupé.");
    voient("✅", "Le nom de cet ordinateur et l'heure de ses dernières nouvelles.");
    voient("✅", "La liste des applis de cet ordinateur, pour qu'ils puissent en mettre une en "
                "sieste ou lui donner une limite.");
    if (rapport)
        voient("✅", "Le temps passé dans chaque appli de cet ordinateur, jour par jour (gardé 30 "
                    "jours).");
    else
        voient("⏳", "Si une appli a une limite, le temps passé dedans est compté pour la limite, "
                    "avec tes autres appareils (effacé chaque jour, jamais montré à tes parents).");
    if (historique)
        voient("✅", "Le nom des sites que tu visites (jamais les pages ni ce que tu y écris), "
                    "gardé 30 jours.");
    if (filtre || historique) voient("🛡️", TextesPlateforme::lectureAdresses());
    voient("⏸️", "Ils peuvent mettre une pause (« À table », « Au lit »…) et mettre certaines "
                     "applis en sieste (jeux, vidéos…), comme sur ton téléphone.");

    const char* pas = "Ton écran, tes fichiers, tes messages, ce que tu tapes, les sites que tu "
                      "visites, ni le temps passé dans chaque appli.";
    if (rapport && historique)
        pas = "Ton écran, tes fichiers, tes messages, ni ce que tu tapes.";
    else if (rapport)
        pas =
            "Ton écran, tes fichiers, tes messages, ce que tu tapes, ni les sites que tu visites.";
    else if (historique)
        pas = "Ton écran, tes fichiers, tes messages, ce que tu tapes, ni le temps passé dans "
              "chaque appli.";
    panneau.voientPas = {"🚫", texte(pas)};
    return panneau;
}

} // namespace tavi
