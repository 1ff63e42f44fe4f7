#include "platform/x11/X11Workspace.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "platform/Unicode.h"

namespace zettly {

namespace {

template <typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

// Focus may sit on a child of an application's window (toolkits with focus
// proxies do that); the application is known by its top-level window.
std::optional<xcb_window_t> topLevelOf(XcbConnection& x, xcb_window_t window) {
    xcb_connection_t* c = x.get();
    while (window != XCB_WINDOW_NONE && window != x.root()) {
        Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr), std::free);
        if (!tree)
            return std::nullopt;  // destroyed meanwhile
        if (tree->parent == x.root())
            return window;
        window = tree->parent;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> X11Workspace::flatpakId(const std::string& info) {
    std::istringstream in(info);
    std::string line;
    bool inApplication = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.front() == '[') {
            inApplication = line == "[Application]";
        } else if (inApplication && line.rfind("name=", 0) == 0 && line.size() > 5) {
            return line.substr(5);
        }
    }
    return std::nullopt;
}

std::optional<xcb_window_t> X11Workspace::activeWindow(XcbConnection& x) {
    auto active = x.property32(x.root(), x.atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW);
    if (active && *active != XCB_WINDOW_NONE)
        return *active;
    xcb_connection_t* c = x.get();
    Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr), std::free);
    if (!focus || focus->focus == XCB_INPUT_FOCUS_POINTER_ROOT || focus->focus == XCB_WINDOW_NONE)
        return std::nullopt;
    return topLevelOf(x, focus->focus);
}

std::optional<std::string> X11Workspace::applicationId(XcbConnection& x, xcb_window_t window) {
    if (auto pid = x.property32(window, x.atom("_NET_WM_PID"), XCB_ATOM_CARDINAL)) {
        std::ifstream file("/proc/" + std::to_string(*pid) + "/root/.flatpak-info");
        if (file) {
            std::stringstream info;
            info << file.rdbuf();
            if (auto id = flatpakId(info.str()))
                return id;
        }
    }
    xcb_atom_t utf8 = x.atom("UTF8_STRING");
    for (const char* name : {"_GTK_APPLICATION_ID", "_KDE_NET_WM_DESKTOP_FILE"})
        if (auto id = x.property(window, x.atom(name), utf8); id && !id->empty())
            return id;
    // WM_CLASS holds "instance\0class\0".
    if (auto wmClass = x.property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING)) {
        auto split = wmClass->find('\0');
        if (split != std::string::npos) {
            std::string cls = wmClass->substr(split + 1);
            if (auto end = cls.find('\0'); end != std::string::npos)
                cls.resize(end);
            if (!cls.empty())
                return cls;
        }
    }
    return std::nullopt;
}

std::vector<X11Workspace::ClientWindow> X11Workspace::clientWindows(XcbConnection& x) {
    std::vector<ClientWindow> windows;
    // Room for 16384 windows, far beyond any desktop.
    auto list = x.property(x.root(), x.atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW, 65536);
    if (!list)
        return windows;
    xcb_atom_t utf8 = x.atom("UTF8_STRING");
    for (std::size_t at = 0; at + 4 <= list->size(); at += 4) {
        xcb_window_t window = XCB_WINDOW_NONE;
        std::memcpy(&window, list->data() + at, 4);
        auto appId = applicationId(x, window);
        if (!appId)
            continue;  // gone meanwhile, or an app that names itself nowhere
        std::string title;
        if (auto name = x.property(window, x.atom("_NET_WM_NAME"), utf8); name && !name->empty())
            title = *name;
        else if (auto legacy = x.property(window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING))
            title = unicode::latin1ToUtf8(*legacy);  // WM_NAME of type STRING
        windows.push_back(ClientWindow{window, std::move(*appId), std::move(title)});
    }
    return windows;
}

std::vector<RunningApp> X11Workspace::runningApplications() {
    std::vector<RunningApp> apps;
    for (ClientWindow& window : clientWindows(connection_))
        apps.push_back({std::move(window.appId), std::move(window.title)});
    return apps;
}

std::optional<std::string> X11Workspace::frontmostApplicationId() {
    auto window = activeWindow(connection_);
    if (!window)
        return std::nullopt;
    return applicationId(connection_, *window);
}

}  // namespace zettly
