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

TEST(DecodageConsigne, LesClesSnakeOuCamelSeLisentLesNullEtLesInconnuesNeComptentPas) {
    EXPECT_EQ(decoder(R"({"protege_maintenant": null, "mac": null, "programme": null})"),
              Consigne{});
    Consigne c = decoder(R"({"limiteJourMin": 60, "cle_inconnue": {"quoi": [1, 2]},
        "programme": [{"debut_ms": 1, "finMs": 2, "nouveau": 1}],
        "limites_autres": {"a_b": 3}})");
    EXPECT_EQ(c.limiteJourMin, 60.0);
    EXPECT_EQ(c.programme->at(0).finMs, 2);
    // The map's keys are converted like member names: a limit id with an underscore is lost.
    EXPECT_EQ(c.limitesAutres, (std::map<std::string, double>{{"aB", 3}}));
}

TEST(DecodageConsigne, UnDocumentFautifOuDemesureEchoueEnNommantLeMembre) {
    const std::vector<std::pair<std::string, std::string>> cas = {
        {R"([1, 2])", "le document : objet attendu"},
        {R"({"prenom": "Léa",)", "JSON illisible"},
        {R"({"fin_ms": 1795447800e20000})", "JSON illisible"},
        {R"({"protege_maintenant": "true"})", "protege_maintenant : booléen attendu"},
        {R"({"programme": [{"debut_ms": 1, "fin_ms": 2}, {"debut_ms": 1, "fin_ms": "2"}]})",
         "programme[1].fin_ms : entier attendu"},
        {R"({"programme": [{"debut_ms": 1, "fin_ms": null}]})",
         "programme[0].fin_ms : membre obligatoire absent"},
        {R"({"mac": {"limites": [{"id": "j", "minutes": 3, "applis": []}]}})",
         "mac.limites[0].nom : membre obligatoire absent"},
        {R"({"mac": {"bloquees": ["a", 1]}})", "mac.bloquees[1] : texte attendu"},
        {R"({"limites_autres": {"jeux": "1"}})", "limites_autres.jeux : nombre attendu"},
        {R"({"regle": {"familles": "jeux"}})", "regle.familles : liste attendue"},
        {R"({"fin_ms": 1.5})", "fin_ms : entier attendu"},
        {R"({"fin_ms": 9223372036854775808})", "hors des 64 bits"},
        {R"({"prenom": ")" + std::string(tailleMaxConsigne, 'a') + R"("})", "trop grand"},
        {R"({"x": )" + std::string(100, '[') + std::string(100, ']') + "}", "imbriqué"},
    };
    for (const auto& [texte, attendu] : cas)
        EXPECT_NE(erreurDe(texte).find(attendu), std::string::npos)
            << texte.substr(0, 80) << " -> " << erreurDe(texte);
}

TEST(DecodageConsigne, LesEntiersVontJusquAux64BitsEtLesCrochetsDUnTexteNeComptentPas) {
    EXPECT_EQ(decoder(R"({"fin_ms": 1e3})").finMs, 1000);
    EXPECT_EQ(decoder(R"({"fin_ms": 9223372036854775807})").finMs, INT64_MAX);
    EXPECT_EQ(decoder(R"({"fin_ms": -9223372036854775808})").finMs, INT64_MIN);
    EXPECT_EQ(decoder(R"({"tirelire_min": 18446744073709551615})").tirelireMin,
              1.8446744073709552e19);
    EXPECT_EQ(decoder(R"({"prenom": ")" + std::string(100, '[') + R"("})").prenom,
              std::string(100, '['));
}

TEST(EncodageConsigne, LesMembresPresentsSeulsSortentEtSeRelisentALIdentique) {
    EXPECT_EQ(encoderConsigne(Consigne{}).dump(), "{}");
    const Consigne c = decoder(R"({"tirelire_min": 5, "heure_serveur_ms": 42,
        "programme": [{"fin_ms": 9, "debut_ms": 3, "titre": "Dodo"}],
        "mac": {"coupees": ["x"], "limites": [{"applis": [], "minutes": 0, "nom": "N", "id": "i"}]},
        "rapport_applis": {}})");
    EXPECT_EQ(decoder(encoderConsigne(c).dump()), c);
}

} // namespace
} // namespace tavi
