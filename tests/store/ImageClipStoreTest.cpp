#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ImageClipStore.h"
#include "store/ImageCodec.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {

// Names instead of raw bytes in failure messages.
void PrintTo(ImageClipStore::SaveResult result, std::ostream* out) {
    constexpr const char* names[] = {"saved", "disabled", "tooLarge", "failed"};
    *out << names[static_cast<int>(result)];
}

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Result = ImageClipStore::SaveResult;
using test::Bytes;
using test::Rgba;
using test::Row;

constexpr std::int64_t MiB = 1024 * 1024;

bool near(Rgba a, Rgba b) {
    auto close = [](int x, int y) { return std::abs(x - y) < 40; };
    return close(a.r, b.r) && close(a.g, b.g) && close(a.b, b.b);
}

Bytes contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string recordName(std::string id) {
    std::ranges::transform(id, id.begin(), [](unsigned char c) { return std::tolower(c); });
    return "i_" + id;
}

bool removed(const Row& files) {
    return !fs::exists(files.at(0)) && !fs::exists(files.at(1));
}

bool isJpeg(const Bytes& bytes) {
    return bytes.size() > 2 && bytes[0] == 0xFF && bytes[1] == 0xD8;
}

// A distinct picture per number: sizes differ, so no two are ever taken for one image.
Bytes numbered(int n) {
    return test::png(20 + n, 20, test::solid({200, 100, 50}));
}

class ImageHistory : public ::testing::Test {
protected:
    test::StoreEnvironment env;
    ImageClipStore store{env.context()};

    fs::path folder() const { return env.library() / "clipmedia"; }
    std::vector<Row> sql(const std::string& query) {
        return test::rows(env.library() / "clipmedia.sqlite", query);
    }
    Row row(const std::string& id, const std::string& columns) {
        auto found = sql("SELECT " + columns + " FROM media WHERE id = '" + id + "'");
        return found.empty() ? Row{} : found[0];
    }
    std::string count() { return sql("SELECT COUNT(*) FROM media")[0][0]; }
    std::size_t files() const {
        std::error_code ec;
        return fs::exists(folder()) ? std::distance(fs::directory_iterator(folder(), ec), {}) : 0;
    }
    std::string now() const { return std::to_string(static_cast<std::int64_t>(env.clock.now())); }
    // Saves and gives the id of the row now at the top.
    std::string save(const Bytes& data) {
        env.clock.advance(1);
        EXPECT_EQ(store.save(data), Result::saved);
        auto top = sql("SELECT id FROM media ORDER BY created DESC LIMIT 1");
        return top.empty() ? "" : top[0][0];
    }
    // A row made directly, with sizes and times no real save would give.
    void insert(const std::string& id, double created, bool pinned, std::int64_t bytes = 5,
                const std::string& category = "NULL") {
        sql("INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned, category) VALUES('" +
            id + "', '/f/" + id + "', '/t/" + id + "', 3, 4, " + std::to_string(bytes) + ", " +
            std::to_string(created) + ", " + (pinned ? "1" : "0") + ", " + category + ")");
    }
    std::vector<std::string> listed() {
        std::vector<std::string> ids;
        for (const auto& item : store.fetchAll())
            ids.push_back(item.id);
        return ids;
    }
};

TEST_F(ImageHistory, CopyingTheSameScreenshotAgainMovesItsRowUpWithoutNewFiles) {
    Bytes shot = test::png(300, 200, test::noise(1));
    std::string first = save(shot);
    std::string other = save(numbered(1));
    sql("UPDATE media SET dirty = 0");

    EXPECT_EQ(save(shot), first);
    EXPECT_EQ(count(), "2");
    EXPECT_EQ(row(first, "CAST(created AS INTEGER), CAST(modified AS INTEGER), dirty"),
              (Row{now(), now(), "1"}));
    EXPECT_EQ(row(other, "dirty"), Row{"0"});
    EXPECT_THAT(listed(), ElementsAre(first, other));
    EXPECT_EQ(files(), 4u);
}

// Blocks of 10x10 pixels growing brighter to the right; a darkened block flips exactly
// one bit of the 17x16 difference hash.
test::Paint blocks(int darkened, int scale = 10) {
    return [=](int x, int y) {
        int bx = x / scale, by = y / scale;
        bool dark = by == bx - 1 && by % 3 == 1 && by / 3 < darkened;
        auto v = static_cast<std::uint8_t>(dark ? 10 * bx : 40 + 10 * bx);
        return Rgba{v, v, v};
    };
}

TEST_F(ImageHistory, OnlyPicturesOfOneSizeLessThanFiveBitsApartAreOneImage) {
    auto fingerprint = [](const Bytes& input) {
        auto reduced = ImageCodec::reduce(input, ImageClipStore::fullPixels);
        return ImageCodec::fingerprint(reduced.value().full.bytes).value();
    };
    Bytes base = test::png(170, 160, blocks(0));
    Bytes fourOff = test::png(170, 160, blocks(4));
    Bytes fiveOff = test::png(170, 160, blocks(5));
    Bytes larger = test::png(340, 320, blocks(0, 20));
    Bytes mirrored = test::png(170, 160, [](int x, int y) { return blocks(0)(169 - x, y); });
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(fourOff)), 4);
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(fiveOff)), 5);
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(larger)), 0);

    std::string id = save(base);
    EXPECT_EQ(save(fourOff), id);
    EXPECT_EQ(count(), "1");
    EXPECT_NE(save(fiveOff), id);
    std::string big = save(larger);
    EXPECT_NE(big, id);
    EXPECT_EQ(row(big, "w, h"), (Row{"340", "320"}));
    EXPECT_NE(save(mirrored), id);
    EXPECT_EQ(count(), "4");
}

TEST_F(ImageHistory, TheStoredPictureIsTurnedUprightAndFlattenedOntoWhite) {
    // Red, green / blue, white quadrants; orientation 6 shows the picture turned clockwise.
    auto quadrants = [](int x, int y) {
        return y < 50 ? (x < 100 ? Rgba{255, 0, 0} : Rgba{0, 255, 0})
                      : (x < 100 ? Rgba{0, 0, 255} : Rgba{255, 255, 255});
    };
    std::string id = save(test::jpeg(200, 100, quadrants, 6));
    EXPECT_EQ(row(id, "w, h"), (Row{"100", "200"}));

    auto stored = test::decode(store.fileData(id).value());
    ASSERT_EQ(vips_image_get_width(stored.get()), 100);
    EXPECT_TRUE(near(test::pixel(stored.get(), 10, 10), Rgba{0, 0, 255}));
    EXPECT_TRUE(near(test::pixel(stored.get(), 90, 10), Rgba{255, 0, 0}));
    EXPECT_TRUE(near(test::pixel(stored.get(), 90, 190), Rgba{0, 255, 0}));
    // A kept tag would make every viewer turn the upright picture once more.
    EXPECT_EQ(vips_image_get_typeof(stored.get(), VIPS_META_EXIF_NAME), 0u);

    auto halfClear = [](int x, int) { return x < 20 ? Rgba{0, 0, 0, 0} : Rgba{255, 0, 0}; };
    for (const std::string& path : row(save(test::png(40, 40, halfClear, true)), "file, thumb")) {
        Bytes bytes = contents(path);
        ASSERT_TRUE(isJpeg(bytes)) << path;
        auto stored = test::decode(bytes);
        EXPECT_EQ(vips_image_get_bands(stored.get()), 3);
        EXPECT_TRUE(near(test::pixel(stored.get(), 5, 20), Rgba{255, 255, 255}));
        EXPECT_TRUE(near(test::pixel(stored.get(), 35, 20), Rgba{255, 0, 0}));
    }
}

TEST(ImageHistoryFormats, EveryAcceptedFormatBecomesAJpegReducedTo1280PixelsButNeverEnlarged) {
    auto picture = test::image(50, 30, test::gradient(50));
    for (const char* suffix : {".png", ".jpg", ".heic", ".tif", ".webp"}) {
        SCOPED_TRACE(suffix);
        test::StoreEnvironment env;
        ImageClipStore store(env.context());
        ASSERT_EQ(store.save(test::encode(picture.get(), suffix)), Result::saved);
        auto item = store.fetchAll().at(0);
        EXPECT_THAT((std::array{item.width, item.height}), ElementsAre(50, 30));
        for (const std::string& path : {item.file, item.thumb}) {
            Bytes bytes = contents(path);
            ASSERT_TRUE(isJpeg(bytes)) << path;
            EXPECT_EQ(vips_image_get_width(test::decode(bytes).get()), 50);
        }
    }

    test::StoreEnvironment env;
    ImageClipStore store(env.context());
    ASSERT_EQ(store.save(test::png(3000, 1000, test::gradient(3000))), Result::saved);
    auto item = store.fetchAll().at(0);
    EXPECT_EQ(item.width, 1280);
    EXPECT_NEAR(item.height, 427, 1);
    EXPECT_EQ(item.bytes, static_cast<std::int64_t>(fs::file_size(item.file)));
    auto thumb = test::decode(contents(item.thumb));
    EXPECT_EQ(vips_image_get_width(thumb.get()), 320);
    EXPECT_NEAR(vips_image_get_height(thumb.get()), 107, 1);
}

TEST_F(ImageHistory, TheSixteenthImageTrimsTheOldestWithATombstoneOnlyUnderASyncKey) {
    for (bool withKey : {true, false}) {
        SCOPED_TRACE(withKey ? "with a sync key" : "without a sync key");
        store.clear(false);
        sql("DELETE FROM sync_tombstones");
        if (withKey)
            env.defaults.setData("clipSyncKey", Bytes(32, 7));
        else
            env.defaults.remove("clipSyncKey");
        std::string oldest = save(numbered(0));
        Row oldestFiles = row(oldest, "file, thumb");
        for (int n = 1; n < 15; ++n)
            save(numbered(n));
        save(numbered(15));
        EXPECT_EQ(count(), "15");
        EXPECT_THAT(row(oldest, "id"), IsEmpty());
        EXPECT_TRUE(removed(oldestFiles));
        EXPECT_EQ(files(), 30u);
        if (withKey)
            EXPECT_THAT(sql("SELECT key, CAST(at AS INTEGER) FROM sync_tombstones"),
                        ElementsAre(Row{recordName(oldest), now()}));
        else
            EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), IsEmpty());
    }
}

TEST_F(ImageHistory, PinnedImagesAreNeverTrimmedButTakeUpPositions) {
    std::vector<std::string> ids;
    for (int n = 0; n < 15; ++n)
        ids.push_back(save(numbered(n)));
    store.setPinned(ids[0], true);
    store.setPinned(ids[14], true);

    save(numbered(15));  // the pinned oldest now sits at position 15
    EXPECT_EQ(count(), "16");
    save(numbered(16));
    EXPECT_EQ(count(), "16");
    EXPECT_THAT(row(ids[1], "id"), IsEmpty());
    EXPECT_EQ(row(ids[0], "pinned"), Row{"1"});
}

TEST_F(ImageHistory, UnpinnedImagesBeyond24MiBOfFilesGoWithPinnedOnesCounted) {
    Bytes newest = numbered(2);
    auto size = static_cast<std::int64_t>(
        ImageCodec::reduce(newest, ImageClipStore::fullPixels)->full.bytes.size());
    std::string oldest = save(numbered(1));
    // Counted newest first, the running sum reaches exactly 24 MiB at "fits".
    insert("fits", env.clock.now() + 0.5, false, 12 * MiB - size);
    insert("held", env.clock.now() + 0.7, true, 12 * MiB);
    Row oldestFiles = row(oldest, "file, thumb");

    std::string top = save(newest);
    EXPECT_THAT(sql("SELECT id FROM media ORDER BY created DESC"),
                ElementsAre(Row{top}, Row{"held"}, Row{"fits"}));
    EXPECT_TRUE(removed(oldestFiles));
}

TEST_F(ImageHistory, ALabelledImageOutlivesTheRetentionWhileAnUnlabelledOneIsHiddenAtOnce) {
    env.defaults.setInteger("clipboardRetentionMinutes", 60);
    std::string labelled = save(numbered(1));
    std::string pinned = save(numbered(2));
    std::string plain = save(numbered(3));
    std::string boundary = save(numbered(4));
    store.setLabel(labelled, "receipt");
    store.setPinned(pinned, true);
    Row plainFiles = row(plain, "file, thumb");

    env.clock.advance(3600);  // "boundary" is now exactly as old as the retention
    EXPECT_THAT(listed(), ElementsAre(pinned, boundary, labelled));
    EXPECT_EQ(count(), "4");

    std::string fresh = save(numbered(5));
    EXPECT_THAT(listed(), ElementsAre(pinned, fresh, labelled));
    EXPECT_THAT(row(plain, "id"), IsEmpty());
    EXPECT_TRUE(removed(plainFiles));
}

TEST_F(ImageHistory, ClearingKeepsFiledImagesAndRemovesTheFolderOnlyOnceEmpty) {
    std::string plain = save(numbered(1));
    std::string pinned = save(numbered(2));
    std::string filed = save(numbered(3));
    store.setPinned(pinned, true);
    store.setCategory(filed, "cat");
    std::ofstream(folder() / "left-by-a-crash.jpg") << "x";

    store.clear(true);
    EXPECT_THAT(listed(), ElementsAre(pinned, filed));
    store.clear(false);
    EXPECT_THAT(listed(), ElementsAre(filed));
    EXPECT_EQ(files(), 3u);

    store.setPinned(filed, false);
    store.clear(true);
    EXPECT_EQ(count(), "0");
    EXPECT_FALSE(fs::exists(folder()));
    save(numbered(4));
    EXPECT_EQ(files(), 2u);
}

TEST_F(ImageHistory, FetchAllPutsUncategorisedPinnedImagesFirstAndLimitsBothGroups) {
    store.fetchAll();
    double t = env.clock.now();
    insert("u1", t - 10, false);
    insert("c1", t - 20, true, 5, "'cat'");
    insert("p1", t - 30, true);
    insert("p2", t - 5, true);
    insert("u2", t - 40, false);
    sql("UPDATE media SET label = 'note' WHERE id = 'p1'");
    EXPECT_THAT(listed(), ElementsAre("p2", "p1", "u1", "c1", "u2"));
    EXPECT_EQ(store.fetchAll()[1], (ImageClipStore::Item{"p1", "/f/p1", "/t/p1", 3, 4, 5, t - 30,
                                                         true, std::nullopt, "note"}));

    // Up to 101 pinned and 16 unpinned rows: the oldest of each is left out.
    for (int n = 0; n < 98; ++n)
        insert("pin" + std::to_string(n), t - 100 - n, true);
    for (int n = 0; n < 14; ++n)
        insert("un" + std::to_string(n), t - 100 - n, false);
    auto ids = listed();
    auto has = [&](const char* id) { return std::count(ids.begin(), ids.end(), id) == 1; };
    EXPECT_EQ(ids.size(), 115u);
    EXPECT_TRUE(has("pin96") && has("un12"));
    EXPECT_FALSE(has("pin97") || has("un13"));
}

TEST_F(ImageHistory, MetadataEditsSetTheirColumnsAndMarkTheRowChanged) {
    std::string id = save(numbered(1));
    auto edit = [&](auto&& change) {
        sql("UPDATE media SET dirty = 0");
        env.clock.advance(7);
        change();
        EXPECT_EQ(row(id, "CAST(modified AS INTEGER), CAST(mm AS INTEGER), dirty"),
                  (Row{now(), now(), "1"}));
    };
    edit([&] { store.setCategory(id, "cat"); });
    EXPECT_EQ(row(id, "pinned, category"), (Row{"1", "cat"}));
    edit([&] { store.setPinned(id, false); });
    EXPECT_EQ(row(id, "pinned, category"), (Row{"0", "NULL"}));
    edit([&] { store.setPinned(id, true); });
    edit([&] { store.setCategory(id, std::nullopt); });
    EXPECT_EQ(row(id, "pinned, category"), (Row{"1", "NULL"}));
    edit([&] { store.setLabel(id, "  two\nlines  "); });
    EXPECT_EQ(row(id, "label"), Row{"two lines"});
    edit([&] { store.setLabel(id, " \n "); });
    EXPECT_EQ(row(id, "label"), Row{"NULL"});

    std::string other = save(numbered(2));
    store.setCategory(id, "gone");
    store.setCategory(other, "kept");
    sql("UPDATE media SET dirty = 0");
    Row before = row(id, "modified, mm");
    env.clock.advance(7);
    store.detachCategory("gone");
    EXPECT_EQ(row(id, "pinned, category, dirty"), (Row{"1", "NULL", "0"}));
    EXPECT_EQ(row(id, "modified, mm"), before);
    EXPECT_EQ(row(other, "category"), Row{"kept"});
}

TEST_F(ImageHistory, DeletingAnImageRemovesItsRowAndFilesAndLeavesATombstone) {
    env.defaults.setData("clipSyncKey", Bytes(32, 7));
    std::string kept = save(numbered(1));
    std::string gone = save(numbered(2));
    Row goneFiles = row(gone, "file, thumb");
    EXPECT_EQ(store.fileData(gone), contents(goneFiles[0]));
    EXPECT_TRUE(isJpeg(store.fileData(gone).value()));

    store.deleteItem(gone);
    EXPECT_THAT(listed(), ElementsAre(kept));
    EXPECT_TRUE(removed(goneFiles));
    EXPECT_EQ(files(), 2u);
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), ElementsAre(Row{recordName(gone)}));
    EXPECT_EQ(store.fileData(gone), std::nullopt);

    fs::remove(row(kept, "file")[0]);  // a file lost to a crash
    EXPECT_EQ(store.fileData(kept), std::nullopt);
}

TEST(ImageHistoryInputs, UnreadableRefusedOrOversizedInputsStoreNothing) {
    Bytes photo = test::jpeg(400, 300, test::noise(2));
    Bytes screenshot = test::png(400, 300, test::noise(3));
    std::string svg = R"(<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"/>)";
    std::string pdf = "%PDF-1.4\n1 0 obj << /Type /Catalog >> endobj\ntrailer << >>\n%%EOF\n";
    Bytes oversized = screenshot;
    oversized.resize(ImageClipStore::maxInputBytes + 1);  // decoders ignore the padding
    // A real, valid picture of 400 megapixels in under 50 KB.
    VipsImage* black = nullptr;
    ASSERT_EQ(vips_black(&black, 20000, 20000, nullptr), 0);
    Bytes bomb = test::encode(test::Image(black).get(), ".png[bitdepth=1,compression=9]");
    const std::vector<std::tuple<const char*, Bytes, Result>> cases = {
        {"garbage", Bytes(5000, 0x5A), Result::failed},
        {"nothing", Bytes{}, Result::failed},
        {"truncated jpeg", Bytes(photo.begin(), photo.begin() + photo.size() / 2), Result::failed},
        {"truncated png", Bytes(screenshot.begin(), screenshot.begin() + screenshot.size() / 2),
         Result::failed},
        {"svg", Bytes(svg.begin(), svg.end()), Result::failed},
        {"pdf", Bytes(pdf.begin(), pdf.end()), Result::failed},
        {"gif", test::encode(test::image(40, 40, test::noise(4)).get(), ".gif"), Result::failed},
        {"20000 x 20000 png", bomb, Result::failed},
        {"16 MiB + 1 byte", oversized, Result::tooLarge},
    };
    for (const auto& [name, input, expected] : cases) {
        SCOPED_TRACE(name);
        test::StoreEnvironment env;
        ImageClipStore store(env.context());
        EXPECT_EQ(store.save(input), expected);
        EXPECT_EQ(store.fetchAll().size(), 0u);
        std::error_code ec;
        EXPECT_TRUE(!fs::exists(env.library() / "clipmedia") ||
                    fs::is_empty(env.library() / "clipmedia", ec));
    }

    test::StoreEnvironment env;
    ImageClipStore store(env.context());
    oversized.pop_back();
    EXPECT_EQ(store.save(oversized), Result::saved);
    env.defaults.setBool("clipboardEnabled", false);
    EXPECT_EQ(store.save(screenshot), Result::disabled);
    EXPECT_EQ(store.fetchAll().size(), 1u);
}

TEST(ImageFingerprint, DistanceCountsDifferingBitsAndNeverMatchesOtherLengths) {
    Bytes a{0x00, 0xF0, 0x81};
    EXPECT_EQ(ImageClipStore::distance(a, a), 0);
    EXPECT_EQ(ImageClipStore::distance(a, Bytes{0x00, 0xF0, 0x80}), 1);
    EXPECT_EQ(ImageClipStore::distance(a, Bytes{0xFF, 0x0F, 0x81}), 16);
    EXPECT_EQ(ImageClipStore::distance(a, Bytes{0x00, 0xF0}),
              std::numeric_limits<std::int64_t>::max());
}

TEST(ImageFingerprint, BitRTimes16PlusXIsSetWhenPixelXOfRowRIsDarkerThanItsRightNeighbour) {
    auto hashWith = [](int index, std::uint8_t value) {
        std::array<std::uint8_t, 17 * 16> grey{};
        grey.fill(100);
        grey[index] = value;
        return ImageCodec::differenceHash(grey);
    };
    auto only = [](int byte, std::uint8_t bits) {
        ImageCodec::Fingerprint hash{};
        hash[byte] = bits;
        return hash;
    };
    EXPECT_EQ(hashWith(0, 100), ImageCodec::Fingerprint{});  // equal is not darker
    EXPECT_EQ(hashWith(0, 50), only(0, 0x01));
    EXPECT_EQ(hashWith(1, 50), only(0, 0x02));  // (0,0) is the brighter one
    EXPECT_EQ(hashWith(16, 150), only(1, 0x80));
    EXPECT_EQ(hashWith(17, 50), only(2, 0x01));
    // The last pixel of a row is no left neighbour of the next row's first.
    EXPECT_EQ(hashWith(16, 20), ImageCodec::Fingerprint{});
    EXPECT_EQ(hashWith(17 * 15 + 3, 200), only(30, 0x04));
}

TEST(ImageDownsample, WritesAPrivateJpegNoLargerThanAskedOverAnyOldFile) {
    test::TempDir dir;
    fs::path to = dir / "upload.jpg";
    std::ofstream(to) << "old";
    fs::permissions(to, fs::perms(0644));

    EXPECT_FALSE(ImageClipStore::downsample(Bytes(100, 1), 500, to));
    EXPECT_EQ(contents(to), Bytes({'o', 'l', 'd'}));

    ASSERT_TRUE(ImageClipStore::downsample(test::png(3000, 1000, test::gradient(3000)), 500, to));
    EXPECT_EQ(fs::status(to).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    Bytes written = contents(to);
    ASSERT_TRUE(isJpeg(written));
    auto image = test::decode(written);
    EXPECT_EQ(vips_image_get_width(image.get()), 500);
    EXPECT_NEAR(vips_image_get_height(image.get()), 167, 1);
}

}  // namespace
}  // namespace zettly
