#include "gardien/regards_x_ecran.h"

#include "gardien/avis_x.h"
#include "gardien/sonde_x.h"

#include <algorithm>
#include <csignal>
#include <pthread.h>

namespace tavi {
namespace {

constexpr std::int64_t periodeMs = 1000;
constexpr std::int64_t pauseMaxMs = 30000;

RegardX injoignable() {
    RegardX regard;
    regard.raison = "x_injoignable";
    return regard;
}

} // namespace

EcranX::EcranX(const AccesX& premier, pid_t agentPremier) : acces(premier), agent(agentPremier) {
    fil = std::thread([this] { tourner(); });
}

EcranX::~EcranX() {
    {
        std::lock_guard garde(verrou);
        fini = true;
    }
    surveillance.arreter();
    reveil.notify_all();
    fil.join();
}

std::optional<RegardX> EcranX::regarder(const AccesX& nouvel, pid_t nouvelAgent) {
    std::lock_guard garde(verrou);
    acces = nouvel;
    if (agent != nouvelAgent) {
        agent = nouvelAgent;
        reveil.notify_all();
    }
    if (!dernier) return std::nullopt;
    RegardX regard = *dernier;
    regard.ageMs = monotoneMs() - priseMs;
    // The idle time holds; the veil seen was another process's, until the next look.
    if (agentDuRegard != agent && regard.voile != EtatVoile::inconnu) {
        regard.voile = EtatVoile::inconnu;
        regard.raison.clear();
    }
    return regard;
}

void EcranX::avis(std::optional<std::string> texte) {
    std::lock_guard garde(verrou);
    if (texteAvis == texte) return;
    texteAvis = std::move(texte);
    reveil.notify_all();
}

void EcranX::publier(const RegardX& regard, pid_t agentVu) {
    std::lock_guard garde(verrou);
    dernier = regard;
    priseMs = monotoneMs();
    agentDuRegard = agentVu;
}

bool EcranX::attendre(std::int64_t ms) {
    std::unique_lock garde(verrou);
    const pid_t avant = agent;
    const auto texte = texteAvis;
    reveil.wait_for(garde, std::chrono::milliseconds(ms),
                    [&] { return fini || agent != avant || texteAvis != texte; });
    return !fini;
}

void EcranX::tourner() {
    // A write on a socket the watchdog shut down must fail, not end the service.
    sigset_t tuyau;
    sigemptyset(&tuyau);
    sigaddset(&tuyau, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &tuyau, nullptr);
    std::unique_ptr<SondeX> sonde;
    std::unique_ptr<AvisX> avisMontre;
    std::int64_t pauseMs = 0;
    while (true) {
        AccesX a;
        pid_t agentVoulu = 0;
        std::optional<std::string> texte;
        {
            std::lock_guard garde(verrou);
            if (fini) break;
            a = acces;
            agentVoulu = agent;
            texte = texteAvis;
        }
        if (!sonde) {
            sonde = SondeX::ouvrir(a, surveillance);
            if (!sonde) {
                publier(injoignable(), agentVoulu);
                pauseMs = std::clamp<std::int64_t>(pauseMs * 2, periodeMs, pauseMaxMs);
                if (!attendre(pauseMs)) break;
                continue;
            }
        }
        surveillance.debut(monotoneMs());
        RegardX regard = sonde->voile(agentVoulu);
        regard.inactiviteS = sonde->inactiviteS();
        if (texte && (!avisMontre || avisMontre->texte() != *texte)) {
            avisMontre.reset();
            avisMontre = std::make_unique<AvisX>(*sonde, *texte);
        } else if (!texte) {
            avisMontre.reset();
        } else {
            avisMontre->relever();
        }
        surveillance.fin();
        if (sonde->enErreur()) {
            avisMontre.reset();
            sonde.reset();
            publier(injoignable(), agentVoulu);
            pauseMs = periodeMs;
            if (!attendre(pauseMs)) break;
            continue;
        }
        pauseMs = 0;
        publier(regard, agentVoulu);
        if (!attendre(periodeMs)) break;
    }
    avisMontre.reset();
    sonde.reset();
}

} // namespace tavi
