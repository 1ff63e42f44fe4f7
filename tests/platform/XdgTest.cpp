#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;

// Sets an environment variable for one scope and puts the old value back.
struct ScopedEnv {
    const char* name;
    std::optional<std::string> old;
    ScopedEnv(const char* n, const char* value) : name(n) {
        if (const char* was = std::getenv(n))
            old = was;
        value ? ::setenv(n, value, 1) : ::unsetenv(n);
    }
    ~ScopedEnv() { old ? ::setenv(name, old->c_str(), 1) : ::unsetenv(name); }
};

TEST(XdgAppFolders, TakeOnlyAnAbsoluteVariableAndTheContainerIsPrivate) {
    ScopedEnv home("HOME", "/home/someone");
    for (const char* ignored : {"relative/config", "", static_cast<const char*>(nullptr)}) {
        ScopedEnv xdg("XDG_CONFIG_HOME", ignored);
        EXPECT_EQ(XdgAppFolders::xdgDirectory("XDG_CONFIG_HOME", ".config"),
                  "/home/someone/.config");
        EXPECT_EQ(XdgAppFolders().configDirectory(), "/home/someone/.config/Zettly");
    }
    test::TempDir dir;
    ScopedEnv data("XDG_DATA_HOME", (dir / "data").c_str());
    ASSERT_EQ(XdgAppFolders().containerURL(), dir / "data/Zettly");
    EXPECT_EQ(fs::status(dir / "data/Zettly").permissions(), fs::perms::owner_all);
}

TEST(Autostart, EnableWritesAnEntryThatDisableRemovesAndAFolderThatCannotBeMadeIsReported) {
    test::TempDir dir;
    const fs::path autostartDir = dir / "config/autostart";
    XdgAutostart autostart(autostartDir, "/usr/bin/zettly");
    const Autostart::Result written = autostart.enable();
    ASSERT_TRUE(written.ok) << written.error;
    EXPECT_TRUE(autostart.isEnabled());
    std::ifstream in(autostartDir / "org.zettly.Zettly.desktop");
    const std::string entry{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    for (const char* line : {"\nType=Application\n", "\nName=Zettly\n", "\nExec=/usr/bin/zettly\n",
                             "\nIcon=org.zettly.Zettly\n", "\nX-GNOME-Autostart-enabled=true\n",
                             "\nNoDisplay=false\n"})
        EXPECT_NE(entry.find(line), std::string::npos) << line;
    EXPECT_TRUE(autostart.disable().ok);
    EXPECT_FALSE(autostart.isEnabled());
    EXPECT_TRUE(autostart.disable().ok);  // already gone

    std::ofstream(dir / "file") << "a file, not a folder";
    const Autostart::Result refused =
        XdgAutostart(dir / "file/autostart", "/usr/bin/zettly").enable();
    EXPECT_FALSE(refused.ok);
    EXPECT_NE(refused.error.find((dir / "file/autostart").string()), std::string::npos)
        << refused.error;
    EXPECT_FALSE(XdgAutostart(dir / "empty-path", "").enable().ok);
    EXPECT_FALSE(fs::exists(dir / "empty-path"));
}

TEST(Autostart, AnEntrySwitchedOffInPlaceDoesNotCount) {
    test::TempDir dir;
    const std::vector<std::pair<std::string, bool>> entries = {
        {XdgAutostart::desktopEntry("zettly") + "Hidden = true\n", false},
        {"[Desktop Entry]\nExec=zettly\nX-GNOME-Autostart-enabled=false\n", false},
        // Keys of an action group say nothing about the entry itself.
        {"[Desktop Entry]\nExec=zettly\n[Desktop Action quit]\nHidden=true\n", true},
    };
    XdgAutostart autostart(dir.path(), "zettly");
    for (const auto& [text, enabled] : entries) {
        std::ofstream(autostart.entryPath()) << text;
        EXPECT_EQ(autostart.isEnabled(), enabled) << text;
    }
}

TEST(Autostart, ExecQuotesPathsTheLauncherWouldOtherwiseSplitOrExpand) {
    EXPECT_EQ(XdgAutostart::execArgument("/usr/bin/zettly"), "/usr/bin/zettly");
    EXPECT_EQ(XdgAutostart::execArgument("/opt/My Apps/zettly"), "\"/opt/My Apps/zettly\"");
    // Inside quotes $ and \ are escaped, then every \ is doubled for the
    // string itself; % is doubled so it is no field code.
    EXPECT_EQ(XdgAutostart::execArgument("/a$b\\c%d"), "\"/a\\\\$b\\\\\\\\c%%d\"");
    EXPECT_EQ(XdgAutostart::execArgument("/home/u/50%/zettly"), "/home/u/50%%/zettly");
}

}  // namespace
}  // namespace zettly
