#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace tavi::famille {

// A refusal of the client's request: the status and the French "detail" the agent shows the
// child as it stands.
class ErreurRequete : public std::runtime_error {
public:
    ErreurRequete(int statut_, const std::string& detail)
        : std::runtime_error(detail), statut(statut_) {}
    int statut;
};

// Bodies are bounded before parsing: a few megabytes of nested arrays cost tens of times
// their size in memory once parsed.
inline constexpr std::size_t tailleMaxCorps = 1024 * 1024;
// No body of the protocol nests deeper than a few levels; 1 MiB of '[' would cost 80 MiB.
inline constexpr int profondeurMaxCorps = 16;

// The body as a JSON object, or a 400 saying why not.
nlohmann::json lireObjet(const std::string& corps);

// Typed access to the members of one received object, refusing with a 400 that names the
// member ("sites[2].s") when one is missing, of the wrong type or out of bounds. A JSON null
// reads as an absent member. Only find() is used on the document: operator[] on a missing key
// of a const object is undefined behaviour.
class Champs {
public:
    Champs(const nlohmann::json& objet, std::string chemin = {});

    // The member, or null when it is absent or JSON null.
    const nlohmann::json* trouver(const char* cle) const;
    std::string nom(const char* cle) const;

    std::string texte(const char* cle, std::size_t longueurMax) const;
    std::optional<std::string> texteOptionnel(const char* cle, std::size_t longueurMax) const;
    bool booleen(const char* cle) const;
    std::optional<bool> booleenOptionnel(const char* cle) const;
    std::int64_t entier(const char* cle, std::int64_t min, std::int64_t max) const;
    double nombre(const char* cle, double min, double max) const;
    // An object or an array when present, or null; a 400 when present with another type.
    const nlohmann::json* objet(const char* cle) const;
    const nlohmann::json* tableau(const char* cle, std::size_t tailleMax) const;

private:
    const nlohmann::json& objet_;
    std::string chemin;
};

// The same checks for a value that is not a member (an array element, a map value).
std::string texteDe(const nlohmann::json& valeur, const std::string& nom, std::size_t longueurMax);
double nombreDe(const nlohmann::json& valeur, const std::string& nom, double min, double max);

// A day of the calendar, "yyyy-MM-dd": "2024-02-31" has the right shape but would be stored as
// a day no clock ever reaches, and it sorts among real days.
bool estJour(const std::string& cle);

} // namespace tavi::famille
