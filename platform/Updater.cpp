#include "platform/Updater.h"

#include <algorithm>
#include <vector>

#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"

namespace zettly {

namespace {

// Ranked so that, where two versions differ in kind, the higher rank is newer.
enum class PartKind { word = 0, separator = 1, number = 2 };

struct Part {
    PartKind kind;
    std::string_view text;
};

PartKind kindOf(char c) {
    if (c >= '0' && c <= '9')
        return PartKind::number;
    switch (c) {
        case '.':
        case '-':
        case '_':
        case '+':
        case ' ':
        case '\t':
        case '\n':
        case '\r':
            return PartKind::separator;
        default:
            return PartKind::word;
    }
}

std::vector<Part> split(std::string_view s) {
    std::vector<Part> parts;
    std::size_t i = 0;
    while (i < s.size()) {
        PartKind kind = kindOf(s[i]);
        std::size_t j = i + 1;
        // Separators stay single so that "1..2" does not line up with "1.2"
        // as one part against another.
        if (kind != PartKind::separator) {
            while (j < s.size() && kindOf(s[j]) == kind)
                ++j;
        }
        parts.push_back(Part{kind, s.substr(i, j - i)});
        i = j;
    }
    return parts;
}

std::string_view withoutLeadingZeros(std::string_view digits) {
    std::size_t first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view{} : digits.substr(first);
}

// By value, without converting: build numbers like 20240115093000123 do not fit
// in 64 bits.
int compareNumbers(std::string_view a, std::string_view b) {
    a = withoutLeadingZeros(a);
    b = withoutLeadingZeros(b);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
    const std::vector<Part> pa = split(a);
    const std::vector<Part> pb = split(b);
    const std::size_t common = std::min(pa.size(), pb.size());
    for (std::size_t i = 0; i < common; ++i) {
        const Part& x = pa[i];
        const Part& y = pb[i];
        if (x.kind != y.kind)
            return static_cast<int>(x.kind) < static_cast<int>(y.kind) ? -1 : 1;
        if (x.kind == PartKind::number) {
            if (int c = compareNumbers(x.text, y.text))
                return c;
        } else if (x.kind == PartKind::word) {
            if (int c = sign(x.text.compare(y.text)))
                return c;
        }
    }
    // Equal so far: the rest of the longer one decides. Zeros and separators
    // add nothing ("1.0" against "1.0.0"); a word first means a pre-release
    // of the shorter one ("1.0b2" against "1.0"); a number a later release.
    const bool aLonger = pa.size() > pb.size();
    const std::vector<Part>& longer = aLonger ? pa : pb;
    for (std::size_t i = common; i < longer.size(); ++i) {
        const Part& part = longer[i];
        if (part.kind == PartKind::separator)
            continue;
        if (part.kind == PartKind::number && withoutLeadingZeros(part.text).empty())
            continue;
        const bool longerIsNewer = part.kind == PartKind::number;
        return longerIsNewer == aLonger ? 1 : -1;
    }
    return 0;
}

void UpdateNotice::setVersion(std::optional<std::string> version) {
    if (version == version_)
        return;
    version_ = std::move(version);
    if (onChange)
        onChange();
}

Updater::Updater(MainQueue& queue, const Clock& clock, Log& log)
    : queue_(queue), clock_(clock), log_(log) {}

Updater::~Updater() = default;

void Updater::start() {
    std::weak_ptr<bool> alive = alive_;
    queue_.postAfter(launchDelay, [this, alive] {
        if (!alive.expired())
            scheduledCheck();
    });
    recheck_ = queue_.repeating(recheckTick, recheckTick / 10, [this] {
        if (clock_.now() - lastCheck_ >= recheckInterval)
            scheduledCheck();
    });
}

void Updater::scheduledCheck() {
    if (automaticallyChecks() && canCheckForUpdates())
        checkInBackground();
}

void Updater::checkInBackground() {
    if (!canCheckForUpdates())
        return;
    begin(false);
}

void Updater::checkForUpdates() {
    if (checking_) {
        userInitiated_ = true;
        return;
    }
    if (!configured()) {
        if (onUserCheckResult)
            onUserCheckResult(UpdateCheckResult{.kind = UpdateCheckResult::Kind::notConfigured});
        return;
    }
    begin(true);
}

void Updater::begin(bool userInitiated) {
    checking_ = true;
    userInitiated_ = userInitiated;
    lastCheck_ = clock_.now();
    std::weak_ptr<bool> alive = alive_;
    // The result always arrives through the queue: never inside fetch() or a
    // network handler, where a modal result dialog would nest event loops.
    fetch([this, alive](UpdateCheckResult result) {
        queue_.post([this, alive, result = std::move(result)] {
            if (!alive.expired())
                finished(result);
        });
    });
}

void Updater::finished(const UpdateCheckResult& result) {
    checking_ = false;
    if (userInitiated_) {
        if (onUserCheckResult)
            onUserCheckResult(result);
        return;
    }
    switch (result.kind) {
        case UpdateCheckResult::Kind::newer:
            notice_.setVersion(result.version);
            break;
        case UpdateCheckResult::Kind::upToDate:
            // The release the notice names was withdrawn from the feed.
            notice_.setVersion(std::nullopt);
            break;
        case UpdateCheckResult::Kind::failed:
            // Offline laptops fail here routinely: a line for the journal,
            // nothing on screen, and the next daily check tries again.
            log_.line("[Zettly] update check failed: " + result.error);
            break;
        case UpdateCheckResult::Kind::notConfigured:
            break;
    }
}

void Updater::finishUpdateSession() {
    notice_.setVersion(std::nullopt);
}

}  // namespace zettly
