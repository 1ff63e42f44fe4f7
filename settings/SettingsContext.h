#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/GlobalHotKey.h"
#include "platform/Pasteboard.h"
#include "platform/Platform.h"
#include "popup/PopupTexts.h"
#include "store/StoreHealth.h"

namespace zettly {

class Autostart;
class ClipboardStore;
class Defaults;
class ImageClipStore;
class KeyboardLayout;

enum class SyncSecret { password, passphrase };

// The sync server's settings that do not live in the preferences, and the
// actions on it. All empty when the app was built without a sync backend.
struct SyncServerHooks {
    std::function<std::optional<std::string>(SyncSecret)> readSecret = {};
    // False when it could not be kept; the page says so.
    std::function<bool(SyncSecret, const std::string&)> writeSecret = {};
    // Where the secrets are kept, for the user ("the Secret Service", a file).
    std::function<std::string()> secretsWhere = {};
    // None when the URL can be used, else why not.
    std::function<std::optional<std::string>(const std::string& url)> urlProblem = {};
    // Tries the stored settings off the main thread; `done` runs on the main
    // thread with the outcome and one sentence for the user.
    std::function<void(std::function<void(bool ok, std::string message)> done)> testConnection = {};
    // The URL, user, password or passphrase changed.
    std::function<void()> changed = {};
    // Off the main thread: encrypts the server's copy under a new passphrase
    // (the stored one must open it), keeps the new one and has this computer
    // upload its history again. `done` runs on the main thread with an error
    // message, or none on success.
    std::function<void(const std::string& newPassphrase,
                       std::function<void(std::optional<std::string> error)> done)>
        changePassphrase = {};
};

// What every settings page works on: the stores and preferences it edits,
// and the few actions that belong to the rest of the app. The app fills it
// in; tests fill it with temporary stores and recording lambdas. Hooks may be
// empty, and a page then leaves out what would call them.
struct SettingsContext {
    Defaults& defaults;
    ClipboardStore& texts;
    ImageClipStore& images;
    KeyboardLayout* layout = nullptr;  // key names in the recorder; US names without it

    // The shortcut was recorded and stored: register it again.
    std::function<void()> hotKeyChanged = {};
    // What the desktop said of the shortcut.
    std::function<HotKeyState()> hotKeyState = {};
    // Whether the desktop decides which key it is (a portal that asks the
    // user): the page then shows the desktop's choice, and the recorded key
    // is only the one Zettly proposes.
    std::function<bool()> desktopChoosesHotKey = {};
    // Opens the desktop's own dialog for Zettly's shortcut.
    std::function<void()> openDesktopHotKeyDialog = {};
    // What this session cannot do; the pages explain each where it matters
    // instead of leaving a switch without effect.
    std::function<std::vector<Limitation>()> limitations = {};
    // The step Zettly can take against a limitation (turning on its GNOME
    // Shell extension), offered as a button; `remedy` reports a failure to
    // the user itself.
    std::function<bool(Limitation)> hasRemedy = {};
    std::function<void(Limitation)> remedy = {};
    std::function<std::vector<RunningApp>()> runningApps = {};
    // The sync switch or the chip-order switch changed: sync soon.
    std::function<void()> syncSettingsChanged = {};
    // Deletes the cloud copy off the main thread and calls `done` on the
    // main thread with an error message, or none on success.
    std::function<void(std::function<void(std::optional<std::string> error)> done)>
        deleteCloudCopy = {};
    // Update checks; all empty when this build has no update feed, and the
    // About page then offers none.
    std::function<bool()> automaticUpdateChecks = {};
    std::function<void(bool)> setAutomaticUpdateChecks = {};
    std::function<void()> checkForUpdates = {};
    SyncServerHooks syncServer = {};
    // The history window's dialog texts that the settings show too (deleting
    // a category, clearing the history), in the user's language.
    PopupTexts dialogTexts = {};
    // Starting at login; the page offers no switch without it.
    Autostart* autostart = nullptr;
    // Whether new copies are being saved; Settings › Storage says why not.
    std::function<StoreHealth::Status()> storageStatus = {};

    // None without the hook: a page then assumes the session can do it all.
    std::vector<Limitation> currentLimitations() const {
        return limitations ? limitations() : std::vector<Limitation>{};
    }
    bool limitedBy(Limitation limitation) const {
        const std::vector<Limitation> limits = currentLimitations();
        return std::find(limits.begin(), limits.end(), limitation) != limits.end();
    }
};

}  // namespace zettly
