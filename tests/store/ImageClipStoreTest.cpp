#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iterator>
#include <string_view>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ImageClipStore.h"
#include "store/ImageCodec.h"
#include "tests/fakes/ImageHistoryFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Result = ImageClipStore::SaveResult;
using test::Bytes;
using test::contents;
using test::numbered;
using test::Rgba;
using test::Row;

constexpr std::int64_t MiB = 1024 * 1024;

bool near(Rgba a, Rgba b) {
    auto close = [](int x, int y) { return std::abs(x - y) < 40; };
    return close(a.r, b.r) && close(a.g, b.g) && close(a.b, b.b);
}
bool isJpeg(const Bytes& bytes) {
    return bytes.size() > 2 && bytes[0] == 0xFF && bytes[1] == 0xD8;
}
std::string recordName(std::string id) {
    std::ranges::transform(id, id.begin(), [](unsigned char c) { return std::tolower(c); });
    return "i_" + id;
}
bool removed(const Row& files) {
    return !fs::exists(files.at(0)) && !fs::exists(files.at(1));
}
class ImageHistory : public test::ImageHistoryFixture {
protected:
    Row row(const std::string& id, const std::string& columns) {
        auto found = sql("SELECT " + columns + " FROM media WHERE id = '" + id + "'");
        return found.empty() ? Row{} : found[0];
    }
    std::string count() { return sql("SELECT COUNT(*) FROM media")[0][0]; }
    std::string now() const { return std::to_string(static_cast<std::int64_t>(env.clock.now())); }
    // Saves a second later than the last save and gives the id of the row now at the top.
    std::string save(const Bytes& data) {
        env.clock.advance(1);
        EXPECT_EQ(store.save(data), Result::saved);
        auto top = sql("SELECT id FROM media ORDER BY created DESC LIMIT 1");
        return top.empty() ? "" : top[0][0];
    }
    std::vector<std::string> listed() {
        std::vector<std::string> ids;
        for (const auto& item : store.fetchAll())
            ids.push_back(item.id);
        return ids;
    }
};

std::string hex(const Bytes& bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (std::uint8_t byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}
Bytes fingerprint(const Bytes& input) {
    auto reduced = ImageCodec::reduce(input, ImageClipStore::fullPixels);
    auto hash = ImageCodec::fingerprint(reduced.value().full.bytes).value();
    return {hash.begin(), hash.end()};
}

TEST_F(ImageHistory, APictureOfTheSameSizeLessThanFiveBitsAwayBecomesTheNewPictureOfTheOldRow) {
    Bytes base = test::png(170, 160, test::blocks(0));
    Bytes fourOff = test::png(170, 160, test::blocks(4));
    Bytes fiveOff = test::png(170, 160, test::blocks(5));
    Bytes larger = test::png(340, 320, test::blocks(0, 20));
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(fourOff)), 4);
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(fiveOff)), 5);
    ASSERT_EQ(ImageClipStore::distance(fingerprint(base), fingerprint(larger)), 0);

    std::string id = save(base);
    std::string distinct = save(fiveOff);
    EXPECT_NE(distinct, id);
    store.deleteItem(distinct);
    std::string rid = row(id, "rid").at(0);
    store.setPinned(id, true);
    store.setLabel(id, "terminal");
    Row oldFiles = row(id, "file, thumb");
    std::string other = save(numbered(1));
    sql("UPDATE media SET dirty = 0");

    EXPECT_EQ(save(fourOff), id);
    EXPECT_EQ(count(), "2");
    EXPECT_EQ(row(id,
                  "rid, pinned, label, CAST(created AS INTEGER), CAST(modified AS INTEGER), "
                  "dirty"),
              (Row{rid, "1", "terminal", now(), now(), "1"}));
    // What is pasted, shown and uploaded is the new picture, in files of its own.
    Row newFiles = row(id, "file, thumb");
    EXPECT_TRUE(removed(oldFiles));
    EXPECT_NE(newFiles.at(0), oldFiles.at(0));
    EXPECT_NE(newFiles.at(1), oldFiles.at(1));
    Bytes stored = store.fileData(id).value();
    auto storedHash = ImageCodec::fingerprint(stored).value();
    EXPECT_EQ(Bytes(storedHash.begin(), storedHash.end()), fingerprint(fourOff));
    EXPECT_EQ(row(id, "hex(fp), bytes"),
              (Row{hex(fingerprint(fourOff)), std::to_string(stored.size())}));
    EXPECT_EQ(files(), 4u);
    EXPECT_THAT(listed(), ElementsAre(id, other));
    EXPECT_EQ(row(save(larger), "w, h"), (Row{"340", "320"}));
}

TEST_F(ImageHistory, EveryAcceptedFormatBecomesAJpegReducedTo1280PixelsButNeverEnlarged) {
    // PNG, JPEG, HEIC and TIFF copies are decoded in PasteboardMonitorTest.
    auto webp = test::image(50, 30, test::gradient(50));
    for (const std::string& path : row(save(test::encode(webp.get(), ".webp")), "file, thumb")) {
        Bytes bytes = contents(path);
        ASSERT_TRUE(isJpeg(bytes)) << path;
        EXPECT_EQ(vips_image_get_width(test::decode(bytes).get()), 50);
    }
    save(test::png(3000, 1000, test::gradient(3000)));
    auto item = store.fetchAll().at(0);
    EXPECT_EQ(item.width, 1280);
    EXPECT_NEAR(item.height, 427, 1);
    EXPECT_EQ(item.bytes, static_cast<std::int64_t>(fs::file_size(item.file)));
    auto thumb = test::decode(contents(item.thumb));
    EXPECT_EQ(vips_image_get_width(thumb.get()), 320);
    EXPECT_NEAR(vips_image_get_height(thumb.get()), 107, 1);
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
    EXPECT_TRUE(near(test::pixel(stored.get(), 10, 10), Rgba{0, 0, 255}));
    EXPECT_TRUE(near(test::pixel(stored.get(), 90, 190), Rgba{0, 255, 0}));
    // A kept tag would make every viewer turn the upright picture once more.
    EXPECT_EQ(vips_image_get_typeof(stored.get(), VIPS_META_EXIF_NAME), 0u);

    auto halfClear = [](int x, int) { return x < 20 ? Rgba{0, 0, 0, 0} : Rgba{255, 0, 0}; };
    for (const std::string& path : row(save(test::png(40, 40, halfClear, true)), "file, thumb")) {
        auto stored = test::decode(contents(path));
        EXPECT_EQ(vips_image_get_bands(stored.get()), 3);
        EXPECT_TRUE(near(test::pixel(stored.get(), 5, 20), Rgba{255, 255, 255}));
        EXPECT_TRUE(near(test::pixel(stored.get(), 35, 20), Rgba{255, 0, 0}));
    }
}

TEST_F(ImageHistory, OnlyFifteenPositionsAreKeptAndPinnedImagesTakeUpPositionsButStay) {
    env.defaults.setData("clipSyncKey", Bytes(32, 7));
    std::vector<std::string> ids;
    for (int n = 0; n < 15; ++n)
        ids.push_back(save(numbered(n)));
    store.setPinned(ids[0], true);
    store.setPinned(ids[14], true);
    Row trimmedFiles = row(ids[1], "file, thumb");

    save(numbered(15));  // the pinned oldest now sits at position 15
    EXPECT_EQ(count(), "16");
    save(numbered(16));  // and the oldest unpinned one too
    EXPECT_EQ(count(), "16");
    EXPECT_THAT(row(ids[1], "id"), IsEmpty());
    EXPECT_TRUE(removed(trimmedFiles));
    EXPECT_THAT(sql("SELECT key, CAST(at AS INTEGER) FROM sync_tombstones"),
                ElementsAre(Row{recordName(ids[1]), now()}));
}

TEST_F(ImageHistory, UnpinnedImagesBeyond24MiBOfFilesGoWithPinnedOnesCounted) {
    Bytes newest = numbered(2);
    auto size = static_cast<std::int64_t>(
        ImageCodec::reduce(newest, ImageClipStore::fullPixels)->full.bytes.size());
    std::string oldest = save(numbered(1));
    // Sizes no real save gives: counted newest first, the sum is exactly 24 MiB at "fits".
    auto t = std::to_string(env.clock.now());
    auto fits = std::to_string(12 * MiB - size), held = std::to_string(12 * MiB);
    sql("INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned) VALUES ('fits', '', '', "
        "3, 4, " +
        fits + ", " + t + " + 0.5, 0), ('held', '', '', 3, 4, " + held + ", " + t + " + 0.7, 1)");
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
    Row plainFiles = row(save(numbered(3)), "file, thumb");
    std::string boundary = save(numbered(4));
    store.setLabel(labelled, "receipt");
    store.setPinned(pinned, true);

    env.clock.advance(3600);  // "boundary" is now exactly as old as the retention
    EXPECT_THAT(listed(), ElementsAre(pinned, boundary, labelled));

    std::string fresh = save(numbered(5));
    EXPECT_THAT(listed(), ElementsAre(pinned, fresh, labelled));
    EXPECT_EQ(count(), "3");
    EXPECT_TRUE(removed(plainFiles));
    // Without a sync key nothing was ever shared, so nothing is retracted.
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), IsEmpty());

    // The longest retention the file can hold must not wrap round into a
    // cutoff in the future.
    env.defaults.setInteger("clipboardRetentionMinutes", INT64_MAX);
    env.clock.advance(100.0 * 365 * 24 * 60 * 60);
    std::string late = save(numbered(6));
    EXPECT_THAT(listed(), ElementsAre(pinned, late, fresh, labelled));
}

TEST_F(ImageHistory, DeletingOrClearingRemovesRowsFilesAndRecordsButAlwaysKeepsFiledImages) {
    env.defaults.setData("clipSyncKey", Bytes(32, 7));
    std::string gone = save(numbered(1));
    save(numbered(2));
    std::string pinned = save(numbered(3));
    std::string filed = save(numbered(4));
    store.setPinned(pinned, true);
    store.setCategory(filed, "cat");
    Row goneFiles = row(gone, "file, thumb");
    EXPECT_EQ(store.fileData(gone), contents(goneFiles.at(0)));
    store.deleteItem(gone);
    EXPECT_TRUE(removed(goneFiles));
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), ElementsAre(Row{recordName(gone)}));
    EXPECT_EQ(store.fileData(gone), std::nullopt);

    std::ofstream(folder() / "left-by-a-crash.jpg") << "x";
    store.clear(true);
    EXPECT_THAT(listed(), ElementsAre(pinned, filed));
    store.clear(false);
    EXPECT_THAT(listed(), ElementsAre(filed));
    EXPECT_EQ(files(), 3u);
    EXPECT_THAT(sql("SELECT COUNT(*) FROM sync_tombstones"), ElementsAre(Row{"3"}));

    fs::remove(row(filed, "file").at(0));  // a file lost to a crash
    EXPECT_EQ(store.fileData(filed), std::nullopt);
    store.setPinned(filed, false);
    store.clear(true);
    EXPECT_EQ(count(), "0");
    EXPECT_FALSE(fs::exists(folder()));
    save(numbered(5));
    EXPECT_EQ(files(), 2u);
}

// Left by a crash between writing a picture and committing its row.
void strayPicture(const fs::path& folder, std::string_view uuid) {
    std::ofstream(folder / (std::string(uuid) + ".jpg")) << std::string(100, 'x');
    std::ofstream(folder / (std::string(uuid) + "_t.jpg")) << std::string(50, 'x');
}
std::vector<fs::path> listing(const fs::path& folder) {
    std::vector<fs::path> paths(fs::directory_iterator(folder), {});
    std::ranges::sort(paths);
    return paths;
}

TEST_F(ImageHistory, FilesNoRowNamesAreReclaimedWhenTheNextStoreOpensOrASaveFails) {
    save(numbered(1));
    save(numbered(2));
    auto named = listing(folder());
    strayPicture(folder(), "5B0C51E6-3F1D-4C39-9B1A-0D6E4C2A7F10");
    {
        ImageClipStore next(env.context());
        EXPECT_TRUE(next.open());
    }
    EXPECT_EQ(listing(folder()), named);
    EXPECT_THAT(env.log.lines(),
                ElementsAre("[Zettly] reclaimed 2 picture files that no image row named (150 "
                            "bytes)"));
    {
        ImageClipStore again(env.context());
        EXPECT_TRUE(again.open());
    }
    EXPECT_EQ(env.log.lines().size(), 1u);  // nothing to reclaim, nothing said

    // A save that cannot be stored takes its own files and a crash's with it.
    strayPicture(folder(), "0D7B9E21-6A44-4E0F-8C2B-3B5F1A9C6E42");
    sql("CREATE TRIGGER refuse BEFORE INSERT ON media BEGIN SELECT RAISE(ABORT, 'disk full'); "
        "END");
    EXPECT_EQ(store.save(numbered(3)), Result::failed);
    EXPECT_EQ(listing(folder()), named);
    // Nor does a replaced picture lose its files when the row cannot take the new one.
    sql("CREATE TRIGGER keep BEFORE UPDATE OF file ON media BEGIN SELECT RAISE(ABORT, 'disk "
        "full'); END");
    EXPECT_EQ(store.save(numbered(1)), Result::failed);
    EXPECT_EQ(listing(folder()), named);

    test::StoreEnvironment nowhere;
    nowhere.containerAvailable = false;
    EXPECT_FALSE(ImageClipStore(nowhere.context()).open());
}

TEST_F(ImageHistory, NoPictureIsReclaimedWhileTheDatabaseCannotBeReadOrADamagedOneLiesAside) {
    save(numbered(1));
    strayPicture(folder(), "5B0C51E6-3F1D-4C39-9B1A-0D6E4C2A7F10");
    auto before = listing(folder());
    const fs::path database = env.library() / "clipmedia.sqlite";
    auto overwrite = [&](std::streamoff at, std::size_t length) {
        std::fstream file(database, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(at);
        file << std::string(length, '\xEE');
    };

    // The list of rows breaks off in a damaged page.
    auto page = std::stoll(sql("PRAGMA page_size")[0][0]);
    auto root = std::stoll(sql("SELECT rootpage FROM sqlite_master WHERE name = 'media'")[0][0]);
    overwrite((root - 1) * page, 1);  // the page's type
    {
        ImageClipStore next(env.context());
        next.open();
    }
    EXPECT_EQ(listing(folder()), before);
    EXPECT_THAT(env.log.lines(), Contains(HasSubstr("clipmedia.sqlite")));

    // A database too damaged to open is moved aside and a new one started: its
    // pictures stay for as long as the damaged copy does.
    overwrite(0, 100);
    {
        ImageClipStore next(env.context());
        EXPECT_TRUE(next.open());
    }
    EXPECT_EQ(listing(folder()), before);
    EXPECT_THAT(env.log.lines().back(), HasSubstr("4 picture files no row names are kept"));
    for (const auto& entry : fs::directory_iterator(env.library()))
        if (entry.path().filename().string().starts_with("clipmedia.sqlite.corrupt-") ||
            entry.path().filename().string().starts_with("clipmedia.sqlite.damaged-"))
            fs::remove(entry.path());
    {
        ImageClipStore next(env.context());
        EXPECT_TRUE(next.open());
    }
    EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(ImageHistory, MetadataEditsSetTheirColumnsAndMarkTheRowChanged) {
    std::string id = save(numbered(1));
    auto edit = [&](auto&& change, const std::string& columns, const Row& expected) {
        sql("UPDATE media SET dirty = 0");
        env.clock.advance(7);
        change();
        EXPECT_EQ(row(id, "CAST(modified AS INTEGER), CAST(mm AS INTEGER), dirty"),
                  (Row{now(), now(), "1"}));
        EXPECT_EQ(row(id, columns), expected);
    };
    edit([&] { store.setCategory(id, "cat"); }, "pinned, category", Row{"1", "cat"});
    edit([&] { store.setPinned(id, false); }, "pinned, category", Row{"0", "NULL"});
    edit([&] { store.setCategory(id, std::nullopt); }, "pinned, category", Row{"1", "NULL"});
    edit([&] { store.setLabel(id, " two\nlines "); }, "label", Row{"two lines"});
    edit([&] { store.setLabel(id, " \n "); }, "label", Row{"NULL"});

    // A deleted category's images leave it without counting as a change of theirs.
    store.setCategory(id, "gone");
    sql("UPDATE media SET dirty = 0");
    Row before = row(id, "modified, mm, dirty");
    env.clock.advance(7);
    store.detachCategory("gone");
    EXPECT_EQ(row(id, "modified, mm, dirty"), before);
    EXPECT_EQ(row(id, "pinned, category"), (Row{"1", "NULL"}));
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
        {"20000 x 20000 png", bomb, Result::failed},
        {"16 MiB + 1 byte", oversized, Result::tooLarge},
    };
    test::StoreEnvironment env;
    ImageClipStore store(env.context());
    for (const auto& [name, input, expected] : cases)
        EXPECT_EQ(store.save(input), expected) << name;
    EXPECT_THAT(store.fetchAll(), IsEmpty());
    std::error_code ec;
    EXPECT_TRUE(!fs::exists(env.library() / "clipmedia") ||
                fs::is_empty(env.library() / "clipmedia", ec));

    oversized.pop_back();
    EXPECT_EQ(store.save(oversized), Result::saved);
    env.defaults.setBool("clipboardEnabled", false);
    EXPECT_EQ(store.save(screenshot), Result::disabled);
    EXPECT_EQ(store.fetchAll().size(), 1u);
}

TEST(ImageFingerprint, BitRTimes16PlusXIsSetWhenPixelXOfRowRIsDarkerThanItsRightNeighbour) {
    // One pixel of a flat grey 17 x 16 bitmap changed; gives the fingerprint bytes that are set.
    auto setBytes = [](int index, std::uint8_t value) {
        std::array<std::uint8_t, 17 * 16> grey{};
        grey.fill(100);
        grey[index] = value;
        std::vector<std::pair<int, int>> set;
        auto hash = ImageCodec::differenceHash(grey);
        for (int i = 0; i < 32; ++i)
            if (hash[i])
                set.emplace_back(i, hash[i]);
        return set;
    };
    EXPECT_THAT(setBytes(0, 100), IsEmpty());                       // equal is not darker
    EXPECT_THAT(setBytes(0, 50), ElementsAre(std::pair{0, 0x01}));  // least significant bit first
    EXPECT_THAT(setBytes(16, 150), ElementsAre(std::pair{1, 0x80}));
    EXPECT_THAT(setBytes(17, 50), ElementsAre(std::pair{2, 0x01}));  // rows are 17 pixels apart
    // The distance counts differing bits and never matches a fingerprint of another length.
    Bytes a{0x00, 0xF0, 0x81};
    EXPECT_EQ(ImageClipStore::distance(a, Bytes{0xFF, 0x0F, 0x80}), 17);
    EXPECT_EQ(ImageClipStore::distance(a, Bytes{0x00, 0xF0}),
              std::numeric_limits<std::int64_t>::max());
}

// The reduced size and format are checked on the real upload by the sync
// scenario ImagesGoUpWithTheirBytesAndArriveOnTheOtherDeviceInTwoSteps.
TEST_F(ImageHistory, DownsampleWritesAPrivateFileOverAnyOldOneAndLeavesItAloneOnFailure) {
    fs::path to = env.dir / "upload.jpg";
    std::ofstream(to) << "old";
    fs::permissions(to, fs::perms(0644));
    EXPECT_FALSE(store.downsample(Bytes(100, 1), 500, to));
    EXPECT_EQ(contents(to), Bytes({'o', 'l', 'd'}));
    ASSERT_TRUE(store.downsample(test::png(3000, 1000, test::gradient(3000)), 500, to));
    EXPECT_EQ(fs::status(to).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_NEAR(vips_image_get_height(test::decode(contents(to)).get()), 167, 1);
}

}  // namespace
}  // namespace zettly
