#include "gardien/lecteur_requete.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using Etat = LecteurRequete::Etat;

TEST(LecteurRequete, LitUneRequeteArriveeOctetParOctet) {
    const std::string texte = "POST /api/enfant/battement?x=1 HTTP/1.1\r\nHost: g\r\n"
                              "Content-Type: application/json\r\nContent-Length: 7\r\n\r\n"
                              "{\"a\":1}\n";
    LecteurRequete lecteur;
    for (std::size_t i = 0; i + 1 < texte.size(); ++i)
        ASSERT_EQ(lecteur.fournir(texte.substr(i, 1)),
                  i + 2 < texte.size() ? Etat::Suite : Etat::Requete)
            << i;
    const auto& requete = lecteur.requete();
    EXPECT_EQ(requete.methode, "POST");
    EXPECT_EQ(requete.chemin(), "/api/enfant/battement");
    EXPECT_EQ(requete.corps, "{\"a\":1}");
    EXPECT_EQ(requete.entete("content-type"), "application/json");
    lecteur.fournir("\n");
    EXPECT_EQ(lecteur.reste(), "");
}

TEST(LecteurRequete, RefuseCeQueDeuxLecteursLiraientAutrement) {
    const std::string debut = "POST /api/x HTTP/1.1\r\n";
    const std::pair<std::string, int> cas[] = {
        {debut + "A: b\r\n c\r\n\r\n", 400},                              // folded
        {debut + "A: b\rc\r\n\r\n", 400},                                 // bare CR
        {debut + "A: b\nC: d\r\n\r\n", 400},                              // bare LF
        {debut + std::string("A: b\0c\r\n\r\n", 11), 400},                // NUL
        {debut + "Content-Length: 1\r\nContent-Length: 1\r\n\r\nx", 400}, // twice
        {debut + "Content-Length: +1\r\n\r\nx", 400},
        {debut + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n", 400},
        {debut + "A b: c\r\n\r\n", 400},
        {"POST http://ailleurs/api/x HTTP/1.1\r\n\r\n", 400},
        {"GET /api/../gardien/etat HTTP/1.1\r\n\r\n", 400},
        {"GET /api/%2e%2e/etat HTTP/1.1\r\n\r\n", 400},
        {"GET  /api/x HTTP/1.1\r\n\r\n", 400},
        {"GET /api/x HTTP/2\r\n\r\n", 505},
        {debut + "Content-Length: 16385\r\n\r\n", 413},
        {"POST /api/enfant/battement HTTP/1.1\r\nContent-Length: 1048577\r\n\r\n", 413},
        {debut + std::string(16400, 'a') + "\r\n\r\n", 431},
    };
    for (const auto& [texte, statut] : cas) {
        LecteurRequete lecteur;
        const auto etat = lecteur.fournir(texte);
        EXPECT_EQ(etat, Etat::Erreur) << texte;
        EXPECT_EQ(lecteur.statutErreur(), statut) << texte;
    }
    std::string lignes = debut;
    for (int i = 0; i < 65; ++i)
        lignes += "A" + std::to_string(i) + ": b\r\n";
    LecteurRequete lecteur;
    EXPECT_EQ(lecteur.fournir(lignes + "\r\n"), Etat::Erreur);
    EXPECT_EQ(lecteur.statutErreur(), 431);
}

} // namespace
} // namespace tavi
