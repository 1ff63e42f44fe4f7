#include "popup/ui/RowLayout.h"

#include <QCoreApplication>
#include <QFontMetrics>
#include <QKeySequence>
#include <algorithm>

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
constexpr int imagePadY = 6;
constexpr int thumbMaxWidth = 72;
constexpr int maxTagWidth = 110;
constexpr int pinSize = 12;
constexpr int maxTextLines = 2;

class RowTexts {
    Q_DECLARE_TR_FUNCTIONS(RowTexts)
public:
    // No English translation is loaded: one line gets its own text rather
    // than "+1 lines".
    static QString moreLines(int hidden) {
        if (hidden == 1)
            //: History window: a row shows the first lines of a text; this says one more line
            //: follows. Keep it short.
            return tr("+1 line");
        //: History window: a row shows the first lines of a text; this says how many more
        //: lines follow. Keep it short.
        return tr("+%n lines", nullptr, hidden);
    }
};

QString shortcutHint(int row) {
    return QKeySequence(QKeyCombination(Qt::ControlModifier, Qt::Key(Qt::Key_1 + row)))
        .toString(QKeySequence::NativeText);
}

// The text lines of a row and how many lines of the whole text they leave
// out, for a body `width` wide.
struct Body {
    int lines = 1;
    int hidden = 0;
};

Body measureBody(const RowText& text, const QFont& font, int width) {
    if (text.snippet.isEmpty())
        return {};
    const RowWrap wrap = wrapRowText(text.snippet, text.matches, font, width, maxTextLines);
    return {std::max(1, wrap.lines), std::max(0, text.lineCount - wrap.sourceLines)};
}

}  // namespace

RowFonts::RowFonts(const QFont& base)
    : text(base), label(base), small(look::scaledFont(base, 0.86)) {
    label.setWeight(QFont::DemiBold);
}

RowWrap wrapRowText(const QString& text, const TextRanges& marks, const QFont& font, int width,
                    int maxLines, const std::function<void(const RowLine&)>& each) {
    const QFontMetrics fm(font);
    const int ellipsisWidth = fm.horizontalAdvance(QChar(0x2026));
    QTextCharFormat marked;
    marked.setFontWeight(QFont::DemiBold);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);

    RowWrap wrap;
    int pos = 0, lineStart = -1;
    while (wrap.lines < maxLines && pos < text.size()) {
        const int newline = int(text.indexOf(u'\n', pos));
        const int end = newline < 0 ? int(text.size()) : newline;
        if (pos != lineStart) {
            ++wrap.sourceLines;
            lineStart = pos;
        }
        // Measured without a paint device: the same for the list's height
        // and for any surface the row is painted on.
        QTextLayout layout(text.mid(pos, end - pos), font);
        layout.setTextOption(option);
        QList<QTextLayout::FormatRange> formats;
        for (auto [begin, stop] : marks)
            if (stop > pos && begin < end)
                formats.append({std::max(begin, pos) - pos,
                                std::min(stop, end) - std::max(begin, pos), marked});
        layout.setFormats(formats);
        layout.beginLayout();
        QTextLine line = layout.createLine();
        line.setLineWidth(width);
        const bool more = pos + line.textLength() < end || newline >= 0;
        const bool elided = more && wrap.lines == maxLines - 1;
        if (elided)
            line.setLineWidth(std::max(0, width - ellipsisWidth));
        layout.endLayout();
        if (each)
            each({layout, line, wrap.lines * fm.lineSpacing(), elided});
        ++wrap.lines;
        pos += std::max(1, line.textLength());
        if (pos >= end) {
            pos = end + 1;
            lineStart = -1;
        } else {
            lineStart = pos;  // the same source line goes on
        }
    }
    return wrap;
}

RowLayout layoutRow(const RowContent& content, const RowFonts& fonts, int width) {
    const QFontMetrics textFm(fonts.text), labelFm(fonts.label), smallFm(fonts.small);
    const RowText& text = *content.text;
    const int hintWidth = smallFm.horizontalAdvance(shortcutHint(8));
    const int labelHeight = text.label.isEmpty() ? 0
                            : content.image      ? labelFm.lineSpacing()
                                                 : labelFm.lineSpacing() + 1;

    RowLayout out;
    if (content.row < 9)
        out.hintText = shortcutHint(content.row);
    if (!content.tag.isEmpty())
        out.tagText = smallFm.elidedText(content.tag, Qt::ElideRight, maxTagWidth);
    const int tagWidth = out.tagText.isEmpty() ? 0 : smallFm.horizontalAdvance(out.tagText) + 14;
    const int tagHeight = smallFm.height() + 4;

    // Left to right: icon, thumbnail, text; right to left: hint (with the
    // count of lines left out below it), pin, tag. The text's width depends
    // on the count's, and the count on how much text fits: settled in a
    // pass or two.
    const int left = padX + insetX + iconSize + gap + (content.image ? thumbMaxWidth + gap : 0);
    auto rightOfText = [&](const QString& more) {
        const int column =
            std::max(hintWidth, more.isEmpty() ? 0 : smallFm.horizontalAdvance(more));
        return width - insetX - padX - column - 8 - (content.pinned ? pinSize + 8 : 0) -
               (tagWidth ? tagWidth + 8 : 0);
    };
    Body body;
    for (int pass = 0; pass < 3 && !content.image; ++pass) {
        const int assumed = body.hidden;
        body = measureBody(text, fonts.text,
                           rightOfText(assumed ? RowTexts::moreLines(assumed) : QString()) - left);
        if (body.hidden == assumed)
            break;
    }
    if (body.hidden > 0)
        out.moreText = RowTexts::moreLines(body.hidden);
    out.lines = content.image ? 0 : body.lines;
    const int right = rightOfText(out.moreText);

    // The height: the texts, or the thumbnail's minimum, with the right
    // column's hint and count.
    const int column = out.moreText.isEmpty() ? smallFm.height() : 2 * smallFm.lineSpacing();
    int height;
    if (content.image) {
        height = std::max(imageRowHeight - 2 * insetY,
                          labelHeight + smallFm.lineSpacing() + 2 * imagePadY);
    } else {
        const int texts = labelHeight + out.lines * textFm.lineSpacing();
        height = std::max({texts, column, tagHeight, iconSize}) + 2 * padY;
    }
    height = std::max(height, column + 2 * padY);
    out.size = QSize(width, height + 2 * insetY);
    const QRect r(insetX, insetY, width - 2 * insetX, height);
    out.background = r;
    const int middle = r.top() + r.height() / 2;

    const int columnRight = r.right() + 1 - padX;
    if (out.moreText.isEmpty()) {
        out.hint = QRect(columnRight - hintWidth, middle - smallFm.height() / 2, hintWidth,
                         smallFm.height());
    } else {
        const int moreWidth = smallFm.horizontalAdvance(out.moreText);
        out.hint = QRect(columnRight - hintWidth, middle - smallFm.lineSpacing(), hintWidth,
                         smallFm.lineSpacing());
        out.more = QRect(columnRight - moreWidth, middle, moreWidth, smallFm.lineSpacing());
    }
    int next = columnRight - std::max(hintWidth, out.more.width()) - 8;
    if (content.pinned) {
        out.pin = QRect(next - pinSize, middle - pinSize / 2, pinSize, pinSize);
        next = out.pin.left() - 8;
    }
    if (tagWidth)
        out.tag = QRect(next - tagWidth, middle - tagHeight / 2, tagWidth, tagHeight);
    out.icon = QRect(r.left() + padX, middle - iconSize / 2, iconSize, iconSize);

    if (content.image) {
        out.thumbnail = QRect(out.icon.right() + 1 + gap, r.top() + imagePadY, thumbMaxWidth,
                              r.height() - 2 * imagePadY);
        int y = middle - (labelHeight + smallFm.lineSpacing()) / 2;
        if (labelHeight) {
            out.label = QRect(left, y, right - left, labelHeight);
            y += labelHeight;
        }
        out.body = QRect(left, y, right - left, smallFm.lineSpacing());
    } else {
        int y = r.top() + padY;
        if (labelHeight) {
            out.label = QRect(left, y, right - left, labelHeight);
            y += labelHeight;
        }
        out.body = QRect(left, y, right - left, out.lines * textFm.lineSpacing());
    }
    return out;
}

}  // namespace zettly
