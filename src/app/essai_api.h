#pragma once

#include "generique/utf8.h"
#include "platform/boucle.h"
#include "platform/memoire/coffre_memoire.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "platform/systeme.h"
#include "server/api.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace tavi {

// The self-test of the server link: shows the address and installation identifier, pairs with
// the code, beats once and asks for 10 minutes. It keeps its store and its secret in memory,
// so the agent's own state and token are never touched. One line per step on `sortie`,
// starting with "ok" or "échec"; what the server wrote is escaped by `pourTerminal`.

class EssaiApi {
public:
    EssaiApi(const std::string& serveur, std::string code, Boucle& boucle, const Systeme& systeme,
             std::ostream& sortie);

    // Runs the steps in turn; `fini` receives 0 when every step passed, 1 otherwise.
    void demarrer(std::function<void(int)> fini);

private:
    void rejoindre();
    void battre();
    void demander();
    void dire(bool reussi, const std::string& ligne);

    std::string code_;
    const Systeme& systeme_;
    std::ostream& sortie_;
    ReglagesSqlite reglages_{ReglagesSqlite::enMemoire};
    CoffreMemoire coffre_;
    Api api_;
    bool toutBon_ = true;
    std::function<void(int)> fini_;
};

} // namespace tavi
