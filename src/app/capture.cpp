#include "app/capture.h"

#include "app/capture_accueil.h"
#include "app/capture_barre.h"
#include "app/capture_image.h"

#include "ui/actions_figees.h"
#include "ui/autocollant.h"
#include "ui/bouton_pilule.h"
#include "ui/charte.h"
#include "ui/voile_vue.h"

#include <QApplication>
#include <QDateTime>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QVBoxLayout>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <vector>

namespace tavi {

namespace {

struct Ecran {
    const char* nom;
    QSize taille; // in pixels
    qreal densite;
};

struct Variante {
    std::string nom;
    MotifVoile motif;
    EtatVoile etat;
    bool choix = false;
};

// A time of a fixed day (plus `jours`), local time: the wake lines read the same on every run.
std::int64_t aujourdhui(int heure, int minute, int jours = 0) {
    const QDateTime instant(QDate(2026, 3, 14).addDays(jours), QTime(heure, minute));
    return instant.toMSecsSinceEpoch();
}

RegleMac regle(std::string cause, std::string titre, std::int64_t fin) {
    RegleMac r;
    r.bloquerTout = true;
    r.cause = std::move(cause);
    r.titre = std::move(titre);
    r.fin = fin;
    return r;
}

std::vector<Variante> variantes() {
    const std::int64_t maintenant = aujourdhui(16, 0);
    EtatVoile etat;
    etat.maintenantMs = maintenant;
    const auto avec = [&etat](auto changer) {
        EtatVoile e = etat;
        changer(e);
        return e;
    };
    const auto pause = [](std::string cause, std::string titre, std::int64_t fin) {
        return MotifVoile::pause(regle(std::move(cause), std::move(titre), fin));
    };
    const auto appli = [](std::string nom, std::string cause, std::string titre, std::int64_t fin) {
        RegleMac r = regle(std::move(cause), std::move(titre), fin);
        r.bloquerTout = false;
        return MotifVoile::appli(std::move(nom), std::move(r));
    };
    const std::int64_t ceSoir = aujourdhui(19, 30);
    const std::int64_t demainMatin = aujourdhui(7, 30, 1);
    const std::int64_t minuit = aujourdhui(0, 0, 1);
    return {
        {"horaire-ce-soir", pause("horaire", "Au lit", ceSoir), etat},
        {"horaire-demain", pause("horaire", "Dîner en famille", demainMatin), etat},
        {"horaire-sans-fin", pause("horaire", "Devoirs", 0), etat},
        {"pause-famille-message", pause("pause_famille", "", 0),
         avec([](EtatVoile& e) { e.message = "Ta demande est envoyée à tes parents."; })},
        {"limite-tirelire", pause("limite", "", minuit),
         avec([](EtatVoile& e) { e.tirelireMin = 12.4; })},
        {"limite-sans-fin", pause("limite", "", 0), etat},
        {"limite-choix", pause("limite", "", minuit),
         avec([](EtatVoile& e) { e.tirelireMin = 30; }), true},
        {"limite-choix-envoi", pause("limite", "", minuit), avec([](EtatVoile& e) {
             e.tirelireMin = 30;
             e.envoi = true;
         }),
         true},
        {"gage", pause("gage", "", ceSoir), etat},
        {"coupee", pause("coupee", "", demainMatin), etat},
        {"panier", pause("panier", "Téléphones au panier", ceSoir), etat},
        {"appli-limite", appli("Minecraft", "limite_appli", "Jeux", minuit), etat},
        {"appli-coupee", appli("Discord", "coupee", "", 0), etat},
        {"appli-site", appli("youtube.com", "site", "youtube.com", 0), etat},
        {"appli-navigateur", appli("Opera", "navigateur", "Opera", 0), etat},
        {"appli-automatisation", appli("Firefox", "automatisation", "Firefox", 0), etat},
        {"appli-nom-sans-espace",
         appli("Anticonstitutionnellement-Intergouvernementalisation-"
               "Hippopotomonstrosesquippedaliophobie-"
               "Anticonstitutionnellement-Intergouvernementalisation-"
               "Hippopotomonstrosesquippedaliophobie",
               "coupee", "", 0),
         etat},
        {"appli-nom-long",
         appli("Le Grand Atelier des Inventeurs de Mondes Imaginaires", "limite_appli",
               "Créativité et jeux de construction", minuit),
         avec([](EtatVoile& e) {
             e.message = "Tes parents n'ont pas pu être joints : réessaie dans un moment, ou "
                         "va leur demander directement.";
         })},
    };
}

// The kit's elements on the veil's background, at natural size and at double density.
bool capturerKit(const std::filesystem::path& dossier) {
    QWidget planche;
    QPalette palette = planche.palette();
    palette.setColor(QPalette::Window, Charte::fond);
    planche.setPalette(palette);
    planche.setAutoFillBackground(true);
    auto* colonne = new QVBoxLayout(&planche);
    colonne->setContentsMargins(30, 30, 30, 30);
    colonne->setSpacing(20);

    auto* pilules = new QHBoxLayout;
    pilules->addWidget(new BoutonPilule(QStringLiteral("🙋 Demander du temps"), Charte::jaune));
    pilules->addWidget(new BoutonPilule(QStringLiteral("15\u00a0min"), Charte::blanc));
    auto* desactive = new BoutonPilule(QStringLiteral("30\u00a0min (désactivé)"), Charte::blanc);
    desactive->setEnabled(false);
    pilules->addWidget(desactive);
    auto* focalise =
        new BoutonPilule(QStringLiteral("⭐ Utiliser ma tirelire (12\u00a0min)"), Charte::menthe);
    pilules->addWidget(focalise);
    pilules->addStretch();
    colonne->addLayout(pilules);

    auto* carte = new Autocollant(Charte::lilas);
    carte->contenu()->addWidget(new QLabel(QStringLiteral("Un autocollant : ombre dure à 6 px")));
    colonne->addWidget(carte);

    auto* nuancier = new QHBoxLayout;
    for (const auto& [nom, couleur] :
         std::initializer_list<std::pair<const char*, QColor>>{{"encre", Charte::encre},
                                                               {"doux", Charte::doux},
                                                               {"fond", Charte::fond},
                                                               {"lilas", Charte::lilas},
                                                               {"menthe", Charte::menthe},
                                                               {"citron", Charte::citron},
                                                               {"jaune", Charte::jaune},
                                                               {"rouge", Charte::rouge}}) {
        auto* pastille = new QLabel(QString::fromUtf8(nom));
        pastille->setAlignment(Qt::AlignCenter);
        pastille->setMinimumSize(90, 60);
        pastille->setStyleSheet(QStringLiteral("background: %1; color: %2; border: 1px solid %3;")
                                    .arg(couleur.name(),
                                         couleur.lightness() < 128 ? "white" : "black",
                                         Charte::encre.name()));
        nuancier->addWidget(pastille);
    }
    colonne->addLayout(nuancier);
    focalise->setFocus();

    const QSize taille = planche.sizeHint();
    return enregistrerImage(planche, taille, 1, dossier / "kit.png") &&
           enregistrerImage(planche, taille * 2, 2, dossier / "kit@2x.png");
}

} // namespace

int capturer(const std::string& dossierDemande, int argc, char** argv) {
    const std::filesystem::path dossier(dossierDemande);
    std::error_code erreur;
    std::filesystem::create_directories(dossier, erreur);
    if (erreur || !std::filesystem::is_directory(dossier)) {
        std::cerr << "tavi-home: impossible de créer le dossier « " << dossierDemande << " »"
                  << (erreur ? " : " + erreur.message() : std::string()) << '\n';
        return 2;
    }
    // Drawn offscreen, so that it needs no display and reads the same everywhere.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // The offscreen platform's remarks (no window manager, no size hints) say nothing here.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& texte) {
        if (type == QtCriticalMsg || type == QtFatalMsg) std::cerr << texte.toStdString() << '\n';
    });
    QApplication application(argc, argv);

    const Ecran ecrans[] = {{"1366x768", {1366, 768}, 1}, {"3840x2160", {3840, 2160}, 2}};
    bool tout = true;
    for (const Variante& variante : variantes()) {
        for (const Ecran& ecran : ecrans) {
            ActionsFigees actions(variante.etat);
            VoileVue vue(actions, variante.motif);
            if (variante.choix) vue.ouvrirChoix();
            tout &= enregistrerImage(vue, ecran.taille, ecran.densite,
                                dossier / ("voile-" + variante.nom + "-" + ecran.nom + ".png"));
        }
    }
    tout &= capturerKit(dossier);
    tout &= capturerAccueil(dossier);
    tout &= capturerBarre(dossier);
    return tout ? 0 : 2;
}

} // namespace tavi
