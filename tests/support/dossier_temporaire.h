#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tavi::test {

// A fresh folder under the system's temporary folder, removed with everything in it.
class DossierTemporaire {
public:
    DossierTemporaire() {
        std::string modele = (std::filesystem::temp_directory_path() / "tavi-XXXXXX").string();
        if (!mkdtemp(modele.data())) throw std::runtime_error("mkdtemp");
        chemin_ = modele;
    }
    ~DossierTemporaire() {
        std::error_code ignore;
        std::filesystem::remove_all(chemin_, ignore);
    }
    DossierTemporaire(const DossierTemporaire&) = delete;
    DossierTemporaire& operator=(const DossierTemporaire&) = delete;

    const std::filesystem::path& chemin() const { return chemin_; }
    std::filesystem::path operator/(const std::string& nom) const { return chemin_ / nom; }

private:
    std::filesystem::path chemin_;
};

} // namespace tavi::test
