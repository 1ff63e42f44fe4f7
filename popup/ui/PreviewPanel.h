#pragma once

#include <QString>
#include <optional>

#include "popup/PopupModel.h"
#include "popup/ui/Panel.h"

class QLabel;
class QPlainTextEdit;

namespace zettly {

// The whole of one entry beside the history window: a text with its name as
// a title, or an image with its size. It never takes the keyboard, so the
// history window keeps it while the preview follows the selection.
class PreviewPanel : public PanelWidget {
    Q_OBJECT

public:
    explicit PreviewPanel(QWidget* parent = nullptr, WindowHints* hints = nullptr);

    void showEntry(const PopupModel::Entry& entry, const QRect& frame);
    // What it shows (for tests): the text, or the image's caption.
    QString shownText() const;

private:
    void showImage(const ImageClipStore::Item& image, const QRect& frame);

    QLabel* title_;
    QPlainTextEdit* text_;
    QLabel* image_;
    QLabel* caption_;
    std::optional<PopupModel::Entry> shown_;
};

}  // namespace zettly
