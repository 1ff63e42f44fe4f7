#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/linux/SecretStore.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;

// Sets (or, with none, removes) an environment variable for one test.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        if (value)
            ::setenv(name, value->c_str(), 1);
        else
            ::unsetenv(name);
    }
    ~ScopedEnv() {
        if (old_)
            ::setenv(name_, old_->c_str(), 1);
        else
            ::unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

unsigned modeOf(const fs::path& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

std::string contentsOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

struct FileSecretStoreTest : ::testing::Test {
    test::TempDir dir;
    fs::path path = dir / "config/Zettly/secrets.json";
    std::unique_ptr<SecretStore> store = SecretStore::file(path);
};

TEST_F(FileSecretStoreTest, KeepsSecretsByNameInAUserOnlyFileThatIsReadAfreshEachTime) {
    EXPECT_EQ(store->read("password"), std::nullopt);
    ASSERT_TRUE(store->write("password", "hunter2"));
    ASSERT_TRUE(store->write("passphrase", "a long phrase with \"quotes\" and ümlauts"));
    ASSERT_TRUE(store->write("password", "hunter3"));

    EXPECT_EQ(store->where(), path.string());
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(modeOf(path.parent_path()), 0700u);

    auto other = SecretStore::file(path);
    EXPECT_EQ(other->read("password"), "hunter3");
    EXPECT_EQ(other->read("passphrase"), "a long phrase with \"quotes\" and ümlauts");

    // Another process rewrote the file.
    writeFile(path, R"({"password": "changed elsewhere"})");
    EXPECT_EQ(store->read("password"), "changed elsewhere");
    EXPECT_EQ(store->read("passphrase"), std::nullopt);
}

TEST_F(FileSecretStoreTest, RemovingOneSecretKeepsTheOthersAndAnAbsentOneIsAlreadyRemoved) {
    ASSERT_TRUE(store->write("a", "1"));
    ASSERT_TRUE(store->write("b", "2"));
    EXPECT_TRUE(store->remove("a"));
    EXPECT_TRUE(store->remove("never stored"));
    EXPECT_EQ(store->read("a"), std::nullopt);
    EXPECT_EQ(SecretStore::file(path)->read("b"), "2");
}

TEST_F(FileSecretStoreTest, ASecretThatIsNotTextIsRefusedAndTheOthersStay) {
    ASSERT_TRUE(store->write("a", "1"));
    EXPECT_FALSE(store->write("b", "\xff\xfe"));
    EXPECT_EQ(store->read("a"), "1");
    EXPECT_EQ(store->read("b"), std::nullopt);
}

TEST_F(FileSecretStoreTest, ADamagedFileReadsAsEmptyAndIsKeptAsideNotOverwritten) {
    fs::create_directories(path.parent_path());
    writeFile(path, R"({"password": "hunter2", )");
    EXPECT_EQ(store->read("password"), std::nullopt);
    ASSERT_TRUE(store->write("password", "new"));
    EXPECT_EQ(store->read("password"), "new");

    int asideCount = 0;
    for (const auto& entry : fs::directory_iterator(path.parent_path())) {
        if (entry.path().filename().string().starts_with("secrets.json.corrupt-")) {
            ++asideCount;
            EXPECT_EQ(contentsOf(entry.path()), R"({"password": "hunter2", )");
        }
    }
    EXPECT_EQ(asideCount, 1);
}

TEST_F(FileSecretStoreTest, SomethingThatIsNotAFileIsNeitherReadNorReplaced) {
    fs::create_directories(path);
    EXPECT_EQ(store->read("password"), std::nullopt);
    EXPECT_FALSE(store->write("password", "x"));
    EXPECT_FALSE(store->remove("password"));
    EXPECT_TRUE(fs::is_directory(path));
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
    {
        ScopedEnv password("ZETTLY_SYNC_PASSWORD", "");
        ScopedEnv phrase("ZETTLY_SYNC_PASSPHRASE", "phrase from env");
        EXPECT_EQ(syncPassword(*store, "pw"), "stored password");
        EXPECT_EQ(syncPassphrase(*store, "pp"), "phrase from env");
        EXPECT_EQ(syncPassphrase(*store, "nothing stored"), "phrase from env");
    }
}

TEST_F(FileSecretStoreTest, OpenUsesTheFileWhenThereIsNoSessionBusAndSaysSoOnce) {
    ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    test::RecordingLog log;
    auto opened = SecretStore::open(path, log);
    EXPECT_EQ(opened->where(), path.string());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find(path.string()), std::string::npos) << log.lines()[0];
    ASSERT_TRUE(opened->write("password", "x"));
    EXPECT_EQ(store->read("password"), "x");
}

// A bus socket that accepts connections and never says a word: the D-Bus
// handshake would wait on it forever.
TEST_F(FileSecretStoreTest, OpenGivesUpOnASessionBusThatNeverAnswers) {
    fs::path socketPath = dir / "bus";
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.string().size(), sizeof(address.sun_path));
    socketPath.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(fd, 8), 0);

    ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + socketPath.string());
    test::RecordingLog log;
    auto opened = SecretStore::open(path, log);
    EXPECT_EQ(opened->where(), path.string());
    EXPECT_EQ(log.lines().size(), 1u);
    ::close(fd);
}

}  // namespace
}  // namespace zettly
