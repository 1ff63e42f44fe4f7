#pragma once

#include <QColor>
#include <QIcon>
#include <QMenu>
#include <QWidget>
#include <functional>
#include <utility>
#include <vector>

class QPainter;

namespace zettly {

// Colours and glyphs of the history window, derived from the system palette
// so that light and dark themes both look right.
namespace look {

QColor selectionFill(const QPalette& palette);
QColor hoverFill(const QPalette& palette);
QColor matchFill(const QPalette& palette);
QColor border(const QPalette& palette);
QColor secondaryText(const QPalette& palette);
QColor subtleFill(const QPalette& palette);
QFont scaledFont(const QFont& font, double factor);

enum class Glyph { text, link, number, image, search, pin, more, update, chevron, plus };
void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& rect, const QColor& colour);
QIcon glyphIcon(Glyph glyph, const QColor& colour, int size = 16);
// The desktop's icon when its theme has one, else the painted glyph, so a
// bare window manager without an icon theme never shows an empty spot.
QIcon themedIcon(const char* name, Glyph fallback, const QColor& colour);

}  // namespace look

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
    PanelWidget(Qt::WindowFlags flags, QWidget* parent);

    static constexpr int radius = 10;

protected:
    // Call before each show: window managers drop these hints whenever the
    // window is withdrawn.
    void prepareDesktopHints();
    bool rounded() const { return rounded_; }
    void paintEvent(QPaintEvent* event) override;

private:
    bool rounded_ = false;
};

}  // namespace zettly
