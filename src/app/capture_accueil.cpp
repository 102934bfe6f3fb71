#include "app/capture_accueil.h"

#include "app/capture_image.h"
#include "server/erreur_api.h"
#include "ui/accueil_vue.h"

#include <QLineEdit>
#include <string>
#include <vector>

namespace tavi {

namespace {

// A fixed state of the welcome window. A pairing request is refused with `refus`, or never
// ends: the capture then shows it under way.
class AccueilFige : public ActionsAccueil {
public:
    bool relie_ = false;
    std::optional<Consigne> consigne_;
    bool accord_ = false;
    bool agent_ = false;
    std::optional<std::string> refus_;
    bool zone_ = true;

    bool relie() const override { return relie_; }
    std::optional<Consigne> consigne() const override { return consigne_; }
    std::string prenom() const override { return "Léa"; }
    bool accordDonne() const override { return accord_; }
    void consentir() override {}
    bool agentActif() const override { return agent_; }
    void lireEtatAgent(std::function<void()>) override {}
    void autoriser() override {}
    void rejoindre(const std::string&,
                   std::function<void(std::optional<std::string>)> fini) override {
        if (refus_)
            fini(refus_);
        else
            enAttente_ = std::move(fini);
    }
    bool installe() const override { return false; }
    bool zoneNotification() const override { return zone_; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override { return nullptr; }

private:
    std::function<void(std::optional<std::string>)> enAttente_;
};

Consigne interrupteurs(bool rapport, bool historique, bool filtre) {
    Consigne c;
    c.rapportApplis = Interrupteur{rapport};
    c.historiqueSites = Interrupteur{historique};
    if (filtre) c.filtreWeb = FiltreJSON{true, {}, {}};
    return c;
}

struct Variante {
    std::string nom;
    AccueilFige etat;
    bool seul = false;
    std::string code; // typed into the field, then sent
    bool doubleDensite = false;
};

std::vector<Variante> variantes() {
    AccueilFige neuf;
    AccueilFige refuse = neuf;
    refuse.refus_ = messagePourEnfant(ErreurApi{400, "Code inconnu ou expiré."});
    AccueilFige relie = neuf;
    relie.relie_ = true;
    relie.consigne_ = interrupteurs(true, true, true);
    AccueilFige vu = relie;
    vu.accord_ = true;
    AccueilFige pret = vu;
    pret.agent_ = true;
    AccueilFige sansZone = pret;
    sansZone.zone_ = false;

    std::vector<Variante> v{
        {"rejoindre", neuf, false, {}, true},
        {"rejoindre-envoi", neuf, false, "abcd-2345", false},
        {"rejoindre-refus", refuse, false, "abcd-2345", false},
        {"accord", relie, false, {}, false},
        {"demarrage", vu, false, {}, true},
        {"fini", pret, false, {}, true},
        {"fini-sans-zone", sansZone, false, {}, false},
    };
    const std::pair<const char*, std::optional<Consigne>> panneaux[] = {
        {"sans-consigne", std::nullopt},
        {"rapport-historique", interrupteurs(true, true, false)},
        {"rapport", interrupteurs(true, false, false)},
        {"historique", interrupteurs(false, true, false)},
        {"rien", interrupteurs(false, false, false)},
        {"filtre", interrupteurs(false, false, true)},
    };
    for (const auto& [nom, consigne] : panneaux) {
        AccueilFige e = pret;
        e.consigne_ = consigne;
        v.push_back({std::string("ce-que-voient-") + nom, e, true, {}, false});
    }
    return v;
}

} // namespace

bool capturerAccueil(const std::filesystem::path& dossier) {
    bool tout = true;
    for (Variante& variante : variantes()) {
        for (const qreal densite : {1.0, 2.0}) {
            if (densite > 1 && !variante.doubleDensite) continue;
            AccueilFige etat = variante.etat;
            AccueilVue vue(etat, variante.seul);
            if (!variante.code.empty()) {
                vue.champCode()->setText(QString::fromStdString(variante.code));
                vue.envoyer();
            }
            const std::string suffixe = densite > 1 ? "@2x" : "";
            tout &= enregistrerImage(vue, vue.size() * densite, densite,
                                     dossier / ("accueil-" + variante.nom + suffixe + ".png"));
        }
    }
    return tout;
}

} // namespace tavi
