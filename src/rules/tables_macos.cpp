#include "rules/programme.h"

// On macOS an application is named by its bundle identifier.
namespace tavi::Programme {

const std::string& identifiantAgent() {
    static const std::string id = "com.tavi.home.mac";
    return id;
}

const std::map<std::string, std::set<std::string>>& famillesMac() {
    static const std::map<std::string, std::set<std::string>> table = {
        {"jeux",
         {"com.valvesoftware.steam", "com.roblox.RobloxPlayer", "com.mojang.minecraftlauncher",
          "com.epicgames.EpicGamesLauncher", "com.gog.galaxy", "net.battle.app"}},
        {"reseaux", {"com.hnc.Discord"}},
        {"videos", {"com.apple.TV"}},
        {"musique", {"com.spotify.client", "com.apple.Music", "com.deezer.deezer-desktop"}},
        {"ecole", {}},
        {"messages",
         {"com.apple.MobileSMS", "net.whatsapp.WhatsApp", "desktop.WhatsApp",
          "ru.keepcoder.Telegram", "org.telegram.desktop", "com.facebook.archon"}},
    };
    return table;
}

const std::set<std::string>& jamais() {
    static const std::set<std::string> table = {identifiantAgent(), "com.apple.finder",
                                                "com.apple.systempreferences", "com.apple.Settings",
                                                "com.apple.loginwindow"};
    return table;
}

} // namespace tavi::Programme
