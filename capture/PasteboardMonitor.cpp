#include "capture/PasteboardMonitor.h"

#include <algorithm>
#include <chrono>
#include <unordered_set>

#include <unicode/uregex.h>
#include <unicode/utext.h>

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"

namespace zettly {

namespace {

bool isFileCopy(const std::unordered_set<std::string>& types) {
    return types.contains(std::string(pbtype::uriList)) ||
           types.contains(std::string(pbtype::gnomeCopiedFiles));
}

struct Deadline {
    std::chrono::steady_clock::time_point end;
};

// ICU calls this every few thousand steps of a match; answering false stops
// the match with U_REGEX_STOPPED_BY_CALLER.
UBool withinDeadline(const void* context, int32_t) {
    return std::chrono::steady_clock::now() < static_cast<const Deadline*>(context)->end;
}

// A user pattern as capture compiles it: no flags, so case-sensitive, "^"
// and "$" at the ends of the whole text, "." not across a line break. The
// pattern's bytes must outlive the result (ICU keeps a shallow view of them).
struct CompiledPattern {
    std::unique_ptr<UText, decltype(&utext_close)> source{nullptr, utext_close};
    std::unique_ptr<URegularExpression, decltype(&uregex_close)> regex{nullptr, uregex_close};
};

CompiledPattern compilePattern(std::string_view pattern, UErrorCode& status, UParseError& where) {
    CompiledPattern compiled;
    compiled.source.reset(
        utext_openUTF8(nullptr, pattern.data(), static_cast<int64_t>(pattern.size()), &status));
    compiled.regex.reset(uregex_openUText(compiled.source.get(), 0, &where, &status));
    return compiled;
}

}  // namespace

const std::vector<std::string>& PasteboardMonitor::builtInIgnoredApps() {
    // Password managers and the desktop's own keyrings as Linux names them:
    // Flatpak or desktop-file ids and their WM_CLASS.
    static const std::vector<std::string> apps = {
        // Bitwarden's Flathub id.
        "com.bitwarden.desktop",
        "org.keepassxc.KeePassXC",
        "KeePassXC",
        "Bitwarden",
        "1password",
        "1Password",
        "org.gnome.World.Secrets",
        "secrets",
        "org.gnome.seahorse.Application",
        "Seahorse",
        "org.kde.kwalletmanager5",
        "org.kde.kwalletmanager",
        "kwalletmanager5",
    };
    return apps;
}

bool PasteboardMonitor::migrateIgnoredApps(Defaults& defaults) {
    static const std::unordered_set<std::string> macIds = {
        "com.1password.1password", "com.agilebits.onepassword7", "com.apple.keychainaccess",
        "com.apple.Passwords"};
    std::optional<std::vector<std::string>> stored = ClipPrefs(defaults).ignoredApps();
    if (!stored)
        return false;
    std::vector<std::string> apps = *stored;
    if (std::erase_if(apps, [](const std::string& app) { return macIds.contains(app); }) == 0)
        return false;
    const std::vector<std::string>& builtIn = builtInIgnoredApps();
    const bool anyBuiltIn = std::any_of(apps.begin(), apps.end(), [&](const std::string& app) {
        return std::find(builtIn.begin(), builtIn.end(), app) != builtIn.end();
    });
    if (!anyBuiltIn)
        apps.insert(apps.begin(), builtIn.begin(), builtIn.end());
    defaults.setStringArray(prefkey::ignoredApps, apps);
    return true;
}

struct PasteboardMonitor::Reading : std::enable_shared_from_this<Reading> {
    Reading(Dependencies deps, std::weak_ptr<PasteboardMonitor*> monitor)
        : deps(deps), monitor(std::move(monitor)) {}

    Dependencies deps;
    std::weak_ptr<PasteboardMonitor*> monitor;

    // The last text captured, for copy-on-select terminals. Only the work
    // on the background executor touches it, in the order of the copies.
    struct Recent {
        std::string text;
        double at = 0;
        bool newRow = false;  // it made a row of its own, which it may give up
    };
    std::optional<Recent> recent;

    // Any thread: the next text starts a row of its own.
    void forgetRecent() {
        deps.background.run([self = shared_from_this()] { self->recent.reset(); });
    }

    // On the reader: the rules that need the contents, in their order.
    void read(std::int64_t change, const std::optional<std::string>& frontApp) {
        Pasteboard& pasteboard = deps.pasteboard;
        // Already replaced: the examination of the newer copy is queued
        // behind this one and reads the same contents.
        if (pasteboard.changeCount() != change)
            return;

        auto typeList = pasteboard.types();
        if (!typeList.ok())
            return dropped(typeList.status);
        std::unordered_set<std::string> types(typeList.value.begin(), typeList.value.end());
        for (std::string_view ignored : ignoredTypes)
            if (types.contains(std::string(ignored)))
                return forgetRecent();

        ClipPrefs prefs(deps.defaults);
        if (frontApp) {
            auto stored = prefs.ignoredApps();
            const auto& ignored = stored ? *stored : builtInIgnoredApps();
            if (std::find(ignored.begin(), ignored.end(), *frontApp) != ignored.end())
                return forgetRecent();
        }

        auto text = pasteboard.string();
        if (text.ok() && !unicode::trimmed(text.value).empty()) {
            // The store refuses it anyway; without this the patterns would
            // each spend up to their time limit on megabytes first.
            if (text.value.size() > ClipboardStore::maxTextBytes)
                return notSaved("it is too large for the history (more than " +
                                std::to_string(ClipboardStore::maxTextBytes) + " bytes)");
            // Compiled afresh on every copy: a pattern edited in the settings
            // applies to the very next one.
            if (matchesAnyPattern(text.value, prefs.ignoredPatterns(), deps.log))
                return forgetRecent();
            return captureText(std::move(text.value));
        }
        // Text on offer that could not be read: the image beside it is only
        // a rendering of that text, never the copy itself.
        if (!text.ok() && text.status != ReadStatus::absent)
            return dropped(text.status);

        if (!prefs.saveImages())
            return forgetRecent();
        // A file manager's copy of files also offers their icons as images.
        if (isFileCopy(types))
            return forgetRecent();
        captureImage(typeList.value);
    }

    // Stored on the background executor: a write that waits for the disk
    // (or creates the database) must not keep the reader from the next copy
    // before that one is replaced too.
    void captureText(std::string text) {
        deps.background.run([self = shared_from_this(), text = std::move(text),
                             at = deps.clock.now()] { self->store(text, at); });
    }

    void store(const std::string& text, double at) {
        ClipboardStore::InsertResult result;
        if (recent && recent->newRow && extends(text, recent->text) &&
            at - recent->at <= selectionWindow)
            result = deps.texts.replaceRecent(recent->text, text);
        else
            result = deps.texts.insert(text);
        recent = Recent{text, at, result == ClipboardStore::InsertResult::inserted};
        if (result == ClipboardStore::InsertResult::inserted ||
            result == ClipboardStore::InsertResult::movedToTop)
            announce();
    }

    void captureImage(const std::vector<std::string>& typeList) {
        auto type = std::find_if(imageTypes.begin(), imageTypes.end(), [&](std::string_view t) {
            return std::find(typeList.begin(), typeList.end(), t) != typeList.end();
        });
        if (type == imageTypes.end())
            return forgetRecent();
        auto data = deps.pasteboard.data(std::string(*type));
        if (!data.ok())
            return dropped(data.status);
        // Decoded elsewhere, so the next copy is read meanwhile. The type
        // goes along: the store keeps the bytes as copied for the paste.
        deps.background.run(
            [self = shared_from_this(), bytes = std::move(data.value), type = std::string(*type)] {
                self->recent.reset();
                if (self->deps.images.save(bytes, type) == ImageClipStore::SaveResult::saved)
                    self->announce();
            });
    }

    void announce() {
        std::weak_ptr<PasteboardMonitor*> weak = monitor;
        deps.mainQueue.post([weak] {
            if (auto self = weak.lock(); self && *self && (*self)->onNewItem)
                (*self)->onNewItem();
        });
    }

    // A copy lost to its owner: said once in the log, so a user who misses
    // one can find out why.
    void dropped(ReadStatus why) {
        if (why == ReadStatus::noAnswer)
            return notSaved("the application that made it stopped answering");
        if (why == ReadStatus::tooLarge)
            return notSaved("it is too large to read");
        forgetRecent();
    }

    void notSaved(const std::string& why) {
        forgetRecent();
        deps.log.line("[Zettly] a copy was not saved: " + why);
    }

    // Whether `text` is `previous` grown at either end, as a selection
    // dragged forwards or backwards grows.
    static bool extends(std::string_view text, std::string_view previous) {
        return text.size() > previous.size() &&
               (text.starts_with(previous) || text.ends_with(previous));
    }
};

PasteboardMonitor::PasteboardMonitor(Dependencies dependencies)
    : deps_(dependencies),
      lastChangeCount_(deps_.pasteboard.changeCount()),
      self_(std::make_shared<PasteboardMonitor*>(this)) {
    reading_ = std::make_shared<Reading>(deps_, self_);
}

PasteboardMonitor::~PasteboardMonitor() {
    *self_ = nullptr;
    if (started_ && deps_.pasteboard.signalsChanges())
        deps_.pasteboard.setChangeHandler(nullptr);
}

void PasteboardMonitor::start() {
    if (started_)
        return;
    started_ = true;
    if (deps_.pasteboard.signalsChanges()) {
        std::weak_ptr<PasteboardMonitor*> weak = self_;
        deps_.pasteboard.setChangeHandler([weak] {
            if (auto self = weak.lock(); self && *self)
                (*self)->schedulePoll();
        });
        return;
    }
    timer_ = deps_.mainQueue.repeating(pollInterval, pollTolerance, [this] { poll(); });
}

void PasteboardMonitor::schedulePoll() {
    // Posted rather than run inside the notice: our own copy-back raises the
    // change count before it records the count as its own, and several
    // notices in one go are one examination.
    if (pollPosted_)
        return;
    pollPosted_ = true;
    std::weak_ptr<PasteboardMonitor*> weak = self_;
    deps_.mainQueue.post([weak] {
        if (auto self = weak.lock(); self && *self) {
            (*self)->pollPosted_ = false;
            (*self)->poll();
        }
    });
}

void PasteboardMonitor::poll() {
    std::int64_t count = deps_.pasteboard.changeCount();
    if (count == lastChangeCount_)
        return;
    // From here the change is consumed, whatever the outcome.
    lastChangeCount_ = count;
    if (ownChangeCount && *ownChangeCount == count)
        return;
    if (paused)
        return;
    if (skipNext) {
        skipNext = false;
        if (onSkipConsumed)
            onSkipConsumed();
        return;
    }
    // The application in front now, not when the read gets its turn.
    std::optional<std::string> frontApp = deps_.workspace.frontmostApplicationId();
    deps_.reader.run([reading = reading_, count, frontApp = std::move(frontApp)] {
        reading->read(count, frontApp);
    });
}

void PasteboardMonitor::copyTextFromHistory(std::string_view text) {
    // A picked entry is no selection in progress: a later copy never takes
    // its row.
    reading_->forgetRecent();
    deps_.pasteboard.clear();
    deps_.pasteboard.writeString(text);
    ownChangeCount = deps_.pasteboard.changeCount();
    deps_.texts.insert(text);
}

bool PasteboardMonitor::copyImageFromHistory(std::span<const std::uint8_t> data,
                                             std::string_view type) {
    reading_->forgetRecent();
    deps_.pasteboard.clear();
    bool written = deps_.pasteboard.writeImage(data, type);
    ownChangeCount = deps_.pasteboard.changeCount();
    if (!written)
        deps_.log.line("[Zettly] the picked image (" + std::string(type) +
                       ") could not be put on the clipboard");
    return written;
}

bool PasteboardMonitor::matchesAnyPattern(std::string_view text,
                                          const std::vector<std::string>& patterns, Log& log,
                                          double timeLimit) {
    if (patterns.empty())
        return false;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UText, decltype(&utext_close)> subject(
        utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status),
        utext_close);
    if (U_FAILURE(status))
        return false;

    for (const std::string& pattern : patterns) {
        status = U_ZERO_ERROR;
        UParseError where{};
        CompiledPattern compiled = compilePattern(pattern, status, where);
        URegularExpression* regex = compiled.regex.get();
        if (U_FAILURE(status))
            continue;  // an invalid pattern is skipped
        Deadline deadline{std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(timeLimit))};
        uregex_setMatchCallback(regex, withinDeadline, &deadline, &status);
        uregex_setUText(regex, subject.get(), &status);
        if (U_FAILURE(status))
            continue;
        bool found = uregex_find(regex, 0, &status);
        if (U_FAILURE(status)) {
            // Too slow or too deep (a pattern like (a+)+$ on a long text):
            // not saving is the safe answer, and the user learns which one.
            log.line("[Zettly] ignore pattern \"" + pattern + "\" did not finish (" +
                     u_errorName(status) + "); the copy is not saved");
            return true;
        }
        if (found)
            return true;
    }
    return false;
}

std::optional<PasteboardMonitor::PatternError> PasteboardMonitor::patternError(
    std::string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    CompiledPattern compiled = compilePattern(pattern, status, where);
    if (U_SUCCESS(status))
        return std::nullopt;
    return PatternError{u_errorName(status), where.line, where.offset};
}

}  // namespace zettly
