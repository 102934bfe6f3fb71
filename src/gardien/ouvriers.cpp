#include "gardien/ouvriers.h"

#include "platform/linux/horloges_linux.h"

#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tavi {

Ouvriers::Ouvriers(Transport& transport, std::size_t nombre, std::size_t fileMax)
    : transport_(transport), fileMax_(fileMax) {
    signal_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (signal_ < 0) throw std::runtime_error("eventfd");
    for (std::size_t i = 0; i < nombre; ++i)
        fils_.emplace_back([this] { travailler(); });
}

Ouvriers::~Ouvriers() {
    {
        std::lock_guard verrou(verrou_);
        arret_ = true;
        file_.clear();
    }
    travail_.notify_all();
    for (auto& fil : fils_)
        fil.join();
    close(signal_);
}

bool Ouvriers::confier(std::uint64_t id, Envoi envoi) {
    {
        std::lock_guard verrou(verrou_);
        if (file_.size() >= fileMax_) return false;
        file_.emplace_back(id, std::move(envoi));
    }
    travail_.notify_one();
    return true;
}

std::vector<Ouvriers::Fini> Ouvriers::recuperer() {
    std::uint64_t compte = 0;
    [[maybe_unused]] auto lu = read(signal_, &compte, sizeof compte);
    std::lock_guard verrou(verrou_);
    return std::exchange(finis_, {});
}

void Ouvriers::travailler() {
    const HorlogesLinux horloges;
    for (;;) {
        std::pair<std::uint64_t, Envoi> travail;
        {
            std::unique_lock verrou(verrou_);
            travail_.wait(verrou, [this] { return arret_ || !file_.empty(); });
            if (arret_) return;
            travail = std::move(file_.front());
            file_.pop_front();
        }
        travail.second.envoiMs = horloges.monotoniqueMs();
        auto resultat = Relais::echanger(transport_, travail.second);
        travail.second.recuMs = horloges.monotoniqueMs();
        {
            std::lock_guard verrou(verrou_);
            finis_.push_back({travail.first, std::move(travail.second), std::move(resultat)});
        }
        const std::uint64_t un = 1;
        [[maybe_unused]] auto ecrit = write(signal_, &un, sizeof un);
    }
}

} // namespace tavi
