#pragma once

#include <string>

namespace tavi {

struct OptionsGardien {
    std::string conf = "/etc/tavi-home/tavi-home.conf";
    std::string etat = "/var/lib/tavi-home";
    std::string relais = "/run/tavi-home/relais";
    std::string agent = "/usr/bin/tavi-home";
};

// The parents' commands. Each prints JSON lines on stdout, a message on stderr when it fails,
// and gives the exit status.
int commandeEtat(const OptionsGardien& options);
int commandeServeur(const OptionsGardien& options, const std::string& adresse);
int commandeOublier(const OptionsGardien& options, const std::string& compte);

} // namespace tavi
