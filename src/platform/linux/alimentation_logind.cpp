#include "platform/linux/alimentation_logind.h"

#include "platform/linux/bus_sd.h"

#include <cstdint>
#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <utility>

namespace tavi {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* racine = "/org/freedesktop/login1";
constexpr const char* gestionnaire = "org.freedesktop.login1.Manager";

// One delay inhibitor: its descriptor while held, and a number that changes with every
// announcement, so that the acknowledgement of an old one never lets go of a newer inhibitor.
struct Retenue {
    const char* quoi;
    const char* pourquoi;
    int descripteur = -1;
    bool demandee = false;
    std::uint64_t annonce = 0;
};

} // namespace

struct AlimentationLogind::Etat : std::enable_shared_from_this<AlimentationLogind::Etat> {
    BusSd& bus;
    Alimentation& proprietaire;
    Retenue veille{"sleep", "Prévenir la famille avant la mise en veille"};
    Retenue arret{"shutdown", "Prévenir la famille avant l'arrêt de l'ordinateur"};
    std::unique_ptr<Abonnement> surVeille, surArret;

    Etat(BusSd& b, Alimentation& p) : bus(b), proprietaire(p) {}
    ~Etat() {
        lacher(veille);
        lacher(arret);
    }

    static void lacher(Retenue& r) {
        if (r.descripteur >= 0) ::close(r.descripteur);
        r.descripteur = -1;
    }

    void prendre(Retenue Etat::*membre) {
        Retenue& r = this->*membre;
        if (r.descripteur >= 0 || r.demandee) return;
        r.demandee = true;
        const std::string qui = "Tavi Home";
        bus.appeler(
            service, racine, gestionnaire, "Inhibit",
            [&r, &qui](sd_bus_message* m) {
                return sd_bus_message_append(m, "ssss", r.quoi, qui.c_str(), r.pourquoi, "delay");
            },
            [faible = weak_from_this(), membre](sd_bus_message* reponse) {
                auto e = faible.lock();
                if (!e) return;
                Retenue& retenue = (*e).*membre;
                retenue.demandee = false;
                int fd = -1;
                if (!reponse || sd_bus_message_read(reponse, "h", &fd) < 0 || fd < 0) return;
                // The message owns its descriptor: ours is a copy that lives until we let go.
                const int copie = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
                if (copie < 0) return;
                lacher(retenue);
                retenue.descripteur = copie;
            });
    }

    // The announcement (true) or its end (false) of a sleep or a power-off.
    void recevoir(Retenue Etat::*membre, bool avant,
                  std::function<void(Accord)> Alimentation::*quand) {
        Retenue& r = this->*membre;
        ++r.annonce;
        if (!avant) {
            prendre(membre);
            return;
        }
        Accord accord = [faible = weak_from_this(), membre, annonce = r.annonce] {
            auto e = faible.lock();
            if (e && ((*e).*membre).annonce == annonce) lacher((*e).*membre);
        };
        auto& rappel = proprietaire.*quand;
        if (rappel)
            rappel(std::move(accord));
        else
            accord();
    }

    std::unique_ptr<Abonnement> ecouter(const char* membre, std::function<void(bool)> quand) {
        return bus.ecouter(service, racine, gestionnaire, membre,
                           [quand = std::move(quand)](sd_bus_message* m) {
                               int avant = 0;
                               if (sd_bus_message_read(m, "b", &avant) >= 0) quand(avant != 0);
                           });
    }

    void connecte() {
        auto faible = weak_from_this();
        surVeille = ecouter("PrepareForSleep", [faible](bool avant) {
            auto e = faible.lock();
            if (!e) return;
            e->recevoir(&Etat::veille, avant, &Alimentation::avantVeille);
            if (!avant && e->proprietaire.auReveil) e->proprietaire.auReveil();
        });
        surArret = ecouter("PrepareForShutdown", [faible](bool avant) {
            if (auto e = faible.lock()) e->recevoir(&Etat::arret, avant, &Alimentation::avantArret);
        });
        prendre(&Etat::veille);
        prendre(&Etat::arret);
    }

    // A logind that went away took its inhibitors with it: new ones are taken on return.
    void perdu() {
        surVeille.reset();
        surArret.reset();
        for (Retenue* r : {&veille, &arret}) {
            lacher(*r);
            r->demandee = false;
        }
    }
};

AlimentationLogind::AlimentationLogind(BusSd& systeme)
    : etat(std::make_shared<Etat>(systeme, *this)) {
    suivi = systeme.suivre(
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) e->connecte();
        },
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) e->perdu();
        });
}

AlimentationLogind::~AlimentationLogind() {
    suivi.reset();
    etat.reset();
}

bool AlimentationLogind::retientVeille() const {
    return etat->veille.descripteur >= 0;
}

bool AlimentationLogind::retientArret() const {
    return etat->arret.descripteur >= 0;
}

} // namespace tavi
