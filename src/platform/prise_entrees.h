#pragma once

namespace tavi {

// The keyboard and the pointer held for one of our windows, so that no other application can
// be used while the whole computer rests. Where the display server lets no client hold them
// (Wayland), there is no implementation and the veil goes without.
//
// Main thread only.
class PriseEntrees {
public:
    virtual ~PriseEntrees() = default;

    // Takes both for `fenetre` (a native window, mapped), or keeps them; false while another
    // client holds either: the caller tries again later.
    virtual bool prendre(unsigned long fenetre) = 0;
    // Lets both go, if held.
    virtual void relacher() = 0;
};

} // namespace tavi
