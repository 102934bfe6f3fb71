#include "ui/ce_que_voient.h"
#include "ui/etape_accueil.h"
#include "ui/textes_plateforme.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

TEST(Accueil, LaPremiereEtapeEncoreDueGagne) {
    using E = EtapeAccueil;
    EXPECT_EQ(etapeAccueil({true, false, false, false}), E::ceQueVoientSeul);
    EXPECT_EQ(etapeAccueil({true, true, true, true}), E::ceQueVoientSeul);
    EXPECT_EQ(etapeAccueil({false, false, true, true}), E::rejoindre);
    EXPECT_EQ(etapeAccueil({false, true, false, true}), E::accord);
    EXPECT_EQ(etapeAccueil({false, true, true, false}), E::demarrage);
    EXPECT_EQ(etapeAccueil({false, true, true, true}), E::fini);
}

TEST(Accueil, LeCodeEnMajusculesSansSignes) {
    EXPECT_EQ(nettoyerCode("abcd-2345"), "ABCD2345");
    EXPECT_EQ(nettoyerCode(" Ab cd\t23·45 "), "ABCD2345");
    EXPECT_EQ(nettoyerCode("éàç1"), "1"); // no code holds a letter outside ASCII
}

Consigne avec(bool rapport, bool historique, std::optional<FiltreJSON> filtre = std::nullopt) {
    Consigne c;
    c.rapportApplis = Interrupteur{rapport};
    c.historiqueSites = Interrupteur{historique};
    c.filtreWeb = std::move(filtre);
    return c;
}

TEST(CeQueVoient, LesInterrupteursChoisissentLesLignes) {
    const std::string tout = "Ton écran, tes fichiers, tes messages, ce que tu tapes, les sites "
                             "que tu visites, ni le temps passé dans chaque appli.";
    // {consigne, the icons of what they see, in order; what they do not see}
    const std::tuple<std::optional<Consigne>, std::string, std::string> cas[] = {
        {std::nullopt, "✅✅✅✅⏳⏸️", tout},
        {Consigne{}, "✅✅✅✅⏳⏸️", tout},
        {avec(false, false), "✅✅✅✅⏳⏸️", tout},
        {avec(true, true), "✅✅✅✅✅✅🛡️⏸️",
         "Ton écran, tes fichiers, tes messages, ni ce que tu tapes."},
        {avec(true, false), "✅✅✅✅✅⏸️",
         "Ton écran, tes fichiers, tes messages, ce que tu tapes, ni les sites que tu visites."},
        {avec(false, true), "✅✅✅✅⏳✅🛡️⏸️",
         "Ton écran, tes fichiers, tes messages, ce que tu tapes, ni le temps passé dans chaque "
         "appli."},
        // A filter switched off that still blocks sites by name reads the pages.
        {avec(false, false, FiltreJSON{false, std::vector<std::string>{"jeux.example"}, {}}),
         "✅✅✅✅⏳🛡️⏸️", tout},
        {avec(false, false, FiltreJSON{true, {}, {}}), "✅✅✅✅⏳🛡️⏸️", tout},
        {avec(false, false, FiltreJSON{false, std::vector<std::string>{}, {}}),
         "✅✅✅✅⏳⏸️", tout},
    };
    for (const auto& [consigne, attendues, voientPas] : cas) {
        const CeQueVoient p = ceQueVoient(consigne);
        std::string icones;
        for (const auto& point : p.voient)
            icones += point.icone;
        EXPECT_EQ(icones, attendues) << voientPas;
        EXPECT_EQ(p.voientPas.texte, voientPas) << attendues;
    }
    EXPECT_EQ(ceQueVoient(avec(false, false, FiltreJSON{true, {}, {}})).voient[5].texte,
              TextesPlateforme::lectureAdresses());
}

} // namespace
} // namespace tavi
