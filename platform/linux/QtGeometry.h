#pragma once

#include <QGuiApplication>
#include <QPoint>
#include <QRect>
#include <QScreen>

#include "platform/Geometry.h"

namespace zettly::qtgeometry {

// The bottom edge of the main screen in Qt's y-down coordinates; y-up values
// are measured from there, as the window placement rules expect.
inline double mainBottom() {
    QScreen* main = QGuiApplication::primaryScreen();
    if (!main)
        return 0;
    QRect g = main->geometry();
    return g.y() + g.height();
}

inline Rect fromQt(const QRect& r) {
    return flippedRect(Rect{double(r.x()), double(r.y()), double(r.width()), double(r.height())},
                       mainBottom());
}

inline QRect toQt(const Rect& r) {
    Rect down = flippedRect(r, mainBottom());
    return QRect(qRound(down.x), qRound(down.y), qRound(down.width), qRound(down.height));
}

inline Point fromQt(const QPoint& p) {
    return flippedPoint(Point{double(p.x()), double(p.y())}, mainBottom());
}

}  // namespace zettly::qtgeometry
