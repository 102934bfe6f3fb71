// Preloaded into a program by the child, keeps every window of it off the screen: the map
// requests of Xlib and of XCB (Qt's) are swallowed and said to have succeeded.
#include <cstdint>

extern "C" {

struct xcb_connection_t;
struct xcb_void_cookie_t {
    unsigned int sequence;
};

xcb_void_cookie_t xcb_map_window(xcb_connection_t*, std::uint32_t) {
    return {0};
}

xcb_void_cookie_t xcb_map_window_checked(xcb_connection_t*, std::uint32_t) {
    return {0};
}

xcb_void_cookie_t xcb_map_subwindows(xcb_connection_t*, std::uint32_t) {
    return {0};
}

int XMapWindow(void*, unsigned long) {
    return 1;
}

int XMapRaised(void*, unsigned long) {
    return 1;
}

int XMapSubwindows(void*, unsigned long) {
    return 1;
}
}
