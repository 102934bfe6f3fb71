#pragma once

#include "platform/coffre.h"
#include "platform/linux/coffre_fichier.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tavi {

// Secrets in the session's Secret Service (GNOME Keyring, KWallet, KeePassXC...), in the
// default collection, one item per (service, account) with the attributes "service" and
// "account". Never prompts: a locked item reads as absent and a write to a locked collection
// is given up, because a prompt would hold the main thread until someone answers it. A secret
// that is not UTF-8 text, in the Secret Service or the fallback file, reads as absent.
//
// Decided at each operation: when no Secret Service answers (no session bus, no daemon), the
// secret goes to a file of the fallback folder instead, readable by this user alone, and the
// log says so once in the life of the process. A secret left in that file is moved into the
// Secret Service by the first operation on it that finds one answering.
class CoffreSecret : public Coffre {
public:
    // Falls back to "secrets" in the state folder; with no state folder (no home), there is no
    // fallback and a secret that finds no Secret Service is given up.
    CoffreSecret();
    // Falls back to files in `dossierSecours`, or nowhere when it is absent.
    explicit CoffreSecret(std::optional<std::filesystem::path> dossierSecours);
    ~CoffreSecret() override;
    CoffreSecret(const CoffreSecret&) = delete;
    CoffreSecret& operator=(const CoffreSecret&) = delete;

    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override;
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override;
    void supprimer(const std::string& service, const std::string& compte) override;

private:
    struct Connexion;

    // Serialises the operations: they may come from the main thread and from background work.
    mutable std::mutex verrou;
    std::unique_ptr<Connexion> connexion;
    mutable std::optional<CoffreFichier> secours;
};

} // namespace tavi
