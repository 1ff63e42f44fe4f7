#include <fstream>

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

}  // namespace
}  // namespace zettly
