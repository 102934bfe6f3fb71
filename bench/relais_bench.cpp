// The latency the guardian's relay adds to a heartbeat: the same heartbeat to a local
// tavi-famille, direct with the account's token and through the relay (the guardian's service
// in a forked process, its rate per account lifted so that a thousand fit), each on a new
// connection as the agent makes them. Median and p99 per request, side by side. Root only:
// the guardian trusts only root's files.
//   sudo bench_relais --benchmark_counters_tabular=true
#include "gardien/service.h"
#include "gardien/supervision.h"
#include "server/transport_curl.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string corpsBattement =
    R"({"actif":true,"incertain":false,"plateforme":"linux","version":"banc",)"
    R"("utilise_jour_min":1,"autorisations":{}})";

// Expects no agent anywhere: every heartbeat of a paired account goes through.
class SansAgent : public tavi::Supervision {
public:
    void tic(const std::set<uid_t>&) override {}
    bool estAgent(uid_t, pid_t) const override { return false; }
    bool agentAttendu(uid_t) const override { return false; }
    void presenceOuverte(uid_t, pid_t) override {}
    void presenceFermee(uid_t, pid_t) override {}
    void signeDeVie(uid_t, pid_t) override {}
    json prendre(uid_t, pid_t pid) override {
        return {{"agent", false}, {"pid", pid}, {"absences", json::array()},
                {"relances", json::array()}};
    }
    void rendre(uid_t, const json&) override {}
    void consigneRecue(uid_t, const std::string&, std::int64_t, std::int64_t) override {}
    json etat() const override { return json::object(); }
};

std::string sortieDe(const std::string& commande) {
    std::string texte;
    if (FILE* f = popen(commande.c_str(), "r")) {
        char tampon[4096];
        while (std::size_t n = fread(tampon, 1, sizeof tampon, f))
            texte.append(tampon, n);
        pclose(f);
    }
    return texte;
}

std::size_t ajouter(char* donnees, std::size_t taille, std::size_t n, void* corps) {
    static_cast<std::string*>(corps)->append(donnees, taille * n);
    return taille * n;
}

// One POST on a new connection; the status, or 0 when nothing answered.
long poster(const std::string& url, const std::string& corps, const std::string& socket = {},
            const std::string& jeton = {}, std::string* reponse = nullptr) {
    CURL* c = curl_easy_init();
    std::string recu;
    curl_slist* tetes = curl_slist_append(nullptr, "Content-Type: application/json");
    tetes = curl_slist_append(tetes, "X-Tavi-Installation: banc-relais");
    if (!jeton.empty()) tetes = curl_slist_append(tetes, ("Authorization: Bearer " + jeton).c_str());
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, tetes);
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, corps.c_str());
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, ajouter);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &recu);
    if (!socket.empty()) curl_easy_setopt(c, CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
    long statut = 0;
    if (curl_easy_perform(c) == CURLE_OK) curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &statut);
    curl_slist_free_all(tetes);
    curl_easy_cleanup(c);
    if (reponse) *reponse = recu;
    return statut;
}

// A family server with Léa, the guardian's service beside it, and this (root) account paired
// through the relay.
struct Banc {
    fs::path dossier;
    pid_t famille = -1, gardien = -1;
    std::string adresse, relais, jeton, erreur;

    Banc() {
        char modele[] = "/tmp/tavi-banc-relais-XXXXXX";
        dossier = mkdtemp(modele);
        const std::string base = (dossier / "famille.db").string();
        const std::string fam = std::string(TAVI_FAMILLE_BINAIRE) + " --base " + base;
        sortieDe(fam + " enfant ajouter Léa --fuseau Europe/Paris");
        const json code = json::parse(sortieDe(fam + " code Léa"), nullptr, false);
        if (!servirFamille(base) || !code.contains("code")) {
            erreur = "tavi-famille did not start";
            return;
        }
        std::ofstream(dossier / "tavi-home.conf") << "serveur = " << adresse << "\n";
        relais = (dossier / "run" / "relais").string();
        gardien = fork();
        if (gardien == 0) {
            tavi::BornesService bornes;
            bornes.debitParMinute = 1e9;
            bornes.rafale = 1e9;
            SansAgent supervision;
            tavi::TransportCurl transport;
            _exit(tavi::servir({relais, (dossier / "etat").string(),
                                (dossier / "tavi-home.conf").string()},
                               supervision, transport, bornes));
        }
        for (int i = 0; i < 200 && !fs::exists(relais); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::string reponse;
        const json demande = {{"code", code["code"]}, {"nom", "banc"}, {"version", "0.1.0"}};
        if (poster("http://tavi-gardien/api/auth/ordinateur", demande.dump(), relais, {},
                   &reponse) != 200) {
            erreur = "pairing through the relay failed: " + reponse;
            return;
        }
        std::ifstream compte(dossier / "etat" / "comptes" / (std::to_string(getuid()) + ".json"));
        jeton = json::parse(compte, nullptr, false).value("jeton", "");
        if (jeton.empty()) erreur = "no token in the guardian's registry";
    }

    bool servirFamille(const std::string& base) {
        int tube[2];
        if (pipe(tube) != 0) return false;
        famille = fork();
        if (famille == 0) {
            dup2(tube[1], 1);
            close(tube[0]);
            execl(TAVI_FAMILLE_BINAIRE, TAVI_FAMILLE_BINAIRE, "--base", base.c_str(), "servir",
                  "--adresse", "127.0.0.1:0", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(tube[1]);
        std::string ligne;
        char c;
        while (read(tube[0], &c, 1) == 1 && c != '\n')
            ligne += c;
        close(tube[0]);
        const json ecoute = json::parse(ligne, nullptr, false);
        if (!ecoute.contains("port")) return false;
        adresse = "http://127.0.0.1:" + std::to_string(ecoute["port"].get<int>());
        return true;
    }

    ~Banc() {
        for (pid_t p : {gardien, famille})
            if (p > 0) {
                kill(p, SIGTERM);
                waitpid(p, nullptr, 0);
            }
        fs::remove_all(dossier);
    }
};

Banc& banc() {
    static Banc b;
    return b;
}

// Times each request alone and reports the median and the 99th percentile in microseconds.
template <typename Envoi> void chronometrer(benchmark::State& etat, Envoi envoyer) {
    if (geteuid() != 0) return etat.SkipWithError("root only: the guardian trusts root's files");
    if (!banc().erreur.empty()) return etat.SkipWithError(banc().erreur.c_str());
    std::vector<double> durees;
    for (auto _ : etat) {
        const auto debut = std::chrono::steady_clock::now();
        const long statut = envoyer();
        durees.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - debut)
                .count());
        if (statut != 200) return etat.SkipWithError(("status " + std::to_string(statut)).c_str());
    }
    std::sort(durees.begin(), durees.end());
    etat.counters["mediane_us"] = durees[durees.size() / 2];
    etat.counters["p99_us"] = durees[std::min(durees.size() - 1, durees.size() * 99 / 100)];
}

void BM_BattementDirect(benchmark::State& etat) {
    chronometrer(etat, [] {
        return poster(banc().adresse + "/api/enfant/battement", corpsBattement, {}, banc().jeton);
    });
}
BENCHMARK(BM_BattementDirect)->Iterations(1000)->Unit(benchmark::kMicrosecond);

void BM_BattementParRelais(benchmark::State& etat) {
    chronometrer(etat, [] {
        return poster("http://tavi-gardien/api/enfant/battement", corpsBattement, banc().relais);
    });
}
BENCHMARK(BM_BattementParRelais)->Iterations(1000)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
