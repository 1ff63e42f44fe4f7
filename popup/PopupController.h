#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Desktop.h"
#include "platform/Keyboard.h"
#include "platform/MainQueue.h"
#include "popup/PopupGeometry.h"
#include "popup/PopupModel.h"
#include "popup/PopupTexts.h"
#include "popup/PopupView.h"
#include "store/ChipOrder.h"

namespace zettly {

class Defaults;
class PasteboardMonitor;
struct SyncPace;

// Opens and places the history window, handles its keyboard, and carries
// out the pick: the entry goes back on the clipboard, the window closes, the
// window that was in front gets the keyboard back and, when the user wants
// it, the desktop pastes into it 0.15 s later. The row and chip actions with
// their dialogs live here too: the window and the pick in
// PopupController.cpp, the key table in PopupKeys.cpp, the row and chip
// actions in PopupActions.cpp.
//
// Main thread only.
class PopupController {
public:
    struct Dependencies {
        PopupView& view;
        Desktop& desktop;
        MainQueue& mainQueue;
        ClipboardStore& texts;
        ImageClipStore& images;
        PasteboardMonitor& monitor;
        Defaults& defaults;
        // The sync cadence's view of the window: quick polls while it is open.
        SyncPace& pace;
        // This application's id, as Desktop reports it for its own windows.
        std::string ownAppId;
        // Searches the whole history; its own, so that no sync or capture
        // waits in front of a keystroke's search.
        Executor& searchExecutor;
    };

    static constexpr double pasteDelay = 0.15;

    PopupController(Dependencies dependencies,
                    PopupModel::TitleFunction chipTitle = &PopupModel::englishTitle);
    ~PopupController();
    PopupController(const PopupController&) = delete;
    PopupController& operator=(const PopupController&) = delete;

    PopupModel& model() { return model_; }
    PopupTexts texts;

    // Hooks into the rest of the application; any may be left empty.
    std::function<void()> onOpened;        // e.g. a sync pass while the window is open
    std::function<void()> onOpenSettings;  // Ctrl+, and the footer's "Settings…"
    std::function<void()> onShowAbout;     // the footer's "About Zettly"
    std::function<void()> onCheckForUpdates;
    std::function<void()> onQuit;

    // ---- window ---------------------------------------------------------
    // Under the tray icon when `anchor` is given, else where the preference
    // says.
    void open(const std::optional<popupgeometry::Anchor>& anchor = std::nullopt);
    void close();
    // What the tray click and the hot key do.
    void toggle(const std::optional<popupgeometry::Anchor>& anchor = std::nullopt);
    bool isOpen() const;

    // One key press while the window is open; true when it was consumed.
    // The view calls it only while keyMonitorActive().
    bool handle(const KeyPress& key);
    bool keyMonitorActive() const { return keyMonitor_ && !modalActive_; }

    void pick(const PopupModel::Entry& entry, bool invert);
    // The window a pick pastes into, unless it is one of ours. Opening does
    // it; a pick from outside the window (the tray menu) asks for it first.
    void rememberFrontWindow();
    void selectionChanged();

    // From the view: the window lost the keyboard; the user resized it.
    void panelDidResignKey();
    void panelDidEndResize(Size size);
    // The cloud sync applied changes from elsewhere.
    void cloudDidChange();

    // ---- preview --------------------------------------------------------
    void showPreview(const PopupModel::Entry& entry);
    void togglePreview();

    // ---- row actions ----------------------------------------------------
    void togglePin(const PopupModel::Entry& entry);
    void deleteEntry(const PopupModel::Entry& entry);
    void editText(const PopupModel::Entry& entry);
    void editLabel(const PopupModel::Entry& entry);
    void setCategory(const PopupModel::Entry& entry, const std::optional<std::string>& category);
    void newCategory(const PopupModel::Entry& entry);
    void showCategoryMenu(const PopupModel::Entry& entry);

    // ---- chip and footer actions ----------------------------------------
    void createCategory();
    void renameCategory(const std::string& id);
    void deleteCategory(const std::string& id);
    void clearHistory();

    // ---- dialogs --------------------------------------------------------
    // While one runs, modalActive() is true: keys go to the dialog and the
    // window does not close when the dialog takes the keyboard.
    std::optional<std::string> ask(const std::string& title,
                                   const std::optional<std::string>& message,
                                   const std::string& value, bool multiline);
    void inform(const std::string& message);
    bool confirm(const std::string& title, const std::string& detail, const std::string& button);
    bool modalActive() const { return modalActive_; }

    // The window that gets the paste (for tests and diagnostics).
    const std::optional<AppWindow>& previousApp() const { return previousApp_; }

private:
    void pasteIntoFront();
    void reloadKeepingSelection();

    Dependencies deps_;
    ChipOrder chipOrder_;
    PopupModel model_;
    bool keyMonitor_ = false;
    bool modalActive_ = false;
    std::optional<AppWindow> previousApp_;
    // Raised by each selection change and close, so a delayed preview that
    // is no longer wanted does nothing when it runs.
    std::uint64_t previewGeneration_ = 0;
    std::shared_ptr<PopupController*> self_;
};

}  // namespace zettly
