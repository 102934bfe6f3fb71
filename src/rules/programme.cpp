#include "rules/programme.h"

#include "commun/jour.h"

#include <algorithm>
#include <cctype>

namespace tavi::Programme {

const std::map<std::string, std::vector<std::string>>& categories() {
    // The Linux backend writes desktop-entry categories in this same form, so one table serves.
    static const std::map<std::string, std::vector<std::string>> table = {
        {"jeux", {"games"}},
        {"reseaux", {"social-networking"}},
        {"videos", {"entertainment"}},
        {"musique", {"public.app-category.music"}},
    };
    return table;
}

namespace {

std::set<std::string> enEnsemble(const std::optional<std::vector<std::string>>& liste) {
    if (!liste) return {};
    return {liste->begin(), liste->end()};
}

// The end of the local day of `maintenant`: its start plus a fixed 86,400 s. On a day with a
// daylight-saving change this is an hour off the next midnight, and that is intended. The day
// of any instant is bounded (years 1 to 9999), so the sum cannot overflow.
std::int64_t finJour(std::int64_t maintenant) {
    return debutJourLocalMs(maintenant) + 86'400'000;
}

bool estActive(const Plage& plage, std::int64_t maintenant) {
    return plage.debutMs <= maintenant && maintenant < plage.finMs;
}

} // namespace

RegleMac regleDePlage(const Plage& plage) {
    std::string_view mode = "tout";
    if (plage.regle && plage.regle->mode) mode = *plage.regle->mode;

    RegleMac regle;
    if (mode == "familles") {
        regle.familles = enEnsemble(plage.regle->familles);
        const auto& table = famillesMac();
        for (const auto& famille : regle.familles)
            if (auto it = table.find(famille); it != table.end())
                regle.bloquees.insert(it->second.begin(), it->second.end());
    } else if (mode == "tout") {
        regle.bloquerTout = true;
    }
    regle.cause = plage.cause.value_or("moment");
    regle.titre = plage.titre.value_or("");
    regle.fin = plage.finMs;
    return regle;
}

RegleMac instantane(const Consigne& consigne) {
    std::string_view mode = "tout";
    if (consigne.regle && consigne.regle->mode) mode = *consigne.regle->mode;

    RegleMac regle;
    const MacJSON* mac = consigne.mac ? &*consigne.mac : nullptr;
    regle.bloquerTout = mac && mac->bloquerTout ? *mac->bloquerTout : mode == "tout";
    // Families are deliberately not expanded into identifiers here: in the immediate rule a
    // family blocks only through the application's category.
    if (mac) regle.bloquees = enEnsemble(mac->bloquees);
    if (mac && mac->familles)
        regle.familles = enEnsemble(mac->familles);
    else if (mode == "familles")
        regle.familles = enEnsemble(consigne.regle->familles);
    regle.cause = consigne.cause.value_or("");
    regle.titre = consigne.titre.value_or("");
    regle.fin = consigne.finMs.value_or(0);
    return regle;
}

std::optional<RegleMac> regleCourante(const std::optional<Consigne>& consigne,
                                      std::int64_t maintenant,
                                      std::optional<double> utiliseDepuisConsigne,
                                      double utiliseDuJour) {
    if (!consigne) return std::nullopt;
    const Consigne& c = *consigne;
    const std::int64_t ouvert = c.ouvertJusquMs.value_or(0);
    const bool periodeOuverte = maintenant < ouvert;

    std::optional<RegleMac> regle;
    if (c.programme) {
        for (const Plage& plage : *c.programme) {
            if (!estActive(plage, maintenant)) continue;
            // During an open period only a family pause still holds.
            if (periodeOuverte && plage.cause != "pause_famille") continue;
            if (!regle)
                regle = regleDePlage(plage);
            else
                regle->fusionner(regleDePlage(plage));
        }
    }

    if (c.protegeMaintenant == true) {
        RegleMac inst = instantane(c);
        const bool expiree = inst.fin != 0 && inst.fin <= maintenant;
        if (!expiree) {
            if (!periodeOuverte || inst.cause == "pause_famille") {
                // The schedule's rule is the receiver: its message wins unless the immediate
                // rule is what makes the block total.
                if (!regle)
                    regle = std::move(inst);
                else
                    regle->fusionner(inst);
            } else {
                return regle;
            }
        }
    }

    if (!periodeOuverte && c.limiteJourMin && *c.limiteJourMin > 0) {
        // The server's remainder, when it sent one, wins over the local day total: it already
        // counts the family's other devices.
        const bool epuise = c.resteJourMin && utiliseDepuisConsigne
                                ? *c.resteJourMin * 60 <= *utiliseDepuisConsigne
                                : *c.limiteJourMin * 60 <= utiliseDuJour;
        if (epuise) {
            const std::int64_t fin = finJour(maintenant);
            if (!regle) {
                regle = RegleMac{true, {}, {}, "limite", "Limite du jour", fin};
            } else {
                if (!regle->bloquerTout) {
                    regle->cause = "limite";
                    regle->titre = "Limite du jour";
                }
                regle->bloquerTout = true;
                regle->fin = std::max(regle->fin, fin);
            }
        }
    }
    return regle;
}

bool estCoupee(const Application& application, const RegleMac& regle,
               const CategoriesApplis& categoriesApplis) {
    if (!application.identifiant) return false;
    const std::string& id = *application.identifiant;
    if (jamais().contains(id)) return false;
    if (regle.bloquerTout) return true;
    if (regle.bloquees.contains(id)) return true;
    if (regle.familles.empty()) return false;

    std::optional<std::string> categorie = categoriesApplis.categorie(application);
    if (!categorie) return false;
    std::transform(categorie->begin(), categorie->end(), categorie->begin(),
                   [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
    const auto& table = categories();
    for (const auto& famille : regle.familles) {
        auto it = table.find(famille);
        if (it == table.end()) continue;
        for (const auto& fragment : it->second)
            if (categorie->find(fragment) != std::string::npos) return true;
    }
    return false;
}

std::optional<RegleMac> siesteAppli(const std::string& identifiant,
                                    const std::optional<Consigne>& consigne,
                                    const std::function<double(const std::string&)>& secondesAppli,
                                    std::int64_t maintenant) {
    if (!consigne || !consigne->mac) return std::nullopt;
    if (jamais().contains(identifiant)) return std::nullopt;
    const MacJSON& mac = *consigne->mac;

    if (mac.coupees && std::ranges::find(*mac.coupees, identifiant) != mac.coupees->end())
        return RegleMac{false, {identifiant}, {}, "coupee", "", 0};

    if (!mac.limites) return std::nullopt;
    for (const LimiteMac& limite : *mac.limites) {
        if (std::ranges::find(limite.applis, identifiant) == limite.applis.end()) continue;
        if (limite.minutes <= 0) continue;
        // The allowance belongs to the whole group, and to the family's other devices too.
        double utilise = 0;
        for (const auto& appli : limite.applis)
            utilise += secondesAppli(appli);
        double ailleurs = 0;
        if (consigne->limitesAutres)
            if (auto it = consigne->limitesAutres->find(limite.id);
                it != consigne->limitesAutres->end())
                ailleurs = it->second * 60;
        if (limite.minutes * 60 <= utilise + ailleurs)
            return RegleMac{false,      {limite.applis.begin(), limite.applis.end()},
                            {},         "limite_appli",
                            limite.nom, finJour(maintenant)};
    }
    return std::nullopt;
}

} // namespace tavi::Programme
