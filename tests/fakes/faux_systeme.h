#pragma once

#include "platform/systeme.h"

#include <optional>
#include <string>

namespace tavi::test {

// A machine the test names.
class FauxSysteme : public Systeme {
public:
    std::string nom = "linux";
    std::string version = "Debian GNU/Linux 12 (bookworm)";
    std::optional<std::string> ordinateur = "poste-du-salon";

    std::string plateforme() const override { return nom; }
    std::string description() const override { return version; }
    std::optional<std::string> nomOrdinateur() const override { return ordinateur; }
};

} // namespace tavi::test
