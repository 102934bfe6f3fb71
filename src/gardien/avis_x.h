#pragma once

#include "gardien/sonde_x.h"

#include <string>
#include <vector>

namespace tavi {

// The text as the X server's 16-bit fonts take it: UTF-8 decoded, characters beyond the basic
// plane and broken sequences shown as '?', lines cut at words to at most `colonnes` characters.
std::vector<std::u16string> lignesAvis(const std::string& utf8, std::size_t colonnes);

// A notice of the guardian's own on every monitor of a display: an override-redirect window in
// the middle of each, its text in a core font, raised above everything each time it is asked.
class AvisX {
public:
    AvisX(SondeX& sonde, const std::string& texte);
    ~AvisX();
    AvisX(const AvisX&) = delete;
    AvisX& operator=(const AvisX&) = delete;

    const std::string& texte() const { return texte_; }
    void relever();

private:
    struct Fenetre {
        xcb_window_t id = 0;
        xcb_gcontext_t gc = 0;
        std::vector<std::u16string> lignes;
    };
    xcb_connection_t* c;
    std::string texte_;
    xcb_font_t police = 0;
    int largeurCar = 8, monte = 10, descend = 3;
    std::vector<Fenetre> fenetres;
};

} // namespace tavi
