#include "platform/linux/presence_gardien.h"

#include "server/relais.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace tavi {

namespace {

// The guardian's head and its one line are far shorter; more is not the guardian.
constexpr std::size_t reponseMax = 4096;
// Rounds a connection may stay unanswered (a guardian that accepts and hangs) before it is made
// again.
constexpr int toursSansReponseMax = 3;

} // namespace

struct PresenceGardien::Etat : std::enable_shared_from_this<PresenceGardien::Etat> {
    Boucle& boucle;
    sockaddr_un adresse{};
    bool adresseValide = false;
    std::function<void(Role)> quandRole;
    int prise = -1;
    std::unique_ptr<Abonnement> surveillance;
    std::string lu;
    std::optional<Role> role;
    int toursSansReponse = 0;

    Etat(Boucle& b, const std::filesystem::path& relais, std::function<void(Role)> quand)
        : boucle(b), quandRole(std::move(quand)) {
        const std::string& chemin = relais.native();
        adresse.sun_family = AF_UNIX;
        adresseValide = !chemin.empty() && chemin.size() < sizeof adresse.sun_path;
        if (adresseValide) std::memcpy(adresse.sun_path, chemin.data(), chemin.size());
    }
    ~Etat() { fermer(); }

    void fermer() {
        surveillance.reset();
        if (prise >= 0) ::close(prise);
        prise = -1;
        lu.clear();
        role.reset();
        toursSansReponse = 0;
    }

    void tour() {
        if (prise < 0) return connecter();
        if (!role) {
            if (++toursSansReponse >= toursSansReponseMax) fermer();
            return;
        }
        // A full buffer (EAGAIN) means a guardian slow to read, not gone: the next sign follows.
        if (::send(prise, "\n", 1, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN &&
            errno != EWOULDBLOCK && errno != EINTR)
            fermer();
    }

    void connecter() {
        if (!adresseValide) return;
        prise = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (prise < 0) return;
        // A Unix socket connects at once or not at all (a full queue answers EAGAIN): the next
        // round tries again.
        if (::connect(prise, reinterpret_cast<const sockaddr*>(&adresse), sizeof adresse) != 0)
            return fermer();
        const std::string requete = "POST " + std::string(cheminPresence) +
                                    " HTTP/1.1\r\nHost: tavi-gardien\r\nContent-Length: 0\r\n\r\n";
        // A fresh connection's buffer takes it whole.
        if (::send(prise, requete.data(), requete.size(), MSG_NOSIGNAL | MSG_DONTWAIT) !=
            static_cast<ssize_t>(requete.size()))
            return fermer();
        surveillance = boucle.surveiller(prise, [faible = weak_from_this()] {
            if (auto e = faible.lock()) e->lire();
        });
    }

    void lire() {
        char tampon[512];
        // A peer that keeps writing (the relay path is the child's to choose) gets a few reads
        // per turn of the loop, never the whole main thread.
        for (int lectures = 0; prise >= 0 && lectures < 16; ++lectures) {
            const ssize_t n = ::recv(prise, tampon, sizeof tampon, MSG_DONTWAIT);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
            // The guardian closed, or the connection broke: the next round makes it again.
            if (n <= 0) return fermer();
            // Once answered, nothing more is expected: whatever comes is drained.
            if (role) continue;
            lu.append(tampon, static_cast<std::size_t>(n));
            if (lu.size() > reponseMax) return fermer();
            if (!analyser()) return;
        }
    }

    // False once the connection is closed or answered.
    bool analyser() {
        const auto finEntete = lu.find("\r\n\r\n");
        if (finEntete == std::string::npos) return true;
        const auto finLigne = lu.find('\n', finEntete + 4);
        if (finLigne == std::string::npos) return true;
        const std::string_view texte(lu);
        std::string_view corps = texte.substr(finEntete + 4, finLigne - finEntete - 4);
        if (corps.ends_with('\r')) corps.remove_suffix(1);
        const bool accepte =
            texte.starts_with("HTTP/1.1 200 ") || texte.starts_with("HTTP/1.0 200 ");
        if (!accepte || (corps != "agent" && corps != "copie")) {
            fermer();
            return false;
        }
        role = corps == "agent" ? Role::agent : Role::copie;
        lu.clear();
        // The handler may destroy the object that holds this state.
        const auto quand = quandRole;
        const Role r = *role;
        if (quand) quand(r);
        return false;
    }
};

PresenceGardien::PresenceGardien(Boucle& boucle, const std::filesystem::path& relais,
                                 std::function<void(Role)> quandRole)
    : etat_(std::make_shared<Etat>(boucle, relais, std::move(quandRole))) {
    etat_->tour();
    tours_ = boucle.repeter(std::chrono::milliseconds(signeDeVieMs),
                            [faible = std::weak_ptr<Etat>(etat_)] {
                                if (auto e = faible.lock()) e->tour();
                            });
}

PresenceGardien::~PresenceGardien() {
    tours_.reset();
    etat_->fermer();
}

std::optional<PresenceGardien::Role> PresenceGardien::role() const {
    return etat_->role;
}

} // namespace tavi
