#pragma once

#include "platform/copies.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace tavi {

class Boucle;

// The agent's copies on a local socket, for sessions without a session bus. The place is a
// listening socket "copies" in a folder of the user's own, created 0700 and refused (with a
// line in the log, after which no copy is ever found) when it belongs to someone else or is
// open to others. The request to show itself is the line "montrer\n" written to it.
//
// The agent's copy takes the place even from a live holder: it binds a socket under a name of
// its own and renames it over the place, so that whoever connects finds one or the other,
// never none. A copy started by hand only takes a free place: nobody listening, at most a
// socket file left by a copy that ended. The place is not removed at the end: a stale socket
// is as good as none, and removing it could take away the socket of a copy that has just
// renamed its own over it.
//
// The holder reads a few bytes of each connection when they come and never waits: a
// connection that says anything else, or nothing for a second, is closed. Only the user's own
// processes are heard, and only so many connections a turn, so a flood cannot hold the loop.
//
// Main thread only.
class CopiesLocales : public Copies {
public:
    CopiesLocales(Boucle& boucle, const std::filesystem::path& dossier);
    ~CopiesLocales() override;
    CopiesLocales(const CopiesLocales&) = delete;
    CopiesLocales& operator=(const CopiesLocales&) = delete;

    void autreInstance(std::function<void(bool)> reponse) override;
    void tenir(bool agent, std::function<void()> quandMontrer) override;
    void montrer(std::function<void()> fini) override;

private:
    struct Etat;
    std::shared_ptr<Etat> etat;
};

} // namespace tavi
