// The clipboard over ext-data-control-v1, against the tests' own compositor:
// other applications' copies, Zettly's writes as other applications read
// them, and the ways a read ends early.
#include <QBuffer>
#include <QImage>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string_view>
#include <thread>

#include <poll.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/wayland/DataControlPasteboard.h"
#include "platform/wayland/WaylandConnection.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"
#include "tests/wayland/TestCompositor.h"

namespace zettly {
namespace {

using namespace std::chrono_literals;
using test::TestCompositor;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Bytes = Pasteboard::Bytes;

Bytes bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes encoded(const QImage& image, const char* format) {
    QByteArray out;
    QBuffer buffer(&out);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return {out.begin(), out.end()};
}

QImage picture() {
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(QColor(20, 120, 220));
    return image;
}

class DataControlTest : public ::testing::Test {
protected:
    // Short enough that a read left without an answer ends quickly.
    static constexpr TransferLimits quick{std::chrono::milliseconds(300), 64 * 1024 * 1024};

    DataControlTest() {
        ::setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
        compositor_ = std::make_unique<TestCompositor>();
    }

    void connect(TransferLimits limits = quick) {
        connection_ = WaylandConnection::open(log_, compositor_->socketName());
        ASSERT_TRUE(connection_);
        pasteboard_ = DataControlPasteboard::create(*connection_, queue_, log_, limits);
        ASSERT_TRUE(pasteboard_);
        pasteboard_->setChangeHandler([this] { ++handlerCalls_; });
        connection_->start();
    }

    // The compositor's announcement reaches the event thread in its time.
    bool waitForCount(std::int64_t count) {
        for (int i = 0; i < 5000 && pasteboard_->changeCount() < count; ++i)
            std::this_thread::sleep_for(2ms);
        return pasteboard_->changeCount() == count;
    }

    void copy(TestCompositor::Contents contents, TestCompositor::Answer answer = {}) {
        std::int64_t next = pasteboard_->changeCount() + 1;
        compositor_->copyFromApp(std::move(contents), answer);
        ASSERT_TRUE(waitForCount(next));
    }

    test::TempDir runtime_;
    test::RecordingLog log_;
    test::FakeClock clock_;
    test::ManualMainQueue queue_{clock_};
    std::unique_ptr<TestCompositor> compositor_;
    std::unique_ptr<WaylandConnection> connection_;
    std::unique_ptr<DataControlPasteboard> pasteboard_;
    int handlerCalls_ = 0;
};

TEST_F(DataControlTest, AnotherApplicationsCopyIsSignalledAndReadInItsFormats) {
    connect();
    EXPECT_EQ(pasteboard_->protocol(), "ext-data-control-v1");
    copy({{"text/plain;charset=utf-8", bytes("hello")},
          {"x-kde-passwordManagerHint", bytes("secret")}});
    queue_.runPending();
    EXPECT_EQ(handlerCalls_, 1);
    auto types = pasteboard_->types();
    ASSERT_TRUE(types.ok());
    EXPECT_THAT(types.value, ElementsAre("text/plain;charset=utf-8", "x-kde-passwordManagerHint"));
    EXPECT_EQ(pasteboard_->string().value, "hello");
    EXPECT_EQ(pasteboard_->data("x-kde-passwordManagerHint").value, bytes("secret"));
    EXPECT_EQ(pasteboard_->data("image/png").status, ReadStatus::absent);

    Bytes png = encoded(picture(), "PNG");
    copy({{"image/png", png}});
    EXPECT_THAT(pasteboard_->types().value, ElementsAre("image/png"));
    EXPECT_EQ(pasteboard_->data("image/png").value, png);
    EXPECT_EQ(pasteboard_->string().status, ReadStatus::absent);
    queue_.runPending();
    EXPECT_EQ(handlerCalls_, 2);

    // Several changes before the main thread gets to them: one call.
    copy({{"text/plain", bytes("one")}});
    copy({{"text/plain", bytes("two")}});
    queue_.runPending();
    EXPECT_EQ(handlerCalls_, 3);
}

TEST_F(DataControlTest, TextIsTakenFromTheFirstFormatInOrderThatHasSome) {
    connect();
    struct Case {
        TestCompositor::Contents offered;
        std::string expected;
    };
    const Case cases[] = {
        {{{"text/plain", bytes("plain")}, {"UTF8_STRING", bytes("utf8")}}, "utf8"},
        {{{"UTF8_STRING", bytes("utf8")}, {"text/plain;charset=utf-8", bytes("mime")}}, "mime"},
        {{{"TEXT", bytes("text")}, {"STRING", bytes("latin")}}, "text"},
        {{{"STRING", bytes("\xE9t\xE9")}}, "\xC3\xA9t\xC3\xA9"},
        // A format refused (the pipe closed empty) leaves the next one.
        {{{"text/plain;charset=utf-8", {}}, {"STRING", bytes("\xFC")}}, "\xC3\xBC"},
    };
    for (const Case& c : cases) {
        copy(c.offered);
        auto text = pasteboard_->string();
        EXPECT_TRUE(text.ok());
        EXPECT_EQ(text.value, c.expected);
    }
}

TEST_F(DataControlTest, OurTextIsOfferedInEveryTextFormatAndCountsAsOneChangeOfOurs) {
    connect();
    // What PasteboardMonitor does when the user picks an entry.
    pasteboard_->clear();
    pasteboard_->writeString(
        "Gr\xC3\xBC\xC3\x9F"
        "e \xE2\x82\xAC");
    std::int64_t own = pasteboard_->changeCount();
    EXPECT_EQ(own, 2);
    ASSERT_TRUE(compositor_->waitForSelectionChanges(1));
    EXPECT_TRUE(compositor_->clientOwnsSelection());
    EXPECT_THAT(
        *compositor_->selectionTypes(),
        ElementsAre("text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "STRING", "TEXT"));
    for (const char* type : {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "TEXT"})
        EXPECT_EQ(compositor_->read(type), bytes("Gr\xC3\xBC\xC3\x9F"
                                                 "e \xE2\x82\xAC"))
            << type;
    EXPECT_EQ(compositor_->read("STRING"), bytes("Gr\xFC\xDF"
                                                 "e ?"));

    // Read back through the compositor, from our own source.
    EXPECT_EQ(pasteboard_->string().value,
              "Gr\xC3\xBC\xC3\x9F"
              "e \xE2\x82\xAC");
    // The selection came back from the compositor without a change of its own.
    EXPECT_EQ(pasteboard_->changeCount(), own);

    // Another application takes over, then two writes of ours in a row.
    copy({{"text/plain", bytes("theirs")}});
    EXPECT_EQ(pasteboard_->string().value, "theirs");
    pasteboard_->writeString("first");
    pasteboard_->writeString("second");
    EXPECT_EQ(pasteboard_->changeCount(), own + 3);
    EXPECT_EQ(pasteboard_->string().value, "second");
    ASSERT_TRUE(compositor_->waitForSelectionChanges(4));
    EXPECT_EQ(compositor_->read("text/plain"), bytes("second"));
    EXPECT_EQ(pasteboard_->changeCount(), own + 3);
}

TEST_F(DataControlTest, OurImageIsOfferedAsItCameAndAsPng) {
    connect();
    Bytes jpeg = encoded(picture(), "JPEG");
    EXPECT_FALSE(pasteboard_->writeImage(bytes("no picture"), "image/png"));
    EXPECT_EQ(pasteboard_->changeCount(), 0);
    ASSERT_TRUE(pasteboard_->writeImage(jpeg, "image/jpeg"));
    ASSERT_TRUE(compositor_->waitForSelectionChanges(1));
    auto types = *compositor_->selectionTypes();
    ASSERT_FALSE(types.empty());
    EXPECT_EQ(types.front(), "image/jpeg");
    EXPECT_THAT(types, Contains("image/png"));
    EXPECT_EQ(compositor_->read("image/jpeg"), jpeg);
    auto png = compositor_->read("image/png");
    ASSERT_TRUE(png);
    QImage decoded = QImage::fromData(png->data(), static_cast<int>(png->size()), "PNG");
    EXPECT_EQ(decoded.size(), QSize(40, 30));

    auto mine = pasteboard_->data("image/png");
    ASSERT_TRUE(mine.ok());
    EXPECT_EQ(mine.value, *png);
}

TEST_F(DataControlTest, AnOwnerThatStopsAnsweringEndsTheReadAfterTheIdleLimit) {
    connect();
    copy({{"text/plain", bytes("never")}}, {.never = true});
    EXPECT_EQ(pasteboard_->data("text/plain").status, ReadStatus::noAnswer);
    // The other text formats are not tried: the owner would not answer them.
    EXPECT_EQ(pasteboard_->string().status, ReadStatus::noAnswer);

    copy({{"text/plain", bytes("half of it")}}, {.stallAfter = 4});
    ASSERT_TRUE(pasteboard_->types().ok());
    EXPECT_EQ(pasteboard_->data("text/plain").status, ReadStatus::noAnswer);
}

TEST_F(DataControlTest, ASlowOwnerWithinTheIdleLimitIsWaitedFor) {
    connect({std::chrono::milliseconds(3000), 1024});
    copy({{"text/plain", bytes("late")}}, {.delay = 200ms});
    EXPECT_EQ(pasteboard_->string().value, "late");
}

TEST_F(DataControlTest, ANewCopyOrQuittingEndsAReadUnderWay) {
    connect({std::chrono::milliseconds(60'000), 1024});
    copy({{"text/plain", bytes("never")}}, {.never = true});
    ASSERT_TRUE(pasteboard_->types().ok());
    auto read = std::async(std::launch::async, [&] { return pasteboard_->data("text/plain"); });
    ASSERT_TRUE(compositor_->waitForRequests(1));
    compositor_->copyFromApp({{"text/plain", bytes("next")}});
    EXPECT_EQ(read.get().status, ReadStatus::superseded);

    copy({{"text/plain", bytes("never")}}, {.never = true});
    ASSERT_TRUE(pasteboard_->types().ok());
    read = std::async(std::launch::async, [&] { return pasteboard_->data("text/plain"); });
    ASSERT_TRUE(compositor_->waitForRequests(2));
    pasteboard_->interruptReads();
    EXPECT_EQ(read.get().status, ReadStatus::superseded);
    EXPECT_EQ(pasteboard_->types().status, ReadStatus::superseded);
}

TEST_F(DataControlTest, ThePrimarySelectionIsNeverACopy) {
    connect();
    compositor_->selectFromApp({{"text/plain", bytes("selected")}});
    copy({{"text/plain", bytes("copied")}});
    compositor_->selectFromApp({{"text/plain", bytes("selected again")}});
    copy({{"text/plain", bytes("copied again")}});
    // Announced in order: had a selection counted, the count would be ahead.
    EXPECT_EQ(pasteboard_->changeCount(), 2);
    EXPECT_EQ(pasteboard_->string().value, "copied again");
}

TEST_F(DataControlTest, MoreThanTheReadLimitIsRefused) {
    connect({std::chrono::milliseconds(5000), 100'000});
    copy({{"text/plain", Bytes(100'001, 'x')}});
    EXPECT_EQ(pasteboard_->data("text/plain").status, ReadStatus::tooLarge);
    copy({{"text/plain", Bytes(100'000, 'x')}});
    EXPECT_EQ(pasteboard_->data("text/plain").value.size(), 100'000u);
}

TEST_F(DataControlTest, AnApplicationThatStopsReadingOurCopyIsGivenUp) {
    connect();
    pasteboard_->writeString(std::string(4 * 1024 * 1024, 'z'));
    ASSERT_TRUE(compositor_->waitForSelectionChanges(1));
    UniqueFd unread = compositor_->requestWithoutReading("text/plain");
    ASSERT_TRUE(unread);
    // The pipe is full and never emptied; the writer's end closes once it
    // gives up.
    bool hungUp = false;
    for (int i = 0; i < 1000 && !hungUp; ++i) {
        std::this_thread::sleep_for(10ms);
        pollfd p{unread.get(), POLLIN, 0};
        ::poll(&p, 1, 0);
        hungUp = p.revents & POLLHUP;
    }
    EXPECT_TRUE(hungUp);
    EXPECT_THAT(log_.lines(), Contains(HasSubstr("stopped reading")));
}

TEST_F(DataControlTest, AWithdrawnDeviceLeavesReadsAbsentAndSaysSoOnce) {
    connect();
    copy({{"text/plain", bytes("before")}});
    compositor_->finishDevices();
    ReadStatus status = ReadStatus::ok;
    for (int i = 0; i < 5000 && status != ReadStatus::absent; ++i) {
        status = pasteboard_->types().status;
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(status, ReadStatus::absent);
    EXPECT_EQ(pasteboard_->data("text/plain").status, ReadStatus::absent);
    pasteboard_->writeString("after");
    EXPECT_EQ(pasteboard_->changeCount(), 1);
    auto lines = log_.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& l) { return l.find("withdrew") != l.npos; }),
              1);
}

TEST_F(DataControlTest, TheClipboardAtStartIsReadableButNoChange) {
    compositor_->copyFromApp({{"UTF8_STRING", bytes("already there")}});
    connect();
    EXPECT_EQ(pasteboard_->changeCount(), 0);
    EXPECT_EQ(pasteboard_->string().value, "already there");
}

TEST_F(DataControlTest, ACompositorWithoutDataControlGetsNoClipboard) {
    compositor_.reset();
    compositor_ = std::make_unique<TestCompositor>(TestCompositor::Options{.dataControl = false});
    auto connection = WaylandConnection::open(log_, compositor_->socketName());
    ASSERT_TRUE(connection);
    EXPECT_EQ(DataControlPasteboard::create(*connection, queue_, log_), nullptr);
}

}  // namespace
}  // namespace zettly
