#include "observation/navigateurs.h"

namespace tavi::Navigateurs {

// On macOS the reader runs a script that names the tab by its keyword.
const std::map<std::string, std::string>& lisibles() {
    return ongletsMac();
}

} // namespace tavi::Navigateurs
