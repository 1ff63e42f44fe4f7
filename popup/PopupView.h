#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "popup/PopupModel.h"

namespace zettly {

// The windows the controller drives: the history panel, the preview panel
// beside it, modal dialogs and the category menu. Implemented by the Qt front
// end; tests use a recording fake. Frames are y-up (platform/Geometry.h).
class PopupView {
public:
    virtual ~PopupView() = default;

    // Shows the history window at `frame`, in front, with the keyboard.
    virtual void showPanel(const Rect& frame) = 0;
    virtual void hidePanel() = 0;
    virtual bool isPanelVisible() const = 0;
    // How many rows the list shows whole at once, at least 1: what Page Up
    // and Page Down move the highlight by.
    virtual int rowsPerPage() const = 0;
    virtual Rect panelFrame() const = 0;
    // Gives the keyboard back to the history window after a dialog.
    virtual void makePanelKey() = 0;

    // In front, without taking the keyboard; replaces what it showed.
    virtual void showPreview(const PopupModel::Entry& entry, const Rect& frame) = 0;
    virtual void hidePreview() = 0;
    virtual bool isPreviewVisible() const = 0;

    // Modal dialogs; each returns when the user answered.
    // Save / Cancel with a one-line field or a multi-line text box; none
    // when cancelled. The text comes back as entered (not trimmed).
    virtual std::optional<std::string> ask(const std::string& title,
                                           const std::optional<std::string>& message,
                                           const std::string& value, bool multiline) = 0;
    virtual void inform(const std::string& message) = 0;
    // True only when the first button (`button`) was chosen.
    virtual bool confirm(const std::string& title, const std::string& detail,
                         const std::string& button) = 0;

    // The category menu at the selected row: "None", the categories,
    // "New Category…". Returns when the user chose or dismissed it.
    struct CategoryChoice {
        enum class Kind { none, category, newCategory };
        Kind kind = Kind::none;
        std::string categoryId;  // for Kind::category
    };
    virtual std::optional<CategoryChoice> chooseCategory(
        const PopupModel::Entry& entry,
        const std::vector<ClipboardStore::Category>& categories) = 0;
};

}  // namespace zettly
