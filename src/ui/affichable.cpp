#include "ui/affichable.h"

#include "observation/texte_borne.h"

#include <algorithm>
#include <cmath>

namespace tavi {

std::string affichable(const std::string& texte, std::size_t maxOctets) {
    if (texte.size() <= maxOctets) return texte;
    return texteBorne(texte, maxOctets - 3) + "…";
}

std::optional<int> minutesTirelire(const std::optional<double>& tirelireMin) {
    constexpr double plafond = 100000;
    if (!tirelireMin || !std::isfinite(*tirelireMin) || *tirelireMin < 1) return std::nullopt;
    return static_cast<int>(std::min(*tirelireMin, plafond));
}

} // namespace tavi
