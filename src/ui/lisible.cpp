#include "ui/lisible.h"

#include "commun/texte.h"

#include <QDateTime>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tavi {

namespace {

// The localised `modele` with its "%d" and then its "%02d" given.
std::string avecHeures(const char* modele, long long heures, long long minutes) {
    std::string resultat = texte(modele);
    if (auto pos = resultat.find("%d"); pos != std::string::npos)
        resultat.replace(pos, 2, std::to_string(heures));
    char deuxChiffres[4];
    std::snprintf(deuxChiffres, sizeof deuxChiffres, "%02lld", minutes);
    if (auto pos = resultat.find("%02d"); pos != std::string::npos)
        resultat.replace(pos, 4, deuxChiffres);
    return resultat;
}

constexpr std::string_view insecable = "\u00a0";

} // namespace

std::string dureeLisible(double secondes) {
    // The count comes from the server and from arithmetic on it: it is bounded here rather
    // than trusted. A hundred thousand hours is more than any count this program shows.
    constexpr double plafond = 3.6e8;
    long long s = 0;
    if (std::isfinite(secondes) && secondes > 0)
        s = static_cast<long long>(std::min(secondes, plafond));
    if (s < 60) return texteAvec("%d s", std::to_string(s));
    const long long m = s + 59;
    if (m < 3600) return texteAvec("%d min", std::to_string(m / 60));
    const long long heures = m / 3600;
    const long long minutes = (m / 60) % 60;
    if (minutes != 0) return avecHeures("%d h %02d", heures, minutes);
    return texteAvec("%d h", std::to_string(heures));
}

std::string heureLisible(std::int64_t ms, const QLocale& langue) {
    const QTime heure = QDateTime::fromMSecsSinceEpoch(ms).time();
    // The C locale's short form carries the seconds: an hour to wake at needs none.
    if (langue.language() == QLocale::C)
        return heure.toString(QStringLiteral("HH:mm")).toStdString();
    return langue.toString(heure, QLocale::ShortFormat).toStdString();
}

std::string sansCoupure(const std::string& texte) {
    std::string resultat;
    resultat.reserve(texte.size() + 8);
    for (std::size_t i = 0; i < texte.size(); ++i) {
        if (texte[i] != ' ') {
            resultat += texte[i];
            continue;
        }
        const std::string_view avant = std::string_view(texte).substr(0, i);
        const std::string_view apres = std::string_view(texte).substr(i + 1);
        const bool apresNombre =
            !avant.empty() && std::isdigit(static_cast<unsigned char>(avant.back()));
        const bool avantPonctuation =
            !apres.empty() && (std::string_view(":;?!").find(apres[0]) != std::string_view::npos ||
                               apres.starts_with("›") || apres.starts_with("»"));
        const bool apresGuillemet = avant.ends_with("«");
        const bool minutesDHeure = avant.ends_with(" h") && !apres.empty() &&
                                   std::isdigit(static_cast<unsigned char>(apres[0]));
        const bool lie = (apresNombre && !apres.empty() && apres[0] != ' ') || avantPonctuation ||
                         apresGuillemet || minutesDHeure;
        if (lie)
            resultat += insecable;
        else
            resultat += ' ';
    }
    return resultat;
}

} // namespace tavi
