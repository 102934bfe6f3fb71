#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

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

inline std::string lireFichier(const std::filesystem::path& chemin) {
    std::ifstream flux(chemin, std::ios::binary);
    return {std::istreambuf_iterator<char>(flux), {}};
}

// Creates the folders on the way.
inline void ecrireFichier(const std::filesystem::path& chemin, const std::string& octets) {
    std::filesystem::create_directories(chemin.parent_path());
    std::ofstream(chemin, std::ios::binary) << octets;
}

// The permission bits (with setuid, setgid and sticky), 0 when nothing is there.
inline unsigned modeDe(const std::filesystem::path& chemin) {
    struct stat etat {};
    return stat(chemin.c_str(), &etat) == 0 ? etat.st_mode & 07777 : 0;
}

} // namespace tavi::test
