#pragma once

#include "platform/reglages.h"

#include <nlohmann/json.hpp>
#include <string>

namespace tavi {

// A few values of the guardian's kept in one root file (0600): numbers and texts only. Each
// change replaces the file in one step (a group of changes once, at its end). A file that is
// not root's or does not decode reads as empty: the guardian starts again from nothing rather
// than from what someone else wrote.
class ReglagesFichier : public Reglages {
public:
    explicit ReglagesFichier(std::string chemin);

    std::optional<Valeur> lire(const std::string& cle) const override;
    void ecrire(const std::string& cle, const Valeur& valeur) override;
    void supprimer(const std::string& cle) override;
    void grouper(const std::function<void()>& ecritures) override;

private:
    void enregistrer();

    std::string chemin_;
    nlohmann::json valeurs_ = nlohmann::json::object();
    int groupes_ = 0;
    bool change_ = false;
};

} // namespace tavi
