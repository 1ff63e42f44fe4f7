#include "app/TrayIcons.h"

#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <algorithm>
#include <cstdio>

namespace zettly {

namespace {

QString resourceFor(TrayState state) {
    switch (state) {
        case TrayState::paused:
            return QStringLiteral(":/icons/tray/tray-paused.svg");
        case TrayState::skipNext:
            return QStringLiteral(":/icons/tray/tray-skip-next.svg");
        case TrayState::normal:
            break;
    }
    return QStringLiteral(":/icons/tray/tray-normal.svg");
}

// Red with a white ring: the ring keeps the dot apart from the board on a
// dark panel, the red alone carries it on a light one.
void drawUpdateDot(QPainter& p, int size) {
    double radius = size * 0.2;
    double ring = std::max(1.0, size / 16.0);
    QPointF centre(size - radius - ring, radius + ring);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(centre, radius + ring, radius + ring);
    p.setBrush(QColor(0xe0, 0x1b, 0x24));
    p.drawEllipse(centre, radius, radius);
}

}  // namespace

QIcon trayIcon(TrayState state, bool updateAvailable) {
    QSvgRenderer renderer(resourceFor(state));
    if (!renderer.isValid()) {
        // Only a broken build gets here; an empty tray slot would leave no
        // way to reach the app, so borrow the theme's clipboard icon.
        std::fprintf(stderr, "[Zettly] tray icon %s is missing from the build\n",
                     qPrintable(resourceFor(state)));
        return QIcon::fromTheme(QStringLiteral("edit-paste"));
    }
    QIcon icon;
    // Panels ask for 16 to 24 pixels (twice that on HiDPI screens); the
    // larger ones serve menus and the XEmbed fallback.
    for (int size : {16, 22, 24, 32, 44, 48, 64, 128}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        renderer.render(&p, QRectF(0, 0, size, size));
        if (updateAvailable)
            drawUpdateDot(p, size);
        p.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

}  // namespace zettly
