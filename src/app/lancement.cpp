#include "app/lancement.h"

namespace tavi {

Lancement lireLancement(const std::vector<std::string>& arguments) {
    Lancement lancement;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!lancement.essaiApi && arguments[i] == "--essai-api" && i + 2 < arguments.size())
            lancement.essaiApi = {arguments[i + 1], arguments[i + 2]};
        if (!lancement.capture && arguments[i] == "--capture" && i + 1 < arguments.size())
            lancement.capture = arguments[i + 1];
        if (arguments[i] == "--sans-interface") lancement.sansInterface = true;
    }
    return lancement;
}

} // namespace tavi
