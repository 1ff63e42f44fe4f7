#include "platform/linux/QtScreens.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include "platform/linux/QtGeometry.h"

namespace zettly::qtscreens {

std::vector<ScreenInfo> screens() {
    std::vector<ScreenInfo> out;
    QScreen* primary = QGuiApplication::primaryScreen();
    auto add = [&](QScreen* screen) {
        out.push_back(ScreenInfo{qtgeometry::fromQt(screen->geometry()),
                                 qtgeometry::fromQt(screen->availableGeometry())});
    };
    if (primary)
        add(primary);
    for (QScreen* screen : QGuiApplication::screens())
        if (screen != primary)
            add(screen);
    return out;
}

Point pointer() {
    return qtgeometry::fromQt(QCursor::pos());
}

}  // namespace zettly::qtscreens
