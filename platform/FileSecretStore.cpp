#include <ctime>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <utility>

#include "platform/Files.h"
#include "platform/Log.h"
#include "platform/SecretStore.h"

namespace zettly {

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

class FileSecretStore final : public SecretStore {
public:
    FileSecretStore(fs::path path, Log& log) : path_(std::move(path)), log_(log) {}

    std::optional<std::string> read(std::string_view name) override {
        std::lock_guard lock(mutex_);
        auto root = load();
        if (!root)
            return std::nullopt;
        auto it = root->find(name);
        if (it == root->end() || !it->is_string())
            return std::nullopt;
        return it->get<std::string>();
    }

    bool write(std::string_view name, std::string_view secret) override {
        std::lock_guard lock(mutex_);
        auto root = load();
        if (!root)
            return false;
        (*root)[std::string(name)] = std::string(secret);
        return save(*root);
    }

    bool remove(std::string_view name) override {
        std::lock_guard lock(mutex_);
        auto root = load();
        if (!root)
            return false;
        auto it = root->find(name);
        if (it == root->end())
            return true;
        root->erase(it);
        return save(*root);
    }

    std::string where() const override { return path_.string(); }

private:
    // The file as it is now (another Zettly process may have written it): an
    // object, empty when there is no file. None when it exists but cannot be
    // read; then nothing may be written over it.
    std::optional<json> load() {
        std::error_code ec;
        if (!fs::exists(path_, ec)) {
            if (ec)
                report("cannot be checked: " + ec.message());
            return ec ? std::nullopt : std::optional<json>(json::object());
        }
        if (!fs::is_regular_file(path_, ec)) {
            report("is not a file");
            return std::nullopt;
        }
        std::ifstream in(path_, std::ios::binary);
        std::stringstream buffer;
        buffer << in.rdbuf();
        if (!in.is_open() || in.bad()) {
            report("cannot be read");
            return std::nullopt;
        }
        json parsed = json::parse(buffer.str(), nullptr, /*allow_exceptions=*/false);
        if (!parsed.is_discarded() && parsed.is_object())
            return parsed;
        // A damaged file (a full disk, a hand edit) still holds the user's
        // other secrets: keep it aside for them, and start afresh so that
        // sync can ask for the password again.
        auto aside = files::moveAside(path_, static_cast<double>(std::time(nullptr)));
        if (!aside) {
            report("is damaged and could not be moved aside; not writing over it");
            return std::nullopt;
        }
        report("was damaged; moved aside to " + aside->string());
        return json::object();
    }

    bool save(const json& root) {
        std::string text;
        try {
            text = root.dump(1, '\t');
        } catch (const json::type_error&) {
            report("cannot hold a secret that is not UTF-8 text; nothing written");
            return false;
        }
        std::error_code ec;
        if (!files::createPrivateDirectories(path_.parent_path(), ec) ||
            !files::writeAtomically(path_, text, ec)) {
            report("could not be written: " + ec.message());
            return false;
        }
        return true;
    }

    void report(const std::string& what) {
        log_.line("[Zettly] sync secrets file " + path_.string() + " " + what);
    }

    fs::path path_;
    Log& log_;
    std::mutex mutex_;
};

std::optional<std::string> fromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value && *value)
        return std::string(value);
    return std::nullopt;
}

}  // namespace

std::unique_ptr<SecretStore> fileSecretStore(const fs::path& path, Log& log) {
    return std::make_unique<FileSecretStore>(path, log);
}

std::optional<std::string> syncPassword(SecretStore& store, std::string_view name) {
    if (auto value = fromEnvironment("ZETTLY_SYNC_PASSWORD"))
        return value;
    return store.read(name);
}

std::optional<std::string> syncPassphrase(SecretStore& store, std::string_view name) {
    if (auto value = fromEnvironment("ZETTLY_SYNC_PASSPHRASE"))
        return value;
    return store.read(name);
}

}  // namespace zettly
