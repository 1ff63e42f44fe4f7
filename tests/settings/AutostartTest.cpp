#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "settings/Autostart.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(Autostart, EnableCreatesTheFolderAndAnEntryThatDisableRemovesAgain) {
    test::TempDir dir;
    const fs::path autostartDir = dir / "config/autostart";
    ASSERT_FALSE(autostart::isEnabled(autostartDir));

    const autostart::Result written = autostart::enable(autostartDir, "/usr/bin/zettly");
    ASSERT_TRUE(written.ok) << written.error;
    EXPECT_TRUE(autostart::isEnabled(autostartDir));
    const std::string entry = contents(autostartDir / "org.zettly.Zettly.desktop");
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    for (const char* line : {"\nType=Application\n", "\nName=Zettly\n", "\nExec=/usr/bin/zettly\n",
                             "\nIcon=org.zettly.Zettly\n", "\nX-GNOME-Autostart-enabled=true\n",
                             "\nNoDisplay=false\n"})
        EXPECT_NE(entry.find(line), std::string::npos) << line;

    EXPECT_TRUE(autostart::disable(autostartDir).ok);
    EXPECT_FALSE(fs::exists(autostartDir / "org.zettly.Zettly.desktop"));
    EXPECT_FALSE(autostart::isEnabled(autostartDir));
    EXPECT_TRUE(autostart::disable(autostartDir).ok);  // already gone
}

TEST(Autostart, AnEntrySwitchedOffInPlaceDoesNotCount) {
    test::TempDir dir;
    ASSERT_TRUE(autostart::enable(dir.path(), "/usr/bin/zettly").ok);
    const fs::path file = autostart::entryPath(dir.path());
    std::ofstream(file, std::ios::app) << "Hidden = true\n";
    EXPECT_FALSE(autostart::isEnabled(dir.path()));

    std::ofstream(file) << "[Desktop Entry]\nExec=zettly\nX-GNOME-Autostart-enabled=false\n";
    EXPECT_FALSE(autostart::isEnabled(dir.path()));

    // Keys of an action group say nothing about the entry itself.
    std::ofstream(file) << "[Desktop Entry]\nExec=zettly\n[Desktop Action quit]\nHidden=true\n";
    EXPECT_TRUE(autostart::isEnabled(dir.path()));
}

TEST(Autostart, ExecQuotesPathsTheLauncherWouldOtherwiseSplitOrExpand) {
    EXPECT_EQ(autostart::execArgument("/usr/bin/zettly"), "/usr/bin/zettly");
    EXPECT_EQ(autostart::execArgument("/opt/My Apps/zettly"), "\"/opt/My Apps/zettly\"");
    // Inside quotes $ and \ are escaped; then every \ is doubled for the
    // string itself, and % is doubled so it is no field code.
    EXPECT_EQ(autostart::execArgument("/a$b\\c%d"), "\"/a\\\\$b\\\\\\\\c%%d\"");
    EXPECT_EQ(autostart::execArgument("/home/u/50%/zettly"), "/home/u/50%%/zettly");
}

TEST(Autostart, AFolderThatCannotBeCreatedIsReportedAndNothingIsWritten) {
    test::TempDir dir;
    std::ofstream(dir / "config") << "a file, not a folder";
    const fs::path autostartDir = dir / "config/autostart";
    const autostart::Result result = autostart::enable(autostartDir, "/usr/bin/zettly");
    EXPECT_FALSE(result.ok);
    EXPECT_NE(result.error.find(autostartDir.string()), std::string::npos) << result.error;
    EXPECT_FALSE(autostart::isEnabled(autostartDir));

    EXPECT_FALSE(autostart::enable(dir / "empty-path", "").ok);
    EXPECT_FALSE(fs::exists(dir / "empty-path"));
}

}  // namespace
}  // namespace zettly
