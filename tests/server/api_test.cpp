#include "platform/qt/boucle_qt.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/api.h"
#include "server/jeton.h"
#include "server/transport_curl.h"
#include "support/application_qt.h"
#include "support/serveur_http.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using nlohmann::json;

class ApiContreUnServeur : public testing::Test {
protected:
    void demarrer() {
        serveur.demarrer();
        api = std::make_unique<Api>(serveur.adresse(), std::nullopt, transport, boucle, reglages);
        api->jetonNeuf = [this](const std::string& jeton) { renouveles.push_back(jeton); };
    }

    template <class T>
    T attendre(std::optional<T>& resultat) {
        EXPECT_TRUE(test::attendreQue([&] { return resultat.has_value(); }));
        return std::move(*resultat);
    }

    ResultatApi<std::string> appeler(const std::string& methode, const std::string& chemin,
                                     std::optional<json> corps = std::nullopt) {
        std::optional<ResultatApi<std::string>> r;
        api->appel(methode, chemin, std::move(corps), [&](auto x) { r = std::move(x); });
        return attendre(r);
    }

    static void repondre(httplib::Response& res, int statut, const std::string& corps,
                         const std::string& type = "application/json") {
        res.status = statut;
        res.set_content(corps, type);
    }

    test::ServeurHttp serveur;
    ReglagesSqlite reglages{ReglagesSqlite::enMemoire};
    BoucleQt boucle;
    std::shared_ptr<Transport> transport = std::make_shared<TransportCurl>();
    std::unique_ptr<Api> api;
    std::vector<std::string> renouveles;
};

TEST(Api, LeCheminSAjouteALAdresseDeBaseCommeUnComposant) {
    EXPECT_EQ(Api::joindre("http://h/", "/api/x"), "http://h/api/x");
    EXPECT_EQ(Api::joindre("https://h/tavi//", "api/x"), "https://h/tavi/api/x");
    EXPECT_EQ(Api::joindre("https://h/tavi?cle=1", "/api/x"), "https://h/tavi/api/x?cle=1");
}

TEST_F(ApiContreUnServeur, LeJetonNePartQuUneFoisRelieEtNeSeRenouvelleQueSurUnSuccesPorteur) {
    std::string renouvele;
    auto renouveler = [&renouvele](auto&, auto& res) {
        res.set_header("X-Tavi-Jeton", renouvele);
        repondre(res, 200, "{}");
    };
    serveur.route("GET", "/renouvelle", renouveler);
    serveur.route("POST", "/renouvelle", renouveler);
    serveur.route("POST", "/refus-avec-jeton", [](auto&, auto& res) {
        res.set_header("X-Tavi-Jeton", "vole");
        repondre(res, 403, R"({"detail": "Non."})");
    });
    demarrer();

    EXPECT_TRUE(appeler("GET", "/renouvelle"));
    api->definirJeton("ancien");
    EXPECT_TRUE(appeler("POST", "/renouvelle", json{{"actif", true}}));
    auto requetes = serveur.requetes();
    ASSERT_EQ(requetes.size(), 2u);
    const auto installation = reglages.texte("installation");
    ASSERT_TRUE(installation) << "created on the first request";
    for (const auto& r : requetes) {
        EXPECT_EQ(r.entete("Content-Type"), "application/json") << r.methode;
        EXPECT_EQ(r.entete("X-Tavi-Installation"), *installation) << r.methode;
    }
    EXPECT_FALSE(requetes[0].aEntete("Authorization"));
    EXPECT_EQ(requetes[1].entete("Authorization"), "Bearer ancien");
    EXPECT_EQ(json::parse(requetes[1].corps), (json{{"actif", true}}));

    // A renewal that is no bearer token fails its answer and changes nothing; neither does
    // one on a refusal, nor an empty one.
    for (const std::string& hostile : {std::string("neuf\x1b[2J\x07"), std::string(90'000, 'j')}) {
        renouvele = hostile;
        auto r = appeler("POST", "/renouvelle");
        ASSERT_FALSE(r);
        EXPECT_TRUE(std::holds_alternative<ErreurDecodage>(r.error()));
    }
    EXPECT_FALSE(appeler("POST", "/refus-avec-jeton"));
    renouvele = "";
    EXPECT_TRUE(appeler("POST", "/renouvelle"));
    EXPECT_EQ(api->jeton(), "ancien");
    EXPECT_EQ(renouveles, std::vector<std::string>{});

    renouvele = "neuf";
    EXPECT_TRUE(appeler("POST", "/renouvelle"));
    EXPECT_EQ(api->jeton(), "neuf");
    EXPECT_EQ(renouveles, std::vector<std::string>{"neuf"});
    EXPECT_TRUE(appeler("POST", "/renouvelle"));
    EXPECT_EQ(serveur.requetes().back().entete("Authorization"), "Bearer neuf");
}

TEST_F(ApiContreUnServeur, LesRefusDeviennentDesErreursApiQueLEnfantPeutLire) {
    int statut = 200;
    std::string corps = "pas du JSON";
    serveur.route("POST", "/reponse", [&](auto&, auto& res) {
        repondre(res, statut, corps);
        if (statut == 302) res.set_header("Location", "/cible");
    });
    serveur.route("POST", "/cible", [](auto&, auto& res) { repondre(res, 200, "{}"); });
    demarrer();
    EXPECT_EQ(*appeler("POST", "/reponse"), "pas du JSON") << "a success body is passed on";

    // Redirects are not followed: a 3xx is a refusal.
    const std::string parDefaut = "Impossible de joindre Tavi Home pour l'instant.";
    const std::tuple<int, std::string, std::string> refus[] = {
        {401, R"({"detail": "Ce jeton n'est plus valable."})", "Ce jeton n'est plus valable."},
        {500, "<html><body>Internal Server Error</body></html>", parDefaut},
        {400, R"({"detail": 12})", parDefaut},
        {302, "{}", parDefaut},
    };
    for (const auto& [code, texte, message] : refus) {
        statut = code;
        corps = texte;
        auto r = appeler("POST", "/reponse");
        ASSERT_FALSE(r);
        ASSERT_TRUE(std::holds_alternative<ErreurApi>(r.error()));
        EXPECT_EQ(std::get<ErreurApi>(r.error()).statut, code);
        EXPECT_EQ(std::get<ErreurApi>(r.error()).message, message);
    }
    for (const auto& requete : serveur.requetes())
        EXPECT_NE(requete.chemin, "/cible");
}

TEST_F(ApiContreUnServeur, UnJetonRangeHorsDuFormatPorteurNEstJamaisEnvoye) {
    serveur.route("POST", "/battement", [](auto&, auto& res) { repondre(res, 200, "{}"); });
    demarrer();
    const std::string limite(longueurMaxJeton, 'j');
    for (const std::string& hostile : {std::string("abc\r\nX-Injecte: 1"), limite + "j",
                                       std::string("a=b"), std::string("jéton"), std::string()}) {
        api->definirJeton(hostile);
        EXPECT_EQ(api->jeton(), std::nullopt) << hostile.substr(0, 20);
    }
    api->definirJeton(limite);
    EXPECT_EQ(api->jeton(), limite);
    api->definirJeton("Az09-._~+/==");
    EXPECT_EQ(api->jeton(), "Az09-._~+/==");

    Api depuisLeCoffre(serveur.adresse(), "abc\r\nX-Injecte: 1", transport, boucle, reglages);
    std::optional<ResultatApi<std::string>> r;
    depuisLeCoffre.appel("POST", "/battement", std::nullopt, [&](auto x) { r = std::move(x); });
    EXPECT_TRUE(attendre(r));
    EXPECT_FALSE(serveur.requetes().back().aEntete("Authorization"));
    EXPECT_FALSE(serveur.requetes().back().aEntete("X-Injecte"));

    // The transport itself sends no header that holds a line break.
    auto echange = transport->echanger(
        {"POST", serveur.adresse() + "/battement", {{"X-Tavi", "a\r\nX-Injecte: 1"}}, "{}"});
    EXPECT_FALSE(echange);
    EXPECT_EQ(serveur.requetes().size(), 1u);
}

TEST_F(ApiContreUnServeur, LaReponseDAppariementExigeOrdinateurEtJetonPorteurMaisPasLaLangue) {
    std::string reponse;
    serveur.route("POST", "/api/auth/ordinateur",
                  [&reponse](auto&, auto& res) { repondre(res, 200, reponse); });
    demarrer();
    auto rejoindre = [this] {
        std::optional<ResultatApi<Rejoindre>> r;
        api->rejoindre("ABCD2345", "PC du salon", "1.2", [&](auto x) { r = std::move(x); });
        return attendre(r);
    };

    reponse = R"({"jeton": "j", "enfant": {"id": "e", "prenom": "Léa", "langue": null},
                  "ordinateur": {"id": "o", "nom": "n"}, "en_plus": 1})";
    auto r = rejoindre();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->enfant.langue, std::nullopt);
    EXPECT_EQ(json::parse(serveur.requetes().back().corps),
              (json{{"code", "ABCD2345"}, {"nom", "PC du salon"}, {"version", "1.2"}}));
    for (const auto& [mauvaise, nommee] :
         {std::pair{R"({"jeton": "j\r\nX-Injecte: 1", "enfant": {"id": "e", "prenom": "L"},
                           "ordinateur": {"id": "o", "nom": "n"}})",
                    "jeton"},
          std::pair{R"({"jeton": "j", "enfant": {"id": "e", "prenom": "L"}})", "ordinateur"}}) {
        reponse = mauvaise;
        r = rejoindre();
        ASSERT_FALSE(r);
        ASSERT_TRUE(std::holds_alternative<ErreurDecodage>(r.error()));
        EXPECT_NE(std::get<ErreurDecodage>(r.error()).message.find(nommee), std::string::npos);
    }
}

TEST_F(ApiContreUnServeur, CeQuiNePeutPasPartirOuRevientTropTardNeFaitRien) {
    serveur.route("POST", "/lent", [](auto&, auto& res) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        repondre(res, 200, "{}");
    });
    serveur.route("POST", "/api/enfant/signal",
                  [](auto&, auto& res) { repondre(res, 500, "non"); });
    demarrer();

    // A body that is not valid UTF-8 cannot be written: nothing is sent.
    auto r = appeler("POST", "/lent", json{{"texte", std::string("\xff\xfe")}});
    ASSERT_FALSE(r);
    EXPECT_TRUE(std::holds_alternative<ErreurSerialisation>(r.error()));
    EXPECT_TRUE(serveur.requetes().empty());

    // Reporting a site never fails, whatever the server says.
    api->signalerSite("jeux.example");
    ASSERT_TRUE(test::attendreQue([&] { return serveur.requetes().size() == 1; }));
    EXPECT_EQ(json::parse(serveur.requetes()[0].corps),
              (json{{"nature", "site_bloque"}, {"detail", "jeux.example"}}));

    // An answer that comes back after the client is gone is dropped.
    bool appele = false;
    api->appel("POST", "/lent", std::nullopt, [&appele](auto) { appele = true; });
    api.reset();
    test::attendreQue([] { return false; }, std::chrono::milliseconds(800));
    EXPECT_FALSE(appele);
}

} // namespace
} // namespace tavi
