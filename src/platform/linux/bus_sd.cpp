#include "platform/linux/bus_sd.h"

#include "platform/boucle.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <utility>
#include <vector>

namespace tavi {

namespace {

using namespace std::chrono_literals;

constexpr auto premiereReprise = 2000ms;
constexpr auto derniereReprise = 60000ms;
// Messages handled in one turn of the loop: a peer flooding us with signals must not hold
// the main thread; the rest waits for the next turn.
constexpr int messagesParTour = 256;
// A full socket has no readable event to wake us: we look again this soon.
constexpr auto attenteEcriture = 10ms;

std::uint64_t maintenantUs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(t.tv_nsec) / 1000u;
}

// The callbacks' own storage, released by sd-bus with the slot that holds it.
template <class F>
void liberer(void* f) {
    delete static_cast<F*>(f);
}

class Inscription : public Abonnement {
public:
    explicit Inscription(sd_bus_slot* leSlot) : slot(leSlot) {}
    ~Inscription() override { sd_bus_slot_unref(slot); }
    Inscription(const Inscription&) = delete;
    Inscription& operator=(const Inscription&) = delete;

private:
    sd_bus_slot* slot;
};

} // namespace

struct BusSd::Etat : std::enable_shared_from_this<BusSd::Etat> {
    Boucle& boucle;
    TypeBus type;
    sd_bus* bus = nullptr;
    std::unique_ptr<Abonnement> surveillance;
    std::optional<std::uint64_t> reveilPrevuUs;
    std::chrono::milliseconds reprise = premiereReprise;
    bool reprisePrevue = false;
    bool dansPompe = false;
    int prochainSuivi = 0;
    std::map<int, std::pair<std::function<void()>, std::function<void()>>> suivis;
    int prochainEnvoi = 0;
    // The senders of the signals not yet known to have left.
    std::map<int, std::function<void()>> envois;

    Etat(Boucle& b, TypeBus t) : boucle(b), type(t) {}

    ~Etat() { fermer(); }

    void fermer() {
        surveillance.reset();
        // Not flushed: a flush waits on the daemon. Slots still held by users keep the
        // closed connection's memory until they go.
        if (bus) bus = sd_bus_close_unref(bus);
    }

    void ouvrir() {
        reprisePrevue = false;
        sd_bus* nouveau = nullptr;
        const int r =
            type == TypeBus::systeme ? sd_bus_open_system(&nouveau) : sd_bus_open_user(&nouveau);
        if (r < 0 || sd_bus_get_fd(nouveau) < 0) {
            sd_bus_unref(nouveau);
            reprendrePlusTard();
            return;
        }
        bus = nouveau;
        sd_bus_set_method_call_timeout(
            bus, static_cast<std::uint64_t>(
                     std::chrono::duration_cast<std::chrono::microseconds>(delaiAppel).count()));
        surveillance = boucle.surveiller(sd_bus_get_fd(bus), [faible = weak_from_this()] {
            if (auto e = faible.lock()) e->pomper();
        });
        for (const auto& id : idsSuivis()) {
            const auto s = suivis.find(id);
            if (s != suivis.end() && bus && s->second.first) s->second.first();
        }
        // Sends the authentication, behind which the users' first calls wait: nothing would
        // wake us for it, the daemon speaks only once it has read it.
        pomper();
    }

    void reprendrePlusTard() {
        if (reprisePrevue) return;
        reprisePrevue = true;
        boucle.plusTard(reprise, [faible = weak_from_this()] {
            if (auto e = faible.lock(); e && !e->bus) e->ouvrir();
        });
        reprise = std::min(reprise * 2, derniereReprise);
    }

    std::vector<int> idsSuivis() const {
        std::vector<int> ids;
        for (const auto& [id, suivi] : suivis)
            ids.push_back(id);
        return ids;
    }

    void perdre() {
        fermer();
        reveilPrevuUs.reset();
        for (const auto& id : idsSuivis()) {
            const auto s = suivis.find(id);
            if (s != suivis.end() && s->second.second) s->second.second();
        }
        finirEnvois();
        reprendrePlusTard();
    }

    // Posted rather than called: a sender may end the process or destroy this object.
    void finirEnvoi(int id) {
        const auto e = envois.find(id);
        if (e == envois.end()) return;
        boucle.poster(std::move(e->second));
        envois.erase(e);
    }

    void finirEnvois() {
        while (!envois.empty())
            finirEnvoi(envois.begin()->first);
    }

    // sd-bus writes in order: once its queue is empty, every signal sent so far is out.
    void signalerEnvois() {
        std::uint64_t enAttente = 0;
        if (!envois.empty() && bus && sd_bus_get_n_queued_write(bus, &enAttente) >= 0 &&
            enAttente == 0)
            finirEnvois();
    }

    void pomper() {
        if (!bus || dansPompe) return;
        dansPompe = true;
        int r = 0;
        int n = 0;
        // While closing, sd-bus answers the calls in flight with errors, one per turn, then
        // reports the end.
        while (n < messagesParTour && (r = sd_bus_process(bus, nullptr)) > 0)
            ++n;
        dansPompe = false;
        if (r < 0 || sd_bus_is_open(bus) <= 0) {
            perdre();
            return;
        }
        signalerEnvois();
        // The daemon took us in: a later loss starts its retries from the shortest delay.
        if (sd_bus_is_ready(bus) > 0) reprise = premiereReprise;
        if (r > 0) {
            boucle.poster([faible = weak_from_this()] {
                if (auto e = faible.lock()) e->pomper();
            });
            return;
        }
        rearmer();
    }

    // Wakes us at sd-bus's next deadline (a call's timeout, the authentication's) or soon
    // when bytes wait to be written, since only readability wakes us otherwise.
    void rearmer() {
        if (!bus) return;
        std::uint64_t echeance = UINT64_MAX;
        if (sd_bus_get_timeout(bus, &echeance) < 0) echeance = UINT64_MAX;
        const std::uint64_t maintenant = maintenantUs();
        const int evenements = sd_bus_get_events(bus);
        if (evenements > 0 && (evenements & POLLOUT))
            echeance = std::min<std::uint64_t>(
                echeance, maintenant + std::chrono::microseconds(attenteEcriture).count());
        if (echeance == UINT64_MAX) return;
        if (reveilPrevuUs && *reveilPrevuUs <= echeance) return;
        reveilPrevuUs = echeance;
        const auto delai = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::microseconds(echeance > maintenant ? echeance - maintenant : 0));
        boucle.plusTard(delai + 1ms, [faible = weak_from_this(), echeance] {
            auto e = faible.lock();
            if (!e) return;
            if (e->reveilPrevuUs == echeance) e->reveilPrevuUs.reset();
            e->pomper();
        });
    }
};

BusSd::BusSd(Boucle& boucle, TypeBus type) : etat(std::make_shared<Etat>(boucle, type)) {
    etat->ouvrir();
}

BusSd::~BusSd() = default;

bool BusSd::connecte() const {
    return etat->bus != nullptr;
}

Boucle& BusSd::boucle() const {
    return etat->boucle;
}

std::unique_ptr<Abonnement> BusSd::suivre(std::function<void()> quandConnecte,
                                          std::function<void()> quandPerdu) {
    class Suivi : public Abonnement {
    public:
        Suivi(std::weak_ptr<Etat> lEtat, int lId) : etat(std::move(lEtat)), id(lId) {}
        ~Suivi() override {
            if (auto e = etat.lock()) e->suivis.erase(id);
        }

    private:
        std::weak_ptr<Etat> etat;
        int id;
    };
    const int id = etat->prochainSuivi++;
    etat->suivis.emplace(id, std::make_pair(quandConnecte, std::move(quandPerdu)));
    if (etat->bus && quandConnecte) quandConnecte();
    return std::make_unique<Suivi>(etat, id);
}

void BusSd::appeler(const char* destination, const char* chemin, const char* interface,
                    const char* methode, const Remplir& remplir, Reponse reponse) {
    auto echouer = [this, &reponse] {
        etat->boucle.poster([faible = std::weak_ptr<Etat>(etat), reponse = std::move(reponse)] {
            if (faible.lock()) reponse(nullptr);
        });
    };
    if (!etat->bus) return echouer();
    sd_bus_message* message = nullptr;
    int r = sd_bus_message_new_method_call(etat->bus, &message, destination, chemin, interface,
                                           methode);
    if (r >= 0) r = sd_bus_message_set_auto_start(message, 0);
    if (r >= 0 && remplir) r = remplir(message);
    if (r < 0) {
        sd_bus_message_unref(message);
        return echouer();
    }
    auto* rappel = new Reponse(std::move(reponse));
    sd_bus_slot* slot = nullptr;
    r = sd_bus_call_async(
        etat->bus, &slot, message,
        [](sd_bus_message* m, void* donnees, sd_bus_error*) -> int {
            auto& quand = *static_cast<Reponse*>(donnees);
            quand(sd_bus_message_is_method_error(m, nullptr) ? nullptr : m);
            return 0;
        },
        rappel,
        static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(delaiAppel).count()));
    sd_bus_message_unref(message);
    if (r < 0) {
        reponse = std::move(*rappel);
        delete rappel;
        return echouer();
    }
    // From here the bus owns the slot and, through it, the callback.
    sd_bus_slot_set_destroy_callback(slot, liberer<Reponse>);
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
    etat->rearmer();
}

void BusSd::emettre(const char* destination, const char* chemin, const char* interface,
                    const char* membre, const Remplir& remplir, std::function<void()> parti) {
    int r = -ENOTCONN;
    sd_bus_message* message = nullptr;
    if (etat->bus) r = sd_bus_message_new_signal(etat->bus, &message, chemin, interface, membre);
    if (r >= 0 && destination) r = sd_bus_message_set_destination(message, destination);
    if (r >= 0 && remplir) r = remplir(message);
    if (r >= 0) r = sd_bus_send(etat->bus, message, nullptr);
    sd_bus_message_unref(message);
    if (r < 0) return etat->boucle.poster(std::move(parti));
    const int id = etat->prochainEnvoi++;
    etat->envois.emplace(id, std::move(parti));
    // A daemon that stops reading must not keep the sender waiting.
    etat->boucle.plusTard(delaiAppel, [faible = std::weak_ptr<Etat>(etat), id] {
        if (auto e = faible.lock()) e->finirEnvoi(id);
    });
    // Written at once when the connection is up and nothing waits before it.
    etat->signalerEnvois();
    etat->rearmer();
}

std::optional<std::string> BusSd::nomUnique() const {
    const char* nom = nullptr;
    // Before the welcome, sd_bus_get_unique_name would wait for it.
    if (!etat->bus || sd_bus_is_ready(etat->bus) <= 0 ||
        sd_bus_get_unique_name(etat->bus, &nom) < 0 || !nom)
        return std::nullopt;
    return std::string(nom);
}

std::unique_ptr<Abonnement> BusSd::ecouter(const char* emetteur, const char* chemin,
                                           const char* interface, const char* membre,
                                           Signal quand) {
    if (!etat->bus) return nullptr;
    auto* rappel = new Signal(std::move(quand));
    sd_bus_slot* slot = nullptr;
    const int r = sd_bus_match_signal_async(
        etat->bus, &slot, emetteur, chemin, interface, membre,
        [](sd_bus_message* m, void* donnees, sd_bus_error*) -> int {
            (*static_cast<Signal*>(donnees))(m);
            return 0;
        },
        // Without this, sd-bus ends the connection when the daemon refuses the match.
        [](sd_bus_message*, void*, sd_bus_error*) -> int { return 0; }, rappel);
    if (r < 0) {
        delete rappel;
        return nullptr;
    }
    sd_bus_slot_set_destroy_callback(slot, liberer<Signal>);
    etat->rearmer();
    return std::make_unique<Inscription>(slot);
}

} // namespace tavi
