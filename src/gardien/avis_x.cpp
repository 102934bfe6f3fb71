#include "gardien/avis_x.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace tavi {
namespace {

constexpr int marge = 24;
constexpr std::size_t colonnesMax = 80;

std::u16string decoder(const std::string& utf8) {
    std::u16string texte;
    for (std::size_t i = 0; i < utf8.size();) {
        const unsigned char tete = static_cast<unsigned char>(utf8[i]);
        std::size_t n = 0;
        char32_t code = 0;
        if (tete < 0x80)
            n = 1, code = tete;
        else if (tete >= 0xC2 && tete < 0xE0)
            n = 2, code = tete & 0x1F;
        else if (tete >= 0xE0 && tete < 0xF0)
            n = 3, code = tete & 0x0F;
        else if (tete >= 0xF0 && tete < 0xF5)
            n = 4, code = tete & 0x07;
        bool bon = n > 0 && i + n <= utf8.size();
        for (std::size_t k = 1; bon && k < n; ++k) {
            const unsigned char octet = static_cast<unsigned char>(utf8[i + k]);
            bon = (octet & 0xC0) == 0x80;
            code = (code << 6) | (octet & 0x3F);
        }
        if (n == 3 && (code < 0x800 || (code >= 0xD800 && code < 0xE000))) bon = false;
        if (!bon || code > 0xFFFF) code = u'?';
        if (code < 0x20 && code != u'\n') code = u' ';
        texte.push_back(static_cast<char16_t>(code));
        i += bon ? n : 1;
    }
    return texte;
}

} // namespace

std::vector<std::u16string> lignesAvis(const std::string& utf8, std::size_t colonnes) {
    colonnes = std::clamp<std::size_t>(colonnes, 1, colonnesMax);
    std::vector<std::u16string> lignes;
    const std::u16string texte = decoder(utf8);
    std::size_t debut = 0;
    while (debut <= texte.size() && lignes.size() < 40) {
        const std::size_t finParagraphe = std::min(texte.find(u'\n', debut), texte.size());
        std::u16string ligne;
        std::size_t i = debut;
        while (i < finParagraphe) {
            const std::size_t finMot = std::min(texte.find(u' ', i), finParagraphe);
            std::u16string mot = texte.substr(i, finMot - i);
            i = finMot + 1;
            while (!mot.empty()) {
                const std::size_t place = ligne.empty() ? colonnes : colonnes - ligne.size() - 1;
                if (ligne.size() < colonnes && mot.size() <= place) {
                    if (!ligne.empty()) ligne += u' ';
                    ligne += mot;
                    break;
                }
                if (ligne.empty()) { // a word longer than a line is cut
                    ligne = mot.substr(0, colonnes);
                    mot.erase(0, colonnes);
                }
                lignes.push_back(std::move(ligne));
                ligne.clear();
            }
        }
        lignes.push_back(std::move(ligne));
        debut = finParagraphe + 1;
    }
    return lignes;
}

AvisX::AvisX(SondeX& sonde, const std::string& texte) : c(sonde.connexion()), texte_(texte) {
    // A 16-bit font is what shows French accents through ImageText16; "fixed" is on every
    // server, in Latin-1 at least.
    for (const char* nom : {"-misc-fixed-medium-r-normal--18-*-*-*-*-*-iso10646-1", "fixed"}) {
        police = xcb_generate_id(c);
        const auto cookie =
            xcb_open_font_checked(c, police, static_cast<std::uint16_t>(strlen(nom)), nom);
        if (xcb_generic_error_t* erreur = xcb_request_check(c, cookie)) {
            std::free(erreur);
            police = 0;
            continue;
        }
        break;
    }
    if (police) {
        auto info = reponse(xcb_query_font_reply(c, xcb_query_font(c, police), nullptr));
        if (info) {
            largeurCar = std::max<int>(1, info->max_bounds.character_width);
            monte = info->font_ascent;
            descend = info->font_descent;
        }
    }
    for (const auto& [racine, moniteur] : sonde.moniteurs()) {
        const xcb_screen_t* ecran = nullptr;
        for (auto it = xcb_setup_roots_iterator(xcb_get_setup(c)); it.rem; xcb_screen_next(&it))
            if (it.data->root == racine) ecran = it.data;
        if (!ecran) continue;
        Fenetre f;
        const std::size_t colonnes =
            static_cast<std::size_t>(std::max(1, (moniteur.largeur - 2 * marge) / largeurCar));
        f.lignes = lignesAvis(texte, colonnes);
        std::size_t plusLongue = 1;
        for (const auto& ligne : f.lignes)
            plusLongue = std::max(plusLongue, ligne.size());
        const int largeur =
            std::min<int>(moniteur.largeur, static_cast<int>(plusLongue) * largeurCar + 2 * marge);
        const int hauteur = std::min<int>(
            moniteur.hauteur, static_cast<int>(f.lignes.size()) * (monte + descend) + 2 * marge);
        f.id = xcb_generate_id(c);
        const std::uint32_t valeurs[] = {ecran->white_pixel, ecran->black_pixel, 1};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, f.id, racine,
                          static_cast<std::int16_t>(moniteur.x + (moniteur.largeur - largeur) / 2),
                          static_cast<std::int16_t>(moniteur.y + (moniteur.hauteur - hauteur) / 2),
                          static_cast<std::uint16_t>(largeur), static_cast<std::uint16_t>(hauteur),
                          2, XCB_WINDOW_CLASS_INPUT_OUTPUT, ecran->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                          valeurs);
        f.gc = xcb_generate_id(c);
        const std::uint32_t trait[] = {ecran->black_pixel, ecran->white_pixel, police};
        xcb_create_gc(c, f.gc, f.id,
                      XCB_GC_FOREGROUND | XCB_GC_BACKGROUND |
                          (police ? std::uint32_t{XCB_GC_FONT} : 0u),
                      trait);
        xcb_map_window(c, f.id);
        fenetres.push_back(std::move(f));
    }
    relever();
}

AvisX::~AvisX() {
    for (const Fenetre& f : fenetres) {
        xcb_free_gc(c, f.gc);
        xcb_destroy_window(c, f.id);
    }
    if (police) xcb_close_font(c, police);
    xcb_flush(c);
}

void AvisX::relever() {
    // Drawn again each time rather than on Expose: the guardian reads no events on this
    // connection, and a second is soon enough for a window put over the notice.
    for (const Fenetre& f : fenetres) {
        const std::uint32_t dessus[] = {XCB_STACK_MODE_ABOVE};
        xcb_configure_window(c, f.id, XCB_CONFIG_WINDOW_STACK_MODE, dessus);
        int y = marge + monte;
        for (const auto& ligne : f.lignes) {
            std::vector<xcb_char2b_t> car; // the server takes the high byte first
            for (char16_t u : ligne)
                car.push_back({static_cast<std::uint8_t>(u >> 8), static_cast<std::uint8_t>(u)});
            if (!car.empty())
                xcb_image_text_16(c, static_cast<std::uint8_t>(car.size()), f.id, f.gc, marge,
                                  static_cast<std::int16_t>(y), car.data());
            y += monte + descend;
        }
    }
    xcb_flush(c);
}

} // namespace tavi
