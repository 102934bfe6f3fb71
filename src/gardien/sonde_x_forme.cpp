#include "gardien/sonde_x.h"

#include <cstdlib>
#include <xcb/shape.h>

namespace tavi {
namespace {

constexpr int rectanglesMax = 4096;

// Whether the rectangles of one shape cover `zone`: the server gives a region's rectangles,
// which never overlap, so their areas inside the zone add up to the zone's when it is covered.
bool couvre(xcb_connection_t* c, xcb_window_t fenetre, xcb_shape_kind_t genre, std::int32_t x0,
            std::int32_t y0, const RectX& zone) {
    auto forme = reponse(
        xcb_shape_get_rectangles_reply(c, xcb_shape_get_rectangles(c, fenetre, genre), nullptr));
    if (!forme) return false;
    const int nombre = xcb_shape_get_rectangles_rectangles_length(forme.get());
    if (nombre > rectanglesMax) return false;
    const xcb_rectangle_t* r = xcb_shape_get_rectangles_rectangles(forme.get());
    std::int64_t aire = 0;
    for (int i = 0; i < nombre; ++i) {
        const RectX part = RectX{x0 + r[i].x, y0 + r[i].y, r[i].width, r[i].height}.inter(zone);
        aire += std::int64_t{part.largeur} * part.hauteur;
    }
    return aire == std::int64_t{zone.largeur} * zone.hauteur;
}

} // namespace

// Any client may shape any window: a veil shaped down to nothing is still mapped, on top and
// as large as the screen, and shows nothing.
bool SondeX::formeCouvre(xcb_window_t fenetre, const RectX& interieur, const RectX& zone) const {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_shape_id);
    if (!ext || !ext->present) return true;
    auto etendue =
        reponse(xcb_shape_query_extents_reply(c, xcb_shape_query_extents(c, fenetre), nullptr));
    if (!etendue) return false;
    return (!etendue->bounding_shaped ||
            couvre(c, fenetre, XCB_SHAPE_SK_BOUNDING, interieur.x, interieur.y, zone)) &&
           (!etendue->clip_shaped ||
            couvre(c, fenetre, XCB_SHAPE_SK_CLIP, interieur.x, interieur.y, zone));
}

} // namespace tavi
