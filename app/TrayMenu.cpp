#include "app/TrayMenu.h"

#include <QAction>
#include <algorithm>
#include <utility>

#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"

namespace zettly {
namespace {

// A menu item's text shows '&' only when doubled; single it marks a key.
QString menuSafe(QString text) {
    return text.replace(QLatin1Char('&'), QStringLiteral("&&"));
}

QString elided(const QString& text, int chars) {
    if (text.size() <= chars)
        return text;
    int cut = chars - 1;
    // Never half of a character outside the Basic Multilingual Plane.
    if (text.at(cut - 1).isHighSurrogate())
        --cut;
    return text.left(cut).trimmed() + QChar(0x2026);
}

}  // namespace

TrayMenu::TrayMenu(Hooks hooks, QObject* parent) : QObject(parent), hooks_(std::move(hooks)) {
    //: Tray menu item, the first: opens the history window, as the shortcut does.
    addCommand(tr("Show History"), &Hooks::showHistory);
    // Made once and refilled: a panel that shows the menu over D-Bus keeps
    // its items by id, and new ids on every opening would make it rebuild.
    for (std::size_t i = 0; i < entryCount; ++i) {
        QAction* action = menu_.addAction(QString());
        action->setVisible(false);
        connect(action, &QAction::triggered, this, [this, i] {
            if (i < entries_.size() && hooks_.pick)
                hooks_.pick(entries_[i]);
        });
        entryActions_[i] = action;
    }
    //: Tray menu: greyed, in place of the newest copies while the history is empty.
    emptyAction_ = menu_.addAction(tr("No Copies Yet"));
    emptyAction_->setEnabled(false);
    remedyAction_ = addCommand(QString(), &Hooks::remedy);
    remedyAction_->setVisible(false);
    menu_.addSeparator();
    pauseAction_ = addCommand(QString(), &Hooks::togglePause);
    //: Tray menu item: do not save the next copy (Alt+Shift-click does the same).
    skipAction_ = addCommand(tr("Skip Next Copy"), &Hooks::skipNext);
    menu_.addSeparator();
    //: Tray menu item that opens the settings window.
    addCommand(tr("Settings\u2026"), &Hooks::openSettings);
    //: Tray menu item.
    const QString check = tr("Check for Updates\u2026");
    //: Tray menu item, greyed out, when this build has no update feed.
    const QString notSetUp = tr("Updates Not Set Up");
    QAction* updates =
        addCommand(hooks_.checkForUpdates ? check : notSetUp, &Hooks::checkForUpdates);
    updates->setEnabled(static_cast<bool>(hooks_.checkForUpdates));
    menu_.addSeparator();
    //: Tray menu item that quits the application.
    addCommand(tr("Quit Zettly"), &Hooks::quit);
    setCaptureState(false, false);
    connect(&menu_, &QMenu::aboutToShow, this, [this] {
        if (hooks_.aboutToShow)
            hooks_.aboutToShow();
        refreshEntries();
    });
    refreshEntries();
}

QAction* TrayMenu::addCommand(const QString& text, std::function<void()> Hooks::*hook) {
    QAction* action = menu_.addAction(text);
    connect(action, &QAction::triggered, this, [this, hook] {
        if (const std::function<void()>& run = hooks_.*hook)
            run();
    });
    return action;
}

TrayMenu::~TrayMenu() = default;

void TrayMenu::setCaptureState(bool paused, bool skipPending) {
    //: Tray menu item that resumes saving copies.
    const QString resume = tr("Resume Capture");
    //: Tray menu item that pauses saving copies (Alt-click does the same).
    const QString pause = tr("Pause Capture");
    pauseAction_->setText(paused ? resume : pause);
    skipAction_->setEnabled(!skipPending);
}

void TrayMenu::setRemedyLabel(const QString& label) {
    remedyAction_->setText(label);
    remedyAction_->setVisible(!label.isEmpty());
}

void TrayMenu::refreshEntries() {
    entries_ = hooks_.newest ? hooks_.newest() : std::vector<PopupModel::Entry>{};
    if (entries_.size() > entryCount)
        entries_.resize(entryCount);
    for (std::size_t i = 0; i < entryCount; ++i) {
        QAction* action = entryActions_[i];
        const bool shown = i < entries_.size();
        action->setVisible(shown);
        action->setText(shown ? entryText(entries_[i]) : QString());
    }
    emptyAction_->setVisible(entries_.empty());
}

QString TrayMenu::entryText(const PopupModel::Entry& entry) {
    if (const std::optional<std::string>& label = entry.label())
        return menuSafe(elided(QString::fromStdString(*label).simplified(), entryChars));
    if (const ImageClipStore::Item* image = entry.image())
        //: Tray menu: a copied picture without a name. %1 × %2 are its width and height in
        //: pixels.
        return tr("Image %1 \u00d7 %2").arg(image->width).arg(image->height);
    // simplified() turns every run of line breaks, tabs and spaces into one
    // space, as the history window's one-line rows show it.
    return menuSafe(elided(QString::fromStdString(entry.text()->text).simplified(), entryChars));
}

std::vector<PopupModel::Entry> TrayMenu::newestEntries(ClipboardStore& texts,
                                                       ImageClipStore& images, std::size_t count) {
    std::vector<PopupModel::Entry> found;
    // Page by recency until enough unpinned texts are found: pinned ones
    // are few, and the texts may be large.
    const auto page = static_cast<std::int64_t>(2 * count + 4);
    for (std::int64_t offset = 0;; offset += page) {
        std::vector<ClipboardStore::Item> batch = texts.fetch(
            page, offset, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true);
        for (ClipboardStore::Item& item : batch)
            if (!item.pinned && found.size() < count)
                found.push_back(PopupModel::Entry{std::move(item)});
        if (found.size() >= count || static_cast<std::int64_t>(batch.size()) < page)
            break;
    }
    for (ImageClipStore::Item& item : images.fetchAll())
        if (!item.pinned)
            found.push_back(PopupModel::Entry{std::move(item)});
    std::stable_sort(found.begin(), found.end(),
                     [](const PopupModel::Entry& a, const PopupModel::Entry& b) {
                         return a.createdAt() > b.createdAt();
                     });
    if (found.size() > count)
        found.resize(count);
    return found;
}

}  // namespace zettly
