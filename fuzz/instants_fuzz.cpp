#include "commun/jour.h"
#include "platform/horloges.h"
#include "platform/reglages.h"
#include "rules/consigne_json.h"
#include "rules/horloge.h"
#include "rules/programme.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>

namespace {

using namespace tavi;

class ReglagesEnMemoire : public Reglages {
public:
    std::optional<Valeur> lire(const std::string& cle) const override {
        auto it = valeurs.find(cle);
        if (it == valeurs.end()) return std::nullopt;
        return it->second;
    }
    void ecrire(const std::string& cle, const Valeur& valeur) override { valeurs[cle] = valeur; }
    void supprimer(const std::string& cle) override { valeurs.erase(cle); }
    void grouper(const std::function<void()>& ecritures) override { ecritures(); }

private:
    std::map<std::string, Valeur> valeurs;
};

struct HorlogesFixes : Horloges {
    std::int64_t mono = 0, murale = 0, identite = 0;
    std::int64_t monotoniqueMs() const override { return mono; }
    std::int64_t monotoniqueEveilleMs() const override { return mono; }
    std::int64_t muraleMs() const override { return murale; }
    std::int64_t demarrage() const override { return identite; }
};

template <class T>
T prendre(std::string_view& reste) {
    T valeur{};
    const std::size_t n = std::min(sizeof valeur, reste.size());
    std::memcpy(&valeur, reste.data(), n);
    reste.remove_prefix(n);
    return valeur;
}

} // namespace

// A heartbeat answer's way through the agent, with every clock, stored number and instant
// taken from the input: nothing may throw or crash, and the server time stays in its window.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* octets, std::size_t taille) {
    std::string_view reste(reinterpret_cast<const char*>(octets), taille);
    HorlogesFixes horloges;
    horloges.mono = prendre<std::int64_t>(reste);
    horloges.murale = prendre<std::int64_t>(reste);
    horloges.identite = prendre<std::int64_t>(reste);
    const auto envoi = prendre<std::int64_t>(reste);
    const auto serveur = prendre<std::int64_t>(reste);
    ReglagesEnMemoire reglages;
    for (const char* cle : {"h_serveur_a", "h_mono_a", "h_demarrage", "h_ecart", "h_ar"})
        reglages.ecrire(cle, prendre<double>(reste));
    const auto utilise = prendre<double>(reste);

    std::optional<Horloge::Echantillon> propre;
    auto consigne = decoderConsigne(reste);
    const std::int64_t heureServeur =
        consigne && consigne->heureServeurMs ? *consigne->heureServeurMs : serveur;
    Horloge::noter(reglages, horloges, propre, heureServeur, envoi, horloges.mono);
    const std::int64_t maintenant = Horloge::maintenant(reglages, horloges, propre);
    if (maintenant < Horloge::premierInstantMs || maintenant > Horloge::dernierInstantMs)
        std::abort();
    static_cast<void>(jourLocal(maintenant));

    const std::optional<Consigne> c = consigne ? std::optional(*consigne) : std::nullopt;
    // The rule is asked at the server time and at the raw instants a hostile answer may carry.
    for (const std::int64_t instant : {maintenant, serveur, envoi}) {
        if (debutJourLocalMs(instant) > std::max(instant, premierInstantCalendrierMs) &&
            instant <= dernierInstantCalendrierMs)
            std::abort();
        static_cast<void>(Programme::regleCourante(c, instant, utilise, utilise));
        if (c && c->mac && c->mac->limites)
            for (const auto& limite : *c->mac->limites)
                for (const auto& appli : limite.applis)
                    static_cast<void>(Programme::siesteAppli(
                        appli, c, [utilise](const std::string&) { return utilise; }, instant));
    }
    return 0;
}
