#include "outils_test.h"

#include "temps.h"

namespace tavi::famille::essai {

using nlohmann::json;

ServeurEssai::ServeurEssai(OptionsServeur options_)
    : base_(dossier / "famille.db"), options(std::move(options_)) {
    options.hote = "127.0.0.1";
    options.port = 0;
    redemarrer();
    depot_ = std::make_unique<Depot>(base_.string(), Base::Ouverture::existante);
}

ServeurEssai::~ServeurEssai() {
    if (serveur) serveur->arreter();
}

void ServeurEssai::redemarrer() {
    if (serveur) serveur->arreter();
    serveur.reset();
    serveur = std::make_unique<Serveur>(base_.string(), options);
    serveur->demarrer();
}

httplib::Client ServeurEssai::client() const {
    httplib::Client client("127.0.0.1", serveur->port());
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true);
    client.set_read_timeout(20, 0);
    return client;
}

std::string ServeurEssai::enfantEtOrdinateur(const std::string& prenom,
                                             const std::string& installation) {
    depot_->ajouterEnfant(prenom, "fr", "Europe/Paris", maintenantMs());
    return appairer(prenom, installation);
}

std::string ServeurEssai::appairer(const std::string& prenom, const std::string& installation) {
    auto code = depot_->creerCode(prenom, maintenantMs());
    auto c = client();
    auto reponse = poster(c, "/api/auth/ordinateur",
                          {{"code", code.code}, {"nom", "PC de " + prenom}, {"version", "0.1.0"}},
                          {}, installation);
    if (!reponse || reponse->status != 200) throw std::runtime_error("appairage refusé");
    return json::parse(reponse->body).at("jeton").get<std::string>();
}

std::vector<json> ServeurEssai::lignes(const std::string& genre, std::int64_t instant) {
    std::vector<json> trouvees;
    for (const auto& ligne : depot_->rapport("Léa", instant ? instant : maintenantMs()))
        if (ligne.contains(genre)) trouvees.push_back(ligne.at(genre));
    return trouvees;
}

std::int64_t ServeurEssai::compter(const std::string& sql) {
    auto r = depot_->base().requete(sql);
    return r.ligne() ? r.entier(0) : -1;
}

httplib::Result posterTexte(httplib::Client& client, const std::string& chemin,
                            const std::string& corps, const std::string& jeton,
                            const std::string& installation) {
    httplib::Headers entetes = {{"X-Tavi-Installation", installation}};
    if (!jeton.empty()) entetes.emplace("Authorization", "Bearer " + jeton);
    return client.Post(chemin.c_str(), entetes, corps, "application/json");
}

std::string detail(const httplib::Result& reponse) {
    const json corps = corpsJson(reponse);
    const json texte = corps.is_object() ? corps.value("detail", json()) : json();
    return texte.is_string() ? texte.get<std::string>() : "";
}

json battement(double utiliseJourMin) {
    return {{"actif", true},
            {"incertain", false},
            {"plateforme", "linux"},
            {"version", "0.1.0"},
            {"systeme", "Debian 12"},
            {"autorisations", {{"ouverture_session", true}, {"automatisation", true}}},
            {"utilise_jour_min", utiliseJourMin}};
}

} // namespace tavi::famille::essai
