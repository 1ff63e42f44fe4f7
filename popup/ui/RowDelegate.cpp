#include "popup/ui/RowDelegate.h"

#include <QCoreApplication>
#include <QKeySequence>
#include <QListView>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>

#include "popup/ui/RowLayout.h"
#include "popup/ui/Thumbnails.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int corner = 7;

class RowTexts {
    Q_DECLARE_TR_FUNCTIONS(RowTexts)
};

// Draws `text` into `rect` on at most `maxLines` lines as wrapRowText lays
// it out, with an ellipsis where it is cut and a rounded mark behind each
// range of `marks`.
void drawMarkedText(QPainter& p, const QRect& rect, const QString& text, const TextRanges& marks,
                    const QFont& font, const QColor& colour, const QColor& markColour,
                    int maxLines) {
    const QString ellipsis(QChar(0x2026));
    p.save();
    p.setClipRect(rect);
    p.setFont(font);
    wrapRowText(text, marks, font, rect.width(), maxLines, [&](const RowLine& row) {
        const QTextLine& line = row.line;
        const qreal y = rect.top() + row.y;
        p.setPen(Qt::NoPen);
        p.setBrush(markColour);
        for (const auto& f : row.layout.formats()) {
            const int b = std::max(f.start, line.textStart());
            const int e = std::min(f.start + f.length, line.textStart() + line.textLength());
            if (b >= e)
                continue;
            const qreal x1 = line.cursorToX(b), x2 = line.cursorToX(e);
            p.drawRoundedRect(QRectF(rect.left() + x1 - 2, y + 1, x2 - x1 + 4, line.height() - 1),
                              4, 4);
        }
        p.setPen(colour);
        row.layout.draw(&p, QPointF(rect.left(), y));
        if (row.elided)
            p.drawText(QPointF(rect.left() + line.naturalTextWidth(), y + line.ascent()), ellipsis);
    });
    p.restore();
}

look::Glyph glyphOf(const PopupModel::Entry& entry) {
    if (entry.isImage())
        return look::Glyph::image;
    if (entry.isLink())
        return look::Glyph::link;
    return entry.text()->type == "number" ? look::Glyph::number : look::Glyph::text;
}

QIcon typeIcon(look::Glyph glyph, const QColor& colour) {
    switch (glyph) {
        case look::Glyph::link:
            return look::themedIcon("text-html", glyph, colour);
        case look::Glyph::number:
            return look::themedIcon("x-office-spreadsheet", glyph, colour);
        case look::Glyph::image:
            return look::themedIcon("image-x-generic", glyph, colour);
        default:
            return look::themedIcon("text-x-generic", glyph, colour);
    }
}

}  // namespace

RowDelegate::RowDelegate(EntryListModel& rows, ThumbnailCache& thumbnails, QListView* view)
    : QStyledItemDelegate(view), rows_(rows), thumbnails_(thumbnails), view_(view) {
    connect(&rows_, &QAbstractItemModel::modelReset, this, [this] { layouts_.clear(); });
}

const RowLayout* RowDelegate::layoutOf(const QFont& font, int row, int width) const {
    const PopupModel& model = rows_.popupModel();
    if (row < 0 || std::size_t(row) >= model.entries().size())
        return nullptr;
    if (width != layoutWidth_ || font != layoutFont_) {
        layouts_.clear();
        layoutWidth_ = width;
        layoutFont_ = font;
    }
    layouts_.resize(model.entries().size());
    std::optional<RowLayout>& slot = layouts_[std::size_t(row)];
    if (!slot) {
        const PopupModel::Entry& entry = model.entries()[std::size_t(row)];
        RowContent content;
        content.text = &rows_.rowText(row);
        content.image = entry.isImage();
        content.pinned = entry.pinned();
        if (const auto tag = model.categoryTag(entry))
            content.tag = QString::fromStdString(*tag);
        content.row = row;
        slot = layoutRow(content, RowFonts(font), width);
    }
    return &*slot;
}

QSize RowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const int width = view_->viewport()->width();
    const RowLayout* layout = layoutOf(option.font, index.row(), width);
    return layout ? layout->size : QSize(width, 0);
}

void RowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const {
    const PopupModel& model = rows_.popupModel();
    const int row = index.row();
    const RowLayout* found = layoutOf(option.font, row, option.rect.width());
    if (!found)
        return;
    const RowLayout& layout = *found;
    const PopupModel::Entry& entry = model.entries()[std::size_t(row)];
    const RowText& text = rows_.rowText(row);
    const QPalette& pal = option.palette;
    const QColor secondary = look::secondaryText(pal);
    const QColor ink = pal.color(QPalette::Text);
    const QColor mark = look::matchFill(pal);
    const RowFonts fonts(option.font);
    QPainter& p = *painter;
    p.save();
    p.translate(option.rect.topLeft());
    p.setRenderHint(QPainter::Antialiasing);

    // The model's selection is the one highlight; hover only marks others.
    const bool selected = std::size_t(row) == model.selection();
    if (selected || option.state.testFlag(QStyle::State_MouseOver)) {
        p.setPen(Qt::NoPen);
        p.setBrush(selected ? look::selectionFill(pal) : look::hoverFill(pal));
        p.drawRoundedRect(layout.background, corner, corner);
    }

    p.setFont(fonts.small);
    p.setPen(secondary);
    if (!layout.hintText.isEmpty())
        p.drawText(layout.hint, Qt::AlignRight | Qt::AlignVCenter, layout.hintText);
    if (!layout.moreText.isEmpty())
        p.drawText(layout.more, Qt::AlignRight | Qt::AlignVCenter, layout.moreText);
    if (!layout.pin.isEmpty())
        look::paintGlyph(p, look::Glyph::pin, layout.pin, secondary);
    if (!layout.tag.isEmpty()) {
        const qreal radius = layout.tag.height() / 2.0;
        p.setPen(Qt::NoPen);
        p.setBrush(look::subtleFill(pal));
        p.drawRoundedRect(layout.tag, radius, radius);
        p.setPen(ink);
        p.drawText(layout.tag, Qt::AlignCenter, layout.tagText);
    }

    const look::Glyph glyph = glyphOf(entry);
    if (icons_.empty() || iconColour_ != secondary) {
        iconColour_ = secondary;
        icons_.clear();
        for (auto g :
             {look::Glyph::text, look::Glyph::link, look::Glyph::number, look::Glyph::image})
            icons_.push_back(typeIcon(g, secondary));
    }
    icons_[std::size_t(glyph)].paint(&p, layout.icon);

    if (!layout.label.isEmpty())
        drawMarkedText(p, layout.label, text.label, text.labelMatches, fonts.label, ink, mark, 1);
    if (const ImageClipStore::Item* image = entry.image()) {
        paintThumbnail(p, *image, layout.thumbnail, pal);
        p.setFont(fonts.small);
        p.setPen(secondary);
        p.drawText(layout.body, Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("%1 \u00d7 %2").arg(image->width).arg(image->height));
    } else if (text.snippet.isEmpty()) {
        p.setFont(fonts.text);
        p.setPen(secondary);
        //: History window: shown in place of a copied text made only of spaces or line breaks.
        p.drawText(layout.body, Qt::AlignLeft | Qt::AlignTop, RowTexts::tr("Blank text"));
    } else {
        drawMarkedText(p, layout.body, text.snippet, text.matches, fonts.text,
                       layout.label.isEmpty() ? ink : secondary, mark, layout.lines);
    }
    p.restore();
}

void RowDelegate::paintThumbnail(QPainter& p, const ImageClipStore::Item& image, const QRect& box,
                                 const QPalette& palette) const {
    const qreal dpr = p.device()->devicePixelRatioF();
    bool failed = false;
    const QImage* thumb = thumbnails_.find(QString::fromStdString(image.thumb),
                                           (QSizeF(box.size()) * dpr).toSize(), &failed);
    QSizeF shown = thumb
                       ? QSizeF(thumb->size()) / dpr
                       : QSizeF(image.width, image.height).scaled(box.size(), Qt::KeepAspectRatio);
    if (shown.isEmpty())
        shown = QSizeF(box.height(), box.height());
    const QRectF target(box.center().x() + 0.5 - shown.width() / 2,
                        box.center().y() + 0.5 - shown.height() / 2, shown.width(), shown.height());
    QPainterPath clip;
    clip.addRoundedRect(target, 4, 4);
    p.save();
    p.setClipPath(clip);
    if (thumb) {
        p.drawImage(target, *thumb);
    } else {
        p.fillRect(target, look::subtleFill(palette));
        if (failed)
            look::paintGlyph(p, look::Glyph::image, target.adjusted(8, 8, -8, -8),
                             look::secondaryText(palette));
    }
    p.restore();
    p.setPen(QPen(look::subtleFill(palette), 1));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(target.adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
}

}  // namespace zettly
