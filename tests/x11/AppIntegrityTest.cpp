// The real app under Xvfb, killed in the middle of its saves and started on a
// damaged history: what the user had is still there, and the files are sound.
#include <csignal>
#include <fstream>
#include <iostream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/support/AppTestSupport.h"

namespace zettly::test {
namespace {

const std::vector<Row> kSound{{"ok"}};

// Names of the files in `folder` (none when it does not exist).
std::set<std::string> filesIn(const fs::path& folder) {
    std::set<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error))
            names.insert(it->path().filename().string());
    return names;
}

// Files moved aside beside the histories: a rebuild, a file thought foreign.
std::vector<std::string> setAside(const fs::path& library) {
    std::vector<std::string> aside;
    for (const std::string& name : filesIn(library))
        if (name.find(".sqlite.") != std::string::npos &&
            name.find("-journal") == std::string::npos)
            aside.push_back(name);
    return aside;
}

class KilledAppTest : public AppTest {
protected:
    fs::path media() const { return library_ / "clipmedia.sqlite"; }

    // The picture files the image rows name, by file name.
    std::set<std::string> namedPictures() {
        std::set<std::string> named;
        // A picture kept as copied is named too; a row without one has NULL.
        for (const Row& row : rows(media(), "SELECT file, thumb, orig FROM media"))
            for (const std::string& path : row)
                if (!path.empty())
                    named.insert(fs::path(path).filename().string());
        return named;
    }

    // A picture the test can find again by its width, stored before going on.
    void copySavedPng(int width, std::uint32_t seed) {
        copyPng(width, 60, seed);
        std::string where = "w = " + std::to_string(width);
        ASSERT_TRUE(waitUntil([&] { return images(where) == 1; })) << width << " px wide";
    }

    // Where in the save of a large picture a kill lands: once its file, or
    // its thumbnail (written right before the row), shows in the folder, or
    // while the row's transaction has its journal open.
    enum class Moment { picture, thumbnail, commit };

    // Polls every millisecond for `moment`, or for the row, which a commit
    // quicker than the poll leaves as the only trace.
    void waitFor(Moment moment, const std::set<std::string>& known, int largeBefore) {
        const std::string suffix = moment == Moment::thumbnail ? "_t.jpg" : ".jpg";
        auto reached = [&] {
            if (moment == Moment::commit)
                return fs::exists(journal());
            for (const std::string& name : filesIn(library_ / "clipmedia"))
                if (!known.contains(name) && name.ends_with(suffix))
                    return true;
            return false;
        };
        for (auto end = SteadyClock::now() + kDeadline; SteadyClock::now() < end;
             std::this_thread::sleep_for(1ms)) {
            if (reached() || images("w = 1280") > largeBefore)
                return;
        }
        ADD_FAILURE() << "the large picture was never saved";
    }
    fs::path journal() const { return library_ / "clipmedia.sqlite-journal"; }

    // Picture files reclaimed by the image store over all runs, as logged.
    int reclaimed() {
        static const std::regex line(R"(\[Zettly\] reclaimed (\d+) picture files)");
        std::string log = appLog();
        int files = 0;
        for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it)
            files += std::stoi((*it)[1]);
        return files;
    }
};

TEST_F(KilledAppTest, KillsDuringImageSavesLoseNoAcknowledgedCopyAndLeaveNoStrayPictures) {
    constexpr int kKills = 5;
    using enum Moment;
    constexpr Moment kKillAt[kKills] = {picture, thumbnail, commit, thumbnail, commit};
    int hotJournals = 0;  // kills in the middle of a commit
    std::vector<std::string> acknowledged;
    std::set<std::string> savedImages;  // ids seen in the database before a kill
    for (int run = 0; run <= kKills; ++run) {
        // The first copy of a run opens the text history, which rolls back
        // what the last kill left half-committed.
        const std::string text = "acknowledged in run " + std::to_string(run);
        copyText(text);
        ASSERT_TRUE(waitUntil([&] { return texts(text) == 1; })) << text;
        acknowledged.push_back(text);
        // A small picture opens the image store (which sweeps at its first
        // open) and is acknowledged like the text.
        ASSERT_NO_FATAL_FAILURE(copySavedPng(80 + run, 100 + run));
        for (const Row& row : rows(media(), "SELECT id FROM media"))
            savedImages.insert(row[0]);
        if (run == kKills)
            break;
        if (run == kKills - 1) {
            // What a kill between a picture's file and its row leaves, in
            // case none of the kills below happens to land there.
            std::ofstream(library_ / "clipmedia" / "left-by-a-crash.jpg") << "half a picture";
        }

        // A large picture takes a while to read and decode, which gives the
        // poll time to see its save begin.
        const std::set<std::string> known = filesIn(library_ / "clipmedia");
        const int largeBefore = images("w = 1280");
        copyPng(1600, 1200 - 8 * run, 200 + run);
        waitFor(kKillAt[run], known, largeBefore);
        ASSERT_FALSE(HasFailure()) << "run " << run;
        ASSERT_NO_FATAL_FAILURE(restartApp(SIGKILL));
        hotJournals += fs::exists(journal());
    }
    // The final run's small picture swept what the last kill left.
    std::cout << "kills that left a hot journal: " << hotJournals << " of " << kKills
              << "; picture files reclaimed: " << reclaimed() << "\n";

    for (const std::string& text : acknowledged)
        EXPECT_EQ(texts(text), 1) << text;
    for (const std::string& id : savedImages)
        EXPECT_EQ(countRows(media(), "media", "id = ?", id), 1) << "image " << id;
    const std::set<std::string> named = namedPictures();
    for (const std::string& name : named)
        EXPECT_TRUE(fs::exists(library_ / "clipmedia" / name)) << name << " is named but gone";
    for (const std::string& name : filesIn(library_ / "clipmedia"))
        EXPECT_TRUE(named.contains(name)) << name << " is named by no image row";

    stop(app_);
    app_ = -1;
    EXPECT_EQ(rows(library_ / "clipboard.sqlite", "PRAGMA integrity_check"), kSound);
    EXPECT_EQ(rows(media(), "PRAGMA integrity_check"), kSound);
    EXPECT_EQ(setAside(library_), std::vector<std::string>{})
        << "a kill made a history look damaged or foreign";
}

// A text history whose middle pages were overwritten with zeros, as a disk
// that lost writes leaves one, waiting for the app at its start.
class DamagedHistoryTest : public AppTest {
protected:
    static constexpr int kRows = 500;
    static constexpr int kZeroedPages = 8;
    // A note is over 1200 bytes, so a page of 4096 holds at most three.
    static constexpr int kRowsPerPage = 3;
    static constexpr int kPinned = 20;

    // The text of note `n` (an SQL expression), so that what the rebuilt
    // file holds can be compared to what was written.
    static std::string note(const std::string& n) {
        return "printf('note %d ', " + n + ") || replace(hex(zeroblob(600)), '0', char(97 + " + n +
               " % 26))";
    }

    std::string defaults() const override { return R"({"clipboardLimit": 1000})"; }

    void beforeStart() override {
        fs::create_directories(library_);
        // The tables as the app writes them.
        rows(file(),
             "CREATE TABLE items(id TEXT PRIMARY KEY, text TEXT NOT NULL, hash TEXT NOT NULL "
             "UNIQUE, type TEXT NOT NULL, created REAL NOT NULL, pinned INTEGER NOT NULL DEFAULT "
             "0, category TEXT, label TEXT, modified REAL, dirty INTEGER NOT NULL DEFAULT 0, ck "
             "BLOB, rid TEXT, mm REAL);"
             "CREATE INDEX idx_created ON items(created DESC);"
             "CREATE TABLE categories(id TEXT PRIMARY KEY, name TEXT NOT NULL, sort REAL NOT "
             "NULL, created REAL NOT NULL, modified REAL, dirty INTEGER NOT NULL DEFAULT 0, ck "
             "BLOB);"
             "CREATE TABLE sync_tombstones(key TEXT PRIMARY KEY, kind TEXT NOT NULL, at REAL NOT "
             "NULL);");
        // Notes copied in the last minutes, the newest first; those from 10
        // to 100 and from 410 to 500 in steps of 10 are pinned, one of them
        // filed and one named.
        const std::string now = "((julianday('now') - 2440587.5) * 86400.0)";
        const std::string columns = "rowid, id, text, hash, type, created, pinned, category, label";
        const std::string values =
            "i, 'row-' || i, " + note("i") + ", printf('%064x', i), 'text', " + now +
            " - i, (i <= 100 OR i > 400) AND i % 10 = 0, CASE i WHEN 10 THEN 'work' END, CASE i "
            "WHEN 490 THEN 'kept by name' END";
        const std::string count =
            "SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(kRows);
        rows(file(), "INSERT INTO categories(id, name, sort, created) VALUES('work', 'Work', 1, " +
                         now + ")");
        rows(file(), "WITH RECURSIVE n(i) AS (" + count + ") INSERT INTO items(" + columns +
                         ") SELECT " + values + " FROM n");
        ASSERT_EQ(rows(file(), "PRAGMA page_size"), std::vector<Row>{{"4096"}});

        std::fstream out(file(), std::ios::in | std::ios::out | std::ios::binary);
        out.seekg(0, std::ios::end);
        const std::streamoff pages = out.tellg() / 4096;
        ASSERT_GT(pages, 4 * kZeroedPages);
        const std::string zeros(kZeroedPages * 4096, '\0');
        out.seekp((pages / 2 - kZeroedPages / 2) * 4096);
        out.write(zeros.data(), std::streamsize(zeros.size()));
        // The header's change counter, as a writer that got this far would
        // have left it.
        unsigned char counter[4];
        out.seekg(24);
        out.read(reinterpret_cast<char*>(counter), 4);
        counter[3] = static_cast<unsigned char>(counter[3] + 1);
        out.seekp(24);
        out.write(reinterpret_cast<const char*>(counter), 4);
        out.close();
        ASSERT_TRUE(out) << "cannot damage " << file();
        damaged_ = readFile(file());
    }

    fs::path file() const { return library_ / "clipboard.sqlite"; }

    std::string damaged_;  // the file as the app finds it
};

TEST_F(DamagedHistoryTest, IsRebuiltFromEveryReadableRowWithTheDamagedFileKeptBeside) {
    // The app may open the history at start or at this copy; either way the
    // copy goes into the rebuilt file.
    copyText("copied after the damage");
    ASSERT_TRUE(waitUntil([&] { return texts("copied after the damage") == 1; }));

    const std::vector<std::string> aside = setAside(library_);
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_TRUE(aside[0].starts_with("clipboard.sqlite.damaged-")) << aside[0];
    EXPECT_TRUE(readFile(library_ / aside[0]) == damaged_) << "the damaged file was changed";

    const int kept = countRows(file(), "items", "id LIKE 'row-%'");
    std::cout << "notes kept: " << kept << " of " << kRows << "\n";
    EXPECT_GE(kept, kRows - kZeroedPages * kRowsPerPage);
    EXPECT_LT(kept, kRows) << "the zeroed pages held no row";
    EXPECT_EQ(countRows(file(), "items",
                        "id LIKE 'row-%' AND text = " + note("CAST(substr(id, 5) AS INTEGER)")),
              kept)
        << "a rebuilt row differs from the one written";
    EXPECT_EQ(countRows(file(), "items", "pinned = 1"), kPinned);
    EXPECT_EQ(countRows(file(), "items", "id = 'row-10' AND category = 'work'"), 1);
    EXPECT_EQ(countRows(file(), "items", "id = 'row-490' AND label = 'kept by name'"), 1);
    EXPECT_EQ(countRows(file(), "categories", "name = 'Work'"), 1);
    EXPECT_EQ(rows(file(), "PRAGMA integrity_check"), kSound);

    // The notes and the category.
    const std::string logged = "[Zettly] clipboard.sqlite was damaged; " +
                               std::to_string(kept + 1) + " rows were saved into a new file, " +
                               std::to_string(kRows - kept) + " could not be read";
    EXPECT_NE(appLog().find(logged), std::string::npos) << "expected: " << logged;
}

}  // namespace
}  // namespace zettly::test
