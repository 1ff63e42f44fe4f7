#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPalette>

class QPainter;

namespace zettly {

// Colours and glyphs of the history window, derived from the system palette
// so that light and dark themes both look right.
namespace look {

QColor selectionFill(const QPalette& palette);
QColor hoverFill(const QPalette& palette);
QColor matchFill(const QPalette& palette);
QColor border(const QPalette& palette);
QColor secondaryText(const QPalette& palette);
QColor subtleFill(const QPalette& palette);
QFont scaledFont(const QFont& font, double factor);
// The application's palette with what some styles and dark themes leave
// out: placeholder text dimmer than typed text (and so the secondary text
// above), and the texts of a window that is not in front as readable as in
// the one that is, rather than greyed as if disabled.
QPalette settledPalette(QPalette palette);

enum class Glyph { text, link, number, image, search, pin, more, update, chevron, plus };
void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& rect, const QColor& colour);
QIcon glyphIcon(Glyph glyph, const QColor& colour, int size = 16);
// The desktop's icon when its theme has one, else the painted glyph, so a
// bare window manager without an icon theme never shows an empty spot.
QIcon themedIcon(const char* name, Glyph fallback, const QColor& colour);

}  // namespace look

}  // namespace zettly
