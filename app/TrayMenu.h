#pragma once

#include <QMenu>
#include <QObject>
#include <array>
#include <cstddef>
#include <functional>
#include <vector>

#include "popup/PopupModel.h"

class QAction;

namespace zettly {

class ClipboardStore;
class ImageClipStore;

// The tray icon's menu: "Show History", the newest entries of the history
// to pick from, then pause, skip, settings, updates and quit. Alt-click is
// taken by some window managers and many panels report no clicks at all,
// so everything the icon's clicks do is here too. The entries are read
// afresh each time the menu is about to show.
class TrayMenu final : public QObject {
    Q_OBJECT
public:
    static constexpr std::size_t entryCount = 5;
    // Characters of an entry's text before it is elided.
    static constexpr int entryChars = 40;

    struct Hooks {
        // At most `entryCount` entries, newest first.
        std::function<std::vector<PopupModel::Entry>()> newest;
        // Just before the menu shows: the window in front is the one a pick
        // pastes into.
        std::function<void()> aboutToShow;
        std::function<void(const PopupModel::Entry&)> pick;
        std::function<void()> showHistory;
        std::function<void()> togglePause;
        std::function<void()> skipNext;
        std::function<void()> openSettings;
        // Empty when this build has no update feed: the item is greyed.
        std::function<void()> checkForUpdates;
        std::function<void()> quit;
        // A step against what keeps Zettly from working here.
        std::function<void()> remedy;
    };

    explicit TrayMenu(Hooks hooks, QObject* parent = nullptr);
    ~TrayMenu() override;

    QMenu& menu() { return menu_; }

    // The capture state shown by the pause and skip items.
    void setCaptureState(bool paused, bool skipPending);
    // The remedy item's label; empty hides it.
    void setRemedyLabel(const QString& label);
    // Reads the newest entries again (the menu does so itself before it shows).
    void refreshEntries();

    // The one-line text an entry is listed with: its name, else its text
    // with line breaks as spaces, elided; an image by its size.
    static QString entryText(const PopupModel::Entry& entry);
    // The `count` newest entries under the history window's "All" chip:
    // texts and images, newest first, pinned ones left out.
    static std::vector<PopupModel::Entry> newestEntries(ClipboardStore& texts,
                                                        ImageClipStore& images,
                                                        std::size_t count = entryCount);

private:
    // An item that runs one of the hooks, when it is set.
    QAction* addCommand(const QString& text, std::function<void()> Hooks::*hook);

    Hooks hooks_;
    QMenu menu_;
    std::array<QAction*, entryCount> entryActions_{};
    QAction* emptyAction_;
    QAction* remedyAction_;
    QAction* pauseAction_;
    QAction* skipAction_;
    std::vector<PopupModel::Entry> entries_;
};

}  // namespace zettly
