#pragma once

#include <QMenu>
#include <QWidget>
#include <functional>
#include <utility>
#include <vector>

namespace zettly {

class WindowHints;

// Menus and drags of the window that are up. While one is, the window's
// losing the keyboard is ours and must not close it.
struct BusyCounter {
    int depth = 0;
};
class BusyScope {
public:
    explicit BusyScope(BusyCounter& counter) : counter_(counter) { ++counter_.depth; }
    ~BusyScope() { --counter_.depth; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    BusyCounter& counter_;
};

// A menu whose items carry their work as functions, run after the menu has
// closed: an item that opens a dialog or reloads the model then never does
// so from inside the menu's own event loop.
class ActionMenu {
public:
    explicit ActionMenu(QWidget* parent) : menu_(parent) {}
    QMenu& menu() { return menu_; }
    QAction* add(QMenu& into, const QString& text, std::function<void()> work);
    QAction* add(const QString& text, std::function<void()> work) {
        return add(menu_, text, std::move(work));
    }
    // Whether an item was chosen.
    bool exec(const QPoint& at, BusyCounter& busy);

private:
    QMenu menu_;
    std::vector<std::pair<QAction*, std::function<void()>>> work_;
};

// A frameless top-level drawn like a popover: rounded with a hairline border
// when a compositor can show translucent corners, square otherwise (no black
// corners on a bare X server). Kept off the taskbar and on every desktop.
class PanelWidget : public QWidget {
public:
    // Without `hints` (tests), the panel is square and gets no desktop hints.
    PanelWidget(Qt::WindowFlags flags, QWidget* parent, WindowHints* hints);

    static constexpr int radius = 10;

protected:
    // Call before each show: window managers drop these hints whenever the
    // window is withdrawn.
    void prepareDesktopHints();
    bool rounded() const { return rounded_; }
    void paintEvent(QPaintEvent* event) override;

private:
    WindowHints* hints_;
    bool rounded_ = false;
};

}  // namespace zettly
