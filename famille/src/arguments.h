#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi::famille {

// A command line that does not say something this program understands.
class ErreurUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The words of one command after its name. A command takes its options first ("--titre T",
// repeatable ones too), then its positional words in order, then calls fin() so that nothing
// the user typed is silently ignored.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> mots);

    std::optional<std::string> option(const std::string& nom);
    std::vector<std::string> options(const std::string& nom);
    bool drapeau(const std::string& nom);

    std::string suivant(const std::string& quoi);
    std::optional<std::string> suivantOptionnel();
    std::vector<std::string> reste();
    void fin();

private:
    std::vector<std::string> mots;
};

// "MINUTES" between bounds, as a whole number; ErreurUsage naming `quoi` otherwise.
std::int64_t entierEntre(const std::string& texte, const std::string& quoi, std::int64_t min,
                         std::int64_t max);

} // namespace tavi::famille
