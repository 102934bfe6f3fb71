#include "server/api.h"

#include "commun/texte.h"
#include "rules/json_strict.h"
#include "server/jeton.h"
#include "server/stockage.h"

#include <utility>

namespace tavi {

using nlohmann::json;

namespace {
// A refusal's explanation is a sentence; a larger body is an error page, not read.
constexpr std::size_t tailleMaxDetail = 64 * 1024;

std::optional<std::string> retenu(std::optional<std::string> jeton) {
    if (jeton && !jetonValide(*jeton)) return std::nullopt;
    return jeton;
}
} // namespace

Api::Api(std::string base, std::optional<std::string> jeton, std::shared_ptr<Transport> transport,
         Boucle& boucle, Reglages& reglages)
    : base_(std::move(base)), jeton_(retenu(std::move(jeton))), transport_(std::move(transport)),
      boucle_(boucle), reglages_(reglages), vivant_(std::make_shared<Api*>(this)) {}

void Api::definirJeton(std::optional<std::string> jeton) {
    jeton_ = retenu(std::move(jeton));
}

Api::~Api() = default;

std::string Api::joindre(const std::string& base, const std::string& chemin) {
    std::string url = base;
    // The path goes before any query or fragment of the base.
    std::string suffixe;
    if (auto fin =
            url.find_first_of("?#", url.find("://") == std::string::npos ? 0 : url.find("://") + 3);
        fin != std::string::npos) {
        suffixe = url.substr(fin);
        url.erase(fin);
    }
    while (!url.empty() && url.back() == '/')
        url.pop_back();
    std::size_t debut = chemin.find_first_not_of('/');
    // Appended piece by piece: GCC 12 at -O3 reports a false -Wrestrict on `"/" + texte`.
    if (debut != std::string::npos) url.append(1, '/').append(chemin, debut);
    return url.append(suffixe);
}

void Api::appel(const std::string& methode, const std::string& chemin, std::optional<json> corps,
                std::function<void(ResultatApi<std::string>)> suite) {
    RequeteHttp requete{methode, joindre(base_, chemin), {}, std::nullopt};
    requete.entetes.emplace_back("Content-Type", "application/json");
    requete.entetes.emplace_back("X-Tavi-Installation", Stockage::installation(reglages_));
    if (jeton_) requete.entetes.emplace_back("Authorization", "Bearer " + *jeton_);

    std::weak_ptr<Api*> vivant = vivant_;
    if (corps) {
        try {
            requete.corps = corps->dump();
        } catch (const json::exception& e) {
            // Nothing is sent; the caller still hears of it later, like of any failure.
            boucle_.poster([vivant, suite, message = std::string(e.what())] {
                if (vivant.lock()) suite(EchecApi{ErreurSerialisation{message}});
            });
            return;
        }
    }

    std::shared_ptr<Transport> transport = transport_;
    boucle_.enArrierePlan(
        [transport, requete = std::move(requete), vivant, suite]() -> Boucle::Tache {
            auto echange = std::make_shared<Attendu<ReponseHttp, ErreurTransport>>(
                transport->echanger(requete));
            return [vivant, suite, echange] {
                if (auto api = vivant.lock()) suite((*api)->conclure(std::move(*echange)));
            };
        },
        // A transport that throws is a failed exchange like any other: the caller's heartbeat
        // or request must hear of it, or it would wait forever.
        [vivant, suite](const std::string& raison) {
            if (vivant.lock()) suite(EchecApi{ErreurTransport{0, raison}});
        });
}

ResultatApi<std::string> Api::conclure(Attendu<ReponseHttp, ErreurTransport> echange) {
    if (!echange) return EchecApi{echange.error()};
    ReponseHttp& reponse = *echange;
    const bool succes = reponse.statut >= 200 && reponse.statut <= 299;

    // A renewal counts only on success: a refusal's headers are not the server's word on
    // this computer's token.
    if (auto neuf = reponse.entetes.find("x-tavi-jeton");
        succes && neuf != reponse.entetes.end() && !neuf->second.empty()) {
        if (!jetonValide(neuf->second))
            return EchecApi{ErreurDecodage{"jeton renouvelé hors du format d'un jeton porteur"}};
        jeton_ = neuf->second;
        if (jetonNeuf) jetonNeuf(neuf->second);
    }
    if (succes) return std::move(reponse.corps);

    std::string message = texte("Impossible de joindre Tavi Home pour l'instant.");
    try {
        json detail = analyserDocument(reponse.corps, tailleMaxDetail);
        if (detail.is_object())
            if (auto it = detail.find("detail"); it != detail.end() && it->is_string())
                message = texte(it->get<std::string>().c_str());
    } catch (const DocumentInvalide&) {
        // An HTML error page or garbage: the default text stands.
    }
    return EchecApi{ErreurApi{static_cast<int>(reponse.statut), message}};
}

void Api::rejoindre(const std::string& code, const std::string& nom, const std::string& version,
                    std::function<void(ResultatApi<Rejoindre>)> suite) {
    json corps = {{"code", code}, {"nom", nom}, {"version", version}};
    appel("POST", "/api/auth/ordinateur", std::move(corps),
          [suite = std::move(suite)](ResultatApi<std::string> reponse) {
              if (!reponse) return suite(reponse.error());
              auto rejoint = decoderRejoindre(*reponse);
              if (!rejoint) return suite(EchecApi{rejoint.error()});
              suite(std::move(rejoint).value());
          });
}

namespace {
std::function<void(ResultatApi<std::string>)>
sansCorps(std::function<void(ResultatApi<Api::Rien>)> suite) {
    return [suite = std::move(suite)](ResultatApi<std::string> reponse) {
        if (!reponse) return suite(reponse.error());
        suite(Api::Rien{});
    };
}
} // namespace

void Api::demanderTemps(int minutes, std::function<void(ResultatApi<Rien>)> suite) {
    json corps = {{"type", "temps"}, {"minutes", minutes}, {"texte", texte("Sur mon ordinateur")}};
    appel("POST", "/api/enfant/demandes", std::move(corps), sansCorps(std::move(suite)));
}

void Api::utiliserTirelire(int minutes, std::function<void(ResultatApi<Rien>)> suite) {
    appel("POST", "/api/enfant/tirelire/utiliser", json{{"minutes", minutes}},
          sansCorps(std::move(suite)));
}

void Api::signalerSite(const std::string& detail) {
    signaler("site_bloque", detail);
}

void Api::signaler(const std::string& nature, const std::string& detail) {
    appel("POST", "/api/enfant/signal", json{{"nature", nature}, {"detail", detail}},
          [](const ResultatApi<std::string>&) {});
}

} // namespace tavi
