#pragma once

#include "platform/prise_entrees.h"

// XCB's connection, declared here so that no X11 header reaches the program's headers.
struct xcb_connection_t;

namespace tavi {

// The keyboard and pointer grabs on the X server, made on the connection that owns the veil's
// windows (Qt's): with "owner events", the veil's buttons on every screen still get their clicks
// and keys, and every other client gets none.
class PriseX11 : public PriseEntrees {
public:
    // `connexion` must outlive this object.
    explicit PriseX11(xcb_connection_t* connexion) : connexion_(connexion) {}
    ~PriseX11() override { relacher(); }

    bool prendre(unsigned long fenetre) override;
    void relacher() override;

private:
    xcb_connection_t* connexion_;
    bool tenue_ = false;
};

} // namespace tavi
