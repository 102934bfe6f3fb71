#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace tavi {

// A document refused while reading; its message says why, in French.
class DocumentInvalide : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses a document received from elsewhere, refusing before any allocation one that is larger
// than `tailleMax` bytes or nested deeper than `profondeurMax`: a 2 MB deep array costs 80 MB
// once parsed. Every error of the JSON library (a number too large for a double is one too)
// becomes DocumentInvalide.
nlohmann::json analyserDocument(std::string_view texte, std::size_t tailleMax,
                                int profondeurMax = 64);

} // namespace tavi
