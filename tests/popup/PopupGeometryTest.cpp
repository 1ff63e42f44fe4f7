#include <gtest/gtest.h>

#include "popup/PopupGeometry.h"

namespace zettly {
namespace {

using namespace popupgeometry;

const ScreenInfo laptop{Rect{0, 0, 1440, 900}, Rect{0, 0, 1440, 875}};
const Rect fullScreen{0, 0, 1440, 900};

Placement atPointer(Point mouse, Rect visible, Size preferred = {400, 500}) {
    Placement p;
    p.screens = {ScreenInfo{visible, visible}};
    p.mouse = mouse;
    p.preferred = preferred;
    return p;
}

Rect onTray(Rect button, Rect visible) {
    Placement p;
    p.anchor = Anchor{button, visible};
    p.preferred = {400, 500};
    return popupFrame(p);
}

TEST(PopupFrame, OnATrayIconTheWindowKeepsFourPointsFromItAndShrinksButNeverBelowNothing) {
    // Under a top panel icon 400 points above the bottom of the usable area: 388 fit.
    EXPECT_EQ(onTray(Rect{1300, 400, 24, 24}, Rect{0, 0, 1440, 400}),
              (Rect{1440 - 400 - 6, 8, 400, 388}));
    EXPECT_EQ(onTray(Rect{2, 875, 24, 25}, laptop.visibleFrame),
              (Rect{6, 875 - 500 - 4, 400, 500}));
    // Over a bottom panel icon; on a short screen it ends 12 points under the top.
    EXPECT_EQ(onTray(Rect{100, 8, 24, 24}, Rect{0, 40, 1440, 860}), (Rect{100, 36, 400, 500}));
    EXPECT_EQ(onTray(Rect{100, 8, 24, 24}, Rect{0, 40, 1440, 400}),
              (Rect{100, 36, 400, 440 - 32 - 12}));
    EXPECT_EQ(onTray(Rect{0, 5, 10, 10}, Rect{0, 0, 800, 10}).height, 0);
}

TEST(PopupFrame, AtThePointerTheWindowHangsStandsOrShrinksAndKeepsSixPointsFromEachSide) {
    EXPECT_EQ(popupFrame(atPointer({300, 700}, fullScreen)), (Rect{300, 200, 400, 500}));
    EXPECT_EQ(popupFrame(atPointer({300, 100}, fullScreen)), (Rect{300, 100, 400, 500}));
    // Too low either way: it takes the larger side, growing up from the pointer at most.
    Rect low{0, 0, 1440, 400};
    EXPECT_EQ(popupFrame(atPointer({300, 200}, low)), (Rect{300, 6, 400, 260}));
    EXPECT_EQ(popupFrame(atPointer({300, 150}, low)), (Rect{300, 400 - 6 - 260, 400, 260}));

    EXPECT_EQ(popupFrame(atPointer({1300, 700}, fullScreen)).x, 900);
    EXPECT_EQ(popupFrame(atPointer({1435, 700}, fullScreen)).x, 1440 - 400 - 6);
    EXPECT_EQ(popupFrame(atPointer({2, 700}, fullScreen)).x, 6);
}

TEST(PopupFrame, CentredWindowsUseThePointersScreenAndAreLiftedByAnEighthButNeverPastTheTop) {
    Placement p = atPointer({2000, 700}, laptop.frame);
    p.screens = {laptop, ScreenInfo{Rect{1440, 0, 1920, 1080}, Rect{1440, 0, 1920, 1050}}};
    p.position = ClipPrefs::PopupPosition::center;
    EXPECT_EQ(popupFrame(p).x, 1440 + 960 - 200);
    p.mouse = {-50, -50};  // off every screen: the main one
    EXPECT_EQ(popupFrame(p).x, 720 - 200);

    p.screens = {ScreenInfo{fullScreen, fullScreen}};
    p.preferred = {400, 540};
    EXPECT_EQ(popupFrame(p), (Rect{520, 450 - 270 + 112.5, 400, 540}));
    p.preferred = {400, 800};
    p.screens = {laptop};
    EXPECT_EQ(popupFrame(p).maxY(), 875);
    // Taller than the screen: 12 points shorter than it.
    p.screens = {ScreenInfo{Rect{0, 0, 800, 500}, Rect{0, 0, 800, 500}}};
    EXPECT_EQ(popupFrame(p), (Rect{200, 12, 400, 488}));
    // Without any screen, a frame of the window's own size.
    p.screens = {};
    p.preferred = {400, 540};
    EXPECT_EQ(popupFrame(p), (Rect{0, 12, 400, 528}));
    p.position = ClipPrefs::PopupPosition::cursor;
    EXPECT_GE(popupFrame(p).height, 260);
}

TEST(PreviewPlacement, TextsHaveOneSizeAndImagesShrinkToFitButNeverGrow) {
    EXPECT_EQ(previewSize(false), (Size{380, 360}));
    EXPECT_EQ(previewSize(true, 1000, 500), (Size{460 + 24, 230 + 48}));
    EXPECT_EQ(previewSize(true, 500, 2300), (Size{200, 460 + 48}));
    EXPECT_EQ(previewSize(true, 300, 100), (Size{324, 148}));
    EXPECT_EQ(previewSize(true, 0, 0), (Size{200, 48}));
}

TEST(PreviewPlacement, SitsBesideTheWindowOnItsScreenRightIfThereIsRoomWithTopsAligned) {
    const std::vector<ScreenInfo> screens{
        laptop, ScreenInfo{Rect{1440, 0, 800, 600}, Rect{1440, 0, 800, 600}}};
    const Size text{380, 360};
    EXPECT_EQ(previewFrame(text, Rect{500, 300, 400, 540}, screens), (Rect{906, 480, 380, 360}));
    EXPECT_EQ(previewFrame(text, Rect{1000, 300, 400, 540}, screens).x, 1000 - 380 - 6);
    // Kept on the screen: 4 points above its bottom, never over its top.
    EXPECT_EQ(previewFrame(text, Rect{500, 10, 400, 200}, screens).y, 4);
    EXPECT_EQ(previewFrame(text, Rect{500, 400, 400, 500}, screens).maxY(), 875);
    // On the narrow right-hand screen the preview does not fit to the right.
    EXPECT_EQ(previewFrame(text, Rect{1800, 50, 400, 500}, screens).x, 1800 - 380 - 6);
    EXPECT_EQ(previewFrame(text, Rect{1800, 50, 400, 500}, {}), (Rect{2206, 190, 380, 360}));
}

}  // namespace
}  // namespace zettly
