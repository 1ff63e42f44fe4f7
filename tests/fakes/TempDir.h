#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace zettly::test {

// A fresh folder under the system's temporary directory, removed (with
// everything in it) when the object goes away.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zettly-test-XXXXXX");
        if (::mkdtemp(pattern.data()))
            path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        // A test may have taken write permission away; give it back first.
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

}  // namespace zettly::test
