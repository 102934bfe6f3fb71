#include "rules/consigne_json.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace tavi {
namespace {

Consigne decoder(const std::string& texte) {
    auto c = decoderConsigne(texte);
    if (!c) ADD_FAILURE() << texte << " : " << c.error().message;
    return c ? *c : Consigne{};
}

std::string erreurDe(const std::string& texte) {
    auto c = decoderConsigne(texte);
    if (c) {
        ADD_FAILURE() << "décodé alors qu'il fallait échouer : " << texte;
        return {};
    }
    return c.error().message;
}

TEST(DecodageConsigne, UnDocumentVideOuFaitDeNullNeDonneAucunMembreEtAucuneRegle) {
    EXPECT_EQ(decoder("{}"), Consigne{});
    EXPECT_EQ(decoder(R"({"protege_maintenant": null, "mac": null, "programme": null})"),
              Consigne{});
}

TEST(DecodageConsigne, LesClesSontComprisesEnSnakeCommeEnCamelEtLesInconnuesIgnorees) {
    Consigne c = decoder(R"({
        "reste_jour_min": 12.5, "limiteJourMin": 60, "ouvert_jusqu_ms": 7,
        "cle_inconnue": {"quoi": [1, 2]},
        "programme": [{"debut_ms": 1, "finMs": 2, "regle": {"mode": "familles"}, "nouveau": 1}],
        "mac": {"bloquer_tout": false, "limites": [{"id": "j", "nom": "Jeux", "minutes": 30,
                "applis": ["steam"]}]},
        "filtre_web": {"domaines_bloques": ["a.example"]},
        "limites_autres": {"a_b": 3, "jeux": 1.5}})");
    EXPECT_EQ(c.resteJourMin, 12.5);
    EXPECT_EQ(c.limiteJourMin, 60.0);
    EXPECT_EQ(c.ouvertJusquMs, 7);
    ASSERT_TRUE(c.programme);
    EXPECT_EQ(c.programme->at(0), (Plage{1, 2, RegleJSON{"familles", std::nullopt}, {}, {}}));
    EXPECT_EQ(c.mac->bloquerTout, false);
    EXPECT_EQ(c.mac->limites->at(0), (LimiteMac{"j", "Jeux", 30, {"steam"}}));
    EXPECT_EQ(c.filtreWeb->domainesBloques, std::vector<std::string>{"a.example"});
    // The map's keys are converted like member names: a limit id with an underscore is lost.
    EXPECT_EQ(c.limitesAutres, (std::map<std::string, double>{{"aB", 3}, {"jeux", 1.5}}));
}

TEST(DecodageConsigne, UnMauvaisTypeOuUnMembreObligatoireAbsentFaitEchouerToutEnLeNommant) {
    const std::vector<std::pair<std::string, std::string>> cas = {
        {R"([1, 2])", "le document : objet attendu"},
        {R"({"prenom": "Léa",)", "JSON illisible"},
        {R"({"fin_ms": 1795447800e20000})", "JSON illisible"},
        {R"({"protege_maintenant": "true"})", "protege_maintenant : booléen attendu"},
        {R"({"prenom": 12})", "prenom : texte attendu"},
        {R"({"programme": [{"debut_ms": 1, "fin_ms": 2}, {"debut_ms": 1, "fin_ms": "2"}]})",
         "programme[1].fin_ms : entier attendu"},
        {R"({"programme": [{"debut_ms": 1}]})", "programme[0].fin_ms : membre obligatoire absent"},
        {R"({"programme": [{"debut_ms": 1, "fin_ms": null}]})", "programme[0].fin_ms : membre"},
        {R"({"mac": {"limites": [{"id": "j", "minutes": 3, "applis": []}]}})",
         "mac.limites[0].nom : membre obligatoire absent"},
        {R"({"mac": {"bloquees": ["a", 1]}})", "mac.bloquees[1] : texte attendu"},
        {R"({"limites_autres": {"jeux": "1"}})", "limites_autres.jeux : nombre attendu"},
        {R"({"regle": {"familles": "jeux"}})", "regle.familles : liste attendue"},
    };
    for (const auto& [texte, attendu] : cas)
        EXPECT_NE(erreurDe(texte).find(attendu), std::string::npos)
            << texte << " -> " << erreurDe(texte);
}

TEST(DecodageConsigne, LesEntiersSontDesNombresIntegrauxSur64BitsEtLesDoublesToutNombre) {
    EXPECT_EQ(decoder(R"({"fin_ms": 1e3})").finMs, 1000);
    EXPECT_EQ(decoder(R"({"fin_ms": 9223372036854775807})").finMs, INT64_MAX);
    EXPECT_EQ(decoder(R"({"fin_ms": -9223372036854775808})").finMs, INT64_MIN);
    EXPECT_NE(erreurDe(R"({"fin_ms": 1.5})").find("fin_ms : entier attendu"), std::string::npos);
    EXPECT_NE(erreurDe(R"({"fin_ms": 9223372036854775808})").find("hors des 64 bits"),
              std::string::npos);
    EXPECT_EQ(decoder(R"({"tirelire_min": 18446744073709551615})").tirelireMin,
              1.8446744073709552e19);
}

TEST(DecodageConsigne, UnDocumentDemesureEstRefuseAvantDEtreLu) {
    std::string gros = R"({"prenom": ")" + std::string(tailleMaxConsigne, 'a') + R"("})";
    EXPECT_NE(erreurDe(gros).find("trop grand"), std::string::npos);
    std::string profond = R"({"x": )" + std::string(100, '[') + std::string(100, ']') + "}";
    EXPECT_NE(erreurDe(profond).find("imbriqué"), std::string::npos);
    // Brackets inside texts are not nesting.
    EXPECT_EQ(decoder(R"({"prenom": ")" + std::string(100, '[') + R"("})").prenom,
              std::string(100, '['));
}

TEST(EncodageConsigne, LesMembresSortentEnCamelCaseDansLOrdreSansLesAbsents) {
    Consigne c = decoder(R"({"tirelire_min": 5, "heure_serveur_ms": 42,
        "programme": [{"fin_ms": 9, "debut_ms": 3, "titre": "Dodo"}],
        "mac": {"coupees": ["x"], "limites": [{"applis": [], "minutes": 0, "nom": "N", "id": "i"}]},
        "rapport_applis": {}})");
    EXPECT_EQ(encoderConsigne(c).dump(),
              R"({"heureServeurMs":42,"mac":{"limites":[{"id":"i","nom":"N","minutes":0.0,)"
              R"("applis":[]}],"coupees":["x"]},"programme":[{"debutMs":3,"finMs":9,)"
              R"("titre":"Dodo"}],"tirelireMin":5.0,"rapportApplis":{}})");
    // What is encoded decodes back to the same rule set.
    EXPECT_EQ(decoder(encoderConsigne(c).dump()), c);
}

} // namespace
} // namespace tavi
