#include "rules/programme.h"

// On Linux an application is named by its desktop-entry id: the name of its .desktop file, as
// distributions and Flatpak install it.
namespace tavi::Programme {

const std::string& identifiantAgent() {
    static const std::string id = "com.tavi.home";
    return id;
}

const std::map<std::string, std::set<std::string>>& famillesMac() {
    static const std::map<std::string, std::set<std::string>> table = {
        {"jeux",
         {"steam", "com.valvesoftware.Steam", "net.lutris.Lutris", "com.heroicgameslauncher.hgl",
          "org.prismlauncher.PrismLauncher", "io.itch.itch", "minecraft-launcher"}},
        {"reseaux", {"discord", "com.discordapp.Discord"}},
        {"videos", {"vlc", "org.videolan.VLC", "org.gnome.Totem", "mpv", "io.mpv.Mpv"}},
        {"musique", {"spotify", "com.spotify.Client", "rhythmbox", "org.gnome.Rhythmbox3"}},
        {"ecole", {}},
        {"messages",
         {"org.telegram.desktop", "telegramdesktop", "signal-desktop", "org.signal.Signal",
          "io.github.mimbrero.WhatsAppDesktop", "com.rtosta.zapzap"}},
    };
    return table;
}

const std::set<std::string>& jamais() {
    // The agent, the file managers (some draw the desktop itself) and the settings panels.
    static const std::set<std::string> table = {
        identifiantAgent(),
        "org.gnome.Nautilus",
        "nautilus",
        "org.kde.dolphin",
        "thunar",
        "pcmanfm",
        "nemo",
        "caja",
        "org.gnome.Settings",
        "gnome-control-center",
        "systemsettings",
        "xfce-settings-manager",
    };
    return table;
}

} // namespace tavi::Programme
