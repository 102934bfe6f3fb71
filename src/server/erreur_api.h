#pragma once

#include "rules/consigne_json.h"
#include "server/transport.h"

#include <string>
#include <variant>

namespace tavi {

// The server refused: `statut` is the HTTP status (0 when the answer was not HTTP), `message`
// the text shown to the child as it stands.
struct ErreurApi {
    int statut = 0;
    std::string message;
};

// A body that cannot be written as JSON: nothing was sent.
struct ErreurSerialisation {
    std::string message;
};

// Why a call to the server failed: a refusal, no HTTP answer at all, an answer that does not
// decode, or a body that could not be sent.
using EchecApi = std::variant<ErreurApi, ErreurTransport, ErreurDecodage, ErreurSerialisation>;

template <class T>
using ResultatApi = Attendu<T, EchecApi>;

// What happened, for a log or the self-test: the status and the server's text, or the
// transport's own words.
std::string decrire(const EchecApi& echec);

// What the child reads: the server's text for a refusal, else the text saying the server
// cannot be reached now.
std::string messagePourEnfant(const EchecApi& echec);

// The HTTP status of a refusal; 0 for every other failure.
int statutDe(const EchecApi& echec);

} // namespace tavi
