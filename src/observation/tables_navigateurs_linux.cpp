#include "observation/navigateurs.h"

namespace tavi::Navigateurs {

// On Linux a browser is known by its desktop-entry id, as distributions and Flatpak install
// it; what the reader needs is the engine family, whose accessibility tree it walks.
const std::map<std::string, std::string>& lisibles() {
    static const std::map<std::string, std::string> table = {
        {"firefox", "gecko"},
        {"firefox-esr", "gecko"},
        {"org.mozilla.firefox", "gecko"},
        {"io.gitlab.librewolf-community", "gecko"},
        {"chromium", "chromium"},
        {"chromium-browser", "chromium"},
        {"org.chromium.Chromium", "chromium"},
        {"google-chrome", "chromium"},
        {"com.google.Chrome", "chromium"},
        {"brave-browser", "chromium"},
        {"com.brave.Browser", "chromium"},
        {"microsoft-edge", "chromium"},
        {"com.microsoft.Edge", "chromium"},
        {"vivaldi-stable", "chromium"},
        {"com.vivaldi.Vivaldi", "chromium"},
        {"opera", "chromium"},
        {"com.opera.Opera", "chromium"},
        {"org.gnome.Epiphany", "webkit"},
        {"epiphany", "webkit"},
    };
    return table;
}

} // namespace tavi::Navigateurs
