#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavi {

// What the agent reads of a desktop entry's [Desktop Entry] group. Texts are unescaped; lists
// keep their items in the file's order.
struct EntreeBureau {
    std::string type;
    // Name in the best variant of the locale that the entry offers; empty when it has none.
    std::string nom;
    std::string exec;
    std::optional<std::string> tryExec;
    bool noDisplay = false;
    bool hidden = false;
    std::vector<std::string> onlyShowIn;
    std::vector<std::string> notShowIn;
    std::vector<std::string> categories;
    std::vector<std::string> typesMime;
    std::string startupWmClass;
    std::string flatpak; // X-Flatpak: the Flatpak application the entry starts
    std::string snap;    // X-SnapInstanceName
    friend bool operator==(const EntreeBureau&, const EntreeBureau&) = default;
};

// The largest entry read: real ones hold a few kilobytes, mostly translations.
inline constexpr std::size_t tailleMaxEntree = 64 * 1024;

// The locale's variants to look a localised key up by, best first: for "sr_RS.UTF-8@latin",
// "sr_RS@latin", "sr_RS", "sr@latin", "sr". None for "C", "POSIX" or an empty locale.
std::vector<std::string> variantesLocale(std::string_view locale);

// The keys of the first group named `groupe` in an ini-like text (a desktop entry, a
// .flatpak-info), with their raw values. A key keeps its [locale] suffix; when a key comes
// twice, the first one counts.
std::map<std::string, std::string, std::less<>> lireGroupe(std::string_view texte,
                                                           std::string_view groupe);

// The [Desktop Entry] group of a desktop entry's text, names localised by `variantes` (from
// `variantesLocale`). Absent when the text is longer than `tailleMaxEntree` or has no such group.
std::optional<EntreeBureau> lireEntreeBureau(std::string_view texte,
                                             const std::vector<std::string>& variantes);

// An Exec value's arguments, split by its quoting rules: inside double quotes a backslash
// keeps the quote, backquote, dollar or backslash after it. Field codes such as %U stay.
std::vector<std::string> argumentsExec(std::string_view exec);

} // namespace tavi
