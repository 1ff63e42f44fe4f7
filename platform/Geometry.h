#pragma once

namespace zettly {

// Screen geometry in the desktop's global coordinates with y growing
// upwards (origin at the bottom-left of the main screen), so that the window
// placement rules read the same on every system. The Linux layer converts at
// its boundary (see flippedRect).
struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    double midX() const { return x + width / 2; }
    double midY() const { return y + height / 2; }
    bool isEmpty() const { return width <= 0 || height <= 0; }
    bool contains(Point p) const { return p.x >= x && p.x < maxX() && p.y >= y && p.y < maxY(); }
    bool intersects(const Rect& o) const {
        return !isEmpty() && !o.isEmpty() && x < o.maxX() && o.x < maxX() && y < o.maxY() &&
               o.y < maxY();
    }
    bool operator==(const Rect&) const = default;
};

// A rectangle from y-down coordinates (X11, Qt) to y-up ones and back: the
// conversion is its own inverse. `mainHeight` is the height of the main
// screen, whose top-left corner is the y-down origin.
inline Rect flippedRect(const Rect& r, double mainHeight) {
    return Rect{r.x, mainHeight - r.y - r.height, r.width, r.height};
}
inline Point flippedPoint(Point p, double mainHeight) {
    return Point{p.x, mainHeight - p.y};
}

struct ScreenInfo {
    Rect frame;
    Rect visibleFrame;  // without panels and docks
    bool operator==(const ScreenInfo&) const = default;
};

}  // namespace zettly
