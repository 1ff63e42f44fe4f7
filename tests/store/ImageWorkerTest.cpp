#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "store/ImageReducer.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using Request = ImageReducer::Request;
const Request kSave{.maxPixel = 1280, .thumbPixel = 320, .fingerprint = true};

TEST(ImageWorker, DecodesLikeThisProcessAndSurvivesAnUnreadableImage) {
    ImageWorkerClient worker(ZETTLY_IMAGE_WORKER);
    test::Bytes png = test::png(1600, 400, test::gradient(1600));

    auto there = worker.reduce(png, kSave);
    auto here = ImageReducer::inProcess().reduce(png, kSave);
    ASSERT_TRUE(there && here);
    EXPECT_EQ(there->full.bytes, here->full.bytes);
    EXPECT_EQ(there->thumb->bytes, here->thumb->bytes);
    EXPECT_EQ(there->fingerprint, here->fingerprint);
    EXPECT_EQ(there->full.width, 1280);
    EXPECT_EQ(there->full.height, 320);

    EXPECT_FALSE(worker.reduce(test::Bytes(4096, 0x42), kSave));
    // The same worker still answers: garbage is an answer, not a failure of the worker.
    EXPECT_TRUE(
        worker.reduce(png, {.maxPixel = 64, .thumbPixel = std::nullopt, .fingerprint = false}));
}

TEST(ImageWorker, AWorkerThatWentAwayIsStartedAgain) {
    ImageWorkerClient worker(ZETTLY_IMAGE_WORKER);
    test::Bytes png = test::png(80, 60, test::solid({200, 10, 10}));
    ASSERT_TRUE(worker.reduce(png, kSave));
    // As after its idle time, or a crash on an earlier image.
    ASSERT_GT(worker.workerPid(), 0);
    ASSERT_EQ(::kill(worker.workerPid(), SIGKILL), 0);
    auto again = worker.reduce(png, kSave);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->full.width, 80);
}

TEST(ImageWorker, AMissingWorkerGivesNoImageInsteadOfAnError) {
    ImageWorkerClient worker("/nonexistent/zettly-image-worker");
    EXPECT_FALSE(worker.reduce(test::png(10, 10, test::solid({})), kSave));
}

TEST(ImageWorker, RepliesThatAreCutShortOrPaddedAreRejected) {
    ImageCodec::Reduced reduced{
        {{1, 2, 3}, 4, 5}, ImageCodec::Jpeg{{6}, 7, 8}, ImageCodec::Fingerprint{}};
    reduced.fingerprint->at(3) = 9;
    auto frame = imagewire::encodeReply(reduced);
    std::span<const std::uint8_t> body(frame.data() + 8, frame.size() - 8);
    auto decoded = imagewire::decodeReply(body);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->full.bytes, reduced.full.bytes);
    EXPECT_EQ(decoded->thumb->height, 8);
    EXPECT_EQ(decoded->fingerprint, reduced.fingerprint);

    EXPECT_FALSE(imagewire::decodeReply(body.first(body.size() - 1)));
    auto padded = std::vector<std::uint8_t>(body.begin(), body.end());
    padded.push_back(0);
    EXPECT_FALSE(imagewire::decodeReply(padded));
    auto failure = imagewire::encodeReply(std::nullopt);
    EXPECT_FALSE(imagewire::decodeReply(std::span(failure).subspan(8)));
}

}  // namespace
}  // namespace zettly
