#pragma once

#include "platform/boucle.h"
#include "platform/reglages.h"
#include "server/erreur_api.h"
#include "server/rejoindre.h"
#include "server/transport.h"

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavi {

// The agent's only door to the family server: JSON over HTTPS, every request framed the same
// way (installation header, bearer token), every refusal turned into an ErreurApi whose
// message the child can read. Lives on the main thread: exchanges run on the background pool
// and every answer comes back to the main thread, where the token is renewed.
class Api {
public:
    struct Rien {};

    Api(std::string base, std::optional<std::string> jeton, std::shared_ptr<Transport> transport,
        Boucle& boucle, Reglages& reglages);
    ~Api();
    Api(const Api&) = delete;
    Api& operator=(const Api&) = delete;

    const std::string& base() const { return base_; }
    const std::optional<std::string>& jeton() const { return jeton_; }
    // A token that fails `jetonValide` is dropped, here as in the constructor: it came from a
    // store the child can edit, and it would be sent with every request.
    void definirJeton(std::optional<std::string> jeton);

    // Called with each token the server renews, to keep it in the secret store. A renewal
    // that fails `jetonValide` turns its whole answer into a failure: nothing is kept.
    std::function<void(const std::string&)> jetonNeuf;

    // The common call path: `suite` receives the answer's body, or why there is none. It is
    // always called later, on the main thread, and never after this object is gone.
    void appel(const std::string& methode, const std::string& chemin,
               std::optional<nlohmann::json> corps,
               std::function<void(ResultatApi<std::string>)> suite);

    void rejoindre(const std::string& code, const std::string& nom, const std::string& version,
                   std::function<void(ResultatApi<Rejoindre>)> suite);
    void demanderTemps(int minutes, std::function<void(ResultatApi<Rien>)> suite);
    void utiliserTirelire(int minutes, std::function<void(ResultatApi<Rien>)> suite);
    // Never fails: the engine keeps its own record of what it reported.
    void signalerSite(const std::string& detail);
    // Any other report to the parents ("nature", "detail"); never fails either.
    void signaler(const std::string& nature, const std::string& detail);

    // `base` with `chemin` appended as a path component; a base with a path keeps it in front.
    static std::string joindre(const std::string& base, const std::string& chemin);

private:
    ResultatApi<std::string> conclure(Attendu<ReponseHttp, ErreurTransport> echange);

    std::string base_;
    std::optional<std::string> jeton_;
    std::shared_ptr<Transport> transport_;
    Boucle& boucle_;
    Reglages& reglages_;
    // Answers that come back after the client is gone are dropped.
    std::shared_ptr<Api*> vivant_;
};

} // namespace tavi
