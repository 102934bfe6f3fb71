#include "platform/linux/copies_locales.h"

#include "commun/journal.h"
#include "platform/boucle.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace tavi {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr char ligne[] = "montrer\n";
constexpr std::size_t longueurLigne = sizeof ligne - 1;
// Connections accepted in one turn of the loop; the rest waits for the next turns.
constexpr int acceptationsParTour = 8;
// Connections waiting for their line; one more closes the oldest.
constexpr std::size_t enAttenteMax = 8;
constexpr auto attenteLigne = 1000ms;
constexpr int fileEcoute = 16;

class Prise {
public:
    explicit Prise(int leFd = -1) : fd(leFd) {}
    ~Prise() {
        if (fd >= 0) ::close(fd);
    }
    Prise(Prise&& autre) noexcept : fd(std::exchange(autre.fd, -1)) {}
    Prise& operator=(Prise&& autre) noexcept {
        std::swap(fd, autre.fd);
        return *this;
    }
    int get() const { return fd; }

private:
    int fd;
};

std::optional<sockaddr_un> adresse(const fs::path& chemin) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    const std::string& texte = chemin.native();
    if (texte.empty() || texte.size() >= sizeof a.sun_path) return std::nullopt;
    std::memcpy(a.sun_path, texte.data(), texte.size());
    return a;
}

Prise nouvellePrise() {
    return Prise(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

// 0 or the reason. Never waits: a listener whose queue is full answers EAGAIN.
int connecter(const sockaddr_un& a, Prise& prise) {
    prise = nouvellePrise();
    if (prise.get() < 0) return errno;
    if (::connect(prise.get(), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0) return 0;
    const int raison = errno;
    prise = Prise();
    return raison;
}

bool deCetUtilisateur(int fd) {
    ucred pair{};
    socklen_t taille = sizeof pair;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &pair, &taille) == 0 &&
           pair.uid == ::geteuid();
}

// The name the listener at the other end was bound under, whatever it was renamed to since.
std::string nomDuPair(int fd) {
    sockaddr_un a{};
    socklen_t taille = sizeof a;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&a), &taille) != 0 ||
        taille <= offsetof(sockaddr_un, sun_path))
        return {};
    return std::string(a.sun_path, ::strnlen(a.sun_path, taille - offsetof(sockaddr_un, sun_path)));
}

bool preparerDossier(const fs::path& dossier) {
    if (dossier.empty()) {
        journaliser("other copies: no folder for their socket; none will be found");
        return false;
    }
    fs::path chemin;
    for (const auto& partie : dossier) {
        chemin /= partie;
        if (::mkdir(chemin.c_str(), 0700) != 0 && errno != EEXIST) {
            journaliser("other copies: " + chemin.string() + ": " + std::strerror(errno) +
                        "; none will be found");
            return false;
        }
    }
    struct stat etat {};
    if (::lstat(dossier.c_str(), &etat) != 0 || !S_ISDIR(etat.st_mode) ||
        etat.st_uid != ::geteuid() || (etat.st_mode & 077) != 0) {
        journaliser("other copies: " + dossier.string() +
                    " is not a folder of this user's alone; none will be found");
        return false;
    }
    return true;
}

} // namespace

struct CopiesLocales::Etat : std::enable_shared_from_this<CopiesLocales::Etat> {
    struct Connexion {
        Prise prise;
        // Destroyed before the descriptor is closed.
        std::unique_ptr<Abonnement> surveillance;
    };

    Boucle& boucle;
    fs::path chemin;
    std::optional<sockaddr_un> place;
    std::function<void()> quandMontrer;
    Prise ecoute;
    // The name this object's listener was bound under: what tells it from another's.
    std::string nomLie;
    std::unique_ptr<Abonnement> surveillance;
    // By arrival: the first is the oldest.
    std::map<std::uint64_t, Connexion> connexions;
    std::uint64_t prochaine = 0;

    explicit Etat(Boucle& b) : boucle(b) {}

    // A listener under a name no other object has, beside the place; its name, or absent.
    std::optional<fs::path> lier() {
        // The random part for copies in other process namespaces, whose numbers may be ours.
        static std::uint64_t compteur = 0;
        const fs::path nom = chemin.parent_path() / (".copies-" + std::to_string(::getpid()) + "-" +
                                                     std::to_string(compteur++) + "-" +
                                                     std::to_string(std::random_device{}()));
        const auto a = adresse(nom);
        Prise prise = nouvellePrise();
        if (!a || prise.get() < 0) return std::nullopt;
        if (::bind(prise.get(), reinterpret_cast<const sockaddr*>(&*a), sizeof *a) != 0)
            return std::nullopt;
        if (::listen(prise.get(), fileEcoute) != 0) {
            ::unlink(nom.c_str());
            return std::nullopt;
        }
        ecoute = std::move(prise);
        nomLie = nom.string();
        return nom;
    }

    void lacher() {
        surveillance.reset();
        ecoute = Prise();
        nomLie.clear();
    }

    void prendre(bool agent) {
        if (!place) return;
        if (!agent) {
            Prise sonde;
            const int raison = connecter(*place, sonde);
            // Someone listens, if too busy to take us: the place is not free.
            if (raison == 0 || raison == EAGAIN) return;
            if (raison != ECONNREFUSED && raison != ENOENT)
                return journaliser("other copies: " + chemin.string() + ": " +
                                   std::strerror(raison));
        }
        const auto nom = lier();
        if (!nom) return journaliser("other copies: cannot listen beside " + chemin.string());
        bool tenue = false;
        if (agent) {
            tenue = ::rename(nom->c_str(), chemin.c_str()) == 0;
        } else {
            // A stale socket goes; link, unlike rename, fails if a copy came in between.
            ::unlink(chemin.c_str());
            tenue = ::link(nom->c_str(), chemin.c_str()) == 0;
        }
        ::unlink(nom->c_str());
        if (!tenue) {
            if (agent) journaliser("other copies: cannot take " + chemin.string());
            return lacher();
        }
        surveillance = boucle.surveiller(ecoute.get(), [faible = weak_from_this()] {
            if (auto e = faible.lock()) e->accepter();
        });
    }

    void accepter() {
        for (int i = 0; i < acceptationsParTour && ecoute.get() >= 0; ++i) {
            Prise prise(::accept4(ecoute.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (prise.get() < 0) return;
            if (!deCetUtilisateur(prise.get())) continue;
            if (connexions.size() >= enAttenteMax) connexions.erase(connexions.begin());
            const std::uint64_t id = prochaine++;
            auto& connexion = connexions[id];
            connexion.prise = std::move(prise);
            connexion.surveillance =
                boucle.surveiller(connexion.prise.get(), [faible = weak_from_this(), id] {
                    if (auto e = faible.lock()) e->lire(id);
                });
            boucle.plusTard(attenteLigne, [faible = weak_from_this(), id] {
                if (auto e = faible.lock()) e->connexions.erase(id);
            });
        }
    }

    void lire(std::uint64_t id) {
        const auto connexion = connexions.find(id);
        if (connexion == connexions.end()) return;
        char tampon[16];
        const ssize_t lus =
            ::recv(connexion->second.prise.get(), tampon, sizeof tampon, MSG_DONTWAIT);
        if (lus < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
        connexions.erase(connexion);
        if (lus != static_cast<ssize_t>(longueurLigne) ||
            std::memcmp(tampon, ligne, longueurLigne) != 0 || !quandMontrer)
            return;
        // The handler may destroy this object, and with it the function being called.
        const auto quand = quandMontrer;
        quand();
    }
};

CopiesLocales::CopiesLocales(Boucle& boucle, const fs::path& dossier)
    : etat(std::make_shared<Etat>(boucle)) {
    if (!preparerDossier(dossier)) return;
    etat->chemin = dossier / "copies";
    etat->place = adresse(etat->chemin);
    if (!etat->place)
        journaliser("other copies: " + etat->chemin.string() +
                    " is too long for a socket; none will be found");
}

CopiesLocales::~CopiesLocales() = default;

void CopiesLocales::autreInstance(std::function<void(bool)> reponse) {
    bool autre = false;
    Prise prise;
    if (etat->place && connecter(*etat->place, prise) == 0)
        autre = deCetUtilisateur(prise.get()) && nomDuPair(prise.get()) != etat->nomLie;
    etat->boucle.poster([reponse = std::move(reponse), autre] { reponse(autre); });
}

void CopiesLocales::tenir(bool agent, std::function<void()> quandMontrer) {
    etat->quandMontrer = std::move(quandMontrer);
    etat->lacher();
    etat->prendre(agent);
}

void CopiesLocales::montrer(std::function<void()> fini) {
    Prise prise;
    // Written at once: a fresh connection's buffer is empty.
    if (etat->place && connecter(*etat->place, prise) == 0 && deCetUtilisateur(prise.get()))
        static_cast<void>(::send(prise.get(), ligne, longueurLigne, MSG_NOSIGNAL | MSG_DONTWAIT));
    etat->boucle.poster(std::move(fini));
}

} // namespace tavi
