#pragma once

#include "rules/consigne.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tavi {

// What the guardian keeps of one paired account across its own restarts and the computer's:
// its count of the day's use and the last rule set it relayed. Root's file (0600 in a 0700
// folder): the child can neither read nor lower it.
class EtatGarde {
public:
    // Reads `chemin`; a file that is missing, not root's or that does not decode is a fresh
    // start (the family server keeps the larger figure of the day anyway).
    explicit EtatGarde(std::string chemin);

    // `secondes` of use on the local day `jour`; a new day starts from 0.
    void compter(const std::string& jour, double secondes);
    // The count of `jour`: 0 on any other day than the one counted last.
    double secondesDuJour(const std::string& jour) const;
    const std::string& jour() const { return jour_; }
    // Use counted since the last rule set came, which its remainder already took into account.
    std::optional<double> depuisConsigne() const { return depuisConsigne_; }

    // A rule set the family server sent for this account (decoded), with its own text.
    void consigneRecue(Consigne consigne, const std::string& texte);
    const std::optional<Consigne>& consigne() const { return consigne_; }
    // What the family chose for a missing veil: "signaler", "verrouiller" or "fermer_session".
    const std::string& reaction() const { return reaction_; }

    // Writes the file when something changed and `maintenantMs` (awake clock) is 30 s past
    // the last write, or at once with `force`.
    void enregistrer(std::int64_t maintenantMs, bool force = false);

private:
    std::string chemin_;
    std::string jour_;
    double secondes_ = 0;
    std::optional<double> depuisConsigne_;
    std::optional<Consigne> consigne_;
    std::string texteConsigne_;
    std::string reaction_ = "verrouiller";
    bool change_ = false;
    std::int64_t enregistreMs_ = -1;
};

// The reaction the rule set `corps` names, "verrouiller" when none or an unknown one.
std::string reactionDe(const std::string& corps);

} // namespace tavi
