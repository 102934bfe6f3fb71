#include "semaine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <date/tz.h>

namespace tavi::famille {

namespace {

const std::array<const char*, 7> nomsJours = {"lu", "ma", "me", "je", "ve", "sa", "di"};

std::optional<int> jourNomme(const std::string& nom) {
    for (int i = 0; i < 7; ++i)
        if (nom == nomsJours[static_cast<std::size_t>(i)]) return i;
    return std::nullopt;
}

} // namespace

std::optional<std::set<int>> lireJours(const std::string& texte) {
    if (texte == "tous") return std::set<int>{0, 1, 2, 3, 4, 5, 6};
    std::set<int> jours;
    std::size_t debut = 0;
    while (debut <= texte.size()) {
        std::size_t virgule = texte.find(',', debut);
        std::string morceau = texte.substr(debut, virgule - debut);
        std::size_t tiret = morceau.find('-');
        if (tiret == std::string::npos) {
            auto jour = jourNomme(morceau);
            if (!jour) return std::nullopt;
            jours.insert(*jour);
        } else {
            auto premier = jourNomme(morceau.substr(0, tiret));
            auto dernier = jourNomme(morceau.substr(tiret + 1));
            // "ve-lu" would read as a wrap through the weekend or as a typo: refuse it.
            if (!premier || !dernier || *dernier < *premier) return std::nullopt;
            for (int j = *premier; j <= *dernier; ++j)
                jours.insert(j);
        }
        if (virgule == std::string::npos) break;
        debut = virgule + 1;
    }
    if (jours.empty()) return std::nullopt;
    return jours;
}

std::string ecrireJours(const std::set<int>& jours) {
    if (jours.size() == 7) return "tous";
    std::string texte;
    for (int j : jours) {
        if (!texte.empty()) texte += ',';
        texte += nomsJours[static_cast<std::size_t>(j)];
    }
    return texte;
}

std::optional<int> lireHeure(const std::string& texte, bool fin) {
    if (texte.size() != 5 || texte[2] != ':') return std::nullopt;
    for (std::size_t i : {0u, 1u, 3u, 4u})
        if (texte[i] < '0' || texte[i] > '9') return std::nullopt;
    int heures = (texte[0] - '0') * 10 + (texte[1] - '0');
    int minutes = (texte[3] - '0') * 10 + (texte[4] - '0');
    if (minutes > 59) return std::nullopt;
    if (heures == 24 && minutes == 0 && fin) return 1440;
    if (heures > 23) return std::nullopt;
    return heures * 60 + minutes;
}

std::string ecrireHeure(int minutes) {
    char texte[16];
    std::snprintf(texte, sizeof texte, "%02d:%02d", minutes / 60, minutes % 60);
    return texte;
}

std::vector<PlageConcrete> plagesConcretes(const std::vector<PlageHebdo>& plages,
                                           std::int64_t depuisMs, std::int64_t jusquaMs,
                                           const date::time_zone& zone) {
    using namespace std::chrono;
    using Ms = sys_time<milliseconds>;
    auto jourLocal = [&](std::int64_t ms) {
        return date::floor<date::days>(zone.to_local(Ms(milliseconds(ms))));
    };
    auto instantMs = [&](date::local_days jour, int minutesLocales) {
        auto local = date::local_time<minutes>(jour.time_since_epoch()) + minutes(minutesLocales);
        return duration_cast<milliseconds>(
                   zone.to_sys(local, date::choose::earliest).time_since_epoch())
            .count();
    };
    std::vector<PlageConcrete> resultat;
    // A range lasts less than a day, so one starting the day before can still be running.
    for (auto jour = jourLocal(depuisMs) - date::days(1); jour <= jourLocal(jusquaMs);
         jour += date::days(1)) {
        int indice = static_cast<int>(date::weekday(jour).iso_encoding()) - 1;
        for (const auto& plage : plages) {
            if (!plage.jours.contains(indice)) continue;
            auto debutMs = instantMs(jour, plage.debutMin);
            // An end at or before the start is on the next day.
            auto finMs =
                instantMs(jour, plage.finMin + (plage.finMin <= plage.debutMin ? 1440 : 0));
            if (finMs <= debutMs || finMs <= depuisMs || debutMs >= jusquaMs) continue;
            resultat.push_back({debutMs, finMs, &plage});
        }
    }
    std::stable_sort(resultat.begin(), resultat.end(), [](const auto& a, const auto& b) {
        return a.debutMs != b.debutMs ? a.debutMs < b.debutMs : a.finMs < b.finMs;
    });
    return resultat;
}

} // namespace tavi::famille
