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
// deletes it. Scrolls sideways (with the wheel) when the chips are wider
// than the window; the "+" button at the end creates a category.
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

    static constexpr const char* mimeType = "application/x-zettly-chip";

protected:
    void changeEvent(QEvent* event) override;

private:
    class Strip;
    Strip* strip_;
    QToolButton* add_;
};

}  // namespace zettly
