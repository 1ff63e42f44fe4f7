#include "ui/Look.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <algorithm>
#include <cmath>

namespace zettly {
namespace look {
namespace {

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor withAlpha(QColor colour, double alpha) {
    colour.setAlphaF(alpha);
    return colour;
}

}  // namespace

QColor selectionFill(const QPalette& palette) {
    return withAlpha(palette.color(QPalette::Highlight), isDark(palette) ? 0.42 : 0.22);
}
QColor hoverFill(const QPalette& palette) {
    return withAlpha(palette.color(QPalette::Text), isDark(palette) ? 0.08 : 0.05);
}
QColor matchFill(const QPalette& palette) {
    return withAlpha(palette.color(QPalette::Highlight), isDark(palette) ? 0.55 : 0.30);
}
QColor border(const QPalette& palette) {
    return palette.color(QPalette::Mid);
}
QColor secondaryText(const QPalette& palette) {
    return palette.color(QPalette::PlaceholderText);
}
QColor subtleFill(const QPalette& palette) {
    return withAlpha(palette.color(QPalette::Text), isDark(palette) ? 0.12 : 0.07);
}

QPalette settledPalette(QPalette palette) {
    for (QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText,
                                     QPalette::HighlightedText, QPalette::PlaceholderText})
        palette.setColor(QPalette::Inactive, role, palette.color(QPalette::Active, role));
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive}) {
        const QColor text = palette.color(group, QPalette::Text);
        const QColor base = palette.color(group, QPalette::Base);
        const QColor placeholder = palette.color(group, QPalette::PlaceholderText);
        // A placeholder about as light as the text reads as something typed
        // in; halfway to the background it reads as a hint.
        const double needed = std::abs(text.lightnessF() - base.lightnessF()) / 3;
        if (std::abs(placeholder.lightnessF() - text.lightnessF()) >= needed &&
            placeholder.alphaF() > 0.2)
            continue;
        QColor dimmed;
        dimmed.setRgbF(text.redF() * 0.5 + base.redF() * 0.5,
                       text.greenF() * 0.5 + base.greenF() * 0.5,
                       text.blueF() * 0.5 + base.blueF() * 0.5);
        palette.setColor(group, QPalette::PlaceholderText, dimmed);
    }
    return palette;
}

QFont scaledFont(const QFont& font, double factor) {
    QFont scaled = font;
    if (font.pointSizeF() > 0)
        scaled.setPointSizeF(font.pointSizeF() * factor);
    else
        scaled.setPixelSize(std::max(1, int(font.pixelSize() * factor + 0.5)));
    return scaled;
}

void paintGlyph(QPainter& p, Glyph glyph, const QRectF& rect, const QColor& colour) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const double s = std::min(rect.width(), rect.height());
    QRectF r(rect.center().x() - s / 2, rect.center().y() - s / 2, s, s);
    QPen pen(colour, std::max(1.3, s / 11), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    auto at = [&](double fx, double fy) { return QPointF(r.left() + fx * s, r.top() + fy * s); };
    switch (glyph) {
        case Glyph::text:
            p.drawLine(at(0.2, 0.28), at(0.8, 0.28));
            p.drawLine(at(0.2, 0.5), at(0.8, 0.5));
            p.drawLine(at(0.2, 0.72), at(0.58, 0.72));
            break;
        case Glyph::link: {
            p.translate(r.center());
            p.rotate(-45);
            const double w = s * 0.42, h = s * 0.26;
            p.drawRoundedRect(QRectF(-w + s * 0.08, -h / 2, w, h), h / 2, h / 2);
            p.drawRoundedRect(QRectF(-s * 0.08, -h / 2, w, h), h / 2, h / 2);
            break;
        }
        case Glyph::number:
            p.drawLine(at(0.4, 0.18), at(0.32, 0.82));
            p.drawLine(at(0.68, 0.18), at(0.6, 0.82));
            p.drawLine(at(0.2, 0.38), at(0.84, 0.38));
            p.drawLine(at(0.16, 0.62), at(0.8, 0.62));
            break;
        case Glyph::image: {
            p.drawRoundedRect(QRectF(at(0.14, 0.2), at(0.86, 0.8)), s * 0.08, s * 0.08);
            p.drawPolyline(QPolygonF(
                {at(0.2, 0.72), at(0.42, 0.48), at(0.58, 0.62), at(0.68, 0.54), at(0.8, 0.68)}));
            p.setBrush(colour);
            p.drawEllipse(at(0.66, 0.36), s * 0.05, s * 0.05);
            break;
        }
        case Glyph::search:
            p.drawEllipse(at(0.42, 0.42), s * 0.24, s * 0.24);
            p.drawLine(at(0.6, 0.6), at(0.82, 0.82));
            break;
        case Glyph::pin: {
            p.translate(r.center());
            p.rotate(45);
            p.setBrush(colour);
            p.drawRoundedRect(QRectF(-s * 0.14, -s * 0.42, s * 0.28, s * 0.3), s * 0.05, s * 0.05);
            p.drawLine(QPointF(-s * 0.24, -s * 0.1), QPointF(s * 0.24, -s * 0.1));
            p.drawLine(QPointF(0, -s * 0.1), QPointF(0, s * 0.42));
            break;
        }
        case Glyph::more:
            p.setPen(Qt::NoPen);
            p.setBrush(colour);
            for (double fx : {0.22, 0.5, 0.78})
                p.drawEllipse(at(fx, 0.5), s * 0.075, s * 0.075);
            break;
        case Glyph::update:
            p.drawEllipse(r.center(), s * 0.4, s * 0.4);
            p.drawLine(at(0.5, 0.28), at(0.5, 0.7));
            p.drawPolyline(QPolygonF({at(0.33, 0.54), at(0.5, 0.71), at(0.67, 0.54)}));
            break;
        case Glyph::chevron:
            p.drawPolyline(QPolygonF({at(0.4, 0.24), at(0.64, 0.5), at(0.4, 0.76)}));
            break;
        case Glyph::plus:
            p.drawLine(at(0.5, 0.22), at(0.5, 0.78));
            p.drawLine(at(0.22, 0.5), at(0.78, 0.5));
            break;
    }
    p.restore();
}

QIcon glyphIcon(Glyph glyph, const QColor& colour, int size) {
    const double dpr = qApp ? qApp->devicePixelRatio() : 1.0;
    QPixmap pixmap(QSize(size, size) * dpr);
    pixmap.setDevicePixelRatio(dpr);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    paintGlyph(p, glyph, QRectF(0, 0, size, size), colour);
    p.end();
    return QIcon(pixmap);
}

QIcon themedIcon(const char* name, Glyph fallback, const QColor& colour) {
    QIcon icon = QIcon::fromTheme(QString::fromLatin1(name));
    return icon.isNull() ? glyphIcon(fallback, colour, 32) : icon;
}

}  // namespace look

}  // namespace zettly
