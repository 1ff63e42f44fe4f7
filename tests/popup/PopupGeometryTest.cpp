#include <gtest/gtest.h>

#include "popup/PopupGeometry.h"

namespace zettly {
namespace {

using namespace popupgeometry;

const ScreenInfo laptop{Rect{0, 0, 1440, 900}, Rect{0, 0, 1440, 875}};

Placement atPointer(Point mouse, Rect visible, Size preferred = {400, 500}) {
    Placement p;
    p.screens = {ScreenInfo{visible, visible}};
    p.mouse = mouse;
    p.preferred = preferred;
    return p;
}

Placement onTray(Rect button, Rect visible, Size preferred = {400, 500}) {
    Placement p;
    p.anchor = Anchor{button, visible};
    p.preferred = preferred;
    return p;
}

TEST(PopupFrame, UnderATopPanelIconTheWindowHangsFourPointsBelowItAndKeepsOffTheEdges) {
    // The icon is 400 points above the bottom of the usable area: 388 fit.
    Rect frame = popupFrame(onTray(Rect{1300, 400, 24, 24}, Rect{0, 0, 1440, 400}));
    EXPECT_EQ(frame, (Rect{1440 - 400 - 6, 8, 400, 388}));
    EXPECT_EQ(frame.maxY(), 400 - 4);

    Rect roomy = popupFrame(onTray(Rect{2, 875, 24, 25}, laptop.visibleFrame));
    EXPECT_EQ(roomy, (Rect{6, 875 - 500 - 4, 400, 500}));
}

TEST(PopupFrame, AboveABottomPanelIconTheWindowStandsFourPointsOverIt) {
    Rect visible{0, 40, 1440, 860};
    EXPECT_EQ(popupFrame(onTray(Rect{100, 8, 24, 24}, visible)), (Rect{100, 36, 400, 500}));
    // A short screen: the window ends 12 points under the top of the usable area.
    Rect shortFrame = popupFrame(onTray(Rect{100, 8, 24, 24}, Rect{0, 40, 1440, 400}));
    EXPECT_EQ(shortFrame, (Rect{100, 36, 400, 440 - 32 - 12}));
}

TEST(PopupFrame, AnIconWithNoRoomGivesAnEmptyWindowNotANegativeOne) {
    Rect frame = popupFrame(onTray(Rect{0, 5, 10, 10}, Rect{0, 0, 800, 10}));
    EXPECT_EQ(frame.height, 0);
    EXPECT_EQ(frame.width, 400);
}

TEST(PopupFrame, AtThePointerTheWindowHangsStandsOrShrinksToTheLargerSide) {
    Rect screen{0, 0, 1440, 900};
    // Room below: the top edge at the pointer.
    EXPECT_EQ(popupFrame(atPointer({300, 700}, screen)), (Rect{300, 200, 400, 500}));
    // 100 points above the bottom: the bottom edge at the pointer.
    EXPECT_EQ(popupFrame(atPointer({300, 100}, screen)), (Rect{300, 100, 400, 500}));

    Rect low{0, 0, 1440, 400};
    Rect middle = popupFrame(atPointer({300, 200}, low));
    EXPECT_EQ(middle.height, 260);
    EXPECT_EQ(middle.y, 6);
    // More room above than below: it grows up from no higher than the pointer.
    Rect upper = popupFrame(atPointer({300, 150}, low));
    EXPECT_EQ(upper, (Rect{300, 400 - 6 - 260, 400, 260}));
}

TEST(PopupFrame, NearASideTheWindowOpensTowardsTheScreenAndKeepsSixPointsFromEachEdge) {
    Rect screen{0, 0, 1440, 900};
    EXPECT_EQ(popupFrame(atPointer({1300, 700}, screen)).x, 900);
    EXPECT_EQ(popupFrame(atPointer({1435, 700}, screen)).x, 1440 - 400 - 6);
    EXPECT_EQ(popupFrame(atPointer({2, 700}, screen)).x, 6);
}

TEST(PopupFrame, ThePointersScreenIsUsedAndTheMainOneWhenThePointerIsOffEveryScreen) {
    Placement p = atPointer({2000, 700}, laptop.frame);
    p.screens = {laptop, ScreenInfo{Rect{1440, 0, 1920, 1080}, Rect{1440, 0, 1920, 1050}}};
    p.position = ClipPrefs::PopupPosition::center;
    EXPECT_EQ(popupFrame(p).x, 1440 + 960 - 200);
    p.mouse = {-50, -50};
    EXPECT_EQ(popupFrame(p).x, 720 - 200);
}

TEST(PopupFrame, CentredWindowsAreLiftedByAnEighthButNeverPastTheTop) {
    Placement p = atPointer({0, 0}, Rect{0, 0, 1440, 900}, {400, 540});
    p.position = ClipPrefs::PopupPosition::center;
    EXPECT_EQ(popupFrame(p), (Rect{520, 450 - 270 + 112.5, 400, 540}));

    p.preferred = {400, 800};
    p.screens = {laptop};
    Rect tall = popupFrame(p);
    EXPECT_EQ(tall.height, 800);
    EXPECT_EQ(tall.maxY(), 875);

    // Taller than the screen: 12 points shorter than it.
    p.screens = {ScreenInfo{Rect{0, 0, 800, 500}, Rect{0, 0, 800, 500}}};
    EXPECT_EQ(popupFrame(p), (Rect{200, 12, 400, 488}));
}

TEST(PopupFrame, WithoutAnyScreenTheWindowIsPlacedInAFrameOfItsOwnSize) {
    Placement p;
    p.preferred = {400, 540};
    p.position = ClipPrefs::PopupPosition::center;
    EXPECT_EQ(popupFrame(p), (Rect{0, 12, 400, 528}));
    p.position = ClipPrefs::PopupPosition::cursor;
    Rect frame = popupFrame(p);
    EXPECT_EQ(frame.width, 400);
    EXPECT_GE(frame.height, 260);
}

TEST(PreviewPlacement, TextsHaveOneSizeAndImagesShrinkToFitButNeverGrow) {
    EXPECT_EQ(previewSize(false), (Size{380, 360}));
    EXPECT_EQ(previewSize(true, 1000, 500), (Size{460 + 24, 230 + 48}));
    EXPECT_EQ(previewSize(true, 500, 2300), (Size{200, 460 + 48}));
    EXPECT_EQ(previewSize(true, 300, 100), (Size{324, 148}));
    EXPECT_EQ(previewSize(true, 50, 50), (Size{200, 98}));
    EXPECT_EQ(previewSize(true, 0, 0), (Size{200, 48}));
}

TEST(PreviewPlacement, SitsRightOfTheWindowOrLeftWhenThereIsNoRoomWithTopsAligned) {
    std::vector<ScreenInfo> screens{laptop};
    Size text{380, 360};
    EXPECT_EQ(previewFrame(text, Rect{500, 300, 400, 540}, screens), (Rect{906, 480, 380, 360}));
    EXPECT_EQ(previewFrame(text, Rect{1000, 300, 400, 540}, screens).x, 1000 - 380 - 6);
    // Kept on the screen: 4 points above its bottom, never over its top.
    EXPECT_EQ(previewFrame(text, Rect{500, 10, 400, 200}, screens).y, 4);
    EXPECT_EQ(previewFrame(text, Rect{500, 400, 400, 500}, screens).maxY(), 875);
}

TEST(PreviewPlacement, UsesTheScreenTheWindowIsOnAndStaysBesideItWhenNoScreenIsKnown) {
    std::vector<ScreenInfo> screens{laptop,
                                    ScreenInfo{Rect{1440, 0, 800, 600}, Rect{1440, 0, 800, 600}}};
    // On the narrow right-hand screen the preview does not fit to the right.
    EXPECT_EQ(previewFrame({380, 360}, Rect{1800, 50, 400, 500}, screens).x, 1800 - 380 - 6);
    EXPECT_EQ(previewFrame({380, 360}, Rect{1800, 50, 400, 500}, {}), (Rect{2206, 190, 380, 360}));
}

}  // namespace
}  // namespace zettly
