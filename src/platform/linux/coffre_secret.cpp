#include "platform/linux/coffre_secret.h"

#include "commun/journal.h"
#include "platform/linux/dossiers_linux.h"

#include <atomic>
#include <libsecret/secret.h>
#include <utility>

namespace tavi {

namespace {

// Items carry their schema's name in the attribute "xdg:schema", so that ours never match
// another program's items with the same two attributes.
const SecretSchema& schema() {
    static const SecretSchema leSchema = {
        "com.tavi.home.Secret",
        SECRET_SCHEMA_NONE,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    };
    return leSchema;
}

// A SecretService that declines every prompt. libsecret answers a locked item or collection
// by asking the daemon to unlock it, which shows a password dialog and waits for someone to
// answer it; the main thread would wait with it. The daemon shows a prompt only when its
// client asks for it, so declining here shows nothing and fails the operation at once.
struct ServiceSansInvite {
    SecretService parent;
};
struct ServiceSansInviteClass {
    SecretServiceClass parent;
};

G_DEFINE_TYPE(ServiceSansInvite, service_sans_invite, SECRET_TYPE_SERVICE)

GQuark inviteRefusee() {
    return g_quark_from_static_string("tavi-invite-refusee");
}
constexpr char messageRefus[] = "the Secret Service asks for a prompt, which is declined";

GVariant* refuserInvite(SecretService*, SecretPrompt*, GCancellable*, const GVariantType*,
                        GError** erreur) {
    g_set_error_literal(erreur, inviteRefusee(), 1, messageRefus);
    return nullptr;
}

int etiquetteRefus;

void refuserInviteAsync(SecretService* service, SecretPrompt*, const GVariantType*, GCancellable*,
                        GAsyncReadyCallback rappel, gpointer donnees) {
    g_task_report_new_error(service, rappel, donnees, &etiquetteRefus, inviteRefusee(), 1,
                            messageRefus);
}

GVariant* finirInvite(SecretService*, GAsyncResult* resultat, GError** erreur) {
    return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(resultat), erreur));
}

void service_sans_invite_class_init(ServiceSansInviteClass* classe) {
    classe->parent.prompt_sync = refuserInvite;
    classe->parent.prompt_async = refuserInviteAsync;
    classe->parent.prompt_finish = finirInvite;
}

void service_sans_invite_init(ServiceSansInvite*) {}

enum class Issue { Fait, Refus, SansReponse };

// The daemon is gone or does not answer, as opposed to a daemon that answers "no".
bool sansReponse(const GError* erreur) {
    if (erreur->domain == G_IO_ERROR) return erreur->code != G_IO_ERROR_DBUS_ERROR;
    if (erreur->domain != G_DBUS_ERROR) return false;
    switch (erreur->code) {
    case G_DBUS_ERROR_SERVICE_UNKNOWN:
    case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
    case G_DBUS_ERROR_NO_REPLY:
    case G_DBUS_ERROR_TIMEOUT:
    case G_DBUS_ERROR_TIMED_OUT:
    case G_DBUS_ERROR_DISCONNECTED:
    case G_DBUS_ERROR_NO_SERVER:
    case G_DBUS_ERROR_SPAWN_FAILED:
    case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
    case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
    case G_DBUS_ERROR_SPAWN_CHILD_SIGNALED:
    case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
        return true;
    default:
        return false;
    }
}

bool expire(const GError* erreur) {
    return g_error_matches(erreur, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
           g_error_matches(erreur, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT) ||
           g_error_matches(erreur, G_DBUS_ERROR, G_DBUS_ERROR_TIMED_OUT) ||
           g_error_matches(erreur, G_IO_ERROR, G_IO_ERROR_TIMED_OUT);
}

bool refus(const GError* erreur) {
    return erreur->domain == inviteRefusee() ||
           g_error_matches(erreur, SECRET_ERROR, SECRET_ERROR_IS_LOCKED) ||
           g_error_matches(erreur, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) ||
           g_error_matches(erreur, G_DBUS_ERROR, G_DBUS_ERROR_AUTH_FAILED);
}

// D-Bus strings are UTF-8 without NUL; GLib aborts on anything else.
bool nomsValides(const std::string& service, const std::string& compte) {
    for (const auto* nom : {&service, &compte}) {
        if (nom->find('\0') != std::string::npos ||
            !g_utf8_validate(nom->data(), static_cast<gssize>(nom->size()), nullptr)) {
            journaliser("secret store: a service or account name that is not UTF-8 text is "
                        "refused");
            return false;
        }
    }
    return true;
}

class Attributs {
public:
    Attributs(const std::string& service, const std::string& compte)
        : table(g_hash_table_new(g_str_hash, g_str_equal)) {
        g_hash_table_insert(table, const_cast<char*>("service"),
                            const_cast<char*>(service.c_str()));
        g_hash_table_insert(table, const_cast<char*>("account"), const_cast<char*>(compte.c_str()));
    }
    ~Attributs() { g_hash_table_unref(table); }
    Attributs(const Attributs&) = delete;
    Attributs& operator=(const Attributs&) = delete;
    GHashTable* get() const { return table; }

private:
    GHashTable* table;
};

std::optional<std::string> chercher(SecretService* service, const std::string& nomService,
                                    const std::string& compte, GError** erreur) {
    Attributs attributs(nomService, compte);
    // Not secret_service_lookup, nor a search that unlocks: both unlock a locked item, which
    // prompts. Without SECRET_SEARCH_ALL the one item found is an unlocked one when there is.
    GList* trouves = secret_service_search_sync(service, &schema(), attributs.get(),
                                                SECRET_SEARCH_NONE, nullptr, erreur);
    std::optional<std::string> secret;
    auto* element = trouves ? static_cast<SecretItem*>(trouves->data) : nullptr;
    // Loaded here rather than by the search, which would drop the error of a stale session.
    if (element && !secret_item_get_locked(element) &&
        secret_item_load_secret_sync(element, nullptr, erreur)) {
        if (SecretValue* valeur = secret_item_get_secret(element)) {
            gsize taille = 0;
            const gchar* octets = secret_value_get(valeur, &taille);
            // Another program may have stored any bytes under our attributes; what is not
            // text would go on into an HTTP header.
            if (g_utf8_validate(octets, static_cast<gssize>(taille), nullptr))
                secret.emplace(octets, taille);
            secret_value_unref(valeur);
        }
    }
    g_list_free_full(trouves, g_object_unref);
    return secret;
}

void stocker(SecretService* service, const std::string& nomService, const std::string& compte,
             const std::string& secret, GError** erreur) {
    Attributs attributs(nomService, compte);
    SecretValue* valeur =
        secret_value_new(secret.data(), static_cast<gssize>(secret.size()), "text/plain");
    const std::string libelle = "Tavi Home: " + compte + " (" + nomService + ")";
    // One call is update-else-add: the item is created with "replace", which takes the place
    // of the collection's item with the same attributes.
    secret_service_store_sync(service, &schema(), attributs.get(), SECRET_COLLECTION_DEFAULT,
                              libelle.c_str(), valeur, nullptr, erreur);
    secret_value_unref(valeur);
}

void effacer(SecretService* service, const std::string& nomService, const std::string& compte,
             GError** erreur) {
    Attributs attributs(nomService, compte);
    // Deletes the unlocked items only; FALSE with no error when there was none.
    secret_service_clear_sync(service, &schema(), attributs.get(), nullptr, erreur);
}

void annoncerSecours(const std::optional<std::filesystem::path>& chemin) {
    // Once in the life of the process, however many secrets or operations follow.
    static std::atomic<bool> dejaDit{false};
    if (!chemin || dejaDit.exchange(true)) return;
    journaliser("no Secret Service answers: the token is kept in " + chemin->string() +
                ", readable by this user only");
}

std::optional<std::filesystem::path> dossierSecoursParDefaut() {
    auto etat = Dossiers::etat();
    if (!etat) return std::nullopt;
    return *etat / "secrets";
}

} // namespace

struct CoffreSecret::Connexion {
    SecretService* service = nullptr;

    ~Connexion() { oublier(); }

    void oublier() {
        if (service) g_object_unref(service);
        service = nullptr;
    }

    // Runs `operation` on the Secret Service, opening a connection when there is none. A
    // failure that is neither a refusal nor silence may come from a session the daemon no
    // longer knows (it restarted): the operation is tried once more on a fresh connection.
    template <class Operation>
    Issue essayer(Operation operation) {
        for (int essai = 0; essai < 2; ++essai) {
            if (!service) {
                service = SECRET_SERVICE(
                    secret_service_open_sync(service_sans_invite_get_type(), nullptr,
                                             SECRET_SERVICE_OPEN_SESSION, nullptr, nullptr));
                if (!service) return Issue::SansReponse;
            }
            GError* erreur = nullptr;
            operation(service, &erreur);
            if (!erreur) return Issue::Fait;
            const bool refuse = refus(erreur);
            const bool muet = sansReponse(erreur);
            const bool tropLong = expire(erreur);
            g_error_free(erreur);
            if (refuse) return Issue::Refus;
            oublier();
            // A daemon that hangs would hold the main thread once more for each try.
            if (tropLong || (muet && essai == 1)) return Issue::SansReponse;
        }
        return Issue::Refus;
    }
};

CoffreSecret::CoffreSecret() : CoffreSecret(dossierSecoursParDefaut()) {}

CoffreSecret::CoffreSecret(std::optional<std::filesystem::path> dossierSecours)
    : connexion(std::make_unique<Connexion>()) {
    if (dossierSecours) secours.emplace(std::move(*dossierSecours));
}

CoffreSecret::~CoffreSecret() = default;

std::optional<std::string> CoffreSecret::lire(const std::string& service,
                                              const std::string& compte) const {
    if (!nomsValides(service, compte)) return std::nullopt;
    std::lock_guard garde(verrou);
    // A secret in the file was written while no Secret Service answered: it is the newest.
    if (auto enFichier = secours ? secours->lire(service, compte) : std::nullopt) {
        const Issue issue = connexion->essayer([&](SecretService* s, GError** erreur) {
            stocker(s, service, compte, *enFichier, erreur);
        });
        if (issue == Issue::Fait)
            secours->retirer(service, compte);
        else if (issue == Issue::SansReponse)
            annoncerSecours(secours->chemin(service, compte));
        return enFichier;
    }
    std::optional<std::string> trouve;
    connexion->essayer(
        [&](SecretService* s, GError** erreur) { trouve = chercher(s, service, compte, erreur); });
    return trouve;
}

void CoffreSecret::ecrire(const std::string& service, const std::string& compte,
                          const std::string& secret) {
    if (!nomsValides(service, compte)) return;
    std::lock_guard garde(verrou);
    const Issue issue = connexion->essayer(
        [&](SecretService* s, GError** erreur) { stocker(s, service, compte, secret, erreur); });
    if (!secours) return;
    if (issue == Issue::Fait)
        secours->retirer(service, compte);
    else if (issue == Issue::SansReponse && secours->deposer(service, compte, secret))
        annoncerSecours(secours->chemin(service, compte));
}

void CoffreSecret::supprimer(const std::string& service, const std::string& compte) {
    if (!nomsValides(service, compte)) return;
    std::lock_guard garde(verrou);
    connexion->essayer(
        [&](SecretService* s, GError** erreur) { effacer(s, service, compte, erreur); });
    if (secours) secours->retirer(service, compte);
}

} // namespace tavi
