#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sync/ClipRecords.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Bytes = ClipRecords::Bytes;
using SyncItem = ClipboardStore::SyncItem;

CloudRecord itemRecord(CloudFields fields, CloudFields encrypted) {
    return CloudRecord{.recordType = "ClipItem",
                       .zoneName = "Clipboard",
                       .recordName = "c_1",
                       .fields = std::move(fields),
                       .encryptedFields = std::move(encrypted)};
}

TEST(ClipRecords, ItemsKeepContentEncryptedTimesPlainAndSaveOverTheirServerCopy) {
    const Bytes ck = encodeSystemFields({"Clipboard", "ClipItem", "c_1", "7"});
    SyncItem item{"c_1", "hello", "text", 10, 20, 15, true, "work", std::nullopt, ck};
    CloudRecord record = ClipRecords::record(item);

    EXPECT_EQ(record.systemFields, ck);
    EXPECT_EQ(
        record.fields,
        (CloudFields{
            {"created", 10.0}, {"modified", 20.0}, {"mm", 15.0}, {"pinned", std::int64_t{1}}}));
    EXPECT_EQ(record.encryptedFields, (CloudFields{{"text", std::string("hello")},
                                                   {"type", std::string("text")},
                                                   {"category", std::string("work")}}));
    EXPECT_EQ(ClipRecords::item(record), item);

    // Saved data of another record (or none that decodes) starts a new one.
    item.ck = encodeSystemFields({"Clipboard", "ClipItem", "c_2", "7"});
    EXPECT_THAT(ClipRecords::record(item).systemFields, IsEmpty());
    item.ck = Bytes{1, 2, 3};
    EXPECT_THAT(ClipRecords::record(item).systemFields, IsEmpty());

    ClipboardStore::SyncCategory work{"x", "Work", 2, 1, 3, std::nullopt};
    CloudRecord category = ClipRecords::record(work);
    EXPECT_EQ(category.recordName, "cat_x");
    EXPECT_EQ(ClipRecords::category(category), work);
    category.recordName = "x";
    EXPECT_FALSE(ClipRecords::category(category));
}

TEST(ClipRecords, ItemsFromOtherClientsFallBackForWhatTheyLeaveOut) {
    auto item = ClipRecords::item(itemRecord({{"created", std::int64_t{5}}, {"pinned", 1.0}},
                                             {{"text", std::string("https://zettly.org")}}));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->type, "url");
    EXPECT_EQ(item->modified, 5);
    EXPECT_TRUE(item->pinned);
    EXPECT_EQ(item->mm, 5) << "old records with metadata count it as changed with the record";
    EXPECT_FALSE(item->ck);

    auto read = [](CloudFields fields, CloudFields encrypted) {
        return ClipRecords::item(itemRecord(std::move(fields), std::move(encrypted)));
    };
    EXPECT_EQ(read({{"modified", 8.0}, {"pinned", 0.0}}, {{"text", std::string("plain")}})->mm, 0);
    EXPECT_EQ(
        read({{"modified", 8.0}}, {{"text", std::string("x")}, {"label", std::string("l")}})->mm,
        8);
    EXPECT_TRUE(read({}, {{"text", std::string(100'000, 'a')}}));
    EXPECT_FALSE(read({}, {{"text", std::string(100'001, 'a')}}));
    EXPECT_FALSE(read({}, {{"text", Bytes{'a'}}}));
    CloudRecord image = itemRecord({}, {{"text", std::string("a")}});
    image.recordType = "ClipImage";
    EXPECT_FALSE(ClipRecords::item(image));
}

TEST(ClipRecords, ChipOrderAndKeyReadOnlyWhatTheyCanTrust) {
    CloudRecord prefs = ClipRecords::prefsRecord({{"pinned", "cat_1"}, 42}, std::nullopt);
    auto order = ClipRecords::chipOrder(prefs);
    ASSERT_TRUE(order);
    EXPECT_THAT(order->order, ElementsAre("pinned", "cat_1"));
    EXPECT_EQ(order->modified, 42);
    prefs.encryptedFields["order"] = std::string(R"(["a", 1])");
    EXPECT_FALSE(ClipRecords::chipOrder(prefs));

    EXPECT_EQ(ClipRecords::key(ClipRecords::keyRecord(Bytes(32, 7))), Bytes(32, 7));
    EXPECT_FALSE(ClipRecords::key(ClipRecords::keyRecord(Bytes(31, 7))));
}

// Reductions of preset sizes reach each step of the upload rule without
// pictures that happen to encode to the right size.
class SizedReducer final : public ImageReducer {
public:
    std::map<int, std::size_t> sizes;  // by longest side; missing = the reduction fails
    std::vector<int> asked;
    std::optional<ImageCodec::Reduced> reduce(std::span<const std::uint8_t>,
                                              const Request& request) override {
        asked.push_back(request.maxPixel);
        auto size = sizes.find(request.maxPixel);
        if (size == sizes.end())
            return std::nullopt;
        ImageCodec::Reduced reduced;
        reduced.full = {Bytes(size->second, 0xD8), request.maxPixel, 10};
        return reduced;
    }
};

struct ImageUpload : ::testing::Test {
    // An image of `bytes` bytes as the store would hand it to the upload.
    ClipRecords::ImageRecord upload(std::size_t bytes) {
        fs::path file = env.dir / "photo.jpg";
        std::ofstream(file, std::ios::binary) << std::string(bytes, 'p');
        reducer.asked.clear();
        ImageClipStore::SyncImage image{
            .rid = "i_1", .created = 1, .modified = 2, .width = 3000, .height = 2000};
        image.file = file.string();
        auto built = ClipRecords::record(image, images, scratch.path());
        EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), {}), 0)
            << "the reduced copy is always removed";
        return built;
    }
    static std::size_t dataSize(const ClipRecords::ImageRecord& built) {
        return built.record ? std::get<Bytes>(built.record->encryptedFields.at("data")).size() : 0;
    }

    test::StoreEnvironment env;
    test::TempDir scratch;
    SizedReducer reducer;
    ImageClipStore images{env.context(), reducer};
};

TEST_F(ImageUpload, SmallImagesGoAsTheyAreLargeOnesAreReducedAndTooLargeOnesStayHome) {
    reducer.sizes = {{1024, 700'000}, {800, 400'000}};
    auto small = upload(900'000);
    ASSERT_EQ(dataSize(small), 900'000u);
    EXPECT_THAT(reducer.asked, IsEmpty());
    EXPECT_EQ(small.record->encryptedFields.at("w"), CloudValue(std::int64_t{3000}));
    EXPECT_EQ(dataSize(upload(3'000'000)), 700'000u);
    EXPECT_THAT(reducer.asked, ElementsAre(1024));

    reducer.sizes[1024] = 950'000;
    EXPECT_EQ(dataSize(upload(3'000'000)), 400'000u);
    EXPECT_THAT(reducer.asked, ElementsAre(1024, 800));

    reducer.sizes[800] = 900'001;
    auto huge = upload(3'000'000);
    EXPECT_TRUE(!huge.record && huge.tooLarge);
    reducer.sizes.erase(800);
    auto unreadable = upload(3'000'000);
    EXPECT_TRUE(!unreadable.record && !unreadable.tooLarge)
        << "a failed reduction is retried later";
}

// The picture kept as copied is for pasting here: the record carries the
// history's JPEG, and nothing else of the picture.
TEST(ImageRecord, ACapturedPictureGoesAsItsJpegNeverAsTheCopyKeptAsCopied) {
    test::StoreEnvironment env;
    test::TempDir scratch;
    ImageClipStore images{env.context()};
    const Bytes photo = test::png(2400, 1800, test::gradient(2400));
    ASSERT_EQ(images.save(photo, "image/png"), ImageClipStore::SaveResult::saved);
    const std::string id = images.fetchAll().at(0).id;
    ASSERT_EQ(images.originalData(id)->bytes, photo);

    auto built = ClipRecords::record(images.syncPending(1).images.at(0), images, scratch.path());
    ASSERT_TRUE(built.record);
    EXPECT_EQ(built.record->encryptedFields.at("data"), CloudValue(images.fileData(id).value()));
    for (const CloudFields* fields : {&built.record->fields, &built.record->encryptedFields})
        for (const auto& [name, value] : *fields)
            EXPECT_NE(value, CloudValue(photo)) << name;
}

}  // namespace
}  // namespace zettly
