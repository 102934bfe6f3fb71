#include "platform/linux/prise_x11.h"

#include <cstdint>
#include <cstdlib>
#include <xcb/xcb.h>

namespace tavi {

namespace {

bool reussie(xcb_connection_t* connexion, xcb_grab_keyboard_cookie_t demande) {
    xcb_grab_keyboard_reply_t* reponse = xcb_grab_keyboard_reply(connexion, demande, nullptr);
    const bool ok = reponse && reponse->status == XCB_GRAB_STATUS_SUCCESS;
    std::free(reponse);
    return ok;
}

bool reussie(xcb_connection_t* connexion, xcb_grab_pointer_cookie_t demande) {
    xcb_grab_pointer_reply_t* reponse = xcb_grab_pointer_reply(connexion, demande, nullptr);
    const bool ok = reponse && reponse->status == XCB_GRAB_STATUS_SUCCESS;
    std::free(reponse);
    return ok;
}

} // namespace

bool PriseX11::prendre(unsigned long fenetre) {
    const auto cible = static_cast<xcb_window_t>(fenetre);
    // Both requests leave before either answer is read: one round trip. Taking a grab this
    // client already holds only renews it.
    const auto clavier = xcb_grab_keyboard(connexion_, 1, cible, XCB_CURRENT_TIME,
                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    constexpr std::uint16_t masque = XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                                     XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_ENTER_WINDOW |
                                     XCB_EVENT_MASK_LEAVE_WINDOW;
    const auto pointeur =
        xcb_grab_pointer(connexion_, 1, cible, masque, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC,
                         XCB_NONE, XCB_NONE, XCB_CURRENT_TIME);
    const bool clavierTenu = reussie(connexion_, clavier);
    const bool pointeurTenu = reussie(connexion_, pointeur);
    tenue_ = clavierTenu || pointeurTenu;
    return clavierTenu && pointeurTenu;
}

void PriseX11::relacher() {
    if (!tenue_) return;
    xcb_ungrab_keyboard(connexion_, XCB_CURRENT_TIME);
    xcb_ungrab_pointer(connexion_, XCB_CURRENT_TIME);
    xcb_flush(connexion_);
    tenue_ = false;
}

} // namespace tavi
