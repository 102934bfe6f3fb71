#include "ui/contenu_voile.h"

#include "commun/texte.h"
#include "ui/affichable.h"
#include "ui/lisible.h"
#include "ui/textes_plateforme.h"

#include <QDateTime>
#include <QString>
#include <cmath>

namespace tavi {

namespace {

std::optional<std::string> ligneReveil(const RegleMac& regle, std::int64_t maintenantMs,
                                       const QLocale& langue) {
    if (regle.cause == "navigateur") return texte(TextesPlateforme::navigateurIllisible());
    if (regle.cause == "automatisation") return texte(TextesPlateforme::lectureRefusee());
    if (regle.cause == "site") return texte("Tes parents ont mis ce site en sieste.");
    // Before the limits: a limit with no known end says nothing of waking.
    if (regle.fin < 1) return std::nullopt;
    if (regle.cause == "limite")
        return texte("Ta limite du jour est atteinte. Il se réveille demain.");
    if (regle.cause == "limite_appli")
        return texte("Ta limite pour cette appli est atteinte. Elle se réveille demain.");
    const std::string heure = heureLisible(regle.fin, langue);
    // Any later day says "demain", even days ahead.
    const bool memeJour = QDateTime::fromMSecsSinceEpoch(regle.fin).date() ==
                          QDateTime::fromMSecsSinceEpoch(maintenantMs).date();
    return texteAvec(memeJour ? "Il se réveille à %@" : "Il se réveille demain à %@", heure);
}

BoutonVoile bouton(BoutonVoile::Action action, std::string emoji, std::string titre,
                   BoutonVoile::Fond fond, int minutes = 0, bool desactive = false) {
    return {action, std::move(emoji), std::move(titre), fond, minutes, desactive};
}

} // namespace

std::string emojiVoile(const RegleMac& regle) {
    const std::string& cause = regle.cause;
    if (cause == "limite" || cause == "limite_appli") return "⏳";
    if (cause == "coupee") return "🔒";
    if (cause == "site") return "🛡\uFE0F";
    if (cause == "navigateur") return "🧭";
    if (cause == "automatisation") return "🔑";
    // A house rather than the family sequence: the colour emoji faces of current desktops draw
    // every family as grey silhouettes on a grey tile, which reads as a broken glyph.
    if (cause == "pause_famille") return "🏡";
    if (cause == "panier") return "🧺";
    // Plain containment: any title with "lit" in it, even inside a word, sleeps.
    const QString titre = QString::fromStdString(regle.titre).toLower();
    const auto contient = [&titre](std::initializer_list<const char*> mots) {
        for (const char* mot : mots)
            if (titre.contains(QString::fromUtf8(mot))) return true;
        return false;
    };
    if (contient({"lit", "bed", "nuit"})) return "😴";
    if (contient({"table", "dîner", "dinner"})) return "🍽\uFE0F";
    if (contient({"devoir", "homework"})) return "📚";
    return "😴";
}

ContenuVoile contenuVoile(const MotifVoile& motif, const EtatVoile& etat, const QLocale& langue) {
    const RegleMac& regle = motif.regle;
    ContenuVoile contenu;
    contenu.emoji = emojiVoile(regle);
    contenu.titre = motif.estPause()
                        ? texte("Ton ordinateur fait la sieste")
                        : texteAvec("%@ fait la sieste", affichable(motif.nom, maxNom));
    contenu.badge = affichable(regle.titreAffiche(), maxNom);
    contenu.reveil = ligneReveil(regle, etat.maintenantMs, langue);

    using A = BoutonVoile::Action;
    using F = BoutonVoile::Fond;
    if (etat.choixTemps) {
        // No cancel: the choice closes once a request is sent.
        contenu.question = texte("Combien de temps ?");
        for (int minutes : {10, 15, 30})
            contenu.rangee.push_back(bouton(A::demander, {},
                                            texteAvec("%d min", std::to_string(minutes)), F::blanc,
                                            minutes, etat.envoi));
    } else {
        contenu.rangee.push_back(bouton(A::choisir, "🙋", texte("Demander du temps"), F::jaune));
        if (!motif.estPause()) contenu.rangee.push_back(bouton(A::ok, {}, texte("OK"), F::blanc));
    }
    if (regle.cause == "automatisation")
        contenu.suite.push_back(
            bouton(A::reglages, {}, texte(TextesPlateforme::boutonReglages()), F::menthe));
    if (const auto minutes = minutesTirelire(etat.tirelireMin); minutes && regle.cause == "limite")
        contenu.suite.push_back(bouton(
            A::tirelire, "⭐", texteAvec("Utiliser ma tirelire (%d min)", std::to_string(*minutes)),
            F::menthe, *minutes, etat.envoi));
    if (etat.message) contenu.message = affichable(*etat.message, maxMessage);
    return contenu;
}

} // namespace tavi
