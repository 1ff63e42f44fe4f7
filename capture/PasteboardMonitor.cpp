#include "capture/PasteboardMonitor.h"

#include <algorithm>
#include <chrono>
#include <unordered_set>

#include <unicode/uregex.h>
#include <unicode/utext.h>

#include "platform/Log.h"
#include "platform/Unicode.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"

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
    static const std::vector<std::string> apps = {
        "com.1password.1password",
        "com.agilebits.onepassword7",
        "com.bitwarden.desktop",
        "com.apple.keychainaccess",
        "com.apple.Passwords",
        // The same password managers (and the desktop's own keyrings) as
        // Linux names them: Flatpak or desktop-file ids and their WM_CLASS.
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

PasteboardMonitor::PasteboardMonitor(Dependencies dependencies)
    : deps_(dependencies),
      lastChangeCount_(deps_.pasteboard.changeCount()),
      self_(std::make_shared<PasteboardMonitor*>(this)) {}

PasteboardMonitor::~PasteboardMonitor() = default;

void PasteboardMonitor::start() {
    if (timer_)
        return;
    timer_ = deps_.mainQueue.repeating(pollInterval, pollTolerance, [this] { poll(); });
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

    std::vector<std::string> typeList = deps_.pasteboard.types();
    std::unordered_set<std::string> types(typeList.begin(), typeList.end());
    for (std::string_view ignored : ignoredTypes)
        if (types.contains(std::string(ignored)))
            return;

    ClipPrefs prefs(deps_.defaults);
    if (auto app = deps_.workspace.frontmostApplicationId()) {
        auto stored = prefs.ignoredApps();
        const auto& ignored = stored ? *stored : builtInIgnoredApps();
        if (std::find(ignored.begin(), ignored.end(), *app) != ignored.end())
            return;
    }

    if (auto text = deps_.pasteboard.string(); text && !unicode::trimmed(*text).empty()) {
        // Compiled afresh on every copy: a pattern edited in the settings
        // applies to the very next one.
        if (matchesAnyPattern(*text, prefs.ignoredPatterns(), deps_.log))
            return;
        auto result = deps_.texts.insert(*text);
        if (result == ClipboardStore::InsertResult::inserted ||
            result == ClipboardStore::InsertResult::movedToTop) {
            if (onNewItem)
                onNewItem();
        }
        return;  // with usable text, images on the same clipboard are not considered
    }

    if (!prefs.saveImages())
        return;
    // A file manager's copy of files also offers their icons as images.
    if (isFileCopy(types))
        return;
    captureImage(typeList);
}

void PasteboardMonitor::captureImage(const std::vector<std::string>& typeList) {
    auto type = std::find_if(imageTypes.begin(), imageTypes.end(), [&](std::string_view t) {
        return std::find(typeList.begin(), typeList.end(), t) != typeList.end();
    });
    if (type == imageTypes.end())
        return;
    auto data = deps_.pasteboard.data(std::string(*type));
    if (!data)
        return;

    std::weak_ptr<PasteboardMonitor*> weak = self_;
    ImageClipStore& images = deps_.images;
    MainQueue& mainQueue = deps_.mainQueue;
    deps_.background.run([weak, &images, &mainQueue, bytes = std::move(*data)] {
        if (images.save(bytes) != ImageClipStore::SaveResult::saved)
            return;
        mainQueue.post([weak] {
            if (auto self = weak.lock(); self && (*self)->onNewItem)
                (*self)->onNewItem();
        });
    });
}

void PasteboardMonitor::copyTextFromHistory(std::string_view text) {
    deps_.pasteboard.clear();
    deps_.pasteboard.writeString(text);
    ownChangeCount = deps_.pasteboard.changeCount();
    deps_.texts.insert(text);
}

void PasteboardMonitor::copyImageFromHistory(std::span<const std::uint8_t> data) {
    deps_.pasteboard.clear();
    deps_.pasteboard.writeImage(data);
    ownChangeCount = deps_.pasteboard.changeCount();
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
