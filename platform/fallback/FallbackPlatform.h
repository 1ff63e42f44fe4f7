#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/Desktop.h"
#include "platform/GlobalHotKey.h"
#include "platform/Platform.h"
#include "platform/UsKeyboardLayout.h"
#include "platform/WindowHints.h"
#include "platform/fallback/QtPasteboard.h"
#include "platform/linux/QtMainQueue.h"

namespace zettly {

// For a session Zettly has no backend for yet: only what Qt offers on any
// display. The clipboard comes through QClipboard; there is no shortcut of
// our own, no paste into other applications, and nothing tells which
// application is in front. limitations() says so, and the tray and the
// settings pass it on to the user.
class FallbackPlatform final : public Platform {
public:
    // Why a session that has a backend of its own runs on this one, and
    // what the user can do about it (GNOME Shell without Zettly's
    // extension): reported with the fallback's own limits.
    struct Reason {
        std::vector<Limitation> limitations;
        std::function<RemedyResult(Limitation)> remedy;
    };

    explicit FallbackPlatform(Reason reason = {});
    ~FallbackPlatform() override;

    std::string_view name() const override { return "fallback"; }
    Pasteboard& pasteboard() override { return pasteboard_; }
    Workspace& workspace() override;
    Desktop& desktop() override;
    GlobalHotKey& hotKey() override;
    KeyboardLayout& keyboardLayout() override { return layout_; }
    MainQueue& mainQueue() override { return mainQueue_; }
    AppFolders& folders() override { return folders_; }
    Autostart& autostart() override { return autostart_; }
    WindowHints& windowHints() override;
    std::unique_ptr<SecretStore> openSecretStore(Log& log) override;
    std::vector<Limitation> limitations() override;
    bool hasRemedy(Limitation limitation) const override;
    RemedyResult remedy(Limitation limitation) override;

private:
    class Parts;
    QtMainQueue mainQueue_;
    QtPasteboard pasteboard_;
    UsKeyboardLayout layout_;
    XdgAppFolders folders_;
    XdgAutostart autostart_;
    std::unique_ptr<Parts> parts_;
    Reason reason_;
};

}  // namespace zettly
