// GLib and libsecret only: GLib's headers use "signals" as a member name,
// which Qt's keyword macros would rewrite, so no Qt header comes in here.
#include "platform/linux/SecretServiceStore.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include <libsecret/secret.h>

#include "platform/Log.h"

namespace zettly {

namespace {

namespace fs = std::filesystem;

constexpr const char* schemaName = "org.zettly.Zettly.Sync";
constexpr const char* nameAttribute = "name";

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

}  // namespace

std::unique_ptr<SecretStore> openDesktopSecretStore(const fs::path& fallbackFile, Log& log) {
    auto problem = secretServiceProblem();
    if (!problem) {
        log.line("[Zettly] sync secrets are kept in the Secret Service");
        return std::make_unique<ServiceSecretStore>(log);
    }
    log.line("[Zettly] sync secrets are kept in " + fallbackFile.string() + " (" + *problem + ")");
    return fileSecretStore(fallbackFile, log);
}

}  // namespace zettly
