#include "gardien/service.h"

#include "gardien/journal.h"
#include "gardien/ouvriers.h"
#include "gardien/relais.h"
#include "gardien/supervision.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <set>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace tavi {

namespace {

std::int64_t maintenantMs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1'000'000;
}

const char* raisonHttp(int statut) {
    switch (statut) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 409:
        return "Conflict";
    case 413:
        return "Content Too Large";
    case 429:
        return "Too Many Requests";
    case 431:
        return "Request Header Fields Too Large";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    case 505:
        return "HTTP Version Not Supported";
    default:
        return "Status";
    }
}

std::string formater(const ReponseRelais& reponse, bool presence) {
    // The status must stay a three-digit number whatever the server sent.
    const int statut = reponse.statut >= 100 && reponse.statut <= 599 ? reponse.statut : 502;
    std::string texte = "HTTP/1.1 " + std::to_string(statut) + " " + raisonHttp(statut) + "\r\n";
    std::string type = reponse.typeContenu;
    if (type.find_first_of("\r\n") != std::string::npos) type.clear();
    if (!type.empty()) texte += "Content-Type: " + type + "\r\n";
    if (!presence) texte += "Content-Length: " + std::to_string(reponse.corps.size()) + "\r\n";
    texte += "Connection: close\r\n\r\n";
    return texte + reponse.corps;
}

// A rate per account: `rafale` requests at once, then `parMinute`.
struct Seau {
    double jetons = 0;
    std::int64_t depuisMs = 0;
};

class Service {
public:
    Service(const OptionsService& options, Supervision& supervision, Transport& transport,
            const BornesService& bornes)
        : options_(options), bornes_(bornes), registre_(options.etat),
          relais_({registre_, supervision, options.conf}), supervision_(supervision),
          ouvriers_(transport, bornes.ouvriers, bornes.attenteMax) {}

    int executer();

private:
    enum class Phase { Lecture, Attente, Ecriture, Presence };
    struct Connexion {
        int fd = -1;
        std::uint64_t id = 0;
        Pair pair;
        LecteurRequete lecteur;
        Phase phase = Phase::Lecture;
        std::int64_t limiteMs = 0;
        std::string sortie;
        std::size_t ecrit = 0;
        bool presence = false; // after the answer: a presence connection
        bool inscrite = true;  // watched by epoll (not while a worker has its request)
    };

    bool ouvrirSocket();
    void accepter();
    void lire(Connexion& c);
    void traiter(Connexion& c);
    void repondre(Connexion& c, const ReponseRelais& reponse, bool presence = false);
    void ecrire(Connexion& c);
    void fermer(int fd);
    void surveiller(int fd, std::uint32_t evenements, bool ajouter);
    void surveiller(Connexion& c, std::uint32_t evenements);
    void tic();
    void recevoirResultats();
    bool prendreJeton(uid_t uid);
    std::set<uid_t> relies();
    static void envoyerVite(int fd, int statut, const std::string& detail);

    const OptionsService& options_;
    BornesService bornes_;
    Registre registre_;
    Relais relais_;
    Supervision& supervision_;
    Ouvriers ouvriers_;
    int epoll_ = -1, ecoute_ = -1, signaux_ = -1, minuterie_ = -1;
    std::map<int, Connexion> connexions_;
    std::map<std::uint64_t, int> parId_;
    std::map<uid_t, std::size_t> parUid_;
    std::set<pid_t> presences_;
    std::map<uid_t, Seau> seaux_;
    std::uint64_t prochainId_ = 1;
    std::set<std::string> erreursVues_;
};

// An answer that fits in the socket's buffer, for a peer that is refused at once.
void Service::envoyerVite(int fd, int statut, const std::string& detail) {
    const std::string texte = formater(Relais::erreur(statut, detail), false);
    [[maybe_unused]] auto n = send(fd, texte.data(), texte.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Service::surveiller(int fd, std::uint32_t evenements, bool ajouter) {
    epoll_event e{};
    e.events = evenements;
    e.data.fd = fd;
    epoll_ctl(epoll_, ajouter ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, &e);
}

void Service::surveiller(Connexion& c, std::uint32_t evenements) {
    surveiller(c.fd, evenements, !c.inscrite);
    c.inscrite = true;
}

bool Service::ouvrirSocket() {
    namespace fs = std::filesystem;
    const fs::path chemin = options_.relais;
    std::error_code erreur;
    fs::create_directories(chemin.parent_path(), erreur);
    // The folder is the service's: others may reach the socket, not replace it.
    if (chmod(chemin.parent_path().c_str(), 0755) != 0) {
        journal("relais : " + chemin.parent_path().string() + " : " + std::strerror(errno));
        return false;
    }
    struct stat etat {};
    if (lstat(chemin.c_str(), &etat) == 0) {
        if (!S_ISSOCK(etat.st_mode)) {
            journal("relais : " + chemin.string() + " existe et n'est pas une socket");
            return false;
        }
        unlink(chemin.c_str()); // a socket left by an earlier run
    }
    sockaddr_un adresse{};
    adresse.sun_family = AF_UNIX;
    if (chemin.string().size() >= sizeof adresse.sun_path) {
        journal("relais : chemin trop long : " + chemin.string());
        return false;
    }
    std::strcpy(adresse.sun_path, chemin.c_str());
    ecoute_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (ecoute_ < 0 || bind(ecoute_, reinterpret_cast<sockaddr*>(&adresse), sizeof adresse) != 0 ||
        chmod(chemin.c_str(), 0666) != 0 || listen(ecoute_, 128) != 0) {
        journal("relais : " + chemin.string() + " : " + std::strerror(errno));
        return false;
    }
    return true;
}

bool Service::prendreJeton(uid_t uid) {
    const std::int64_t maintenant = maintenantMs();
    auto [it, nouveau] = seaux_.try_emplace(uid, Seau{bornes_.rafale, maintenant});
    Seau& seau = it->second;
    seau.jetons =
        std::min(bornes_.rafale, seau.jetons + static_cast<double>(maintenant - seau.depuisMs) *
                                                   bornes_.debitParMinute / 60'000.0);
    seau.depuisMs = maintenant;
    if (seau.jetons < 1) return false;
    seau.jetons -= 1;
    return true;
}

void Service::accepter() {
    for (;;) {
        const int fd = accept4(ecoute_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                journal(std::string("accept : ") + std::strerror(errno));
            return;
        }
        ucred pair{};
        socklen_t taille = sizeof pair;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &pair, &taille) != 0) {
            close(fd);
            continue;
        }
        if (connexions_.size() >= bornes_.connexionsMax) {
            envoyerVite(fd, 503, "Trop de connexions au gardien.");
            close(fd);
            continue;
        }
        if (auto ouvertes = parUid_.find(pair.uid);
            ouvertes != parUid_.end() && ouvertes->second >= bornes_.connexionsParUid) {
            envoyerVite(fd, 429, "Trop de connexions de ce compte.");
            close(fd);
            continue;
        }
        if (!prendreJeton(pair.uid)) {
            envoyerVite(fd, 429, "Trop de requêtes de ce compte.");
            close(fd);
            continue;
        }
        Connexion c;
        c.fd = fd;
        c.id = prochainId_++;
        c.pair = {pair.uid, pair.pid};
        c.limiteMs = maintenantMs() + bornes_.requeteMs;
        ++parUid_[pair.uid];
        parId_[c.id] = fd;
        connexions_.emplace(fd, std::move(c));
        surveiller(fd, EPOLLIN | EPOLLRDHUP, true);
    }
}

void Service::fermer(int fd) {
    auto it = connexions_.find(fd);
    if (it == connexions_.end()) return;
    Connexion& c = it->second;
    if (c.presence) {
        presences_.erase(c.pair.pid);
        supervision_.presenceFermee(c.pair.uid, c.pair.pid);
    }
    if (--parUid_[c.pair.uid] == 0) parUid_.erase(c.pair.uid);
    parId_.erase(c.id);
    if (c.inscrite) epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
    close(fd);
    connexions_.erase(it);
}

void Service::lire(Connexion& c) {
    char tampon[16384];
    for (;;) {
        const ssize_t n = recv(c.fd, tampon, sizeof tampon, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (n <= 0) return fermer(c.fd);
        if (c.phase == Phase::Presence) {
            supervision_.signeDeVie(c.pair.uid, c.pair.pid);
            continue;
        }
        if (c.phase != Phase::Lecture) return; // extra bytes wait until the answer is out
        if (c.lecteur.fournir({tampon, static_cast<std::size_t>(n)}) != LecteurRequete::Etat::Suite)
            return traiter(c);
    }
}

void Service::traiter(Connexion& c) {
    if (c.lecteur.etat() == LecteurRequete::Etat::Erreur) {
        journal("requête refusée de uid " + std::to_string(c.pair.uid) + " : " +
                c.lecteur.raison());
        return repondre(c, Relais::erreur(c.lecteur.statutErreur(), c.lecteur.raison()));
    }
    auto decision = relais_.decider(c.lecteur.requete(), c.pair);
    if (auto* reponse = std::get_if<ReponseRelais>(&decision)) return repondre(c, *reponse);
    if (std::holds_alternative<PresenceDemandee>(decision)) {
        if (presences_.count(c.pair.pid))
            return repondre(c, Relais::erreur(409, "Ce processus tient déjà sa présence."));
        presences_.insert(c.pair.pid);
        c.presence = true;
        supervision_.presenceOuverte(c.pair.uid, c.pair.pid);
        const bool agent = supervision_.estAgent(c.pair.uid, c.pair.pid);
        const bool signe = !c.lecteur.reste().empty();
        repondre(c, ReponseRelais{200, "text/plain", agent ? "agent\n" : "copie\n"}, true);
        if (signe) supervision_.signeDeVie(c.pair.uid, c.pair.pid);
        return;
    }
    auto& envoi = std::get<Envoi>(decision);
    const std::uint64_t id = c.id;
    std::optional<nlohmann::json> membre = envoi.membre;
    if (!ouvriers_.confier(id, std::move(envoi))) {
        if (membre) supervision_.rendre(c.pair.uid, *membre);
        return repondre(c, Relais::erreur(503, "Le gardien est occupé, réessaie."));
    }
    // Out of epoll while the worker has it: a hang-up would be reported again and again.
    c.phase = Phase::Attente;
    epoll_ctl(epoll_, EPOLL_CTL_DEL, c.fd, nullptr);
    c.inscrite = false;
}

void Service::repondre(Connexion& c, const ReponseRelais& reponse, bool presence) {
    c.sortie = formater(reponse, presence);
    c.ecrit = 0;
    c.phase = Phase::Ecriture;
    c.limiteMs = maintenantMs() + bornes_.ecritureMs;
    ecrire(c);
}

void Service::ecrire(Connexion& c) {
    while (c.ecrit < c.sortie.size()) {
        const ssize_t n =
            send(c.fd, c.sortie.data() + c.ecrit, c.sortie.size() - c.ecrit, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            surveiller(c, EPOLLOUT);
            return;
        }
        if (n < 0) return fermer(c.fd);
        c.ecrit += static_cast<std::size_t>(n);
    }
    if (c.presence) {
        c.phase = Phase::Presence;
        c.sortie.clear();
        surveiller(c, EPOLLIN | EPOLLRDHUP);
        return;
    }
    shutdown(c.fd, SHUT_WR);
    fermer(c.fd);
}

void Service::recevoirResultats() {
    for (auto& fini : ouvriers_.recuperer()) {
        // Concluded even when the agent left: the pairing or the renewed token is the
        // server's, the heartbeat reached it.
        ReponseRelais reponse = relais_.conclure(fini.envoi, fini.resultat);
        auto fd = parId_.find(fini.id);
        if (fd == parId_.end()) continue;
        repondre(connexions_.at(fd->second), reponse);
    }
}

std::set<uid_t> Service::relies() {
    auto liste = registre_.lister();
    std::set<std::string> erreurs(liste.erreurs.begin(), liste.erreurs.end());
    for (const auto& erreur : erreurs)
        if (!erreursVues_.count(erreur)) journal("compte ignoré : " + erreur);
    erreursVues_ = std::move(erreurs);
    std::set<uid_t> uids;
    for (const auto& compte : liste.comptes)
        uids.insert(compte.uid);
    return uids;
}

void Service::tic() {
    supervision_.tic(relies());
    const std::int64_t maintenant = maintenantMs();
    std::vector<int> depasses;
    for (auto& [fd, c] : connexions_)
        if ((c.phase == Phase::Lecture || c.phase == Phase::Ecriture) && maintenant >= c.limiteMs)
            depasses.push_back(fd);
    for (int fd : depasses) {
        Connexion& c = connexions_.at(fd);
        if (c.phase == Phase::Lecture) {
            journal("requête trop lente de uid " + std::to_string(c.pair.uid));
            envoyerVite(fd, 408, "Requête trop lente.");
        }
        fermer(fd);
    }
    // Rates of accounts with nothing open are forgotten once full again.
    for (auto it = seaux_.begin(); it != seaux_.end();)
        it = (!parUid_.count(it->first) && prendreJeton(it->first) &&
              it->second.jetons + 1 >= bornes_.rafale)
                 ? seaux_.erase(it)
                 : std::next(it);
}

int Service::executer() {
    sigset_t masque;
    sigemptyset(&masque);
    sigaddset(&masque, SIGCHLD);
    sigaddset(&masque, SIGTERM);
    sigaddset(&masque, SIGINT);
    signaux_ = signalfd(-1, &masque, SFD_NONBLOCK | SFD_CLOEXEC);
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    minuterie_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (signaux_ < 0 || epoll_ < 0 || minuterie_ < 0) {
        journal(std::string("démarrage : ") + std::strerror(errno));
        return 1;
    }
    if (!ouvrirSocket()) return 1;
    const itimerspec seconde{{1, 0}, {1, 0}};
    timerfd_settime(minuterie_, 0, &seconde, nullptr);
    for (int fd : {ecoute_, signaux_, minuterie_, ouvriers_.descripteur()})
        surveiller(fd, EPOLLIN, true);
    journal("gardien à l'écoute sur " + options_.relais);
    supervision_.tic(relies());

    epoll_event evenements[64];
    for (;;) {
        const int n = epoll_wait(epoll_, evenements, 64, -1);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            journal(std::string("epoll : ") + std::strerror(errno));
            return 1;
        }
        for (int i = 0; i < n; ++i) {
            const int fd = evenements[i].data.fd;
            if (fd == ecoute_) {
                accepter();
            } else if (fd == signaux_) {
                signalfd_siginfo info{};
                bool enfant = false;
                while (read(signaux_, &info, sizeof info) == sizeof info) {
                    if (info.ssi_signo == SIGCHLD) {
                        enfant = true;
                    } else {
                        journal("arrêt demandé (signal " + std::to_string(info.ssi_signo) + ")");
                        close(ecoute_);
                        unlink(options_.relais.c_str());
                        return 0;
                    }
                }
                if (enfant) supervision_.tic(relies());
            } else if (fd == minuterie_) {
                std::uint64_t expirations = 0;
                [[maybe_unused]] auto lu = read(minuterie_, &expirations, sizeof expirations);
                tic();
            } else if (fd == ouvriers_.descripteur()) {
                recevoirResultats();
            } else if (auto it = connexions_.find(fd); it != connexions_.end()) {
                Connexion& c = it->second;
                if (c.phase == Phase::Ecriture)
                    ecrire(c);
                else if (c.phase == Phase::Lecture || c.phase == Phase::Presence)
                    lire(c);
            }
        }
    }
}

} // namespace

void bloquerSignauxDuService() {
    sigset_t masque;
    sigemptyset(&masque);
    sigaddset(&masque, SIGCHLD);
    sigaddset(&masque, SIGTERM);
    sigaddset(&masque, SIGINT);
    pthread_sigmask(SIG_BLOCK, &masque, nullptr);
}

int servir(const OptionsService& options, Supervision& supervision, Transport& transport,
           const BornesService& bornes) {
    // Blocked before the workers start, so that only the loop's signalfd sees them.
    bloquerSignauxDuService();
    signal(SIGPIPE, SIG_IGN);
    Service service(options, supervision, transport, bornes);
    return service.executer();
}

} // namespace tavi
