#include "rules/consigne_json.h"

#include "rules/json_strict.h"

namespace tavi {

using nlohmann::json;
using nlohmann::ordered_json;

namespace {

RegleJSON lireRegle(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    return {o.optionnel("mode", lireTexte), o.optionnel("familles", lireTextes)};
}

LimiteMac lireLimite(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    return {o.requis("id", lireTexte), o.requis("nom", lireTexte), o.requis("minutes", lireDouble),
            o.requis("applis", lireTextes)};
}

MacJSON lireMac(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    auto lireLimites = [](const json& l, const std::string& c) {
        return lireListe(l, c, lireLimite);
    };
    return {o.optionnel("bloquerTout", lireBooleen), o.optionnel("bloquees", lireTextes),
            o.optionnel("familles", lireTextes), o.optionnel("limites", lireLimites),
            o.optionnel("coupees", lireTextes)};
}

Plage lirePlage(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    return {o.requis("debutMs", lireEntier), o.requis("finMs", lireEntier),
            o.optionnel("regle", lireRegle), o.optionnel("cause", lireTexte),
            o.optionnel("titre", lireTexte)};
}

FiltreJSON lireFiltre(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    return {o.optionnel("actif", lireBooleen), o.optionnel("domainesBloques", lireTextes),
            o.optionnel("domainesAutorises", lireTextes)};
}

Interrupteur lireInterrupteur(const json& v, const std::string& chemin) {
    ObjetLu o(v, chemin);
    return {o.optionnel("actif", lireBooleen)};
}

Consigne lireConsigne(const json& document) {
    ObjetLu o(document, "");
    auto lireProgramme = [](const json& l, const std::string& c) {
        return lireListe(l, c, lirePlage);
    };
    Consigne c;
    c.heureServeurMs = o.optionnel("heureServeurMs", lireEntier);
    c.protegeMaintenant = o.optionnel("protegeMaintenant", lireBooleen);
    c.finMs = o.optionnel("finMs", lireEntier);
    c.cause = o.optionnel("cause", lireTexte);
    c.titre = o.optionnel("titre", lireTexte);
    c.regle = o.optionnel("regle", lireRegle);
    c.mac = o.optionnel("mac", lireMac);
    c.programme = o.optionnel("programme", lireProgramme);
    c.ouvertJusquMs = o.optionnel("ouvertJusquMs", lireEntier);
    c.limiteJourMin = o.optionnel("limiteJourMin", lireDouble);
    c.resteJourMin = o.optionnel("resteJourMin", lireDouble);
    c.prenom = o.optionnel("prenom", lireTexte);
    c.tirelireMin = o.optionnel("tirelireMin", lireDouble);
    c.rapportApplis = o.optionnel("rapportApplis", lireInterrupteur);
    c.limitesAutres = o.optionnel("limitesAutres", lireCarteDoubles);
    c.filtreWeb = o.optionnel("filtreWeb", lireFiltre);
    c.historiqueSites = o.optionnel("historiqueSites", lireInterrupteur);
    return c;
}

template <class T>
void mettre(ordered_json& objet, const char* cle, const std::optional<T>& valeur) {
    if (valeur) objet[cle] = *valeur;
}

template <class T, class Encoder>
void mettre(ordered_json& objet, const char* cle, const std::optional<T>& valeur, Encoder encoder) {
    if (valeur) objet[cle] = encoder(*valeur);
}

ordered_json encoder(const RegleJSON& r) {
    ordered_json o = ordered_json::object();
    mettre(o, "mode", r.mode);
    mettre(o, "familles", r.familles);
    return o;
}

ordered_json encoder(const LimiteMac& l) {
    return {{"id", l.id}, {"nom", l.nom}, {"minutes", l.minutes}, {"applis", l.applis}};
}

ordered_json encoder(const MacJSON& m) {
    ordered_json o = ordered_json::object();
    mettre(o, "bloquerTout", m.bloquerTout);
    mettre(o, "bloquees", m.bloquees);
    mettre(o, "familles", m.familles);
    mettre(o, "limites", m.limites, [](const std::vector<LimiteMac>& limites) {
        ordered_json l = ordered_json::array();
        for (const auto& limite : limites)
            l.push_back(encoder(limite));
        return l;
    });
    mettre(o, "coupees", m.coupees);
    return o;
}

ordered_json encoder(const Plage& p) {
    ordered_json o = {{"debutMs", p.debutMs}, {"finMs", p.finMs}};
    mettre(o, "regle", p.regle, [](const RegleJSON& r) { return encoder(r); });
    mettre(o, "cause", p.cause);
    mettre(o, "titre", p.titre);
    return o;
}

ordered_json encoder(const FiltreJSON& f) {
    ordered_json o = ordered_json::object();
    mettre(o, "actif", f.actif);
    mettre(o, "domainesBloques", f.domainesBloques);
    mettre(o, "domainesAutorises", f.domainesAutorises);
    return o;
}

ordered_json encoder(const Interrupteur& i) {
    ordered_json o = ordered_json::object();
    mettre(o, "actif", i.actif);
    return o;
}

} // namespace

Attendu<Consigne, ErreurDecodage> decoderConsigne(std::string_view texte) {
    try {
        return lireConsigne(analyserDocument(texte, tailleMaxConsigne));
    } catch (const DocumentInvalide& e) {
        return ErreurDecodage{e.what()};
    }
}

ordered_json encoderConsigne(const Consigne& c) {
    auto parEncoder = [](const auto& v) { return encoder(v); };
    ordered_json o = ordered_json::object();
    mettre(o, "heureServeurMs", c.heureServeurMs);
    mettre(o, "protegeMaintenant", c.protegeMaintenant);
    mettre(o, "finMs", c.finMs);
    mettre(o, "cause", c.cause);
    mettre(o, "titre", c.titre);
    mettre(o, "regle", c.regle, parEncoder);
    mettre(o, "mac", c.mac, parEncoder);
    mettre(o, "programme", c.programme, [](const std::vector<Plage>& plages) {
        ordered_json l = ordered_json::array();
        for (const auto& p : plages)
            l.push_back(encoder(p));
        return l;
    });
    mettre(o, "ouvertJusquMs", c.ouvertJusquMs);
    mettre(o, "limiteJourMin", c.limiteJourMin);
    mettre(o, "resteJourMin", c.resteJourMin);
    mettre(o, "prenom", c.prenom);
    mettre(o, "tirelireMin", c.tirelireMin);
    mettre(o, "rapportApplis", c.rapportApplis, parEncoder);
    mettre(o, "limitesAutres", c.limitesAutres);
    mettre(o, "filtreWeb", c.filtreWeb, parEncoder);
    mettre(o, "historiqueSites", c.historiqueSites, parEncoder);
    return o;
}

} // namespace tavi
