#include "popup/ui/RowDelegate.h"

#include <QCoreApplication>
#include <QKeySequence>
#include <QListView>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>

#include "popup/ui/Thumbnails.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int insetX = 6;  // the row's rounded background, inside the list
constexpr int insetY = 1;
constexpr int padX = 10;
constexpr int padY = 7;
constexpr int iconSize = 18;
constexpr int gap = 10;
constexpr int imageRowHeight = 58;
constexpr int thumbMaxWidth = 72;
constexpr int corner = 7;
constexpr int maxTagWidth = 110;

class RowTexts {
    Q_DECLARE_TR_FUNCTIONS(RowTexts)
};

struct Fonts {
    explicit Fonts(const QFont& base)
        : text(base), label(base), small(look::scaledFont(base, 0.86)) {
        label.setWeight(QFont::DemiBold);
    }
    QFont text, label, small;
};

QString shortcutHint(int row) {
    return QKeySequence(QKeyCombination(Qt::ControlModifier, Qt::Key(Qt::Key_1 + row)))
        .toString(QKeySequence::NativeText);
}

// Draws `text` into `rect` on at most `maxLines` lines, wrapping at word
// boundaries, with an ellipsis when it does not fit and a rounded mark
// behind each range of `marks`.
void drawMarkedText(QPainter& p, const QRect& rect, const QString& text, const TextRanges& marks,
                    const QFont& font, const QColor& colour, const QColor& markColour,
                    int maxLines) {
    const QFontMetrics fm(font);
    const QString ellipsis(QChar(0x2026));
    QTextCharFormat marked;
    marked.setFontWeight(QFont::DemiBold);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);

    p.save();
    p.setClipRect(rect);
    p.setPen(colour);
    int pos = 0;
    qreal y = rect.top();
    for (int line = 0; line < maxLines && pos < text.size(); ++line) {
        const int newline = int(text.indexOf(u'\n', pos));
        const int end = newline < 0 ? int(text.size()) : newline;
        QTextLayout layout(text.mid(pos, end - pos), font, p.device());
        layout.setTextOption(option);
        QList<QTextLayout::FormatRange> formats;
        for (auto [begin, stop] : marks)
            if (stop > pos && begin < end)
                formats.append({std::max(begin, pos) - pos,
                                std::min(stop, end) - std::max(begin, pos), marked});
        layout.setFormats(formats);
        layout.beginLayout();
        QTextLine tl = layout.createLine();
        tl.setLineWidth(rect.width());
        const bool more = pos + tl.textLength() < end || newline >= 0;
        const bool elide = more && line == maxLines - 1;
        if (elide)
            tl.setLineWidth(rect.width() - fm.horizontalAdvance(ellipsis));
        layout.endLayout();

        p.setPen(Qt::NoPen);
        p.setBrush(markColour);
        for (const auto& f : formats) {
            const int b = std::max(f.start, tl.textStart());
            const int e = std::min(f.start + f.length, tl.textStart() + tl.textLength());
            if (b >= e)
                continue;
            const qreal x1 = tl.cursorToX(b), x2 = tl.cursorToX(e);
            p.drawRoundedRect(QRectF(rect.left() + x1 - 2, y + 1, x2 - x1 + 4, tl.height() - 1), 4,
                              4);
        }
        p.setPen(colour);
        layout.draw(&p, QPointF(rect.left(), y));
        if (elide)
            p.drawText(QPointF(rect.left() + tl.naturalTextWidth(), y + tl.ascent()), ellipsis);
        pos += tl.textLength();
        if (pos >= end)
            pos = end + 1;
        y += fm.lineSpacing();
    }
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
    : QStyledItemDelegate(view), rows_(rows), thumbnails_(thumbnails), view_(view) {}

int RowDelegate::hintWidth(const QFont& small) const {
    return QFontMetrics(small).horizontalAdvance(shortcutHint(8));
}

QSize RowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const int width = view_->viewport()->width();
    const auto& entries = rows_.popupModel().entries();
    if (index.row() < 0 || std::size_t(index.row()) >= entries.size())
        return {width, 0};
    const PopupModel::Entry& entry = entries[std::size_t(index.row())];
    if (entry.isImage())
        return {width, imageRowHeight};

    const Fonts fonts(option.font);
    const QFontMetrics fm(fonts.text);
    const RowText& text = rows_.rowText(index.row());
    // An estimate, not a measurement: a row that gets two lines but needs one
    // only has some air; one that needs more is elided.
    const int room = width - 2 * (insetX + padX) - iconSize - gap - hintWidth(fonts.small) - 8 -
                     (entry.pinned() ? 20 : 0) - (entry.category() ? 70 : 0);
    const bool twoLines =
        text.snippet.contains(u'\n') || text.snippet.size() * fm.averageCharWidth() > room;
    int height = 2 * (insetY + padY) + (twoLines ? 2 : 1) * fm.lineSpacing();
    if (!text.label.isEmpty())
        height += QFontMetrics(fonts.label).lineSpacing() + 1;
    return {width, height};
}

void RowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const {
    const PopupModel& model = rows_.popupModel();
    const int row = index.row();
    if (row < 0 || std::size_t(row) >= model.entries().size())
        return;
    const PopupModel::Entry& entry = model.entries()[std::size_t(row)];
    const RowText& text = rows_.rowText(row);
    const QPalette& pal = option.palette;
    const QColor secondary = look::secondaryText(pal);
    const Fonts fonts(option.font);
    QPainter& p = *painter;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);

    const QRect r = option.rect.adjusted(insetX, insetY, -insetX, -insetY);
    const bool selected = std::size_t(row) == model.selection();
    if (selected || option.state.testFlag(QStyle::State_MouseOver)) {
        p.setPen(Qt::NoPen);
        p.setBrush(selected ? look::selectionFill(pal) : look::hoverFill(pal));
        p.drawRoundedRect(r, corner, corner);
    }

    // Right to left: shortcut hint, pin, category tag.
    int left = r.left() + padX, right = r.right() + 1 - padX;
    const int hintW = hintWidth(fonts.small);
    if (row < 9) {
        p.setFont(fonts.small);
        p.setPen(secondary);
        p.drawText(QRect(right - hintW, r.top(), hintW, r.height()),
                   Qt::AlignRight | Qt::AlignVCenter, shortcutHint(row));
    }
    right -= hintW + 8;
    if (entry.pinned()) {
        look::paintGlyph(p, look::Glyph::pin, QRectF(right - 12, r.center().y() - 6, 12, 12),
                         secondary);
        right -= 12 + 8;
    }
    if (const auto tag = model.categoryTag(entry)) {
        const QFontMetrics fm(fonts.small);
        const QString name =
            fm.elidedText(QString::fromStdString(*tag), Qt::ElideRight, maxTagWidth);
        const int w = fm.horizontalAdvance(name) + 14, h = fm.height() + 4;
        const QRect pill(right - w, r.center().y() - h / 2, w, h);
        p.setPen(Qt::NoPen);
        p.setBrush(look::subtleFill(pal));
        p.drawRoundedRect(pill, h / 2.0, h / 2.0);
        p.setFont(fonts.small);
        p.setPen(pal.color(QPalette::Text));
        p.drawText(pill, Qt::AlignCenter, name);
        right = pill.left() - 8;
    }

    const look::Glyph glyph = glyphOf(entry);
    if (icons_.empty() || iconColour_ != secondary) {
        iconColour_ = secondary;
        icons_.clear();
        for (auto g :
             {look::Glyph::text, look::Glyph::link, look::Glyph::number, look::Glyph::image})
            icons_.push_back(typeIcon(g, secondary));
    }
    const QRect iconRect(left, r.center().y() - iconSize / 2, iconSize, iconSize);
    icons_[std::size_t(glyph)].paint(&p, iconRect);
    left += iconSize + gap;

    const QFontMetrics labelFm(fonts.label), textFm(fonts.text);
    const QColor mark = look::matchFill(pal);
    const QColor ink = pal.color(QPalette::Text);
    if (const ImageClipStore::Item* image = entry.image()) {
        const QRect box(left, r.top() + 6, thumbMaxWidth, r.height() - 12);
        paintThumbnail(p, *image, box, pal);
        left += thumbMaxWidth + gap;
        const QString size = QStringLiteral("%1 \u00d7 %2").arg(image->width).arg(image->height);
        const QFontMetrics smallFm(fonts.small);
        const int height =
            (text.label.isEmpty() ? 0 : labelFm.lineSpacing()) + smallFm.lineSpacing();
        int y = r.center().y() - height / 2;
        if (!text.label.isEmpty()) {
            drawMarkedText(p, QRect(left, y, right - left, labelFm.lineSpacing()), text.label,
                           text.labelMatches, fonts.label, ink, mark, 1);
            y += labelFm.lineSpacing();
        }
        p.setFont(fonts.small);
        p.setPen(secondary);
        p.drawText(QRect(left, y, right - left, smallFm.lineSpacing()),
                   Qt::AlignLeft | Qt::AlignVCenter, size);
    } else {
        const int labelH = text.label.isEmpty() ? 0 : labelFm.lineSpacing() + 1;
        const int lines = std::max(1, (r.height() - 2 * padY - labelH) / textFm.lineSpacing());
        int y = r.top() + padY;
        if (labelH) {
            drawMarkedText(p, QRect(left, y, right - left, labelH), text.label, text.labelMatches,
                           fonts.label, ink, mark, 1);
            y += labelH;
        }
        const QRect body(left, y, right - left, lines * textFm.lineSpacing());
        if (text.snippet.isEmpty()) {
            p.setFont(fonts.text);
            p.setPen(secondary);
            //: History window: shown in place of a copied text made only of spaces or line breaks.
            p.drawText(body, Qt::AlignLeft | Qt::AlignTop, RowTexts::tr("Blank text"));
        } else {
            drawMarkedText(p, body, text.snippet, text.matches, fonts.text,
                           labelH ? secondary : ink, mark, lines);
        }
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
