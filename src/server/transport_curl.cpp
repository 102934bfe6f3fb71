#include "server/transport_curl.h"

#include <algorithm>
#include <cctype>
#include <curl/curl.h>
#include <mutex>
#include <string_view>

namespace tavi {

// Connections, DNS answers and TLS sessions are shared by every exchange, whatever its thread:
// a fresh TLS connection costs tens of milliseconds of CPU, a reused one almost nothing.
struct TransportCurl::Partage {
    CURLSH* partage = nullptr;
    std::mutex verrous[CURL_LOCK_DATA_LAST];

    Partage() {
        static std::once_flag initialise;
        std::call_once(initialise, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        partage = curl_share_init();
        curl_share_setopt(partage, CURLSHOPT_LOCKFUNC, &Partage::verrouiller);
        curl_share_setopt(partage, CURLSHOPT_UNLOCKFUNC, &Partage::deverrouiller);
        curl_share_setopt(partage, CURLSHOPT_USERDATA, this);
        curl_share_setopt(partage, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
        curl_share_setopt(partage, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        curl_share_setopt(partage, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    ~Partage() { curl_share_cleanup(partage); }

    static void verrouiller(CURL*, curl_lock_data donnee, curl_lock_access, void* moi) {
        static_cast<Partage*>(moi)->verrous[donnee].lock();
    }
    static void deverrouiller(CURL*, curl_lock_data donnee, void* moi) {
        static_cast<Partage*>(moi)->verrous[donnee].unlock();
    }
};

namespace {

struct Reception {
    ReponseHttp reponse;
    std::size_t tailleMax;
    bool tropGrande = false;
};

std::size_t recevoirCorps(char* octets, std::size_t taille, std::size_t nombre, void* moi) {
    auto* r = static_cast<Reception*>(moi);
    const std::size_t n = taille * nombre;
    if (r->reponse.corps.size() + n > r->tailleMax) {
        r->tropGrande = true;
        return 0; // ends the exchange with a write error
    }
    r->reponse.corps.append(octets, n);
    return n;
}

std::size_t recevoirEntete(char* octets, std::size_t taille, std::size_t nombre, void* moi) {
    auto* r = static_cast<Reception*>(moi);
    const std::size_t n = taille * nombre;
    std::string_view ligne(octets, n);
    if (ligne.starts_with("HTTP/")) {
        r->reponse.entetes.clear(); // an interim answer (100 Continue) is followed by the real one
        return n;
    }
    auto deuxPoints = ligne.find(':');
    if (deuxPoints == std::string_view::npos) return n;
    std::string nom(ligne.substr(0, deuxPoints));
    std::transform(nom.begin(), nom.end(), nom.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string_view valeur = ligne.substr(deuxPoints + 1);
    while (!valeur.empty() && (valeur.front() == ' ' || valeur.front() == '\t'))
        valeur.remove_prefix(1);
    while (!valeur.empty() && (valeur.back() == '\r' || valeur.back() == '\n' ||
                               valeur.back() == ' ' || valeur.back() == '\t'))
        valeur.remove_suffix(1);
    r->reponse.entetes[nom] = std::string(valeur);
    return n;
}

ErreurTransport erreur(CURLcode code, const char* detail, const Reception& reception,
                       std::size_t tailleMax) {
    if (reception.tropGrande)
        return {code, "réponse de plus de " + std::to_string(tailleMax) + " octets"};
    std::string message = detail[0] ? detail : curl_easy_strerror(code);
    return {code, message};
}

} // namespace

TransportCurl::TransportCurl() : TransportCurl(Bornes{}) {}

TransportCurl::TransportCurl(Bornes bornes)
    : bornes_(bornes), partage_(std::make_unique<Partage>()) {}

TransportCurl::TransportCurl(Bornes bornes, const std::filesystem::path& prise)
    : TransportCurl(bornes) {
    prise_ = prise.native();
}

TransportCurl::~TransportCurl() = default;

Attendu<ReponseHttp, ErreurTransport> TransportCurl::echanger(const RequeteHttp& requete) {
    // libcurl sends each header as it is given: a line break in one would write a header of
    // its own.
    for (const auto& [nom, valeur] : requete.entetes)
        if (nom.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos ||
            valeur.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return ErreurTransport{CURLE_BAD_FUNCTION_ARGUMENT,
                                   "en-tête " + nom + " avec un saut de ligne, non envoyé"};
    // A server that closes a kept-alive connection just as we reuse it makes the send fail:
    // that one case is tried again at once, on a new connection.
    for (int essai = 0;; ++essai) {
        CURL* e = curl_easy_init();
        if (!e) return ErreurTransport{CURLE_FAILED_INIT, "libcurl indisponible"};
        Reception reception{{}, bornes_.tailleMax};
        char detail[CURL_ERROR_SIZE] = "";
        curl_slist* entetes = nullptr;
        for (const auto& [nom, valeur] : requete.entetes)
            entetes = curl_slist_append(entetes, (nom + ": " + valeur).c_str());
        entetes = curl_slist_append(entetes, "Expect:");

        curl_easy_setopt(e, CURLOPT_URL, requete.url.c_str());
        curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, requete.methode.c_str());
        curl_easy_setopt(e, CURLOPT_HTTPHEADER, entetes);
        if (requete.methode == "HEAD") {
            curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
        } else if (requete.corps || requete.methode != "GET") {
            // A POST without a body still says so (Content-Length: 0), or the server waits
            // for one.
            const char* corps = requete.corps ? requete.corps->data() : "";
            const auto taille = static_cast<curl_off_t>(requete.corps ? requete.corps->size() : 0);
            curl_easy_setopt(e, CURLOPT_POSTFIELDS, corps);
            curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, taille);
        }
        curl_easy_setopt(e, CURLOPT_SHARE, partage_->partage);
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 0L);
        if (prise_) {
            curl_easy_setopt(e, CURLOPT_UNIX_SOCKET_PATH, prise_->c_str());
            // libcurl already sends nothing over a proxy through a Unix socket; said here too,
            // since the child writes the environment that names one.
            curl_easy_setopt(e, CURLOPT_PROXY, "");
            curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http");
        } else {
            curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        }
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS,
                         static_cast<long>(bornes_.connexion.count()));
        curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, static_cast<long>(bornes_.total.count()));
        curl_easy_setopt(e, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(e, CURLOPT_LOW_SPEED_TIME,
                         static_cast<long>((bornes_.inactivite.count() + 999) / 1000));
        curl_easy_setopt(e, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(bornes_.tailleMax));
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &recevoirCorps);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, &reception);
        curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &recevoirEntete);
        curl_easy_setopt(e, CURLOPT_HEADERDATA, &reception);
        curl_easy_setopt(e, CURLOPT_ERRORBUFFER, detail);

        CURLcode code = curl_easy_perform(e);
        long statut = 0;
        curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &statut);
        curl_slist_free_all(entetes);
        curl_easy_cleanup(e);

        if (code == CURLE_OK) {
            reception.reponse.statut = statut;
            return std::move(reception.reponse);
        }
        if (code == CURLE_SEND_ERROR && essai == 0) continue;
        if (code == CURLE_FILESIZE_EXCEEDED) reception.tropGrande = true;
        return erreur(code, detail, reception, bornes_.tailleMax);
    }
}

} // namespace tavi
