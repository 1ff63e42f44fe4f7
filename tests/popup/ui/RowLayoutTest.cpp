#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QStyleOptionViewItem>

#include <gtest/gtest.h>

#include "popup/PopupController.h"
#include "popup/ui/HistoryList.h"
#include "popup/ui/RowDelegate.h"
#include "sync/SyncPace.h"
#include "tests/fakes/FakeDesktop.h"
#include "tests/fakes/FakePopupView.h"
#include "tests/fakes/HistoryEnvironment.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using Filter = PopupModel::Filter;

// The rows of each kind, painted one by one the way the list paints them,
// each into a transparent picture taller than the row.
class RowLayoutTest : public ::testing::Test, protected test::HistoryEnvironment {
protected:
    RowLayoutTest() {
        copy(journal);
        copy("ls today");
        copy("git push origin main today");
        texts.setLabel(textItem("git push origin main today").id, "Deploy");
        copy("first line today\nsecond\n\nthird\nfourth\nfifth\nsixth\nseventh\neighth\n");
        copy("pinned note for today");
        copy("plain pinned today");
        const auto work = texts.createCategory("Work");
        for (const char* pinned : {"pinned note for today", "plain pinned today"})
            texts.setPinned(textItem(pinned).id, true);
        texts.setCategory(textItem("pinned note for today").id, work->id);
        env.clock.advance(1);
        EXPECT_EQ(images.save(test::png(300, 200, test::solid({40, 160, 60}))),
                  ImageClipStore::SaveResult::saved);
        images.setLabel(images.fetchAll().front().id, "today screenshot");

        controller.open();
        // Marks show in magenta and nothing else does.
        QPalette palette = list.palette();
        palette.setColor(QPalette::Highlight, Qt::magenta);
        list.setPalette(palette);
        list.show();
    }

    void copy(const std::string& text) {
        env.clock.advance(1);
        texts.insert(text);
    }
    RowDelegate& delegate() { return *static_cast<RowDelegate*>(list.itemDelegate()); }
    QStyleOptionViewItem option() {
        QStyleOptionViewItem option;
        option.initFrom(list.viewport());
        option.state &= ~QStyle::State_MouseOver;  // the highlight is the selection's alone
        option.font = list.font();
        return option;
    }
    // The row painted at the left top of a picture one row taller than
    // its size hint (`extra`), `dpr` device pixels to the pixel.
    QImage paint(int row, QSize size, qreal dpr) {
        QImage picture((QSizeF(size.width(), size.height() + extra) * dpr).toSize(),
                       QImage::Format_ARGB32_Premultiplied);
        picture.setDevicePixelRatio(dpr);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        QStyleOptionViewItem o = option();
        o.rect = QRect(QPoint(), size);
        delegate().paint(&painter, o, list.model()->index(row, 0));
        return picture;
    }

    static constexpr int extra = 60;
    const std::string journal = "sudo journalctl -u NetworkManager --since today";
    test::FakePopupView view;
    test::FakeDesktop desktop;
    SyncPace pace;
    test::ManualExecutor searches;
    PopupController controller{{view, desktop, queue, texts, images, monitor, env.defaults, pace,
                                "org.zettly.Zettly", searches}};
    HistoryList list{controller.model()};
};

// The rows painted with pixels that are not transparent, in device pixels.
struct Ink {
    int top = -1, bottom = -1, right = -1;
    bool marked = false;  // a match's magenta mark shows
};
Ink inkOf(const QImage& picture) {
    Ink ink;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const QColor c = picture.pixelColor(x, y);
            if (c.alpha() < 16)
                continue;
            if (ink.top < 0)
                ink.top = y;
            ink.bottom = y;
            ink.right = std::max(ink.right, x);
            ink.marked |= c.red() > 200 && c.blue() > 200 && c.green() < 60;
        }
    return ink;
}

TEST_F(RowLayoutTest, EveryPartOfEveryKindOfRowLiesInItsHeightAtAnyWidthWithoutEmptyLines) {
    QImage sheet[2];
    for (const Filter& filter : {Filter::all(), Filter::pinned()}) {
        controller.model().setFilter(filter);
        controller.model().setQuery("today");
        list.reload();
        const int rows = list.model()->rowCount();
        ASSERT_EQ(rows, filter == Filter::all() ? 5 : 2);
        // 390 is where an estimate from the average character width gave the
        // command one line while it takes two.
        for (int width : {320, 360, 390, 420, 480, 600}) {
            list.resize(width, 2000);
            QApplication::processEvents();
            ASSERT_EQ(list.viewport()->width(), width);
            const int lineSpacing = QFontMetrics(list.font()).lineSpacing();
            for (int row = 0; row < rows; ++row) {
                SCOPED_TRACE(testing::Message()
                             << filter.key() << " row " << row << " at " << width);
                const QSize size = delegate().sizeHint(option(), list.model()->index(row, 0));
                ASSERT_EQ(size.width(), width);

                const RowLayout* layout = delegate().layoutOf(list.font(), row, width);
                ASSERT_NE(layout, nullptr);
                const QRect inside(QPoint(), size);
                const QRect right = layout->tag.isEmpty()
                                        ? layout->pin.isEmpty() ? layout->hint : layout->pin
                                        : layout->tag;
                for (QRect part :
                     {layout->background, layout->hint, layout->pin, layout->tag, layout->icon,
                      layout->thumbnail, layout->label, layout->body, layout->more})
                    EXPECT_TRUE(part.isEmpty() || inside.contains(part)) << part.y();
                EXPECT_LT(layout->body.right(), right.left());
                EXPECT_LT(layout->body.right(),
                          layout->more.isEmpty() ? width : layout->more.left());

                // Selected (with the highlight) or not, nothing reaches below
                // the row; unselected, the row ends after its last line.
                controller.model().setSelection(std::size_t(row));
                for (qreal dpr : {1.0, 2.0}) {
                    const Ink ink = inkOf(paint(row, size, dpr));
                    EXPECT_LT(ink.bottom, size.height() * dpr);
                    EXPECT_LT(ink.right, width * dpr);
                }
                controller.model().setSelection(std::size_t((row + 1) % rows));
                for (qreal dpr : {1.0, 2.0}) {
                    const QImage picture = paint(row, size, dpr);
                    const Ink ink = inkOf(picture);
                    EXPECT_LE((size.height() * dpr - 1 - ink.bottom) / dpr,
                              ink.top / dpr + lineSpacing / 2.0);
                    // Every text fits in two lines at these widths, so its
                    // match (at its end) shows.
                    EXPECT_TRUE(ink.marked);
                    if (width != 420)
                        continue;
                    QImage& into = sheet[dpr > 1 ? 1 : 0];
                    QImage shown = picture;
                    shown.setDevicePixelRatio(1);
                    QImage grown(
                        picture.width(),
                        (into.isNull() ? 0 : into.height()) + picture.height() - int(extra * dpr),
                        QImage::Format_ARGB32_Premultiplied);
                    grown.fill(Qt::white);
                    QPainter p(&grown);
                    if (!into.isNull())
                        p.drawImage(0, 0, into);
                    p.drawImage(0, into.isNull() ? 0 : into.height(), shown);
                    p.end();
                    into = grown;
                }
            }
        }
    }
    // For a look by eye, at one and two device pixels to the pixel.
    EXPECT_TRUE(sheet[0].save("history-rows.png"));
    EXPECT_TRUE(sheet[1].save("history-rows@2x.png"));
}

TEST_F(RowLayoutTest, RowsTakeTheLinesTheirTextNeedsAndSayHowManyMoreThereAre) {
    list.reload();
    auto rowOf = [this](const QString& start) {
        for (int row = 0; row < list.model()->rowCount(); ++row)
            if (list.model()->index(row, 0).data().toString().startsWith(start))
                return row;
        ADD_FAILURE() << start.toStdString();
        return 0;
    };
    const int multiLine = rowOf("first line"), oneLine = rowOf("ls today"),
              wrapped = rowOf("sudo journalctl");
    for (int width : {320, 600}) {
        list.resize(width, 2000);
        QApplication::processEvents();
        const RowLayout one = *delegate().layoutOf(list.font(), oneLine, width);
        const RowLayout many = *delegate().layoutOf(list.font(), multiLine, width);
        // Eight lines are not blank; the row shows two.
        EXPECT_EQ(many.moreText, "+6 lines");
        EXPECT_EQ(many.lines, 2);
        EXPECT_EQ(one.lines, 1);
        EXPECT_EQ(one.moreText, "");
        EXPECT_GT(many.size.height(), one.size.height());
    }
    // The long command needs two lines in a narrow window and one in a wide one.
    list.resize(320, 2000);
    QApplication::processEvents();
    EXPECT_EQ(delegate().layoutOf(list.font(), wrapped, 320)->lines, 2);
    list.resize(600, 2000);
    QApplication::processEvents();
    EXPECT_EQ(delegate().layoutOf(list.font(), wrapped, 600)->lines, 1);

    EXPECT_EQ(nonBlankLines("a\n \n\t\nb\r\nc"), 3);
    EXPECT_EQ(nonBlankLines(" \n"), 0);
}

}  // namespace
}  // namespace zettly
