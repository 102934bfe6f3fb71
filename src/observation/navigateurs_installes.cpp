#include "observation/navigateurs_installes.h"

#include "observation/navigateurs.h"
#include "rules/programme.h"

#include <optional>

namespace tavi {

namespace {

constexpr std::int64_t ageMaxMs = 600'000;

std::set<std::string> completer(std::set<std::string> ensemble) {
    for (const auto& [id, moteur] : Navigateurs::lisibles())
        ensemble.insert(id);
    ensemble.erase(Programme::identifiantAgent());
    return ensemble;
}

} // namespace

NavigateursInstalles::NavigateursInstalles(Boucle& laBoucle, const Applications& lesApplications,
                                           std::function<std::int64_t()> horlogeMurale)
    : boucle(laBoucle), applications(lesApplications), muraleMs(std::move(horlogeMurale)),
      ensemble(completer({})) {}

const std::set<std::string>& NavigateursInstalles::installes() {
    const std::int64_t maintenant = muraleMs();
    if (!enCours && (!calculeMs || maintenant - *calculeMs >= ageMaxMs || maintenant < *calculeMs))
        rafraichir();
    return ensemble;
}

void NavigateursInstalles::rafraichir() {
    enCours = true;
    const Applications& source = applications;
    std::weak_ptr<int> jeton = vivant;
    boucle.executer<std::optional<std::set<std::string>>>(
        [&source]() -> std::optional<std::set<std::string>> {
            try {
                return source.navigateurs();
            } catch (...) {
                return std::nullopt;
            }
        },
        [this, jeton](std::optional<std::set<std::string>> trouves) {
            if (jeton.expired()) return;
            enCours = false;
            // A failed scan keeps the last set and is tried again in 10 minutes.
            if (trouves) ensemble = completer(std::move(*trouves));
            calculeMs = muraleMs();
        },
        [this, jeton](const std::string&) {
            if (jeton.expired()) return;
            enCours = false;
            calculeMs = muraleMs();
        });
}

} // namespace tavi
