#include "app/signaux_arret.h"

#include "commun/journal.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tavi {

namespace {

sigset_t signauxArret() {
    sigset_t signaux;
    sigemptyset(&signaux);
    sigaddset(&signaux, SIGTERM);
    sigaddset(&signaux, SIGINT);
    return signaux;
}

} // namespace

void SignauxArret::bloquer() {
    const sigset_t signaux = signauxArret();
    pthread_sigmask(SIG_BLOCK, &signaux, nullptr);
}

SignauxArret::SignauxArret(Boucle& boucle, std::function<void(int)> quand)
    : quand_(std::move(quand)) {
    const sigset_t signaux = signauxArret();
    descripteur_ = signalfd(-1, &signaux, SFD_NONBLOCK | SFD_CLOEXEC);
    if (descripteur_ < 0) {
        journaliser(std::string("Tavi Home : signaux d'arrêt non surveillés (") +
                    std::strerror(errno) + ")");
        pthread_sigmask(SIG_UNBLOCK, &signaux, nullptr);
        return;
    }
    surveillance_ = boucle.surveiller(descripteur_, [this] { lire(); });
}

SignauxArret::~SignauxArret() {
    surveillance_.reset();
    if (descripteur_ >= 0) close(descripteur_);
}

void SignauxArret::lire() {
    signalfd_siginfo info{};
    while (read(descripteur_, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        quand_(static_cast<int>(info.ssi_signo));
}

} // namespace tavi
