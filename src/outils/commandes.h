#pragma once

#include "rules/consigne.h"

#include <string>
#include <vector>

namespace tavi::outils {

// The subcommands of `tavi`. Each returns the exit status; output is JSON, one line per
// object; an error is one line on standard error starting with "tavi: " and status 2.
int commandeConsigne(const std::vector<std::string>& arguments);
int commandeRegle(const std::vector<std::string>& arguments);
int commandeSieste(const std::vector<std::string>& arguments);
int commandeReglage(const std::vector<std::string>& arguments);
int commandeSite(const std::vector<std::string>& arguments);
int commandeApplis(const std::vector<std::string>& arguments);
int commandeActivite(const std::vector<std::string>& arguments);
// Ends the process itself (never returns): see finirProcessus.
int commandeRejoindre(const std::vector<std::string>& arguments);

// Thrown by a command that cannot go on (unreadable input, undecodable rule set): its message
// is printed after "tavi: " and the command exits with status 2.
struct EchecCommande {
    std::string message;
};

// The whole text of standard input ("-" or no file) or of the one named file.
std::string lireEntree(const std::vector<std::string>& positionnels);
// The rule set in that text; EchecCommande when it does not decode.
Consigne lireConsigne(const std::vector<std::string>& positionnels);

} // namespace tavi::outils
