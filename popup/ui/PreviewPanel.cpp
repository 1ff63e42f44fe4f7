#include "popup/ui/PreviewPanel.h"

#include <QImageReader>
#include <QLabel>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "platform/WindowHints.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int margin = 12;

}  // namespace

PreviewPanel::PreviewPanel(QWidget* parent, WindowHints* hints)
    : PanelWidget((hints && !hints->placesWindows() ? Qt::ToolTip : Qt::Tool) |
                      Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                      Qt::WindowDoesNotAcceptFocus,
                  parent, hints) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setObjectName(QStringLiteral("ZettlyPreview"));
    //: Title of the preview beside the history window (shown by some window lists).
    setWindowTitle(tr("Zettly Preview"));
    setFocusPolicy(Qt::NoFocus);

    title_ = new QLabel(this);
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    title_->setTextFormat(Qt::PlainText);

    text_ = new QPlainTextEdit(this);
    text_->setReadOnly(true);
    text_->setFocusPolicy(Qt::NoFocus);
    text_->setFrameShape(QFrame::NoFrame);
    text_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    text_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    text_->viewport()->setAutoFillBackground(false);
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse);

    image_ = new QLabel(this);
    image_->setAlignment(Qt::AlignCenter);
    caption_ = new QLabel(this);
    caption_->setAlignment(Qt::AlignCenter);

    auto* layout = new QVBoxLayout(this);
    // The frame is decided from the entry before it is shown (see
    // popupgeometry::previewSize); the layout only fills it. Left to its
    // default, it would make the last content's size the panel's minimum,
    // and a text after a large image would keep the image's width.
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    layout->setContentsMargins(margin, margin, margin - 2, margin);
    layout->setSpacing(6);
    layout->addWidget(title_);
    layout->addWidget(text_, 1);
    layout->addWidget(image_, 1);
    layout->addWidget(caption_);
}

void PreviewPanel::showEntry(const PopupModel::Entry& entry, const QRect& frame) {
    const std::optional<std::string>& label = entry.label();
    title_->setText(label ? QString::fromStdString(*label) : QString());
    title_->setVisible(label.has_value());
    const bool isText = entry.isText();
    text_->setVisible(isText);
    image_->setVisible(!isText);
    caption_->setVisible(!isText);
    // The selection often comes back to the same entry; a long text or a
    // large image is not loaded again then, unless the room for it changed.
    if (entry != shown_ || (!isText && frame.size() != size())) {
        shown_ = entry;
        if (isText) {
            image_->clear();  // no hidden picture held in memory
            text_->setPlainText(QString::fromStdString(entry.text()->text));
            text_->moveCursor(QTextCursor::Start);
        } else {
            text_->clear();
            showImage(*entry.image(), frame);
        }
    }
    // The new content first, then its frame: laid out at once, so the first
    // frame drawn already has it in place.
    setGeometry(frame);
    layout()->activate();
    if (!isVisible()) {
        prepareDesktopHints();
        show();
    }
    raise();
}

void PreviewPanel::showImage(const ImageClipStore::Item& image, const QRect& frame) {
    caption_->setText(QStringLiteral("%1 \u00d7 %2").arg(image.width).arg(image.height));
    QPalette pal = palette();
    pal.setColor(QPalette::WindowText, look::secondaryText(pal));
    caption_->setPalette(pal);
    const int captionH = caption_->sizeHint().height() + 6;
    const QSize room(frame.width() - 2 * margin,
                     frame.height() - 2 * margin - captionH -
                         (!title_->isHidden() ? title_->sizeHint().height() + 6 : 0));
    const qreal dpr = devicePixelRatioF();
    QImageReader reader(QString::fromStdString(image.file));
    reader.setAutoTransform(true);
    QSize size = reader.size();
    if (size.isValid() && room.isValid() &&
        (size.width() > room.width() || size.height() > room.height()))
        size = size.scaled(room, Qt::KeepAspectRatio);
    if (size.isValid())
        reader.setScaledSize(size * dpr);
    QImage decoded = reader.read();
    if (decoded.isNull()) {
        image_->setPixmap(
            look::glyphIcon(look::Glyph::image, look::secondaryText(palette()), 48).pixmap(48, 48));
        return;
    }
    QPixmap pixmap = QPixmap::fromImage(std::move(decoded));
    pixmap.setDevicePixelRatio(dpr);
    image_->setPixmap(pixmap);
}

QString PreviewPanel::shownText() const {
    return !text_->isHidden() ? text_->toPlainText() : caption_->text();
}

}  // namespace zettly
