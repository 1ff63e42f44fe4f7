#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "settings/Autostart.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;

TEST(Autostart, EnableWritesAnEntryThatDisableRemovesAndAFolderThatCannotBeMadeIsReported) {
    test::TempDir dir;
    const fs::path autostartDir = dir / "config/autostart";
    const autostart::Result written = autostart::enable(autostartDir, "/usr/bin/zettly");
    ASSERT_TRUE(written.ok) << written.error;
    EXPECT_TRUE(autostart::isEnabled(autostartDir));
    std::ifstream in(autostartDir / "org.zettly.Zettly.desktop");
    const std::string entry{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    for (const char* line : {"\nType=Application\n", "\nName=Zettly\n", "\nExec=/usr/bin/zettly\n",
                             "\nIcon=org.zettly.Zettly\n", "\nX-GNOME-Autostart-enabled=true\n",
                             "\nNoDisplay=false\n"})
        EXPECT_NE(entry.find(line), std::string::npos) << line;
    EXPECT_TRUE(autostart::disable(autostartDir).ok);
    EXPECT_FALSE(autostart::isEnabled(autostartDir));
    EXPECT_TRUE(autostart::disable(autostartDir).ok);  // already gone

    std::ofstream(dir / "file") << "a file, not a folder";
    const autostart::Result refused = autostart::enable(dir / "file/autostart", "/usr/bin/zettly");
    EXPECT_FALSE(refused.ok);
    EXPECT_NE(refused.error.find((dir / "file/autostart").string()), std::string::npos)
        << refused.error;
    EXPECT_FALSE(autostart::enable(dir / "empty-path", "").ok);
    EXPECT_FALSE(fs::exists(dir / "empty-path"));
}

TEST(Autostart, AnEntrySwitchedOffInPlaceDoesNotCount) {
    test::TempDir dir;
    const std::vector<std::pair<std::string, bool>> entries = {
        {autostart::desktopEntry("zettly") + "Hidden = true\n", false},
        {"[Desktop Entry]\nExec=zettly\nX-GNOME-Autostart-enabled=false\n", false},
        // Keys of an action group say nothing about the entry itself.
        {"[Desktop Entry]\nExec=zettly\n[Desktop Action quit]\nHidden=true\n", true},
    };
    for (const auto& [text, enabled] : entries) {
        std::ofstream(autostart::entryPath(dir.path())) << text;
        EXPECT_EQ(autostart::isEnabled(dir.path()), enabled) << text;
    }
}

TEST(Autostart, ExecQuotesPathsTheLauncherWouldOtherwiseSplitOrExpand) {
    EXPECT_EQ(autostart::execArgument("/usr/bin/zettly"), "/usr/bin/zettly");
    EXPECT_EQ(autostart::execArgument("/opt/My Apps/zettly"), "\"/opt/My Apps/zettly\"");
    // Inside quotes $ and \ are escaped, then every \ is doubled for the
    // string itself; % is doubled so it is no field code.
    EXPECT_EQ(autostart::execArgument("/a$b\\c%d"), "\"/a\\\\$b\\\\\\\\c%%d\"");
    EXPECT_EQ(autostart::execArgument("/home/u/50%/zettly"), "/home/u/50%%/zettly");
}

}  // namespace
}  // namespace zettly
