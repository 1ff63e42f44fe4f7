#include "settings/SettingsWindow.h"

#include <QCursor>
#include <QFrame>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QKeySequence>
#include <QScreen>
#include <QScrollArea>
#include <QShortcut>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include "settings/AboutPage.h"
#include "settings/CategoriesPage.h"
#include "settings/GeneralPage.h"
#include "settings/IgnorePage.h"
#include "settings/StoragePage.h"
#include "settings/SyncPage.h"

namespace zettly {
namespace {

// A page taller than a small screen (the Sync tab with its server fields)
// scrolls instead of squeezing its fields.
QScrollArea* scrollable(QWidget* page) {
    auto* area = new QScrollArea;
    area->setWidget(page);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    return area;
}

}  // namespace

SettingsWindow::SettingsWindow(SettingsContext context, QWidget* parent)
    : QWidget(parent, Qt::Window), context_(std::move(context)), tabs_(new QTabWidget(this)) {
    //: Title of the settings window.
    setWindowTitle(tr("Zettly Settings"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("org.zettly.Zettly")));
    setObjectName(QStringLiteral("ZettlySettings"));

    general_ = new GeneralPage(context_);
    categories_ = new CategoriesPage(context_);
    storage_ = new StoragePage(context_);
    ignore_ = new IgnorePage(context_);
    sync_ = new SyncPage(context_);
    about_ = new AboutPage(context_);
    //: Settings tab: shortcut, window, pasting, launch at login.
    tabs_->addTab(scrollable(general_), tr("General"));
    //: Settings tab: the user's categories of clipboard items.
    tabs_->addTab(scrollable(categories_), tr("Categories"));
    //: Settings tab: how much history is kept and for how long.
    tabs_->addTab(scrollable(storage_), tr("Storage"));
    //: Settings tab: applications and text patterns whose copies are not saved.
    tabs_->addTab(scrollable(ignore_), tr("Ignore"));
    //: Settings tab: syncing the history between the user's devices.
    tabs_->addTab(scrollable(sync_), tr("Sync"));
    //: Settings tab: version, links and licences.
    tabs_->addTab(scrollable(about_), tr("About"));
    tabs_->setDocumentMode(true);
    // Every tab in view and in full: behind scroll arrows a tab is easily
    // never found (German's "Über" was). The window's layout then keeps it
    // at least as wide as the tabs, and the pages scroll, so it goes down to
    // a small screen (1280×720 at twice the scale leaves 640×360, less the
    // panels).
    tabs_->setUsesScrollButtons(false);
    tabs_->tabBar()->setElideMode(Qt::ElideNone);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->addWidget(tabs_);
    resize(preferredSize);

    // Ctrl+W and Escape close it, as in other small utility windows.
    for (const QKeySequence& keys :
         {QKeySequence(QKeySequence::Close), QKeySequence(Qt::Key_Escape)})
        connect(new QShortcut(keys, this), &QShortcut::activated, this, &QWidget::close);
}

SettingsWindow::~SettingsWindow() = default;

void SettingsWindow::open(Tab tab) {
    reloadAll();
    tabs_->setCurrentIndex(static_cast<int>(tab));
    if (isMinimized())
        setWindowState(windowState() & ~Qt::WindowMinimized);
    // Where the user looks: on the screen with the pointer, each time it
    // comes back from hidden; an open window stays where the user put it.
    if (!isVisible())
        placeOn(QGuiApplication::screenAt(QCursor::pos()));
    show();
    raise();
    activateWindow();
}

void SettingsWindow::placeOn(QScreen* screen) {
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    setGeometry(centredFrame(area, preferredSize.expandedTo(minimumSize())));
}

QRect SettingsWindow::centredFrame(const QRect& area, const QSize& wanted) {
    const QSize size = wanted.boundedTo(area.size());
    QRect frame(QPoint(0, 0), size);
    frame.moveCenter(area.center());
    return frame;
}

void SettingsWindow::cloudDidChange() {
    if (!isVisible())
        return;
    categories_->reload();
    sync_->reload();
}

void SettingsWindow::sessionChanged() {
    if (isVisible())
        general_->reload();
}

void SettingsWindow::storageChanged() {
    if (isVisible())
        storage_->reload();
}

bool SettingsWindow::event(QEvent* event) {
    // Coming back after deleting or renaming a category from the history
    // window's chips shows the list as it is now. The other pages keep what
    // the user may be in the middle of typing.
    if (event->type() == QEvent::WindowActivate) {
        categories_->reload();
        sync_->reload();
    }
    return QWidget::event(event);
}

void SettingsWindow::reloadAll() {
    general_->reload();
    categories_->reload();
    storage_->reload();
    ignore_->reload();
    sync_->reload();
    about_->reload();
}

}  // namespace zettly
