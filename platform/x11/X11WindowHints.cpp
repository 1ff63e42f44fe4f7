#include "platform/x11/X11WindowHints.h"

#include <QGuiApplication>
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <xcb/xcb.h>

namespace zettly {

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeDeleter>;

xcb_connection_t* x11Connection() {
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const std::string& name, bool onlyIfExists = false) {
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        c, xcb_intern_atom(c, onlyIfExists, std::uint16_t(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

// The screen number is the part after the dot in DISPLAY (":0.1"); Qt's
// connection does not expose it.
int screenNumber() {
    std::string display = qEnvironmentVariable("DISPLAY").toStdString();
    auto colon = display.rfind(':');
    auto dot = display.find('.', colon == std::string::npos ? 0 : colon);
    return dot == std::string::npos ? 0 : std::atoi(display.c_str() + dot + 1);
}

}  // namespace

bool X11WindowHints::translucentWindows() {
    xcb_connection_t* c = x11Connection();
    if (!c)
        return false;
    xcb_atom_t selection = atom(c, "_NET_WM_CM_S" + std::to_string(screenNumber()), true);
    if (selection == xcb_atom_t(XCB_ATOM_NONE))
        return false;
    Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    return owner && owner->owner != XCB_NONE;
}

void X11WindowHints::preparePanel(std::uint64_t nativeWindow) {
    xcb_connection_t* c = x11Connection();
    if (!c)
        return;
    auto window = static_cast<xcb_window_t>(nativeWindow);
    const std::uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, atom(c, "_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &allDesktops);

    // Merged into what is there: Qt adds its own states (above) at mapping.
    xcb_atom_t state = atom(c, "_NET_WM_STATE");
    std::vector<xcb_atom_t> states;
    Reply<xcb_get_property_reply_t> current(xcb_get_property_reply(
        c, xcb_get_property(c, 0, window, state, XCB_ATOM_ATOM, 0, 64), nullptr));
    if (current && current->format == 32) {
        auto* values = static_cast<const xcb_atom_t*>(xcb_get_property_value(current.get()));
        states.assign(values, values + xcb_get_property_value_length(current.get()) / 4);
    }
    for (const char* name :
         {"_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}) {
        xcb_atom_t a = atom(c, name);
        if (std::find(states.begin(), states.end(), a) == states.end())
            states.push_back(a);
    }
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, state, XCB_ATOM_ATOM, 32,
                        std::uint32_t(states.size()), states.data());
    xcb_flush(c);
}

}  // namespace zettly
