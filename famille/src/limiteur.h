#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <mutex>
#include <string>
#include <unordered_map>

namespace tavi::famille {

// Counts failed pairing attempts per key (an installation identifier, a remote address) and in
// all over a sliding window. The bound in all is what stops a guesser with many addresses or
// identifiers: one base is one family, so every failure counts against the same codes. It also
// locks out the family's own computers while it holds, so it is set far above what a child
// mistyping or a few hostile addresses reach. Kept in memory only: a restart forgives, which
// costs an attacker a restart of our server, not a guess.
class Limiteur {
public:
    Limiteur(std::size_t echecsParCle, std::size_t echecsEnTout, std::int64_t fenetreMs);

    // True when one of the keys, or the family, has used up its failures within the window.
    bool bloque(std::initializer_list<std::string> cles, std::int64_t maintenantMs);
    void noterEchec(std::initializer_list<std::string> cles, std::int64_t maintenantMs);

private:
    void oublierAnciens(std::deque<std::int64_t>& instants, std::int64_t maintenantMs) const;

    std::size_t echecsParCle;
    std::size_t echecsEnTout;
    std::int64_t fenetreMs;
    std::mutex verrou;
    std::deque<std::int64_t> tous;
    std::unordered_map<std::string, std::deque<std::int64_t>> echecs;
    std::size_t seuilBalayage = 1000;
};

} // namespace tavi::famille
