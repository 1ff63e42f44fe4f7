#include "app/TrayIcons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace zettly {

namespace {

QPixmap draw(TrayState state, int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 32.0, size / 32.0);

    // A clipboard: mid-tone board (readable on light and dark panels) with a
    // white sheet and a clip at the top.
    QColor board = state == TrayState::paused ? QColor(0x8a, 0x8a, 0x8a) : QColor(0x3b, 0x82, 0xd6);
    p.setPen(Qt::NoPen);
    p.setBrush(board);
    p.drawRoundedRect(QRectF(5, 4, 22, 26), 4, 4);
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(8.5, 8, 15, 19), 1.5, 1.5);
    p.setBrush(board.darker(135));
    p.drawRoundedRect(QRectF(11, 2, 10, 6), 2, 2);

    p.setBrush(board);
    if (state == TrayState::paused) {
        p.drawRect(QRectF(12, 12, 3, 11));
        p.drawRect(QRectF(17, 12, 3, 11));
    } else if (state == TrayState::skipNext) {
        // Skip forward: a triangle against a bar.
        QPainterPath arrow;
        arrow.moveTo(11, 12);
        arrow.lineTo(18.5, 17.5);
        arrow.lineTo(11, 23);
        arrow.closeSubpath();
        p.drawPath(arrow);
        p.drawRect(QRectF(19, 12, 2.5, 11));
    } else {
        for (double y : {12.0, 16.5, 21.0})
            p.drawRect(QRectF(11, y, y == 21.0 ? 7 : 10, 2));
    }
    return pixmap;
}

}  // namespace

QIcon trayIcon(TrayState state) {
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64, 128})
        icon.addPixmap(draw(state, size));
    return icon;
}

}  // namespace zettly
