#include "platform/x11/XcbConnection.h"

#include <cstdlib>
#include <cstring>

namespace zettly {

std::unique_ptr<XcbConnection> XcbConnection::open(const char* display) {
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(display, &screenNumber);
    if (!connection || xcb_connection_has_error(connection)) {
        if (connection)
            xcb_disconnect(connection);
        return nullptr;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return std::unique_ptr<XcbConnection>(new XcbConnection(connection, screens.data->root));
}

XcbConnection::XcbConnection(xcb_connection_t* connection, xcb_window_t root)
    : connection_(connection), root_(root) {}

XcbConnection::~XcbConnection() {
    xcb_disconnect(connection_);
}

xcb_atom_t XcbConnection::atom(std::string_view name) {
    std::string key(name);
    if (auto it = atoms_.find(key); it != atoms_.end())
        return it->second;
    auto cookie =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(key.size()), key.data());
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection_, cookie, nullptr), std::free);
    xcb_atom_t atom = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    if (atom != XCB_ATOM_NONE) {
        atoms_.emplace(key, atom);
        names_.emplace(atom, key);
    }
    return atom;
}

std::string XcbConnection::atomName(xcb_atom_t atom) {
    if (auto it = names_.find(atom); it != names_.end())
        return it->second;
    std::unique_ptr<xcb_get_atom_name_reply_t, decltype(&std::free)> reply(
        xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr),
        std::free);
    if (!reply)
        return {};
    std::string name(xcb_get_atom_name_name(reply.get()),
                     static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get())));
    names_.emplace(atom, name);
    atoms_.emplace(name, atom);
    return name;
}

std::optional<std::string> XcbConnection::property(xcb_window_t window, xcb_atom_t property,
                                                   xcb_atom_t type, std::uint32_t maxBytes) {
    auto cookie = xcb_get_property(connection_, 0, window, property, type, 0, (maxBytes + 3) / 4);
    std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
        xcb_get_property_reply(connection_, cookie, nullptr), std::free);
    if (!reply || reply->type == XCB_ATOM_NONE)
        return std::nullopt;
    if (type != XCB_GET_PROPERTY_TYPE_ANY && reply->type != type)
        return std::nullopt;
    auto length = xcb_get_property_value_length(reply.get());
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<std::size_t>(length));
}

std::optional<std::uint32_t> XcbConnection::property32(xcb_window_t window, xcb_atom_t property,
                                                       xcb_atom_t type) {
    auto value = this->property(window, property, type, 4);
    if (!value || value->size() < 4)
        return std::nullopt;
    std::uint32_t out = 0;
    std::memcpy(&out, value->data(), 4);
    return out;
}

}  // namespace zettly
