#pragma once

#include <QWidget>
#include <array>

#include "settings/SettingsContext.h"

class QScreen;
class QTabWidget;

namespace zettly {

class AboutPage;
class CategoriesPage;
class GeneralPage;
class IgnorePage;
class StoragePage;
class SyncPage;

// The settings: one ordinary window with a tab per area. Every control
// writes its preference at once, so there is nothing to apply or cancel and
// the rest of the app sees a change at its next read.
class SettingsWindow final : public QWidget {
    Q_OBJECT
public:
    enum class Tab { general, categories, storage, ignore, sync, about };

    // The size it opens at where the screen has room.
    static constexpr QSize preferredSize{580, 620};

    explicit SettingsWindow(SettingsContext context, QWidget* parent = nullptr);
    ~SettingsWindow() override;

    // Shows the window on `tab` with fresh contents and brings it to the
    // front, also when it was already open behind other windows.
    void open(Tab tab);
    // Sync changed the history or its status: pages that show them re-read.
    void cloudDidChange();
    // The desktop answered about the shortcut, or the session changed.
    void sessionChanged();
    // New copies stopped or started being saved.
    void storageChanged();

    // A frame of `wanted` size, no larger than `area`, centred in it.
    static QRect centredFrame(const QRect& area, const QSize& wanted);

protected:
    bool event(QEvent* event) override;

private:
    void reloadAll();
    // Centred in the screen's free area, no larger than it.
    void placeOn(QScreen* screen);

    SettingsContext context_;
    QTabWidget* tabs_;
    GeneralPage* general_;
    CategoriesPage* categories_;
    StoragePage* storage_;
    IgnorePage* ignore_;
    SyncPage* sync_;
    AboutPage* about_;
};

}  // namespace zettly
