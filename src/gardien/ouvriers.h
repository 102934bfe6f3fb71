#pragma once

#include "gardien/relais.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace tavi {

// A few threads that carry the exchanges with the family server, which block for seconds,
// away from the service's loop. Bounded: a full queue refuses rather than grows. Results come
// back through an eventfd the loop watches.
class Ouvriers {
public:
    Ouvriers(Transport& transport, std::size_t nombre, std::size_t fileMax);
    ~Ouvriers();
    Ouvriers(const Ouvriers&) = delete;
    Ouvriers& operator=(const Ouvriers&) = delete;

    int descripteur() const { return signal_; }
    // False when the queue is full.
    bool confier(std::uint64_t id, Envoi envoi);

    struct Fini {
        std::uint64_t id;
        Envoi envoi;
        Attendu<ReponseHttp, ErreurTransport> resultat;
    };
    // The exchanges that ended since the last call (the eventfd read).
    std::vector<Fini> recuperer();

private:
    void travailler();

    Transport& transport_;
    std::size_t fileMax_;
    int signal_ = -1;
    std::mutex verrou_;
    std::condition_variable travail_;
    std::deque<std::pair<std::uint64_t, Envoi>> file_;
    std::vector<Fini> finis_;
    bool arret_ = false;
    std::vector<std::thread> fils_;
};

} // namespace tavi
