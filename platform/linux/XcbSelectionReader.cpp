#include "platform/linux/XcbSelectionReader.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include <poll.h>

namespace zettly {

namespace {

using EventPtr = std::unique_ptr<xcb_generic_event_t, decltype(&std::free)>;
using PropertyReply = std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)>;

}  // namespace

XcbSelectionReader::XcbSelectionReader(XcbConnection& connection)
    : connection_(connection),
      window_(xcb_generate_id(connection.get())),
      clipboard_(connection.atom("CLIPBOARD")),
      property_(connection.atom("ZETTLY_SELECTION")),
      incr_(connection.atom("INCR")) {
    std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window_, connection.root(), 0, 0, 1,
                      1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_flush(connection.get());
}

XcbSelectionReader::~XcbSelectionReader() {
    xcb_destroy_window(connection_.get(), window_);
    xcb_flush(connection_.get());
}

xcb_generic_event_t* XcbSelectionReader::waitForEvent(Clock::time_point deadline) {
    xcb_connection_t* c = connection_.get();
    for (;;) {
        if (xcb_generic_event_t* event = xcb_poll_for_event(c))
            return event;
        if (xcb_connection_has_error(c))
            return nullptr;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return nullptr;
        pollfd fd{xcb_get_file_descriptor(c), POLLIN, 0};
        ::poll(&fd, 1, static_cast<int>(left.count()));
    }
}

std::optional<XcbSelectionReader::Bytes> XcbSelectionReader::read(std::string_view target,
                                                                  std::chrono::milliseconds limit,
                                                                  std::size_t maxBytes) {
    xcb_connection_t* c = connection_.get();
    xcb_atom_t targetAtom = connection_.atom(target);
    if (targetAtom == XCB_ATOM_NONE)
        return std::nullopt;
    auto deadline = Clock::now() + limit;
    xcb_delete_property(c, window_, property_);
    xcb_convert_selection(c, window_, clipboard_, targetAtom, property_, XCB_CURRENT_TIME);
    xcb_flush(c);

    for (;;) {
        EventPtr event(waitForEvent(deadline), std::free);
        if (!event)
            return std::nullopt;  // no answer in time
        if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY)
            continue;
        auto* notify = reinterpret_cast<xcb_selection_notify_event_t*>(event.get());
        // An answer to an earlier request that timed out is not this one's.
        if (notify->requestor != window_ || notify->target != targetAtom)
            continue;
        if (notify->property == XCB_ATOM_NONE)
            return std::nullopt;  // refused

        auto cookie = xcb_get_property(c, 0, window_, property_, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                       static_cast<std::uint32_t>(maxBytes / 4 + 1));
        PropertyReply reply(xcb_get_property_reply(c, cookie, nullptr), std::free);
        if (!reply)
            return std::nullopt;
        if (reply->type == incr_) {
            // Deleting the property tells the owner to start sending chunks.
            xcb_delete_property(c, window_, property_);
            xcb_flush(c);
            return readIncrementally(deadline, maxBytes);
        }
        xcb_delete_property(c, window_, property_);
        xcb_flush(c);
        if (reply->bytes_after > 0)
            return std::nullopt;  // more than maxBytes
        auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get()));
        auto length = static_cast<std::size_t>(xcb_get_property_value_length(reply.get()));
        if (length > maxBytes)
            return std::nullopt;
        return Bytes(data, data + length);
    }
}

std::optional<XcbSelectionReader::Bytes> XcbSelectionReader::readIncrementally(
    Clock::time_point deadline, std::size_t maxBytes) {
    xcb_connection_t* c = connection_.get();
    Bytes out;
    for (;;) {
        EventPtr event(waitForEvent(deadline), std::free);
        if (!event)
            return std::nullopt;
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            continue;
        auto* notify = reinterpret_cast<xcb_property_notify_event_t*>(event.get());
        if (notify->window != window_ || notify->atom != property_ ||
            notify->state != XCB_PROPERTY_NEW_VALUE)
            continue;
        // Reading with delete set asks the owner for the next chunk.
        auto cookie = xcb_get_property(c, 1, window_, property_, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                       static_cast<std::uint32_t>(maxBytes / 4 + 1));
        PropertyReply reply(xcb_get_property_reply(c, cookie, nullptr), std::free);
        xcb_flush(c);
        if (!reply)
            return std::nullopt;
        auto length = static_cast<std::size_t>(xcb_get_property_value_length(reply.get()));
        if (length == 0)
            return out;  // the empty chunk ends the transfer
        if (out.size() + length > maxBytes || reply->bytes_after > 0)
            return std::nullopt;
        auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get()));
        out.insert(out.end(), data, data + length);
    }
}

std::vector<std::string> XcbSelectionReader::targets(std::chrono::milliseconds limit) {
    std::vector<std::string> names;
    auto raw = read("TARGETS", limit, 64 * 1024);
    if (!raw)
        return names;
    std::size_t count = raw->size() / 4;
    for (std::size_t i = 0; i < count; ++i) {
        xcb_atom_t atom = 0;
        std::memcpy(&atom, raw->data() + i * 4, 4);
        std::string name = connection_.atomName(atom);
        if (!name.empty())
            names.push_back(std::move(name));
    }
    return names;
}

}  // namespace zettly
