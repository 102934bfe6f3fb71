#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi {

// A command line that does not say something this program understands.
class ErreurUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The words of one command after its name, read strictly by both programs' command lines. A
// command takes its options first ("--titre T" or "--titre=T", repeatable ones too), then its
// positional words in order, then calls fin() so that nothing the user typed is silently
// ignored: an unknown option or a word too many is an ErreurUsage. Every word must be valid
// UTF-8, since it may end up in a JSON answer.
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
std::int64_t entierEntre(const std::string& texte, const std::string& quoi,
                         std::int64_t min = std::numeric_limits<std::int64_t>::min(),
                         std::int64_t max = std::numeric_limits<std::int64_t>::max());
// A finite decimal number, "12.5" or "1e3"; ErreurUsage naming `quoi` otherwise.
double nombreDe(const std::string& texte, const std::string& quoi);

} // namespace tavi
