#include "popup/ui/PopupWindow.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QScrollBar>
#include <QSizeGrip>
#include <QToolButton>
#include <QWindow>
#include <chrono>

#include "platform/WindowHints.h"
#include "platform/linux/QtGeometry.h"
#include "popup/PopupController.h"
#include "popup/ui/ChipBar.h"
#include "popup/ui/HistoryList.h"
#include "popup/ui/PreviewPanel.h"
#include "ui/Dialogs.h"
#include "ui/KeyEvents.h"
#include "ui/Look.h"

namespace zettly {
namespace {

// How long the keyboard may be away before the window counts as left.
constexpr std::chrono::milliseconds resignGrace{120};

constexpr int edge = 6;        // 1 px border + the band that resizes
constexpr int resizeBand = 5;  // of `edge`

class Hairline : public QWidget {
public:
    explicit Hairline(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override {
        QColor line = look::border(palette());
        line.setAlphaF(0.6);
        QPainter(this).fillRect(rect(), line);
    }
};

// The full-width "new version" button above the footer.
class UpdateButton : public QAbstractButton {
public:
    explicit UpdateButton(QWidget* parent) : QAbstractButton(parent) {
        setFocusPolicy(Qt::NoFocus);
        setCursor(Qt::PointingHandCursor);
        setAttribute(Qt::WA_Hover);
        QFont bold = font();
        bold.setWeight(QFont::DemiBold);
        setFont(bold);
    }
    QSize sizeHint() const override { return {200, fontMetrics().height() + 26}; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QPalette& pal = palette();
        const QRect r = rect().adjusted(4, 6, -4, -6);
        QColor fill = pal.color(QPalette::Highlight);
        if (underMouse())
            fill = fill.lighter(110);
        p.setPen(Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(r, 7, 7);
        const QColor ink = pal.color(QPalette::HighlightedText);
        look::paintGlyph(p, look::Glyph::update, QRectF(r.left() + 10, r.center().y() - 8, 16, 16),
                         ink);
        look::paintGlyph(p, look::Glyph::chevron,
                         QRectF(r.right() - 24, r.center().y() - 7, 14, 14), ink);
        p.setPen(ink);
        p.drawText(r.adjusted(34, 0, -30, 0), Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(text(), Qt::ElideRight, r.width() - 64));
    }
};

QString qs(const std::string& s) {
    return QString::fromStdString(s);
}

}  // namespace

PopupWindow::PopupWindow(KeyboardLayout* layout, WindowHints* hints)
    : PanelWidget(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint, nullptr, hints),
      layout_(layout),
      hints_(hints) {
    setObjectName(QStringLiteral("ZettlyHistory"));
    //: Title of the history window (shown by some window lists).
    setWindowTitle(tr("Zettly"));
    setMinimumSize(320, 260);
    setMaximumSize(600, 800);
    resize(400, 540);
    setMouseTracking(true);

    search_ = new QLineEdit(this);
    search_->setObjectName(QStringLiteral("search"));
    //: Placeholder of the search field at the top of the history window.
    search_->setPlaceholderText(tr("Search"));
    search_->setFrame(false);
    search_->setClearButtonEnabled(true);
    search_->setFont(look::scaledFont(search_->font(), 1.12));
    search_->setMinimumHeight(search_->fontMetrics().height() + 18);
    search_->setTextMargins(2, 0, 4, 0);
    QPalette clear = search_->palette();
    clear.setColor(QPalette::Base, Qt::transparent);
    search_->setPalette(clear);
    searchIcon_ = search_->addAction(QIcon(), QLineEdit::LeadingPosition);

    update_ = new UpdateButton(this);
    update_->hide();
    connect(update_, &QAbstractButton::clicked, this,
            [this] { closeThen(controller_ ? controller_->onCheckForUpdates : nullptr); });

    root_ = new QVBoxLayout(this);
    root_->setContentsMargins(edge, edge, edge, edge - 2);
    root_->setSpacing(0);
    // The search icon lines up with the rows' type icons.
    auto* searchRow = new QHBoxLayout;
    searchRow->setContentsMargins(10, 2, 4, 2);
    searchRow->addWidget(search_);
    root_->addLayout(searchRow);
    root_->addWidget(new Hairline(this));
    root_->addWidget(update_);
    root_->addWidget(new Hairline(this));
    root_->addWidget(buildFooter());

    grip_ = new QSizeGrip(this);
    grip_->resize(12, 12);

    resignTimer_.setSingleShot(true);
    resignTimer_.setInterval(resignGrace);
    connect(&resignTimer_, &QTimer::timeout, this, &PopupWindow::checkResignKey);
    resizeTimer_.setSingleShot(true);
    resizeTimer_.setInterval(300);
    connect(&resizeTimer_, &QTimer::timeout, this, &PopupWindow::reportResize);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
        if (s != Qt::ApplicationActive)
            resignTimer_.start();
    });
    search_->installEventFilter(this);
    installEventFilter(this);
    applyPalette();
}

// Painted icons and the secondary text follow a switch between light and
// dark while the app runs.
void PopupWindow::applyPalette() {
    const QColor secondary = look::secondaryText(palette());
    searchIcon_->setIcon(look::themedIcon("edit-find", look::Glyph::search, secondary));
    more_->setIcon(look::glyphIcon(look::Glyph::more, palette().color(QPalette::Text), 16));
    QPalette pal = hint_->palette();
    pal.setColor(QPalette::WindowText, secondary);
    hint_->setPalette(pal);
    searching_->setPalette(pal);
}

void PopupWindow::changeEvent(QEvent* event) {
    PanelWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyPalette();
}

// The model may already be gone with its controller: it is not touched here.
PopupWindow::~PopupWindow() = default;

QWidget* PopupWindow::buildFooter() {
    auto* footer = new QWidget(this);
    const QFont small = look::scaledFont(font(), 0.86);
    //: Footer of the history window: a short keyboard hint. ↩ is the Return key.
    hint_ = new QLabel(tr("\u21a9 pick \u00b7 Super+Space or Ctrl+Y preview"), footer);
    hint_->setFont(small);
    //: Footer of the history window: shown while a search still reads the older history.
    searching_ = new QLabel(tr("Searching\u2026"), footer);
    searching_->setFont(small);
    searching_->hide();

    auto* more = new QToolButton(footer);
    more->setAutoRaise(true);
    more->setFocusPolicy(Qt::NoFocus);
    //: Footer of the history window: tooltip of the button that opens the app menu.
    more->setToolTip(tr("Menu"));
    connect(more, &QToolButton::clicked, this, &PopupWindow::showFooterMenu);
    more_ = more;

    auto* row = new QHBoxLayout(footer);
    row->setContentsMargins(16, 3, 14, 1);
    row->addWidget(hint_, 1);
    row->addWidget(searching_);
    row->addWidget(more);
    return footer;
}

void PopupWindow::setController(PopupController* controller) {
    if (controller_ || !controller)
        return;
    controller_ = controller;
    model_ = &controller->model();

    chips_ = new ChipBar(*model_, *controller_, busy_, this);
    auto* chipRow = new QWidget(this);
    auto* chipLayout = new QHBoxLayout(chipRow);
    chipLayout->setContentsMargins(6, 0, 4, 6);
    chipLayout->addWidget(chips_);
    root_->insertWidget(1, chipRow);

    list_ = new HistoryList(*model_, this);
    root_->insertWidget(3, list_, 1);
    connect(list_, &HistoryList::rowClicked, this, [this](int row, bool invert) {
        if (auto entry = model_->entry(row))
            controller_->pick(*entry, invert);
    });
    connect(list_, &HistoryList::rowMenuRequested, this, &PopupWindow::showRowMenu);
    connect(search_, &QLineEdit::textEdited, this,
            [this](const QString& text) { model_->setQuery(text.toStdString()); });

    // Chained, in case another observer was there first; silent once this
    // window is gone.
    model_->onChange = [window = QPointer(this),
                        previous = std::move(model_->onChange)](unsigned changes) {
        if (previous)
            previous(changes);
        if (window)
            window->modelChanged(changes);
    };
    chips_->refresh();
    list_->reload();
}

void PopupWindow::modelChanged(unsigned changes) {
    using C = PopupModel::Change;
    // Finds of the running search (or a reload) change the rows under the
    // same query and chip: the list stays where the user scrolled it.
    const bool sameList =
        !(changes & (C::filtersChanged | C::filterChanged | C::queryChanged | C::opened));
    const int scrolled = list_->verticalScrollBar()->value();
    if (changes & (C::entriesChanged | C::filtersChanged | C::filterChanged | C::queryChanged))
        list_->reload();
    if (sameList && (changes & C::entriesChanged))
        list_->verticalScrollBar()->setValue(scrolled);
    if (changes & (C::filtersChanged | C::filterChanged | C::draggingChanged))
        chips_->refresh();
    if (changes & C::searchingChanged) {
        searching_->setVisible(model_->searching());
        // The empty list's text depends on it.
        list_->viewport()->update();
    }
    if ((changes & C::queryChanged) && search_->text().toStdString() != model_->query())
        search_->setText(qs(model_->query()));
    if (changes & C::opened) {
        list_->scrollToTop();
        search_->setFocus();
    } else if ((changes & C::selectionChanged) || (changes & C::entriesChanged && !sameList)) {
        list_->followSelection();
    }
}

void PopupWindow::setUpdateVersion(const std::optional<QString>& version) {
    if (version)
        //: History window: prominent button shown when a new version of Zettly is available.
        //: The placeholder is the version number, e.g. 1.0.2. Keep it short.
        update_->setText(tr("Update to %1 available").arg(*version));
    update_->setVisible(version.has_value());
}

// ---- keyboard and focus -----------------------------------------------------

bool PopupWindow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress && controller_ && controller_->keyMonitorActive()) {
        // A key the search field did not take comes to the window next; it
        // was offered to the controller already.
        if (watched == this && QApplication::focusWidget() == search_)
            return false;
        if (controller_->handle(keyPressFrom(*static_cast<QKeyEvent*>(event), layout_)))
            return true;
    }
    return PanelWidget::eventFilter(watched, event);
}

bool PopupWindow::event(QEvent* event) {
    // Checked once activation has settled: moving to one of our own
    // dialogs, or coming back after a menu, is not the user leaving. Nor is
    // a keyboard being added: Sway then takes the keyboard from the focused
    // window and gives it back at once.
    if (event->type() == QEvent::WindowDeactivate)
        resignTimer_.start();
    return PanelWidget::event(event);
}

void PopupWindow::checkResignKey() {
    if (!controller_ || !isVisible() || busy_.depth > 0 || controller_->modalActive() ||
        QApplication::activePopupWidget())
        return;
    for (QWidget* w = QApplication::activeWindow(); w; w = w->parentWidget())
        if (w == this)
            return;
    controller_->panelDidResignKey();
}

// ---- geometry ---------------------------------------------------------------

void PopupWindow::showPanel(const Rect& frame) {
    const QRect r = qtgeometry::toQt(frame);
    placing_ = true;
    // The controller's frame wins over the limits of the user's resizing
    // (under a tray icon low on the screen the window may be shorter).
    const bool fixed = hints_ && !hints_->placesWindows();
    grip_->setVisible(!fixed);
    if (fixed) {
        setFixedSize(r.size());
    } else {
        setMinimumSize(std::min(320, r.width()), std::min(260, r.height()));
        setMaximumSize(std::max(600, r.width()), std::max(800, r.height()));
    }
    resignTimer_.stop();
    if (!isVisible())
        prepareDesktopHints();
    setGeometry(r);
    show();
    if (fixed)
        hints_->placePanel(windowTitle().toStdString(), r.x(), r.y());
    raise();
    activateWindow();
    search_->setFocus(Qt::ActiveWindowFocusReason);
    placedSize_ = r.size();
    resizeTimer_.stop();
    placing_ = false;
}

void PopupWindow::hidePanel() {
    resizeTimer_.stop();
    hide();
    resignTimer_.stop();
}

bool PopupWindow::isPanelVisible() const {
    return isVisible();
}

int PopupWindow::rowsPerPage() const {
    return list_ ? list_->rowsPerPage() : 1;
}

Rect PopupWindow::panelFrame() const {
    return qtgeometry::fromQt(geometry());
}

void PopupWindow::makePanelKey() {
    raise();
    activateWindow();
    search_->setFocus(Qt::ActiveWindowFocusReason);
}

void PopupWindow::resizeEvent(QResizeEvent* event) {
    PanelWidget::resizeEvent(event);
    grip_->move(width() - grip_->width() - 2, height() - grip_->height() - 2);
    grip_->raise();
    if (isVisible() && !placing_ && size() != placedSize_)
        resizeTimer_.start();
}

void PopupWindow::reportResize() {
    if (!controller_ || !isVisible() || size() == placedSize_)
        return;
    placedSize_ = size();
    controller_->panelDidEndResize(Size{double(width()), double(height())});
}

Qt::Edges PopupWindow::edgesAt(QPoint pos) const {
    Qt::Edges edges;
    if (pos.x() < resizeBand)
        edges |= Qt::LeftEdge;
    if (pos.x() >= width() - resizeBand)
        edges |= Qt::RightEdge;
    if (pos.y() < resizeBand)
        edges |= Qt::TopEdge;
    if (pos.y() >= height() - resizeBand)
        edges |= Qt::BottomEdge;
    return edges;
}

void PopupWindow::mousePressEvent(QMouseEvent* event) {
    const Qt::Edges edges = edgesAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && edges && windowHandle())
        windowHandle()->startSystemResize(edges);
    PanelWidget::mousePressEvent(event);
}

void PopupWindow::mouseMoveEvent(QMouseEvent* event) {
    const Qt::Edges e = edgesAt(event->position().toPoint());
    const bool diagonalDown =
        e == (Qt::TopEdge | Qt::LeftEdge) || e == (Qt::BottomEdge | Qt::RightEdge);
    const bool diagonalUp =
        e == (Qt::TopEdge | Qt::RightEdge) || e == (Qt::BottomEdge | Qt::LeftEdge);
    if (diagonalDown)
        setCursor(Qt::SizeFDiagCursor);
    else if (diagonalUp)
        setCursor(Qt::SizeBDiagCursor);
    else if (e & (Qt::LeftEdge | Qt::RightEdge))
        setCursor(Qt::SizeHorCursor);
    else if (e & (Qt::TopEdge | Qt::BottomEdge))
        setCursor(Qt::SizeVerCursor);
    else
        unsetCursor();
    PanelWidget::mouseMoveEvent(event);
}

// ---- preview and dialogs ----------------------------------------------------

void PopupWindow::showPreview(const PopupModel::Entry& entry, const Rect& frame) {
    if (!preview_)
        preview_ = new PreviewPanel(this, hints_);
    preview_->showEntry(entry, qtgeometry::toQt(frame));
}

void PopupWindow::hidePreview() {
    if (preview_)
        preview_->hide();
}

bool PopupWindow::isPreviewVisible() const {
    return preview_ && preview_->isVisible();
}

std::optional<std::string> PopupWindow::ask(const std::string& title,
                                            const std::optional<std::string>& message,
                                            const std::string& value, bool multiline) {
    BusyScope scope(busy_);
    auto answer =
        dialogs::ask(this, qs(title), message ? std::optional(qs(*message)) : std::nullopt,
                     qs(value), multiline);
    return answer ? std::optional(answer->toStdString()) : std::nullopt;
}

void PopupWindow::inform(const std::string& message) {
    BusyScope scope(busy_);
    dialogs::inform(this, qs(message));
}

bool PopupWindow::confirm(const std::string& title, const std::string& detail,
                          const std::string& button) {
    BusyScope scope(busy_);
    return dialogs::confirm(this, qs(title), qs(detail), qs(button));
}

// ---- menus ------------------------------------------------------------------

namespace {

// Shows beside a menu item the keys that do the same in the window (the key
// table in PopupKeys.cpp). The shortcut belongs to the open menu alone, so it
// never acts a second time beside the table.
void showKeys(QAction* action, QKeyCombination keys) {
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WidgetShortcut);
    action->setShortcutVisibleInContextMenu(true);
}

// "None", the categories, a divider and "New Category…", the current one checked.
void addCategoryItems(ActionMenu& menu, QMenu& into, const std::optional<std::string>& current,
                      const std::vector<ClipboardStore::Category>& categories,
                      const std::function<void(PopupView::CategoryChoice)>& choose) {
    using Kind = PopupView::CategoryChoice::Kind;
    //: Category menu: item that takes the clipboard item out of its category.
    QAction* none = menu.add(into, PopupWindow::tr("None"), [choose] { choose({Kind::none, {}}); });
    none->setCheckable(true);
    none->setChecked(!current);
    for (const auto& category : categories) {
        QAction* item = menu.add(into, qs(category.name), [choose, id = category.id] {
            choose({Kind::category, id});
        });
        item->setCheckable(true);
        item->setChecked(current == category.id);
    }
    into.addSeparator();
    //: Menu item that creates a new category and puts the item in it. Use your language's menu
    //: capitalization.
    menu.add(into, PopupWindow::tr("New Category\u2026"), [choose] {
        choose({Kind::newCategory, {}});
    });
}

}  // namespace

std::optional<PopupView::CategoryChoice> PopupWindow::chooseCategory(
    const PopupModel::Entry& entry, const std::vector<ClipboardStore::Category>& categories) {
    std::optional<CategoryChoice> choice;
    ActionMenu menu(this);
    addCategoryItems(menu, menu.menu(), entry.category(), categories,
                     [&choice](CategoryChoice c) { choice = std::move(c); });
    QPoint at = search_->mapToGlobal(QPoint(24, search_->height()));
    if (list_) {
        const QRect row = list_->visualRect(list_->rows().index(int(model_->selection())));
        if (row.isValid() && list_->viewport()->rect().intersects(row))
            at = list_->viewport()->mapToGlobal(QPoint(row.left() + 40, row.bottom()));
    }
    menu.exec(at, busy_);
    return choice;
}

void PopupWindow::showRowMenu(int row, const QPoint& globalPos) {
    const std::optional<PopupModel::Entry> found = model_->entry(row);
    if (!found)
        return;
    // The row the menu is for becomes the selection, so one row looks chosen
    // and the keys shown in the menu act on it afterwards too.
    model_->setSelection(std::size_t(row));
    const PopupModel::Entry entry = *found;
    PopupController& c = *controller_;
    const bool pastes = pasteAutomatically && pasteAutomatically();
    const QKeyCombination pick(Qt::Key_Return), invertedPick(Qt::AltModifier, Qt::Key_Return);
    ActionMenu menu(this);
    //: Context menu of a history item: copy it to the clipboard.
    showKeys(menu.add(tr("Copy"), [&c, entry] { c.pick(entry, false); }),
             pastes ? invertedPick : pick);
    //: Context menu of a history item: copy it and paste it into the app in front.
    showKeys(menu.add(tr("Copy and Paste"), [&c, entry, pastes] { c.pick(entry, !pastes); }),
             pastes ? pick : invertedPick);
    const QKeyCombination pin(Qt::AltModifier, Qt::Key_P);
    if (entry.pinned())
        //: Context menu of a history item: unpin it.
        showKeys(menu.add(tr("Unpin"), [&c, entry] { c.togglePin(entry); }), pin);
    else
        //: Context menu of a history item: pin it so it is never deleted automatically.
        showKeys(menu.add(tr("Pin"), [&c, entry] { c.togglePin(entry); }), pin);
    if (entry.isText())
        //: Context menu of a history item: edit its text.
        showKeys(menu.add(tr("Edit Text\u2026"), [&c, entry] { c.editText(entry); }),
                 QKeyCombination(Qt::ControlModifier, Qt::Key_E));
    //: Context menu of a history item: give it a short name shown above it.
    showKeys(menu.add(tr("Name\u2026"), [&c, entry] { c.editLabel(entry); }),
             QKeyCombination(Qt::ControlModifier, Qt::Key_N));
    //: Context menu of a history item: submenu to put it in a category.
    QMenu* categories = menu.menu().addMenu(tr("Category"));
    showKeys(categories->menuAction(), QKeyCombination(Qt::ControlModifier, Qt::Key_K));
    addCategoryItems(menu, *categories, entry.category(), model_->categories(),
                     [&c, entry](CategoryChoice choice) {
                         if (choice.kind == CategoryChoice::Kind::newCategory)
                             c.newCategory(entry);
                         else if (choice.kind == CategoryChoice::Kind::category)
                             c.setCategory(entry, choice.categoryId);
                         else
                             c.setCategory(entry, std::nullopt);
                     });
    //: Context menu of a history item: show the whole item in a preview next to the window.
    showKeys(menu.add(tr("Preview"), [&c, entry] { c.showPreview(entry); }),
             QKeyCombination(Qt::ControlModifier, Qt::Key_Y));
    menu.menu().addSeparator();
    //: Delete button or menu item (removes an item or a category). Short.
    showKeys(menu.add(tr("Delete"), [&c, entry] { c.deleteEntry(entry); }),
             QKeyCombination(Qt::AltModifier, Qt::Key_Backspace));
    menu.exec(globalPos, busy_);
}

void PopupWindow::closeThen(const std::function<void()>& hook) {
    if (!controller_)
        return;
    const std::function<void()> run = hook;  // the controller may be reset by close()
    controller_->close();
    if (run)
        run();
}

void PopupWindow::showFooterMenu() {
    if (!controller_)
        return;
    PopupController& c = *controller_;
    ActionMenu menu(this);
    //: Footer menu of the history window: clears the history after asking.
    menu.add(tr("Clear History\u2026"), [&c] { c.clearHistory(); });
    // Items whose window the application has not attached are left out
    // rather than shown doing nothing.
    if (c.onOpenSettings) {
        //: Footer menu of the history window: opens the Settings window.
        showKeys(menu.add(tr("Settings\u2026"), [this, &c] { closeThen(c.onOpenSettings); }),
                 QKeyCombination(Qt::ControlModifier, Qt::Key_Comma));
    }
    if (c.onShowAbout)
        //: Footer menu of the history window: opens the About page of the Settings window.
        menu.add(tr("About Zettly"), [this, &c] { closeThen(c.onShowAbout); });
    if (c.onCheckForUpdates && updatesConfigured_)
        //: Footer menu of the history window: looks for a newer version of Zettly.
        menu.add(tr("Check for Updates\u2026"), [this, &c] { closeThen(c.onCheckForUpdates); });
    else if (c.onCheckForUpdates)
        //: Footer menu of the history window, greyed out, when this build has no update feed.
        menu.add(tr("Updates Not Set Up"), [] {})->setEnabled(false);
    menu.menu().addSeparator();
    //: Footer menu of the history window: quits the application.
    menu.add(tr("Quit Zettly"), [&c] {
        if (c.onQuit)
            c.onQuit();
    });
    const QSize size = menu.menu().sizeHint();
    menu.exec(more_->mapToGlobal(QPoint(more_->width() - size.width(), -size.height() - 2)), busy_);
}

}  // namespace zettly
