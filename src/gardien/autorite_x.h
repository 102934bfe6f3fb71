#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tavi {

// One X authority entry the guardian can hand to the X server: its protocol name and data.
struct AutoriteX {
    std::string nom;
    std::string donnees;
    bool operator==(const AutoriteX&) const = default;
};

// Where the guardian finds what lets it into a session's X server. Every file named here may be
// the child's: none is given to a library that would open it, none is followed through a link.
namespace AutoritesX {

// The MIT-MAGIC-COOKIE-1 of display `numero` in the bytes of an Xauthority file (local or wild
// family); without a number, the first cookie of any display (an X server takes every entry of
// its own file). Absent when there is none or the bytes are not that format.
std::optional<AutoriteX> cookie(std::string_view octets, std::optional<int> numero);

// The content of `chemin` when it is a regular file owned by `proprietaire`, reached without
// following a final link, of at most 64 KiB; never opens a FIFO or a device for reading.
std::optional<std::string> lireFichierDe(const std::string& chemin, uid_t proprietaire);

// The display manager's authority: the file after `-auth` on the command line of the X server
// at the other end of `socketX`, when that server runs as root and the file is root's.
std::optional<AutoriteX> duServeur(int socketX);

} // namespace AutoritesX
} // namespace tavi
