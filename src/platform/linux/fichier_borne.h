#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

// The text of a regular file, absent when it cannot be opened, is not a regular file (a FIFO
// planted where a file is expected would block the reader forever) or holds more than
// `limite` bytes. Files under /proc report a size of 0 and are read to their end all the same.
std::optional<std::string> lireFichierBorne(const std::filesystem::path& chemin,
                                            std::size_t limite);

// The first `limite` bytes at most of a regular file: for /proc files of which only the
// beginning matters, such as a command line.
std::optional<std::string> lireDebutFichier(const std::filesystem::path& chemin,
                                            std::size_t limite);

} // namespace tavi
