#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi::outils {

// A command line that does not follow the usage: the command prints the usage, exits with 2.
class ErreurUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The options of one subcommand, read strictly: every option must be known, take its value
// ("--opt VAL" or "--opt=VAL") and appear once unless it is repeatable.
class Options {
public:
    Options(const std::vector<std::string>& arguments, const std::set<std::string>& avecValeur,
            const std::set<std::string>& repetables = {},
            const std::set<std::string>& drapeaux = {});

    bool present(const std::string& option) const;
    std::optional<std::string> valeur(const std::string& option) const;
    const std::vector<std::string>& valeurs(const std::string& option) const;
    const std::vector<std::string>& positionnels() const { return positionnels_; }

    std::string requis(const std::string& option) const;
    std::optional<std::int64_t> entier(const std::string& option) const;
    std::optional<double> nombre(const std::string& option) const;

private:
    std::map<std::string, std::vector<std::string>> valeurs_;
    std::vector<std::string> positionnels_;
};

std::int64_t lireEntierOption(const std::string& option, const std::string& texte);
double lireNombreOption(const std::string& option, const std::string& texte);

} // namespace tavi::outils
