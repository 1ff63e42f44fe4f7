// The real app under Xvfb, fed by real X clients: what reaches its databases.
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <poll.h>
#include <xcb/xcb.h>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/x11/X11TestSupport.h"

namespace zettly::test {
namespace {

// Owns CLIPBOARD with several targets, which xclip cannot do, and records
// what it is asked for, so a test knows the app has looked at the copy.
class SelectionOwner {
public:
    explicit SelectionOwner(const std::map<std::string, std::string>& targets)
        : c_(xcb_connect(nullptr, nullptr)), window_(xcb_generate_id(c_)) {
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        targetsAtom_ = atom("TARGETS");
        for (const auto& [name, bytes] : targets)
            offered_.emplace(atom(name), bytes);
        xcb_set_selection_owner(c_, window_, atom("CLIPBOARD"), XCB_CURRENT_TIME);
        xcb_flush(c_);
        thread_ = std::thread([this] { serve(); });
    }
    ~SelectionOwner() {
        done_ = true;
        thread_.join();
        xcb_destroy_window(c_, window_);
        xcb_disconnect(c_);
    }

    // The app asks for TARGETS first whenever it examines a new copy.
    bool waitUntilExamined() {
        std::unique_lock lock(mutex_);
        return asked_.wait_for(lock, kDeadline, [&] { return requested_.contains(targetsAtom_); });
    }

private:
    xcb_atom_t atom(const std::string& name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            c_, xcb_intern_atom(c_, 0, static_cast<uint16_t>(name.size()), name.c_str()), nullptr);
        xcb_atom_t a = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
        std::free(reply);
        return a;
    }

    void answer(const xcb_selection_request_event_t& request) {
        // ICCCM: old clients leave the property out and mean the target itself.
        xcb_atom_t property = request.property ? request.property : request.target;
        if (request.target == targetsAtom_) {
            std::vector<xcb_atom_t> atoms{targetsAtom_};
            for (const auto& offered : offered_)
                atoms.push_back(offered.first);
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                XCB_ATOM_ATOM, 32, static_cast<uint32_t>(atoms.size()),
                                atoms.data());
        } else if (auto it = offered_.find(request.target); it != offered_.end()) {
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                request.target, 8, static_cast<uint32_t>(it->second.size()),
                                it->second.data());
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
        std::lock_guard lock(mutex_);
        requested_.insert(request.target);
        asked_.notify_all();
    }

    void serve() {
        while (!done_) {
            pollfd fd{xcb_get_file_descriptor(c_), POLLIN, 0};
            ::poll(&fd, 1, 50);  // wakes up now and then to see `done_`
            while (xcb_generic_event_t* event = xcb_poll_for_event(c_)) {
                if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST)
                    answer(*reinterpret_cast<xcb_selection_request_event_t*>(event));
                std::free(event);
            }
        }
    }

    xcb_connection_t* c_;
    xcb_window_t window_;
    xcb_atom_t targetsAtom_ = XCB_ATOM_NONE;
    std::map<xcb_atom_t, std::string> offered_;
    std::thread thread_;
    std::atomic<bool> done_ = false;
    std::mutex mutex_;
    std::condition_variable asked_;
    std::set<xcb_atom_t> requested_;
};

class AppCaptureTest : public AppTest {};

TEST_F(AppCaptureTest, APasswordManagersCopyIsSkippedAndTheNextTextIsStored) {
    {
        SelectionOwner keepass({{"UTF8_STRING", "hunter2-secret"},
                                {"text/plain;charset=utf-8", "hunter2-secret"},
                                {"x-kde-passwordManagerHint", "secret"}});
        ASSERT_TRUE(keepass.waitUntilExamined()) << "the app never looked at the copy";
        copyText("after the password ✓");
        ASSERT_TRUE(waitUntil([&] { return texts("after the password ✓") == 1; }));
    }
    EXPECT_EQ(texts("hunter2-secret"), 0);
}

TEST_F(AppCaptureTest, AFileCopyOfferingAnIconIsSkippedAndAPngCopyIsStoredAsAnImage) {
    Bytes icon = png(40, 30, noise(2));
    {
        SelectionOwner files({{"text/uri-list", "file:///tmp/holiday.png\r\n"},
                              {"image/png", std::string(icon.begin(), icon.end())}});
        ASSERT_TRUE(files.waitUntilExamined()) << "the app never looked at the copy";
        // The serial image queue would store a wrongly taken icon before this.
        copyPng(64, 48, 3);
        ASSERT_TRUE(waitUntil([&] { return images() >= 1; }));
    }
    auto stored = rows(library_ / "clipmedia.sqlite", "SELECT w, h, file FROM media");
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0][0] + "x" + stored[0][1], "64x48");
    EXPECT_TRUE(fs::exists(stored[0][2])) << stored[0][2];
    EXPECT_EQ(fs::path(stored[0][2]).parent_path(), library_ / "clipmedia");
}

TEST_F(AppCaptureTest, LoggingOutWithClearOnQuitKeepsOnlyPinnedTexts) {
    for (const char* text : {"keep me", "forget me"}) {
        copyText(text);
        ASSERT_TRUE(waitUntil([&] { return texts(text) == 1; }));
    }
    rows(library_ / "clipboard.sqlite", "UPDATE items SET pinned = 1 WHERE text = 'keep me'");
    // Set while the app runs: it reads the preference when it quits.
    fs::create_directories(config_ / "Zettly");
    std::ofstream(config_ / "Zettly" / "defaults.json") << R"({"clearOnQuit": true})";

    stop(app_);  // SIGTERM, as a session logout sends
    app_ = -1;
    EXPECT_EQ(texts("keep me"), 1);
    EXPECT_EQ(texts("forget me"), 0);
}

}  // namespace
}  // namespace zettly::test
