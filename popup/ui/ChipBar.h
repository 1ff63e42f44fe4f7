#pragma once

#include <QWidget>
#include <vector>

#include "popup/PopupModel.h"
#include "popup/ui/Panel.h"

class QToolButton;

namespace zettly {

class PopupController;

// The filter chips in the user's order: a click activates one, a drag onto
// another chip reorders them, a category chip's context menu renames or
// deletes it. A long name is cut with "…" and shown whole in the chip's
// tooltip. When the chips are wider than the window the strip scrolls
// sideways (with the wheel, and to the active chip) and a chevron button
// lists the chips out of sight; the "+" button at the end creates a category.
class ChipBar : public QWidget {
    Q_OBJECT
public:
    ChipBar(PopupModel& model, PopupController& controller, BusyCounter& busy,
            QWidget* parent = nullptr);

    // The chips, the active chip or the dragged chip changed.
    void refresh();
    // Where the chip at this position of the model's chips is drawn, in this
    // widget's coordinates (empty when scrolled out of sight).
    QRect chipRect(std::size_t index) const;
    // The chip's name as drawn (cut when long), and its tooltip: the whole
    // name when cut, else empty.
    QString chipTitle(std::size_t index) const;
    QString chipToolTip(std::size_t index) const;
    // The chips not wholly in sight, as the chevron button's menu lists them.
    std::vector<std::size_t> hiddenChips() const;

    static constexpr const char* mimeType = "application/x-zettly-chip";

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void paintIcons();
    void updateOverflow();
    // The menu of the chips out of sight; choosing one activates it, which
    // scrolls it into sight.
    void showHidden();

    class Strip;
    PopupModel& model_;
    BusyCounter& busy_;
    Strip* strip_;
    QToolButton* more_;
    QToolButton* add_;
};

}  // namespace zettly
