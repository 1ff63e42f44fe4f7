// GLib and libsecret only: GLib's headers use "signals" as a member name,
// which Qt's keyword macros would rewrite, so no Qt header comes in here.
#include "platform/linux/SecretStore.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

#include <libsecret/secret.h>

#include "platform/Files.h"
#include "platform/Log.h"

namespace zettly {

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

constexpr const char* schemaName = "org.zettly.Zettly.Sync";
constexpr const char* nameAttribute = "name";

// --- the file ---------------------------------------------------------------

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

// --- the Secret Service -----------------------------------------------------

struct SchemaUnref {
    void operator()(SecretSchema* schema) const { secret_schema_unref(schema); }
};
using SchemaPtr = std::unique_ptr<SecretSchema, SchemaUnref>;

SchemaPtr makeSchema() {
    return SchemaPtr(secret_schema_new(schemaName, SECRET_SCHEMA_NONE, nameAttribute,
                                       SECRET_SCHEMA_ATTRIBUTE_STRING, nullptr));
}

// Takes a GError and gives its message, freeing it.
std::string messageOf(GError* error) {
    std::string text = error && error->message ? error->message : "unknown error";
    g_clear_error(&error);
    return text;
}

class ServiceSecretStore final : public SecretStore {
public:
    explicit ServiceSecretStore(Log& log) : schema_(makeSchema()), log_(log) {}

    std::optional<std::string> read(std::string_view name) override {
        std::string key(name);
        GError* error = nullptr;
        gchar* secret = secret_password_lookup_sync(schema_.get(), nullptr, &error, nameAttribute,
                                                    key.c_str(), nullptr);
        if (error) {
            log_.line("[Zettly] Secret Service lookup failed: " + messageOf(error));
            return std::nullopt;
        }
        if (!secret)
            return std::nullopt;
        std::string value(secret);
        secret_password_free(secret);  // wipes it
        return value;
    }

    bool write(std::string_view name, std::string_view secret) override {
        // The keyring takes text only, and a zero byte would cut it short.
        if (secret.find('\0') != std::string_view::npos ||
            !g_utf8_validate(secret.data(), static_cast<gssize>(secret.size()), nullptr)) {
            log_.line("[Zettly] Secret Service cannot hold a secret that is not plain text");
            return false;
        }
        std::string key(name), value(secret);
        std::string label = "Zettly sync: " + key;
        GError* error = nullptr;
        gboolean stored = secret_password_store_sync(schema_.get(), SECRET_COLLECTION_DEFAULT,
                                                     label.c_str(), value.c_str(), nullptr, &error,
                                                     nameAttribute, key.c_str(), nullptr);
        if (!stored || error) {
            log_.line("[Zettly] Secret Service refused to store a secret: " + messageOf(error));
            return false;
        }
        return true;
    }

    // True also when there was nothing to remove.
    bool remove(std::string_view name) override {
        std::string key(name);
        GError* error = nullptr;
        secret_password_clear_sync(schema_.get(), nullptr, &error, nameAttribute, key.c_str(),
                                   nullptr);
        if (error) {
            log_.line("[Zettly] Secret Service could not remove a secret: " + messageOf(error));
            return false;
        }
        return true;
    }

    std::string where() const override { return "Secret Service"; }

private:
    SchemaPtr schema_;
    Log& log_;
};

// A session bus may list a keyring that never answers (a daemon stuck on a
// locked screen, a stale address in a tmux session), and connecting to the
// bus itself has no time limit. So the probe runs on a thread of its own
// and the app stops waiting after a few seconds; a probe that hangs is left
// behind with only its own shared state to finish into.
constexpr auto probeTimeout = std::chrono::seconds(5);

struct ProbeState {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    std::optional<std::string> problem;  // none = the service answered
};

// A search that neither unlocks nor loads secrets, so no prompt can appear;
// it still makes the service (or its activation) answer once.
std::optional<std::string> probeService() {
    SchemaPtr schema = makeSchema();
    GError* error = nullptr;
    GList* found = secret_password_search_sync(schema.get(), SECRET_SEARCH_NONE, nullptr, &error,
                                               nameAttribute, "probe", nullptr);
    g_list_free_full(found, g_object_unref);
    if (error)
        return messageOf(error);
    return std::nullopt;
}

// None when the Secret Service can be used; otherwise why not, for the log.
std::optional<std::string> secretServiceProblem() {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!bus || !*bus)
        return "no session bus";
    auto state = std::make_shared<ProbeState>();
    std::thread([state] {
        auto problem = probeService();
        std::lock_guard lock(state->mutex);
        state->problem = std::move(problem);
        state->finished = true;
        state->done.notify_all();
    }).detach();
    std::unique_lock lock(state->mutex);
    if (!state->done.wait_for(lock, probeTimeout, [&] { return state->finished; }))
        return "no Secret Service answered on the session bus";
    if (state->problem)
        return "no Secret Service on the session bus: " + *state->problem;
    return std::nullopt;
}

std::optional<std::string> fromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value && *value)
        return std::string(value);
    return std::nullopt;
}

}  // namespace

std::unique_ptr<SecretStore> SecretStore::open(const fs::path& fallbackFile, Log& log) {
    auto problem = secretServiceProblem();
    if (!problem) {
        log.line("[Zettly] sync secrets are kept in the Secret Service");
        return std::make_unique<ServiceSecretStore>(log);
    }
    log.line("[Zettly] sync secrets are kept in " + fallbackFile.string() + " (" + *problem + ")");
    return std::make_unique<FileSecretStore>(fallbackFile, log);
}

std::unique_ptr<SecretStore> SecretStore::file(const fs::path& path) {
    // Without a log of the caller's, a damaged file is still reported.
    return std::make_unique<FileSecretStore>(path, StderrLog::instance());
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
