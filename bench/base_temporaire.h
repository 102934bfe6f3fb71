#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace tavi::bench {

// A defaults store on the real disk, in a fresh folder under the temporary folder: the cost of
// a commit is the cost of the disk's sync.
class BaseTemporaire {
public:
    BaseTemporaire() {
        std::string modele =
            (std::filesystem::temp_directory_path() / "tavi-bench-XXXXXX").string();
        if (mkdtemp(modele.data())) dossier = modele;
    }
    ~BaseTemporaire() {
        std::error_code ignore;
        std::filesystem::remove_all(dossier, ignore);
    }
    BaseTemporaire(const BaseTemporaire&) = delete;
    BaseTemporaire& operator=(const BaseTemporaire&) = delete;
    std::filesystem::path fichier() const { return dossier / "reglages.sqlite"; }

private:
    std::filesystem::path dossier;
};

} // namespace tavi::bench
