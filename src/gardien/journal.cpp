#include "gardien/journal.h"

#include <unistd.h>

namespace tavi {

void journal(const std::string& ligne) {
    std::string texte;
    texte.reserve(ligne.size() + 1);
    // One line per event, whatever the server or a peer put in it.
    for (char c : ligne)
        texte += (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) ? '?' : c;
    texte += '\n';
    // One write: lines of the workers and of the main thread do not mix.
    [[maybe_unused]] auto ecrit = write(STDERR_FILENO, texte.data(), texte.size());
}

} // namespace tavi
