#include "rules/consigne_json.h"
#include "server/rejoindre.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Anything the server sends goes through these decoders: no input may crash them, and a rule
// set that decodes must come back unchanged through its own encoding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* octets, std::size_t taille) {
    const std::string_view texte(reinterpret_cast<const char*>(octets), taille);
    static_cast<void>(tavi::decoderRejoindre(texte));
    auto consigne = tavi::decoderConsigne(texte);
    if (!consigne) return 0;
    auto encore = tavi::decoderConsigne(tavi::encoderConsigne(*consigne).dump());
    if (!encore || !(*encore == *consigne)) std::abort();
    return 0;
}
