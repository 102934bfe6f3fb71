#pragma once

#include "platform/coffre.h"

#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

// Secrets kept in files for a machine where no Secret Service answers: one file per
// (service, account) in one folder. The folder is this user's alone (0700) and each file is
// 0600 from the moment it exists; a write replaces the file whole (temporary file, fsync,
// rename), so a crash leaves the old secret or the new one, never a mix. A file that does not
// hold UTF-8 text reads as absent.
class CoffreFichier : public Coffre {
public:
    // The folder is made, with its missing parents (all 0700), on the first write.
    explicit CoffreFichier(std::filesystem::path dossier);

    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override;
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override;
    void supprimer(const std::string& service, const std::string& compte) override;

    // `ecrire`, saying whether the secret is now in its file.
    bool deposer(const std::string& service, const std::string& compte, const std::string& secret);
    // `supprimer`, saying whether no file of (service, account) is left.
    bool retirer(const std::string& service, const std::string& compte);

    // The file of (service, account); absent when their names make a file name too long.
    std::optional<std::filesystem::path> chemin(const std::string& service,
                                                const std::string& compte) const;

private:
    std::filesystem::path dossier;
};

} // namespace tavi
