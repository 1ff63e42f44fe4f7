#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/UniqueFd.h"

struct wl_client;
struct wl_display;
struct wl_event_loop;
struct wl_event_source;
struct wl_global;

namespace zettly::test {

// How "another application" of TestCompositor answers a request for its contents.
struct OwnerAnswer {
    // Waits this long before writing anything.
    std::chrono::milliseconds delay{0};
    // Keeps the pipe open and writes nothing.
    bool never = false;
    // Writes this many bytes, then keeps the pipe open without a word.
    std::optional<std::size_t> stallAfter{};
};

// What a TestCompositor offers.
struct CompositorOptions {
    // Off: only the seat, for a compositor the clipboard cannot use.
    bool dataControl = true;
};

// A Wayland compositor of the tests' own, on libwayland-server: a seat
// without input devices and ext-data-control-v1, nothing else (no wlr data
// control, so a client can only get by with the ext protocol). It keeps one
// clipboard selection and one primary selection with the usual semantics:
// a new selection cancels the previous owner's source and is announced to
// every data-control device; a receive on an offer is forwarded to the
// owner. The test side plays the other applications.
//
// The socket is made in XDG_RUNTIME_DIR, which the test points at a
// temporary folder first. Events are handled on a thread of its own; every
// public member may be called from any thread.
class TestCompositor {
public:
    using Bytes = std::vector<std::uint8_t>;
    // Formats and their contents, in the order they are offered.
    using Contents = std::vector<std::pair<std::string, Bytes>>;

    using Answer = OwnerAnswer;
    using Options = CompositorOptions;

    explicit TestCompositor(Options options = {});
    ~TestCompositor();
    TestCompositor(const TestCompositor&) = delete;
    TestCompositor& operator=(const TestCompositor&) = delete;

    // What WAYLAND_DISPLAY names.
    const std::string& socketName() const { return socket_; }

    // Another application copies: it owns the selection from now on.
    void copyFromApp(Contents contents, Answer answer = {});
    // Another application selects text: the primary selection only.
    void selectFromApp(Contents contents);
    // Tells every data-control device that it is no longer valid.
    void finishDevices();

    // How often the selection changed hands so far (clients and test alike).
    std::uint64_t selectionChanges();
    // Waits until the selection has changed hands `count` times in all;
    // false when it has not within `timeout`.
    bool waitForSelectionChanges(std::uint64_t count,
                                 std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Waits until clients have asked owners for contents `count` times in
    // all; false when they have not within `timeout`.
    bool waitForRequests(std::uint64_t count,
                         std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // The formats the selection's owner offers; none when nobody owns it.
    std::optional<std::vector<std::string>> selectionTypes();
    // Whether a client (rather than the test) owns the selection.
    bool clientOwnsSelection();

    // Reads the selection as `type` the way a pasting application does;
    // none when it is not offered or the owner did not finish within
    // `timeout`.
    std::optional<Bytes> read(const std::string& type,
                              std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Asks the owner for `type` and never reads: the read end, so that the
    // test sees when the owner gives up (the end hangs up).
    UniqueFd requestWithoutReading(const std::string& type);

    struct Owner;
    struct Device;

private:
    // Runs `work` on the compositor's thread and waits for it.
    void call(std::function<void()> work);
    void runCalls();
    void setSelection(std::shared_ptr<Owner> owner, bool primary);
    void announce(Device& device, bool primary);
    UniqueFd requestFromOwner(const std::string& type);

    static void bindSeat(wl_client* client, void* data, std::uint32_t version, std::uint32_t id);
    static void bindManager(wl_client* client, void* data, std::uint32_t version, std::uint32_t id);

    wl_display* display_ = nullptr;
    wl_event_loop* loop_ = nullptr;
    wl_event_source* wakeSource_ = nullptr;
    std::string socket_;
    UniqueFd wakeFd_;
    bool running_ = true;        // compositor thread
    bool shuttingDown_ = false;  // compositor thread
    std::thread thread_;

    std::mutex callsMutex_;
    std::vector<std::function<void()>> calls_;

    // Compositor thread.
    std::vector<Device*> devices_;
    std::shared_ptr<Owner> selection_;
    std::shared_ptr<Owner> primary_;
    std::vector<std::shared_ptr<Owner>> appOwners_;  // stopped at the end

    std::mutex changesMutex_;
    std::condition_variable changesChanged_;
    std::uint64_t changes_ = 0;
    std::uint64_t requests_ = 0;

    friend struct Callbacks;
};

}  // namespace zettly::test
