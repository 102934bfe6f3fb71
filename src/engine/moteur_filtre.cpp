#include "engine/moteur.h"
#include "observation/navigateurs.h"
#include "rules/horloge.h"

#include <algorithm>

namespace tavi {

namespace {

constexpr std::int64_t espacementFondMs = 10'000;
constexpr std::int64_t espacementSignalMs = 600'000;
// Distinct blocked domains remembered at once; a page that invents domains cannot grow it
// without end.
constexpr std::size_t signalesMax = 1'000;

std::string nomOuIdentifiant(const Application& application, const std::string& id) {
    return application.nom.empty() ? id : application.nom;
}

} // namespace

bool Moteur::estLisible(const std::string& identifiant) const {
    return Navigateurs::lisibles().contains(identifiant) && p.navigation.sait(identifiant);
}

void Moteur::verifierNavigateurs(double dt) {
    if (!relie_ || (regle_ && regle_->bloquerTout) || lectureEnCours_ || !consigne_) return;
    const bool filtre = Navigateurs::filtreUtile(consigne_);
    const bool histo = consigne_->historiqueSites && consigne_->historiqueSites->actif.value_or(false);
    if (!histo && !(filtre && consigne_->filtreWeb)) return;
    const FiltreJSON reglages = consigne_->filtreWeb.value_or(FiltreJSON{});

    std::vector<std::string> ids;
    std::vector<bool> devant;
    auto face = p.bureau.applicationAuPremierPlan();
    if (face && estNotreAppli(*face)) face.reset();
    if (face && face->identifiant && navigateursInstalles_.installes().contains(*face->identifiant)) {
        const std::string& id = *face->identifiant;
        if (estLisible(id)) {
            ids.push_back(id);
            devant.push_back(true);
        } else if (filtre) {
            // A browser the agent cannot watch is not allowed while the filter is on.
            mettreEnSieste(*face, "navigateur", nomOuIdentifiant(*face, id));
        }
    }

    if (filtre && p.horloges.monotoniqueMs() >= prochaineLectureFond_) {
        prochaineLectureFond_ = p.horloges.monotoniqueMs() + espacementFondMs;
        for (const Application& app : p.bureau.applicationsOuvertes()) {
            if (!app.identifiant || (face && app.pid == face->pid) || !estLisible(*app.identifiant))
                continue;
            if (std::find(ids.begin(), ids.end(), *app.identifiant) != ids.end()) continue;
            ids.push_back(*app.identifiant);
            devant.push_back(false);
        }
    }
    if (ids.empty()) return;

    lectureEnCours_ = true;
    const bool lance = fileNavigateurs_.lire(
        ids, [this, devant, filtre, histo, reglages, dt](FileNavigateurs::Resultats resultats) {
            std::vector<LectureNavigateur> lectures;
            for (std::size_t i = 0; i < resultats.size() && i < devant.size(); ++i)
                lectures.push_back({std::move(resultats[i].first), devant[i],
                                    std::move(resultats[i].second)});
            appliquerLectures(lectures, filtre, histo, reglages, dt);
        });
    // A worker still held by a browser that does not answer takes no new reading.
    if (!lance) lectureEnCours_ = false;
}

void Moteur::appliquerLectures(const std::vector<LectureNavigateur>& lectures, bool filtre,
                               bool histo, const FiltreJSON& f, double dt) {
    lectureEnCours_ = false;
    const double ecoule = std::max(dt, 1.0);
    const auto ouvertes = p.bureau.applicationsOuvertes();
    for (const LectureNavigateur& l : lectures) {
        auto it = std::find_if(ouvertes.begin(), ouvertes.end(), [&](const Application& a) {
            return a.identifiant == l.identifiant;
        });
        const Application* app = it == ouvertes.end() ? nullptr : &*it;
        switch (l.lecture.cas) {
        case Lecture::Cas::aucune:
        case Lecture::Cas::illisible:
            refusAutomatisation_.erase(l.identifiant);
            break;
        case Lecture::Cas::refusee:
            refusAutomatisation_.insert(l.identifiant);
            if (filtre && l.devant && app)
                mettreEnSieste(*app, "automatisation", nomOuIdentifiant(*app, l.identifiant));
            break;
        case Lecture::Cas::url: {
            refusAutomatisation_.erase(l.identifiant);
            const auto domaine = Navigateurs::domaine(l.lecture.adresse);
            if (!domaine) break;
            if (filtre && Navigateurs::estBloque(*domaine, f)) {
                // Blanked whether or not the browser is in front; only the front one naps.
                fileNavigateurs_.vider(l.identifiant);
                signalerSite(*domaine);
                if (l.devant && app) mettreEnSieste(*app, "site", *domaine);
            } else if (histo && l.devant) {
                historique_.noter(*domaine, ecoule, maintenantServeur());
            }
            break;
        }
        }
    }
}

void Moteur::signalerSite(const std::string& domaine) {
    const std::int64_t maintenant = p.horloges.monotoniqueMs();
    if (auto it = sitesSignales_.find(domaine);
        it != sitesSignales_.end() && maintenant - it->second < espacementSignalMs)
        return;
    if (sitesSignales_.size() >= signalesMax)
        std::erase_if(sitesSignales_, [&](const auto& entree) {
            return maintenant - entree.second >= espacementSignalMs;
        });
    sitesSignales_[domaine] = maintenant;
    // No retry: the next report of this domain is possible 10 minutes later.
    api_.signalerSite(domaine);
}

} // namespace tavi
