#include "tete_requete.h"

#include <cctype>

namespace tavi::famille {

namespace {

bool commencePar(std::string_view texte, std::string_view prefixe) {
    if (texte.size() < prefixe.size()) return false;
    for (std::size_t i = 0; i < prefixe.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(texte[i])) != prefixe[i]) return false;
    return true;
}

} // namespace

std::optional<std::string> cheminDeCible(std::string_view cible) {
    if (commencePar(cible, "http://") || commencePar(cible, "https://")) {
        // The authority is ours to ignore: this server answers for one family whatever name
        // the client used to reach it.
        cible.remove_prefix(cible.find("//") + 2);
        auto fin = cible.find_first_of("/?");
        if (fin == 0) return std::nullopt;
        cible.remove_prefix(fin == std::string_view::npos ? cible.size() : fin);
        if (cible.empty() || cible.front() == '?') return "/";
    }
    if (cible.empty() || cible.front() != '/') return std::nullopt;
    return std::string(cible.substr(0, cible.find('?')));
}

bool enTeteReplie(std::string_view tete) {
    for (auto fin = tete.find('\n'); fin != std::string_view::npos; fin = tete.find('\n', fin + 1))
        if (fin + 1 < tete.size() && (tete[fin + 1] == ' ' || tete[fin + 1] == '\t')) return true;
    return false;
}

} // namespace tavi::famille
