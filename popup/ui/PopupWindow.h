#pragma once

#include <QSize>
#include <QString>
#include <QTimer>
#include <functional>
#include <optional>

#include "platform/Keyboard.h"
#include "popup/PopupView.h"
#include "popup/ui/Panel.h"

class QAbstractButton;
class QAction;
class QLabel;
class QLineEdit;
class QSizeGrip;
class QVBoxLayout;

namespace zettly {

class ChipBar;
class HistoryList;
class PopupController;
class PreviewPanel;

// The history window: search field, filter chips, the list, an update row
// when a newer version is known, and a footer with the app menu. A frameless
// tool window on top of everything, on every desktop and off the taskbar; it
// takes the keyboard when shown and closes when the user goes elsewhere.
// Keys go to the controller first; what it does not consume types into the
// search field.
class PopupWindow : public PanelWidget, public PopupView {
    Q_OBJECT
public:
    // Without `layout` keys are named as on a US keyboard; without `hints`
    // the window gets no desktop hints (tests).
    explicit PopupWindow(KeyboardLayout* layout = nullptr, WindowHints* hints = nullptr);
    ~PopupWindow() override;

    // Binds the window to the controller and its model: once, right after the
    // controller (which holds the model and a reference to this view) is made.
    void setController(PopupController* controller);
    // Shows the update row for a newer version, or hides it.
    void setUpdateVersion(const std::optional<QString>& version);
    // Without an update feed the footer menu greys its update item, as the
    // tray menu does.
    void setUpdatesConfigured(bool configured) { updatesConfigured_ = configured; }
    // The "pasteAutomatically" preference: "Copy and Paste" in the row menu
    // inverts it so that it always pastes.
    std::function<bool()> pasteAutomatically = [] { return false; };

    QLineEdit* searchField() const { return search_; }
    HistoryList* list() const { return list_; }
    PreviewPanel* preview() const { return preview_; }

    // PopupView
    void showPanel(const Rect& frame) override;
    void hidePanel() override;
    bool isPanelVisible() const override;
    int rowsPerPage() const override;
    Rect panelFrame() const override;
    void makePanelKey() override;
    void showPreview(const PopupModel::Entry& entry, const Rect& frame) override;
    void hidePreview() override;
    bool isPreviewVisible() const override;
    std::optional<std::string> ask(const std::string& title,
                                   const std::optional<std::string>& message,
                                   const std::string& value, bool multiline) override;
    void inform(const std::string& message) override;
    bool confirm(const std::string& title, const std::string& detail,
                 const std::string& button) override;
    std::optional<CategoryChoice> chooseCategory(
        const PopupModel::Entry& entry,
        const std::vector<ClipboardStore::Category>& categories) override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void applyPalette();
    QWidget* buildFooter();
    void modelChanged(unsigned changes);
    void showRowMenu(int row, const QPoint& globalPos);
    void showFooterMenu();
    void closeThen(const std::function<void()>& hook);
    void checkResignKey();
    void reportResize();
    Qt::Edges edgesAt(QPoint pos) const;

    PopupModel* model_ = nullptr;
    PopupController* controller_ = nullptr;
    KeyboardLayout* layout_;
    WindowHints* hints_;
    BusyCounter busy_;
    QVBoxLayout* root_;
    QLineEdit* search_;
    QAction* searchIcon_;
    QLabel* hint_;
    QLabel* searching_;
    ChipBar* chips_ = nullptr;
    HistoryList* list_ = nullptr;
    QAbstractButton* update_;
    QAbstractButton* more_ = nullptr;
    QSizeGrip* grip_;
    PreviewPanel* preview_ = nullptr;
    QTimer resizeTimer_;
    // The check that the keyboard has left for good; it belongs to one
    // showing, so a check still pending from the last one never closes
    // the next.
    QTimer resignTimer_;
    QSize placedSize_;
    bool placing_ = false;
    bool updatesConfigured_ = true;
};

}  // namespace zettly
