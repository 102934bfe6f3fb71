#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tavi::test {

// A fresh folder under the system's temporary folder, removed with everything in it at the end
// of the test.
class DossierTemporaire {
public:
    DossierTemporaire() {
        std::string modele = (std::filesystem::temp_directory_path() / "tavi-XXXXXX").string();
        if (!mkdtemp(modele.data())) throw std::runtime_error("mkdtemp failed");
        chemin = modele;
    }
    ~DossierTemporaire() {
        std::error_code ignore;
        std::filesystem::remove_all(chemin, ignore);
    }
    DossierTemporaire(const DossierTemporaire&) = delete;
    DossierTemporaire& operator=(const DossierTemporaire&) = delete;

    std::filesystem::path operator/(const std::string& nom) const { return chemin / nom; }

    std::filesystem::path chemin;
};

} // namespace tavi::test
