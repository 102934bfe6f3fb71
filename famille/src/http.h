#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tavi::famille {

// One request as the endpoints see it, once the listener has framed and bounded it.
struct RequeteHttp {
    std::string chemin;
    // Names in lower case; a repeated header keeps its first value.
    std::map<std::string, std::string> entetes;
    std::string corps;
    // The client's address as a limit key: IPv6 by its /56 (see cleAdresse).
    std::string adresse;

    std::string entete(const std::string& nomMinuscule) const {
        auto trouve = entetes.find(nomMinuscule);
        return trouve == entetes.end() ? std::string() : trouve->second;
    }
};

struct ReponseHttp {
    int statut = 200;
    std::string corpsJson; // empty: no body
    std::vector<std::pair<std::string, std::string>> entetes;
};

} // namespace tavi::famille
