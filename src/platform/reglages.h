#pragma once

#include "platform/valeur.h"

#include <functional>
#include <optional>
#include <string>

namespace tavi {

// The defaults store: typed values by key. Every write is durable when the call returns;
// nothing here ever throws or stops the agent (a failed write is given up, a failed read
// reads as absent).
//
// Main thread only: the engine, the counter and the server link (which reads the installation
// identifier while it builds a request, before the exchange leaves for the background pool)
// all live there. A write costs tens of microseconds, cheap enough for every tick.
class Reglages {
public:
    virtual ~Reglages() = default;

    virtual std::optional<Valeur> lire(const std::string& cle) const = 0;
    virtual void ecrire(const std::string& cle, const Valeur& valeur) = 0;
    virtual void supprimer(const std::string& cle) = 0;

    // Runs `ecritures` so that every write it makes lands in one transaction: all of them or,
    // after a crash, none. Nested calls join the outer group.
    virtual void grouper(const std::function<void()>& ecritures) = 0;

    // Typed reads: a key that is missing or holds another type reads as absent.
    std::optional<double> nombre(const std::string& cle) const { return lireType<double>(cle); }
    std::optional<std::string> texte(const std::string& cle) const {
        return lireType<std::string>(cle);
    }
    std::optional<bool> booleen(const std::string& cle) const { return lireType<bool>(cle); }
    std::optional<std::vector<std::string>> textes(const std::string& cle) const {
        return lireType<std::vector<std::string>>(cle);
    }
    std::optional<nlohmann::json> dictionnaire(const std::string& cle) const {
        auto d = lireType<Dictionnaire>(cle);
        if (!d) return std::nullopt;
        return std::move(d->objet);
    }
    std::optional<std::string> donnees(const std::string& cle) const {
        auto d = lireType<Donnees>(cle);
        if (!d) return std::nullopt;
        return std::move(d->octets);
    }

private:
    template <class T>
    std::optional<T> lireType(const std::string& cle) const {
        auto v = lire(cle);
        if (!v) return std::nullopt;
        if (auto* t = std::get_if<T>(&*v)) return std::move(*t);
        return std::nullopt;
    }
};

} // namespace tavi
