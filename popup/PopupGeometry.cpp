#include "popup/PopupGeometry.h"

#include <algorithm>

namespace zettly::popupgeometry {

namespace {

// Below this the window is cut down rather than squeezed further when the
// pointer is in the middle of a short screen.
constexpr double shortestAtCursor = 260;
// Room left between the tray icon's panel edge and the window's far end.
constexpr double anchorReserve = 12;
constexpr double anchorGap = 4;

Rect underAnchor(const Anchor& anchor, double width, double preferredHeight) {
    const Rect& b = anchor.bounds;
    const Rect& vf = anchor.visibleFrame;
    double x = std::max(b.minX(), vf.minX() + edgeMargin);
    x = std::min(x, vf.maxX() - width - edgeMargin);

    // Most Linux desktops put the tray in a panel at the bottom of the
    // screen (Cinnamon, KDE, Xfce's default layout); the window then stands
    // on the icon instead of hanging from it.
    if (b.midY() < vf.midY()) {
        double h = std::max(0.0, std::min(preferredHeight, vf.maxY() - b.maxY() - anchorReserve));
        return Rect{x, b.maxY() + anchorGap, width, h};
    }
    double h = std::max(0.0, std::min(preferredHeight, b.minY() - vf.minY() - anchorReserve));
    return Rect{x, b.minY() - h - anchorGap, width, h};
}

Rect atCursor(Point mouse, const Rect& vf, double width, double preferredHeight) {
    double below = mouse.y - vf.minY() - edgeMargin;
    double above = vf.maxY() - mouse.y - edgeMargin;
    double h = preferredHeight;
    double y = 0;
    if (preferredHeight <= below) {
        y = mouse.y - preferredHeight;
    } else if (preferredHeight <= above) {
        y = mouse.y;
    } else if (above <= below) {
        h = std::max(std::min(below, preferredHeight), shortestAtCursor);
        y = std::max(mouse.y - h, vf.minY() + edgeMargin);
    } else {
        h = std::max(std::min(above, preferredHeight), shortestAtCursor);
        y = std::min(vf.maxY() - edgeMargin - h, mouse.y);
    }

    double x = mouse.x;
    if (mouse.x + width > vf.maxX() - edgeMargin)
        x = mouse.x - width;
    x = std::max(x, vf.minX() + edgeMargin);
    x = std::min(x, vf.maxX() - width - edgeMargin);
    return Rect{x, y, width, h};
}

Rect centred(const Rect& vf, double width, double preferredHeight) {
    double h = std::max(0.0, std::min(vf.height - 2 * edgeMargin, preferredHeight));
    // Lifted by up to an eighth of the screen: the eye rests above the middle.
    double lift = std::min((vf.height - h) / 2, vf.height / 8);
    return Rect{vf.midX() - width / 2, vf.midY() - h / 2 + lift, width, h};
}

}  // namespace

Rect popupFrame(const Placement& placement) {
    double width = placement.preferred.width;
    double height = placement.preferred.height;
    if (placement.anchor)
        return underAnchor(*placement.anchor, width, height);

    Rect vf{0, 0, width, height};
    if (!placement.screens.empty()) {
        auto under =
            std::find_if(placement.screens.begin(), placement.screens.end(),
                         [&](const ScreenInfo& s) { return s.frame.contains(placement.mouse); });
        vf = (under != placement.screens.end() ? *under : placement.screens.front()).visibleFrame;
    }
    if (placement.position == ClipPrefs::PopupPosition::center)
        return centred(vf, width, height);
    return atCursor(placement.mouse, vf, width, height);
}

Size previewSize(bool isImage, double imageWidth, double imageHeight) {
    if (!isImage)
        return Size{380, 360};
    constexpr double fit = 460;
    double scale =
        std::min({fit / std::max(imageWidth, 1.0), fit / std::max(imageHeight, 1.0), 1.0});
    return Size{std::max(scale * imageWidth + 24, 200.0), scale * imageHeight + 48};
}

Rect previewFrame(Size size, const Rect& popup, const std::vector<ScreenInfo>& screens) {
    auto on = std::find_if(screens.begin(), screens.end(),
                           [&](const ScreenInfo& s) { return s.frame.intersects(popup); });
    Rect frame{popup.maxX() + edgeMargin, popup.maxY() - size.height, size.width, size.height};
    // Off every known screen (the screen list changed under the window) there
    // is nothing to keep it on: right of the window, tops aligned.
    if (on == screens.end())
        return frame;
    const Rect& vf = on->visibleFrame;
    if (frame.maxX() > vf.maxX())
        frame.x = popup.minX() - size.width - edgeMargin;
    frame.y = std::max(frame.y, vf.minY() + 4);
    frame.y = std::min(frame.y, vf.maxY() - size.height);
    return frame;
}

}  // namespace zettly::popupgeometry
