#include <fstream>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Defaults.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct DefaultsFile {
    test::TempDir dir;
    test::FakeClock clock{1731670123.75};
    test::RecordingLog log;
    fs::path file = dir / "config/defaults.json";
    Defaults defaults{file, clock, log};

    static std::string raw(const fs::path& path) {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void writeRaw(const std::string& text) const {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
};

TEST(Defaults, TypedValuesReachAPrivateFileWrittenAtomicallyInTheirJsonForm) {
    DefaultsFile f;
    f.defaults.setBool("b", true);
    f.defaults.setInteger("i", -7);
    f.defaults.setDouble("whole", 2.0);
    f.defaults.setStringArray("a", {"x", "y"});
    f.defaults.setData("d", {0, 1, 2, 255});

    Defaults fresh(f.file, f.clock, f.log);  // reads only what reached the file
    EXPECT_EQ(fresh.integer("i"), -7);
    EXPECT_EQ(fresh.stringArray("a"), (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(fresh.data("d"), (Defaults::Bytes{0, 1, 2, 255}));
    json j = json::parse(f.raw(f.file));
    EXPECT_EQ(j["d"], (json{{"$data", "AAEC/w=="}}));
    EXPECT_EQ(j["b"], true);
    // A double read back from the file must stay a double, never become an integer.
    EXPECT_TRUE(j["whole"].is_number_float()) << j;

    EXPECT_EQ(fs::status(f.file).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(f.file.parent_path()).permissions(), fs::perms(0700));
    // Each write went to a temporary file renamed into place; none is left behind.
    std::vector<fs::path> entries(fs::directory_iterator(f.file.parent_path()), {});
    EXPECT_EQ(entries, std::vector<fs::path>{f.file});
}

TEST(Defaults, PlainGettersConvertAndObjectGettersAnswerOnlyForTheirKind) {
    DefaultsFile f;
    f.writeRaw(R"({"yes": "YES", "num": "42", "frac": 2.7, "mixed": ["a", 1],
                   "dstr": "1.5", "notdata": "AAEC", "null": null})");
    EXPECT_TRUE(f.defaults.boolValue("yes"));
    EXPECT_EQ(f.defaults.integer("num"), 42);
    EXPECT_EQ(f.defaults.integer("frac"), 2);
    EXPECT_EQ(f.defaults.doubleValue("dstr"), 1.5);
    EXPECT_EQ(f.defaults.boolObject("yes"), std::nullopt);
    EXPECT_EQ(f.defaults.doubleObject("dstr"), std::nullopt);
    EXPECT_EQ(f.defaults.stringArray("mixed"), std::nullopt);
    EXPECT_EQ(f.defaults.data("notdata"), std::nullopt);
    EXPECT_FALSE(f.defaults.contains("null"));
}

TEST(Defaults, AnotherProcessesWriteIsSeenAtTheNextReadAndNotOverwritten) {
    DefaultsFile f;
    Defaults other(f.file, f.clock, f.log);
    other.setString("k", "other");
    f.defaults.setInteger("m", 2);  // must start from the other side's file
    EXPECT_EQ(f.defaults.string("k"), "other");
    EXPECT_EQ(other.integer("m"), 2);
}

TEST(Defaults, ACorruptFileIsMovedAsideOnceAndTheDefaultsApply) {
    for (const std::string damaged : {"{\"k\": tru", "[1, 2, 3]"}) {
        SCOPED_TRACE(damaged);
        DefaultsFile f;
        f.writeRaw(damaged);
        EXPECT_FALSE(f.defaults.contains("k"));
        EXPECT_EQ(f.raw(f.dir / "config/defaults.json.corrupt-1731670123"), damaged);
        f.defaults.setBool("k", true);
        EXPECT_EQ(json::parse(f.raw(f.file)), (json{{"k", true}}));
        EXPECT_EQ(f.log.lines().size(), 1u);
    }
}

TEST(Defaults, AFileFarLargerThanPreferencesIsMovedAsideUnreadAndTheNextWriteStartsAfresh) {
    DefaultsFile f;
    // Up to the limit a file is read: valid JSON padded with blanks.
    const std::string start = R"({"k": "kept"})";
    std::string padded = start;
    padded.resize(Defaults::maxFileBytes, ' ');
    f.writeRaw(padded);
    EXPECT_EQ(f.defaults.string("k"), "kept");

    // 200 MB of holes, which take no room on disk, after the same start.
    const off_t huge = 200 * 1000 * 1000;
    fs::path next = f.dir / "defaults.json.new";
    int fd = ::open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, start.data(), start.size()), ssize_t(start.size()));
    ASSERT_EQ(::ftruncate(fd, huge), 0);
    ::close(fd);
    fs::rename(next, f.file);

    EXPECT_FALSE(f.defaults.contains("k"));
    fs::path aside = f.dir / "config/defaults.json.corrupt-1731670123";
    EXPECT_EQ(fs::file_size(aside), std::uintmax_t(huge));
    ASSERT_EQ(f.log.lines().size(), 1u);
    // Read, the holes would have made it unparseable instead.
    EXPECT_THAT(f.log.lines()[0], ::testing::HasSubstr("too large"));
    EXPECT_THAT(f.log.lines()[0], ::testing::HasSubstr(aside.string()));

    f.defaults.setBool("b", true);
    EXPECT_EQ(json::parse(f.raw(f.file)), (json{{"b", true}}));
    EXPECT_EQ(f.log.lines().size(), 1u);
}

}  // namespace
}  // namespace zettly
