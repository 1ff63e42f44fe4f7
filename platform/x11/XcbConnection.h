#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <xcb/xcb.h>

namespace zettly {

// A connection to the X server of our own, beside Qt's: clipboard reads wait
// on it with their own time limit, and property queries never touch Qt's
// event queue. Used from the main thread only.
class XcbConnection {
public:
    // None when no X server can be reached (a Wayland-only session).
    static std::unique_ptr<XcbConnection> open(const char* display = nullptr);
    ~XcbConnection();
    XcbConnection(const XcbConnection&) = delete;
    XcbConnection& operator=(const XcbConnection&) = delete;

    xcb_connection_t* get() const { return connection_; }
    xcb_window_t root() const { return root_; }

    xcb_atom_t atom(std::string_view name);
    std::string atomName(xcb_atom_t atom);

    // The raw bytes of a window property (up to `maxBytes`), none when it is
    // missing or has another type.
    std::optional<std::string> property(xcb_window_t window, xcb_atom_t property,
                                        xcb_atom_t type = XCB_GET_PROPERTY_TYPE_ANY,
                                        std::uint32_t maxBytes = 65536);
    std::optional<std::uint32_t> property32(xcb_window_t window, xcb_atom_t property,
                                            xcb_atom_t type);

private:
    XcbConnection(xcb_connection_t* connection, xcb_window_t root);
    xcb_connection_t* connection_;
    xcb_window_t root_;
    std::unordered_map<std::string, xcb_atom_t> atoms_;
    std::unordered_map<xcb_atom_t, std::string> names_;
};

}  // namespace zettly
