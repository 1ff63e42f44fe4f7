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

Rect placePreview(Size size, const Rect& popup, const Rect& visibleFrame) {
    const Rect& vf = visibleFrame;
    const double width = std::clamp(size.width, 0.0, std::max(0.0, vf.width - 2 * edgeMargin));
    const double height = std::clamp(size.height, 0.0, std::max(0.0, vf.height - 2 * edgeMargin));
    const double lowest = vf.minX() + edgeMargin;
    const double highest = vf.maxX() - edgeMargin - width;
    double x = popup.maxX() + edgeMargin;
    if (x > highest) {
        x = popup.minX() - edgeMargin - width;
        // Neither side has room: it covers part of the window rather than
        // leave the screen, from the side that hides less of the window.
        if (x < lowest)
            x = vf.maxX() - popup.maxX() >= popup.minX() - vf.minX() ? highest : lowest;
    }
    x = std::clamp(x, lowest, highest);  // a window partly off the screen
    const double y = std::clamp(popup.maxY() - height, vf.minY() + edgeMargin,
                                std::max(vf.minY() + edgeMargin, vf.maxY() - edgeMargin - height));
    return Rect{x, y, width, height};
}

Rect previewFrame(Size size, const Rect& popup, const std::vector<ScreenInfo>& screens) {
    auto on = std::find_if(screens.begin(), screens.end(),
                           [&](const ScreenInfo& s) { return s.frame.intersects(popup); });
    // Off every known screen (the screen list changed under the window) there
    // is nothing to keep it on: right of the window, tops aligned.
    if (on == screens.end())
        return Rect{popup.maxX() + edgeMargin, popup.maxY() - size.height, size.width, size.height};
    return placePreview(size, popup, on->visibleFrame);
}

}  // namespace zettly::popupgeometry
