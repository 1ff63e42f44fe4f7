#include "platform/x11/XcbSelectionReader.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace zettly {

namespace {

using EventPtr = std::unique_ptr<xcb_generic_event_t, decltype(&std::free)>;
using PropertyReply = std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)>;

template <typename T>
ReadResult<T> failed(ReadStatus status) {
    return ReadResult<T>::failure(status);
}

}  // namespace

XcbSelectionReader::XcbSelectionReader(XcbConnection& connection, int wakeFd,
                                       Interruption interrupted)
    : connection_(connection),
      wakeFd_(wakeFd),
      interrupted_(std::move(interrupted)),
      window_(xcb_generate_id(connection.get())),
      clipboard_(connection.atom("CLIPBOARD")),
      incr_(connection.atom("INCR")) {
    for (std::size_t i = 0; i < properties_.size(); ++i)
        properties_[i] = connection.atom("ZETTLY_SELECTION_" + std::to_string(i));
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

XcbSelectionReader::Wait XcbSelectionReader::waitForEvent(std::uint8_t kind,
                                                          Clock::time_point deadline) {
    xcb_connection_t* c = connection_.get();
    for (;;) {
        if (auto why = interrupted_())
            return {nullptr, *why};
        if (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
            if ((event->response_type & 0x7f) == kind)
                return {event, ReadStatus::ok};
            std::free(event);
            continue;
        }
        if (xcb_connection_has_error(c))
            return {nullptr, ReadStatus::noAnswer};
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return {nullptr, ReadStatus::noAnswer};
        pollfd fds[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {wakeFd_, POLLIN, 0}};
        ::poll(fds, wakeFd_ >= 0 ? 2 : 1, static_cast<int>(left.count()));
        // Emptied before the next look at the interruption: a wake from a
        // change already seen would otherwise keep poll() returning at once.
        if (wakeFd_ >= 0 && (fds[1].revents & POLLIN)) {
            std::uint64_t wakes = 0;
            [[maybe_unused]] auto n = ::read(wakeFd_, &wakes, sizeof wakes);
        }
    }
}

ReadResult<XcbSelectionReader::Bytes> XcbSelectionReader::read(std::string_view target,
                                                               Limits limits) {
    xcb_connection_t* c = connection_.get();
    xcb_atom_t targetAtom = connection_.atom(target);
    if (targetAtom == XCB_ATOM_NONE)
        return failed<Bytes>(ReadStatus::absent);
    // Each request has a property of its own, so that the late answer to a
    // request given up earlier is never taken for this one's.
    xcb_atom_t property = properties_[nextProperty_++ % properties_.size()];
    xcb_delete_property(c, window_, property);
    xcb_convert_selection(c, window_, clipboard_, targetAtom, property, XCB_CURRENT_TIME);
    xcb_flush(c);

    // The owner may take its time to convert (it answers once, when done).
    auto deadline = Clock::now() + limits.idle;
    for (;;) {
        Wait wait = waitForEvent(XCB_SELECTION_NOTIFY, deadline);
        EventPtr event(wait.event, std::free);
        if (!event)
            return failed<Bytes>(wait.failure);
        auto* notify = reinterpret_cast<xcb_selection_notify_event_t*>(event.get());
        if (notify->requestor != window_ || notify->target != targetAtom)
            continue;
        if (notify->property == XCB_ATOM_NONE)
            return failed<Bytes>(ReadStatus::absent);  // refused, or nobody owns it
        if (notify->property != property) {
            xcb_delete_property(c, window_, notify->property);
            continue;  // the late answer to a request given up earlier
        }

        auto cookie = xcb_get_property(c, 0, window_, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                       static_cast<std::uint32_t>(limits.maxBytes / 4 + 1));
        PropertyReply reply(xcb_get_property_reply(c, cookie, nullptr), std::free);
        if (!reply)
            return failed<Bytes>(ReadStatus::absent);
        if (reply->type == incr_) {
            // Deleting the property tells the owner to start sending chunks.
            xcb_delete_property(c, window_, property);
            xcb_flush(c);
            return readIncrementally(property, limits);
        }
        xcb_delete_property(c, window_, property);
        xcb_flush(c);
        auto length = static_cast<std::size_t>(xcb_get_property_value_length(reply.get()));
        if (reply->bytes_after > 0 || length > limits.maxBytes)
            return failed<Bytes>(ReadStatus::tooLarge);
        auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get()));
        return ReadResult<Bytes>::success(Bytes(data, data + length));
    }
}

ReadResult<XcbSelectionReader::Bytes> XcbSelectionReader::readIncrementally(xcb_atom_t property,
                                                                            Limits limits) {
    xcb_connection_t* c = connection_.get();
    Bytes out;
    auto deadline = Clock::now() + limits.idle;
    for (;;) {
        Wait wait = waitForEvent(XCB_PROPERTY_NOTIFY, deadline);
        EventPtr event(wait.event, std::free);
        if (!event)
            return failed<Bytes>(wait.failure);
        auto* notify = reinterpret_cast<xcb_property_notify_event_t*>(event.get());
        if (notify->window != window_ || notify->atom != property ||
            notify->state != XCB_PROPERTY_NEW_VALUE)
            continue;
        // Reading with delete set asks the owner for the next chunk.
        auto cookie = xcb_get_property(c, 1, window_, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                       static_cast<std::uint32_t>(limits.maxBytes / 4 + 1));
        PropertyReply reply(xcb_get_property_reply(c, cookie, nullptr), std::free);
        xcb_flush(c);
        if (!reply)
            return failed<Bytes>(ReadStatus::noAnswer);
        auto length = static_cast<std::size_t>(xcb_get_property_value_length(reply.get()));
        if (length == 0)
            return ReadResult<Bytes>::success(std::move(out));  // the empty chunk ends it
        if (out.size() + length > limits.maxBytes || reply->bytes_after > 0)
            return failed<Bytes>(ReadStatus::tooLarge);
        auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get()));
        out.insert(out.end(), data, data + length);
        deadline = Clock::now() + limits.idle;  // a chunk arrived: the owner is alive
    }
}

ReadResult<std::vector<std::string>> XcbSelectionReader::targets(
    std::chrono::milliseconds idleLimit) {
    auto raw = read("TARGETS", {idleLimit, 64 * 1024});
    if (!raw.ok())
        return ReadResult<std::vector<std::string>>::failure(raw.status);
    std::vector<std::string> names;
    std::size_t count = raw.value.size() / 4;
    for (std::size_t i = 0; i < count; ++i) {
        xcb_atom_t atom = 0;
        std::memcpy(&atom, raw.value.data() + i * 4, 4);
        std::string name = connection_.atomName(atom);
        if (!name.empty())
            names.push_back(std::move(name));
    }
    if (names.empty())
        return ReadResult<std::vector<std::string>>::failure(ReadStatus::absent);
    return ReadResult<std::vector<std::string>>::success(std::move(names));
}

}  // namespace zettly
