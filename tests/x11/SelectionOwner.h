// A clipboard owner inside the test, for what xclip cannot do: several
// targets, answers that take seconds or never come, and targets offered but
// refused. Shared by the app and the platform tests.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace zettly::test {

class SelectionOwner {
public:
    using Targets = std::map<std::string, std::string>;  // target name to its bytes
    struct Behaviour {
        // How long the owner takes to convert; TARGETS is answered at once.
        std::chrono::milliseconds delay{0};
        // Listed in TARGETS, but a request for them is refused.
        std::set<std::string> refused;
        // Requests for these are taken and never answered ("TARGETS" among
        // them makes an owner that answers nothing at all).
        std::set<std::string> unanswered;
    };

    static Behaviour answeringAfter(std::chrono::milliseconds delay) {
        Behaviour b;
        b.delay = delay;
        return b;
    }
    static Behaviour refusing(std::set<std::string> targets) {
        Behaviour b;
        b.refused = std::move(targets);
        return b;
    }
    static Behaviour neverAnswering(std::set<std::string> targets) {
        Behaviour b;
        b.unanswered = std::move(targets);
        return b;
    }

    // Takes the CLIPBOARD selection at once.
    explicit SelectionOwner(const Targets& targets) : SelectionOwner(targets, Behaviour()) {}
    SelectionOwner(const Targets& targets, const Behaviour& behaviour)
        : c_(xcb_connect(nullptr, nullptr)), window_(xcb_generate_id(c_)) {
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        targetsAtom_ = atom("TARGETS");
        for (const auto& [name, bytes] : targets)
            offered_.emplace(atom(name), bytes);
        delay_ = behaviour.delay;
        for (const std::string& name : behaviour.refused)
            refused_.insert(atom(name));
        for (const std::string& name : behaviour.unanswered)
            unanswered_.insert(atom(name));
        xcb_set_selection_owner(c_, window_, atom("CLIPBOARD"), XCB_CURRENT_TIME);
        xcb_flush(c_);
        thread_ = std::thread([this] { serve(); });
    }
    ~SelectionOwner() {
        done_ = true;
        std::uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(wake_, &one, sizeof one);
        thread_.join();
        ::close(wake_);
        xcb_destroy_window(c_, window_);
        xcb_disconnect(c_);
    }
    SelectionOwner(const SelectionOwner&) = delete;
    SelectionOwner& operator=(const SelectionOwner&) = delete;

    // Whether `target` (TARGETS or one the owner was made with) was asked
    // for, waiting for it up to `time`; readers ask for TARGETS first
    // whenever they examine a new copy.
    bool waitUntilAsked(const std::string& target = "TARGETS",
                        std::chrono::milliseconds time = std::chrono::seconds(10)) {
        std::unique_lock lock(mutex_);
        return asked_.wait_for(lock, time, [&] { return requested_.contains(target); });
    }
    bool wasAsked(const std::string& target) { return waitUntilAsked(target, {}); }

private:
    using Clock = std::chrono::steady_clock;

    // Only before the serving thread starts: a reply read on another
    // thread could take an event from under its poll().
    xcb_atom_t atom(const std::string& name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            c_, xcb_intern_atom(c_, 0, static_cast<uint16_t>(name.size()), name.c_str()), nullptr);
        xcb_atom_t a = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
        std::free(reply);
        names_.emplace(a, name);
        return a;
    }

    void answer(const xcb_selection_request_event_t& request) {
        // ICCCM: old clients leave the property out and mean the target itself.
        xcb_atom_t property = request.property ? request.property : request.target;
        auto offered = offered_.find(request.target);
        if (request.target == targetsAtom_) {
            std::vector<xcb_atom_t> atoms{targetsAtom_};
            for (const auto& entry : offered_)
                atoms.push_back(entry.first);
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                XCB_ATOM_ATOM, 32, static_cast<uint32_t>(atoms.size()),
                                atoms.data());
        } else if (offered != offered_.end() && !refused_.contains(request.target)) {
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                request.target, 8, static_cast<uint32_t>(offered->second.size()),
                                offered->second.data());
        } else {
            property = XCB_ATOM_NONE;
        }
        xcb_selection_notify_event_t notify{.response_type = XCB_SELECTION_NOTIFY,
                                            .pad0 = 0,
                                            .sequence = 0,
                                            .time = request.time,
                                            .requestor = request.requestor,
                                            .selection = request.selection,
                                            .target = request.target,
                                            .property = property};
        xcb_send_event(c_, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&notify));
        xcb_flush(c_);
    }

    void take(const xcb_selection_request_event_t& request) {
        {
            std::lock_guard lock(mutex_);
            if (auto name = names_.find(request.target); name != names_.end())
                requested_.insert(name->second);
            asked_.notify_all();
        }
        if (unanswered_.contains(request.target))
            return;
        if (request.target == targetsAtom_ || delay_.count() == 0)
            return answer(request);
        pending_.emplace_back(Clock::now() + delay_, request);
    }

    void serve() {
        while (!done_) {
            // Wakes up when a delayed answer is due, or to end.
            int wait = -1;
            for (const auto& [due, request] : pending_) {
                auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
                int ms = std::max(0, static_cast<int>(left.count()));
                wait = wait < 0 ? ms : std::min(wait, ms);
            }
            pollfd fds[2] = {{xcb_get_file_descriptor(c_), POLLIN, 0}, {wake_, POLLIN, 0}};
            ::poll(fds, 2, wait);
            while (xcb_generic_event_t* event = xcb_poll_for_event(c_)) {
                if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST)
                    take(*reinterpret_cast<xcb_selection_request_event_t*>(event));
                std::free(event);
            }
            auto due = std::partition(pending_.begin(), pending_.end(),
                                      [](const auto& p) { return p.first > Clock::now(); });
            for (auto it = due; it != pending_.end(); ++it)
                answer(it->second);
            pending_.erase(due, pending_.end());
        }
    }

    xcb_connection_t* c_;
    xcb_window_t window_;
    xcb_atom_t targetsAtom_ = XCB_ATOM_NONE;
    std::map<xcb_atom_t, std::string> offered_;
    std::chrono::milliseconds delay_{0};
    std::set<xcb_atom_t> refused_, unanswered_;
    // Serving thread only.
    std::vector<std::pair<Clock::time_point, xcb_selection_request_event_t>> pending_;
    std::thread thread_;
    std::atomic<bool> done_ = false;
    int wake_ = ::eventfd(0, EFD_CLOEXEC);
    std::mutex mutex_;
    std::condition_variable asked_;
    std::map<xcb_atom_t, std::string> names_;
    std::set<std::string> requested_;
};

}  // namespace zettly::test
