#pragma once

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zettly::test {

// A small tmpfs mounted over a folder, to run out of space or lose write
// permission for real rather than through a fake: what SQLite and the image
// files see is the kernel's ENOSPC and EACCES.
//
// The mount lives in a mount namespace of this process's own (its children
// inherit it), so nothing outside the test sees it; as an ordinary user a
// user namespace comes with it. Enter it before the test starts threads.
class SmallDisk {
public:
    // Empty when the process now has mounts of its own, else why not.
    static std::string enterPrivateMounts() {
        static std::string why = [] {
            const uid_t uid = ::geteuid();
            const gid_t gid = ::getegid();
            if (::unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0)
                return std::string("unshare: ") + std::strerror(errno);
            if (uid != 0) {
                writeFile("/proc/self/setgroups", "deny");
                writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
                writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
            }
            if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
                return std::string("private mounts: ") + std::strerror(errno);
            return std::string();
        }();
        return why;
    }

    SmallDisk(std::filesystem::path dir, std::size_t bytes) : dir_(std::move(dir)) {
        if (!enterPrivateMounts().empty())
            return;
        std::filesystem::create_directories(dir_);
        const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
        if (::mount("tmpfs", dir_.c_str(), "tmpfs", 0, options.c_str()) == 0)
            mounted_ = true;
        else
            why_ = std::string("mount: ") + std::strerror(errno);
    }
    ~SmallDisk() {
        if (mounted_)
            ::umount2(dir_.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool mounted() const { return mounted_; }
    std::string why() const { return mounted_ ? std::string() : enterPrivateMounts() + why_; }

    // Takes every free block.
    void fill() {
        std::ofstream out(filler(), std::ios::binary);
        const std::string block(4096, 'x');
        while (out.write(block.data(), std::streamsize(block.size())) && out.flush()) {
        }
    }
    void release() {
        std::error_code ignored;
        std::filesystem::remove(filler(), ignored);
    }
    // The folder without write permission (0500), as a user's mistake or a
    // backup tool leaves it. Tests run as root, whom permissions do not stop,
    // so this thread also gives up overriding them meanwhile.
    bool setReadOnly(bool readOnly) {
        if (::chmod(dir_.c_str(), readOnly ? 0500 : 0700) != 0)
            return false;
        return overridePermissions(!readOnly);
    }

private:
    static bool overridePermissions(bool on) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2]{};
        if (::syscall(SYS_capget, &header, data) != 0)
            return false;
        const unsigned bit = 1u << (CAP_DAC_OVERRIDE % 32);
        auto& effective = data[CAP_DAC_OVERRIDE / 32].effective;
        effective = on ? (effective | bit) : (effective & ~bit);
        return ::syscall(SYS_capset, &header, data) == 0;
    }
    static void writeFile(const char* path, const std::string& text) {
        int fd = ::open(path, O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        [[maybe_unused]] auto written = ::write(fd, text.data(), text.size());
        ::close(fd);
    }
    std::filesystem::path filler() const { return dir_ / "filler"; }

    std::filesystem::path dir_;
    bool mounted_ = false;
    std::string why_;
};

}  // namespace zettly::test
