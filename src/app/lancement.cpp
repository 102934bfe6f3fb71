#include "app/lancement.h"

namespace tavi {

const char* const texteAide =
    "Utilisation : tavi-home [OPTION]\n"
    "L'agent Tavi Home de l'ordinateur de l'enfant : il vit dans la zone de notification,\n"
    "relie l'ordinateur à la famille et applique ses règles.\n"
    "\n"
    "  --sans-interface           sans fenêtre : une ligne d'état par changement\n"
    "  --essai-api SERVEUR CODE   essaie le lien avec un serveur et un code, puis s'arrête\n"
    "  --capture DOSSIER          dessine les fenêtres et les icônes dans DOSSIER\n"
    "  -h, --help                 affiche cette aide\n"
    "      --version              affiche la version\n"
    "\n"
    "Voir aussi : tavi(1), tavi-famille(1).\n";

Lancement lireLancement(const std::vector<std::string>& arguments) {
    Lancement lancement;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!lancement.essaiApi && arguments[i] == "--essai-api" && i + 2 < arguments.size())
            lancement.essaiApi = {arguments[i + 1], arguments[i + 2]};
        if (!lancement.capture && arguments[i] == "--capture" && i + 1 < arguments.size())
            lancement.capture = arguments[i + 1];
        if (arguments[i] == "--sans-interface") lancement.sansInterface = true;
        // The program's own path is argument 0: a copy installed as "--help" must still start.
        if (i > 0 && (arguments[i] == "--help" || arguments[i] == "-h")) lancement.aide = true;
        if (i > 0 && arguments[i] == "--version") lancement.version = true;
    }
    return lancement;
}

} // namespace tavi
