#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/Log.h"
#include "platform/linux/SecretServiceStore.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using Text = std::optional<std::string>;

// Sets (or, with none, removes) an environment variable for one scope.
struct ScopedEnv {
    ScopedEnv(const char* name, const Text& value) : name(name) {
        if (const char* was = std::getenv(name))
            old = was;
        value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    ~ScopedEnv() { old ? ::setenv(name, old->c_str(), 1) : ::unsetenv(name); }
    const char* name;
    Text old;
};

unsigned modeOf(const fs::path& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

std::string contentsOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

struct FileSecretStoreTest : ::testing::Test {
    test::TempDir dir;
    fs::path path = dir / "config/Zettly/secrets.json";
    std::unique_ptr<SecretStore> store = fileSecretStore(path, StderrLog::instance());
};

TEST_F(FileSecretStoreTest, KeepsTextSecretsByNameInAUserOnlyFileThatIsReadAfreshEachTime) {
    const std::string phrase = "a long phrase with \"quotes\" and ümlauts";
    EXPECT_EQ(store->read("password"), std::nullopt);
    ASSERT_TRUE(store->write("password", "hunter2"));
    ASSERT_TRUE(store->write("passphrase", phrase));
    ASSERT_TRUE(store->write("password", "hunter3"));
    ASSERT_TRUE(store->write("removed", "1"));
    EXPECT_FALSE(store->write("binary", "\xff\xfe"));
    EXPECT_TRUE(store->remove("removed"));
    EXPECT_TRUE(store->remove("never stored"));

    EXPECT_EQ(store->where(), path.string());
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(modeOf(path.parent_path()), 0700u);
    auto other = fileSecretStore(path, StderrLog::instance());
    EXPECT_EQ(other->read("password"), "hunter3");
    EXPECT_EQ(other->read("passphrase"), phrase);
    EXPECT_EQ(other->read("removed"), std::nullopt);
    EXPECT_EQ(other->read("binary"), std::nullopt);

    // Another process rewrote the file.
    writeFile(path, R"({"password": "changed elsewhere"})");
    EXPECT_EQ(store->read("password"), "changed elsewhere");
    EXPECT_EQ(store->read("passphrase"), std::nullopt);
}

TEST_F(FileSecretStoreTest, ADamagedFileIsKeptAsideAndSomethingThatIsNotAFileIsLeftAlone) {
    fs::create_directories(path);
    EXPECT_EQ(store->read("password"), std::nullopt);
    EXPECT_FALSE(store->write("password", "x"));
    EXPECT_FALSE(store->remove("password"));
    ASSERT_TRUE(fs::is_directory(path));
    fs::remove(path);

    const std::string damaged = R"({"password": "hunter2", )";
    writeFile(path, damaged);
    EXPECT_EQ(store->read("password"), std::nullopt);
    ASSERT_TRUE(store->write("password", "new"));
    EXPECT_EQ(store->read("password"), "new");
    std::vector<std::string> aside;
    for (const auto& entry : fs::directory_iterator(path.parent_path()))
        if (entry.path().filename().string().starts_with("secrets.json.corrupt-"))
            aside.push_back(contentsOf(entry.path()));
    EXPECT_EQ(aside, std::vector<std::string>{damaged});
}

TEST_F(FileSecretStoreTest, TheEnvironmentStandsInForTheStoredPasswordAndPassphrase) {
    ASSERT_TRUE(store->write("pw", "stored password"));
    ASSERT_TRUE(store->write("pp", "stored phrase"));
    {
        ScopedEnv password("ZETTLY_SYNC_PASSWORD", "from env");
        ScopedEnv phrase("ZETTLY_SYNC_PASSPHRASE", std::nullopt);
        EXPECT_EQ(syncPassword(*store, "pw"), "from env");
        EXPECT_EQ(syncPassphrase(*store, "pp"), "stored phrase");
    }
    ScopedEnv password("ZETTLY_SYNC_PASSWORD", "");
    ScopedEnv phrase("ZETTLY_SYNC_PASSPHRASE", "phrase from env");
    EXPECT_EQ(syncPassword(*store, "pw"), "stored password");
    EXPECT_EQ(syncPassphrase(*store, "pp"), "phrase from env");
    EXPECT_EQ(syncPassphrase(*store, "nothing stored"), "phrase from env");
}

// The second bus accepts connections and never says a word: the D-Bus
// handshake would wait on it forever.
TEST_F(FileSecretStoreTest, OpenUsesTheFileWithoutASessionBusOrWithOneThatNeverAnswers) {
    const fs::path socketPath = dir / "bus";
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.string().size(), sizeof(address.sun_path));
    socketPath.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(fd, 8), 0);

    for (Text bus : {Text(), Text("unix:path=" + socketPath.string())}) {
        ScopedEnv env("DBUS_SESSION_BUS_ADDRESS", bus);
        test::RecordingLog log;
        auto opened = openDesktopSecretStore(path, log);
        EXPECT_EQ(opened->where(), path.string());
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_NE(log.lines()[0].find(path.string()), std::string::npos) << log.lines()[0];
        ASSERT_TRUE(opened->write("password", bus ? "silent bus" : "no bus"));
        EXPECT_EQ(store->read("password"), bus ? "silent bus" : "no bus");
    }
    ::close(fd);
}

}  // namespace
}  // namespace zettly
