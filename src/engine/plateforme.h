#pragma once

#include "platform/applications.h"
#include "platform/boucle.h"
#include "platform/bureau.h"
#include "platform/categories_applis.h"
#include "platform/coffre.h"
#include "platform/demarrage.h"
#include "platform/horloges.h"
#include "platform/navigation.h"
#include "platform/notifications.h"
#include "platform/reglages.h"
#include "platform/session.h"
#include "platform/systeme.h"
#include "server/transport.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

class Moteur;
class Voile;

// Makes the veil controller of an engine. An empty one, or one that gives null, leaves the
// engine a veil with no window.
using FabriqueVoile = std::function<std::unique_ptr<Voile>(Moteur&)>;

// Every door the engine has to the system, handed in once. Each must outlive the engine; the
// header of each port says from which thread it may be called.
struct Plateforme {
    Horloges& horloges;
    Reglages& reglages;
    Coffre& coffre;
    Boucle& boucle;
    std::shared_ptr<Transport> transport;
    Session& session;
    Bureau& bureau;
    Navigation& navigation;
    const Applications& applications;
    const CategoriesApplis& categories;
    const Systeme& systeme;
    Demarrage& demarrage;
    // Makes the veil controller, on the engine's first use of it.
    FabriqueVoile fabriqueVoile;
    // The desktop's notifications, which warn the child before a rest; none, no warning.
    Notifications* notifications = nullptr;
    // The family server's base address, fixed for the engine's life (the guardian's relay);
    // absent, the store's "serveur" setting.
    std::optional<std::string> base = std::nullopt;
};

} // namespace tavi
