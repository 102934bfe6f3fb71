#pragma once

#include "platform/boucle.h"
#include "platform/coffre.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

// The computer's token in the secret store, reached from the main thread without ever waiting
// for it: each operation runs on the background pool, one at a time and in the order asked
// (a deletion never overtakes the write before it), and its answer comes back on the main
// thread. A keyring that hangs holds the operations queued behind it, never a tick.
//
// Main thread only. `boucle` and `coffre` must outlive the object, and the process must not
// destroy `coffre` while an operation may still be running on the pool.
class TrousseauSerie {
public:
    TrousseauSerie(Boucle& boucle, Coffre& coffre);

    // The token, absent when there is none or the store does not answer it. A store that throws
    // counts as one that does not answer, and the operations behind it still run.
    void lire(std::function<void(std::optional<std::string>)> suite);
    // Writes the token and reads it back: `suite(true)` when the store now holds it.
    void ecrire(std::string jeton, std::function<void(bool)> suite);
    void effacer();
    // An operation is running or waiting.
    bool occupe() const { return enCours || !file.empty(); }

private:
    // `travail` on the pool gives what to do on the main thread; `siEchec` is done there
    // instead when the store threw.
    struct Operation {
        std::function<Boucle::Tache()> travail;
        Boucle::Tache siEchec;
    };
    void ajouter(Operation operation);
    void suivante();

    Boucle& boucle;
    Coffre& coffre;
    std::deque<Operation> file;
    bool enCours = false;
    std::shared_ptr<TrousseauSerie*> vivant = std::make_shared<TrousseauSerie*>(this);
};

} // namespace tavi
