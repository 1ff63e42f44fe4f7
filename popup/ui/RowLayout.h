#pragma once

#include <QFont>
#include <QRect>
#include <QString>
#include <QTextLayout>
#include <functional>

#include "popup/ui/HistoryList.h"

namespace zettly {

// The fonts of a row, derived from the list's font.
struct RowFonts {
    explicit RowFonts(const QFont& base);
    QFont text, label, small;
};

// What of an entry decides how its row is laid out.
struct RowContent {
    const RowText* text = nullptr;
    bool image = false;
    bool pinned = false;
    QString tag;  // the category tag, empty for none
    int row = 0;  // rows 0–8 show their Ctrl+digit hint
};

// Where each part of one row goes, relative to the row's top-left corner.
// The delegate's sizeHint and paint take the same layout, so what is painted
// always fits the height the list gave the row.
struct RowLayout {
    QSize size;
    QRect background;  // the rounded fill of a selected or hovered row
    QRect hint;        // the Ctrl+digit hint
    QString hintText;  // empty from the tenth row on
    QRect pin;         // empty when not pinned
    QRect tag;         // the category pill, empty without a tag
    QString tagText;   // elided to fit
    QRect icon;
    QRect thumbnail;  // image rows only
    QRect label;      // the name line, empty without a name
    QRect body;       // the text lines, or an image's pixel size
    int lines = 0;    // text lines shown in `body`
    QRect more;       // "+N lines" for a text longer than shown
    QString moreText;
};

RowLayout layoutRow(const RowContent& content, const RowFonts& fonts, int width);

// One line of a row's text as laid out to be drawn.
struct RowLine {
    const QTextLayout& layout;  // holds this one line, with the marks as formats
    QTextLine line;
    int y;        // from the top of the text's rect
    bool elided;  // the last line shown, with text left over
};

// Wraps `text` the way a row shows it: each of its lines ('\n') wrapped at
// word boundaries to `width`, at most `maxLines` lines in all, the last one
// shortened to leave room for an ellipsis when text is left over; the
// ranges of `marks` are set in semibold. Calls `each` for every line shown.
struct RowWrap {
    int lines = 0;
    int sourceLines = 0;  // lines of `text` of which something is shown
};
RowWrap wrapRowText(const QString& text, const TextRanges& marks, const QFont& font, int width,
                    int maxLines, const std::function<void(const RowLine&)>& each = {});

}  // namespace zettly
