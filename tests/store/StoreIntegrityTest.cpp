// History files that cannot be used as they are: damaged pages, tables made
// by another program, text that is not UTF-8.
#include <algorithm>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/TextSearch.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/StoreHealth.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using Item = ClipboardStore::Item;
using Result = ClipboardStore::InsertResult;
using Rescue = StoreHealth::Rescue;

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Overwrites whole pages with zeros, as a failing disk or a crash of the file
// system leaves them, and bumps the header's change counter so that an open
// connection reads the file again instead of trusting its cache.
void zeroPages(const fs::path& file, int first, int count) {
    const int pageSize = std::stoi(test::rows(file, "PRAGMA page_size").at(0).at(0));
    std::fstream out(file, std::ios::in | std::ios::out | std::ios::binary);
    const std::string zeros(static_cast<std::size_t>(pageSize), '\0');
    for (int page = first; page < first + count; ++page) {
        out.seekp(std::streamoff(page - 1) * pageSize);
        out.write(zeros.data(), pageSize);
    }
    char counter[4];
    out.seekg(24);
    out.read(counter, 4);
    counter[3] = static_cast<char>(counter[3] + 1);
    out.seekp(24);
    out.write(counter, 4);
}

std::vector<fs::path> filesNamed(const fs::path& dir, const std::string& prefix) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(dir))
        if (entry.path().filename().string().starts_with(prefix))
            found.push_back(entry.path());
    return found;
}

struct DamagedHistory : ::testing::Test {
    test::StoreEnvironment env;
    fs::path file = env.library() / "clipboard.sqlite";
    static constexpr int kept = 20;  // pinned, named or filed
    static constexpr int plain = 481;

    // About 540 pages, written in one go: the user's own rows come first,
    // so the damage in the middle of the file falls on plain ones.
    void fill() {
        env.defaults.setInteger("clipboardLimit", 1000);
        ASSERT_TRUE(ClipboardStore(env.context()).open());
        const std::string now = std::to_string(env.clock.now() - 1000);
        test::rows(file,
                   "INSERT INTO categories(id, name, sort, created) VALUES('C', 'Work', 1, 1);"
                   "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                       std::to_string(kept + plain - 1) +
                       ") INSERT INTO items(id, text, hash, type, created, pinned, category, "
                       "label, modified) SELECT 'ID' || i, 'entry ' || i || ' ' || "
                       "hex(zeroblob(1500)), 'h' || i, 'text', " +
                       now + " + i, i < " + std::to_string(kept) +
                       " AND i % 3 != 1, CASE WHEN i < " + std::to_string(kept) +
                       " AND i % 3 = 2 THEN 'C' END, CASE WHEN i < " + std::to_string(kept) +
                       " AND i % 3 = 1 THEN 'name ' || i END, " + now + " + i FROM n");
    }
    int pages() { return std::stoi(test::rows(file, "PRAGMA page_count").at(0).at(0)); }
};

TEST_F(DamagedHistory, ZeroedPagesFoundAtOpenLeaveEveryReadableRowInANewFileAndTheOldOneBeside) {
    fill();
    ASSERT_GT(pages(), 400);
    zeroPages(file, pages() / 2, 8);
    const auto damagedSize = fs::file_size(file);
    env.clock.advance(60);

    ClipboardStore store(env.context());
    auto items = store.fetch(1000, 0);
    // Eight pages hold a few dozen rows at most; before, the list stopped at
    // the first bad page and showed nothing.
    EXPECT_GT(items.size(), std::size_t(kept + plain - 40));
    EXPECT_LT(items.size(), std::size_t(kept + plain));
    for (int n = 0; n < kept; ++n)
        EXPECT_THAT(items,
                    Contains(Field(&Item::text, HasSubstr("entry " + std::to_string(n) + " "))))
            << "the user's own row " << n << " was lost";
    int pinned = 0;  // those pinned or filed
    for (int n = 0; n < kept; ++n)
        pinned += n % 3 != 1;
    EXPECT_EQ(std::count_if(items.begin(), items.end(), [](const Item& i) { return i.pinned; }),
              pinned);
    EXPECT_THAT(store.categories(), ElementsAre(Field(&ClipboardStore::Category::name, "Work")));

    // The damaged file is kept as it was; the user is told once.
    const auto damaged = filesNamed(env.library(), "clipboard.sqlite.damaged-");
    ASSERT_THAT(damaged, SizeIs(1));
    const fs::path aside = damaged[0];
    EXPECT_EQ(fs::file_size(aside), damagedSize);
    auto rescues = env.health.takeRescues();
    ASSERT_THAT(rescues, SizeIs(1));
    EXPECT_EQ(rescues[0].kind, Rescue::Kind::damaged);
    EXPECT_EQ(rescues[0].aside, aside);
    EXPECT_EQ(rescues[0].kept, std::int64_t(items.size()) + 1);  // and the category
    EXPECT_GT(rescues[0].unreadable, 0);
    EXPECT_THAT(env.health.takeRescues(), SizeIs(0));
    EXPECT_THAT(env.log.lines(), Contains(HasSubstr(aside.string())));

    // New copies show at the top again, and the new file is sound.
    env.clock.advance(10);
    EXPECT_EQ(store.insert("after the repair"), Result::inserted);
    EXPECT_EQ(store.fetch(1, 0, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true)
                  .at(0)
                  .text,
              "after the repair");
    EXPECT_THAT(test::rows(file, "PRAGMA integrity_check"), ElementsAre(test::Row{"ok"}));
}

TEST_F(DamagedHistory, ARebuiltFileIsSearchedThroughANewIndex) {
    fill();
    zeroPages(file, pages() / 2, 8);
    ClipboardStore store(env.context());
    ASSERT_TRUE(store.open());
    ASSERT_THAT(env.health.takeRescues(), SizeIs(1));

    // Besides the row itself, only the named rows (never indexed) are left.
    const std::string folded = search::foldQuery("ENTRY 7 0");
    auto rows = store.searchCandidates(folded, {});
    EXPECT_LE(rows.size(), 1u + kept / 3 + 1);
    auto items = store.searchMatches(folded, rows);
    ASSERT_THAT(items, SizeIs(1));
    EXPECT_THAT(items[0].text, HasSubstr("entry 7 0"));
    EXPECT_THAT(test::rows(file, "SELECT count(*) FROM search_pending"),
                ElementsAre(test::Row{"0"}));
}

TEST_F(DamagedHistory, DamageMetWhileOpenIsRepairedAndTheListReadAgain) {
    fill();
    ClipboardStore store(env.context());
    ASSERT_EQ(store.fetch(1000, 0).size(), std::size_t(kept + plain));
    zeroPages(file, pages() / 2, 8);

    auto items = store.fetch(1000, 0);
    EXPECT_GT(items.size(), std::size_t(kept + plain - 40));
    EXPECT_THAT(env.health.takeRescues(), SizeIs(1));
    EXPECT_THAT(filesNamed(env.library(), "clipboard.sqlite.damaged-"), SizeIs(1));
    EXPECT_EQ(store.insert("still saving"), Result::inserted);
    EXPECT_THAT(test::rows(file, "SELECT count(*) FROM items WHERE text = 'still saving'"),
                ElementsAre(test::Row{"1"}));
}

struct ForeignFiles : ::testing::Test {
    test::StoreEnvironment env;

    fs::path writeForeign(const std::string& name, const std::string& schema) {
        fs::path file = env.library() / name;
        fs::create_directories(env.library());
        test::rows(file, schema);
        return file;
    }
};

TEST_F(ForeignFiles, TablesOfAnotherShapeAreMovedAsideUntouchedAndANewHistoryStarts) {
    env.clock.set(1'800'000'000);
    const fs::path texts = writeForeign(
        "clipboard.sqlite",
        "CREATE TABLE items(id INTEGER PRIMARY KEY, name TEXT); INSERT INTO items VALUES(1, 'x');");
    const fs::path images =
        writeForeign("clipmedia.sqlite", "CREATE TABLE recipes(title TEXT, steps TEXT);");
    const std::string textBytes = contents(texts), imageBytes = contents(images);

    ClipboardStore store(env.context());
    EXPECT_EQ(store.insert("mine"), Result::inserted);
    EXPECT_THAT(store.fetch(10, 0), ElementsAre(Field(&Item::text, "mine")));
    ImageClipStore imageStore(env.context());
    EXPECT_TRUE(imageStore.fetchAll().empty());

    // Never altered: no ALTER TABLE on the other program's table.
    EXPECT_EQ(contents(env.library() / "clipboard.sqlite.foreign-1800000000"), textBytes);
    EXPECT_EQ(contents(env.library() / "clipmedia.sqlite.foreign-1800000000"), imageBytes);
    auto rescues = env.health.takeRescues();
    ASSERT_THAT(rescues, SizeIs(2));
    EXPECT_EQ(rescues[0].kind, Rescue::Kind::foreign);
    EXPECT_THAT(env.log.lines(), Contains(HasSubstr("column items.id is INTEGER")));
    EXPECT_THAT(env.log.lines(), Contains(HasSubstr("only tables Zettly does not know: recipes")));

    // An older layout of our own, and one with a column a newer version
    // added, are ours: migrated in place, not moved.
    fs::remove(env.library() / "clipboard.sqlite");
    writeForeign("clipboard.sqlite",
                 "CREATE TABLE items(id TEXT PRIMARY KEY, text TEXT NOT NULL, hash TEXT NOT NULL "
                 "UNIQUE, type TEXT NOT NULL, created REAL NOT NULL, pinned INTEGER NOT NULL "
                 "DEFAULT 0, colour TEXT); INSERT INTO items VALUES('A', 'old', 'h', 'text', "
                 "1799999999.0, 0, 'red');");
    ClipboardStore again(env.context());
    EXPECT_THAT(again.fetch(10, 0), ElementsAre(Field(&Item::text, "old")));
    EXPECT_THAT(env.health.takeRescues(), SizeIs(0));
}

TEST(TextEncoding, BrokenUtf8IsStoredAsTheWindowShowsItAndHashedAsStored) {
    test::StoreEnvironment env;
    ClipboardStore store(env.context());
    // A stray Latin-1 byte, an overlong slash, a lone surrogate, and a
    // sequence cut short at the end.
    const std::string broken = "caf\xE9 \xC0\xAF \xED\xA0\x80 ok \xE2\x82";
    const std::string shown = "caf\uFFFD \uFFFD\uFFFD \uFFFD\uFFFD\uFFFD ok \uFFFD";
    ASSERT_EQ(store.insert(broken), Result::inserted);
    EXPECT_THAT(store.fetch(10, 0), ElementsAre(Field(&Item::text, shown)));
    EXPECT_THAT(test::rows(*store.databasePath(), "SELECT hash FROM items"),
                ElementsAre(test::Row{ClipboardStore::hash(shown)}));
    // The same bytes again are the same entry.
    EXPECT_EQ(store.insert(broken), Result::movedToTop);
    EXPECT_EQ(store.insert(shown), Result::movedToTop);
    // Valid text, four-byte characters included, is kept byte for byte.
    env.clock.advance(1);
    ASSERT_EQ(store.insert("Grüße 🎉 \xF4\x8F\xBF\xBF"), Result::inserted);
    EXPECT_EQ(store.fetch(1, 0).at(0).text, "Grüße 🎉 \xF4\x8F\xBF\xBF");
}

}  // namespace
}  // namespace zettly
