// Pushes: a long-poll on _changes, on a thread of its own, that calls the
// push handler whenever another device changed something.
#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/Log.h"
#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

namespace {

constexpr std::string_view subscriptionName = "clipboard-zone";
constexpr std::size_t ownRevisionsKept = 4096;

}  // namespace

Backend::~Backend() {
    std::thread finished;
    {
        std::lock_guard lock(pushMutex_);
        pushHandler_.reset();
        if (pushRun_)
            pushRun_->stop = true;
        finished = std::move(pushThread_);
    }
    pushWake_.notify_all();
    if (finished.joinable()) {
        if (finished.get_id() == std::this_thread::get_id())
            finished.detach();  // destroyed from its own handler; it ends with the loop
        else
            finished.join();
    }
}

void Backend::setPushHandler(PushHandler handler) {
    std::thread finished;
    {
        std::lock_guard lock(pushMutex_);
        const bool onPushThread =
            pushThread_.joinable() && pushThread_.get_id() == std::this_thread::get_id();
        pushHandler_ = handler ? std::make_shared<const PushHandler>(std::move(handler)) : nullptr;
        if (pushHandler_) {
            if (onPushThread) {
                pushRun_->stop = false;  // cleared and set again from its own handler
            } else if (!pushThread_.joinable() || pushRun_->stop) {
                finished = std::move(pushThread_);
                if (!databaseUrl_.empty()) {
                    pushRun_ = std::make_shared<PushRun>();
                    pushThread_ = std::thread([this, run = pushRun_] { pushLoop(*run); });
                }
            }
        } else if (pushThread_.joinable()) {
            pushRun_->stop = true;
            if (!onPushThread)
                finished = std::move(pushThread_);
        }
    }
    pushWake_.notify_all();
    if (finished.joinable())
        finished.join();
}

CloudResult<> Backend::saveSubscription(const CloudSubscription& subscription) {
    if (auto ready = usable(); !ready)
        return ready;
    if (subscription.subscriptionID.empty())
        return CloudError(CloudErrorCode::invalidArguments, "A subscription needs an id");
    // Pushes come from the long-poll whenever a handler is set.
    return {};
}

void Backend::pushLoop(PushRun& run) {
    HttpClient http(settings_.user, settings_.password);
    std::string since = "now";
    double pause = 0;
    const double hold = std::max(settings_.longPollSeconds, 1.0);
    for (;;) {
        {
            std::unique_lock lock(pushMutex_);
            if (pause > 0)
                pushWake_.wait_for(lock, std::chrono::duration<double>(pause),
                                   [&run] { return run.stop.load(); });
            if (run.stop)
                return;
        }
        const std::string url = databaseUrl_ +
                                "/_changes?feed=longpoll&limit=" + std::to_string(changesPage) +
                                "&since=" + escape(since) +
                                "&timeout=" + std::to_string(static_cast<long>(hold * 1000));
        // pouchdb-server ignores the server-side timeout: the client
        // gives up a little later and asks again.
        auto response = http.send("GET", url, {}, {hold + 10, hold + 10, smallAnswer}, &run.stop);
        noteClock(response);
        if (run.stop || response.timedOut) {
            pause = 0;
            continue;
        }
        // Not what CouchDB sends: said in the log, and asked again later.
        if (response.tooLarge)
            log_.line("[Zettly] CouchDB: the change feed failed: " + response.transportError);
        auto json = response.success() ? parse(response.body) : std::nullopt;
        const Json* results = json ? member(*json, "results") : nullptr;
        const Json* last = json ? member(*json, "last_seq") : nullptr;
        if (!results || !results->is_array() || !last) {
            // Offline, or the database is gone (a new one starts its
            // sequence afresh): wait, longer each time, and start anew.
            pause = std::clamp(pause * 2, 2.0, 60.0);
            if (response.status == 404)
                since = "now";
            continue;
        }
        pause = 0;
        since = sequenceText(*last);
        const bool others = std::any_of(results->begin(), results->end(), [&](const Json& r) {
            const Json* changes = member(r, "changes");
            if (!changes || !changes->is_array() || changes->empty())
                return true;
            return !isOwn(stringMember(changes->front(), "rev").value_or(""));
        });
        if (!others)
            continue;
        std::shared_ptr<const PushHandler> handler;
        {
            std::lock_guard lock(pushMutex_);
            handler = pushHandler_;
        }
        if (handler)
            (*handler)(std::string(subscriptionName));
    }
}

void Backend::noteOwn(const std::string& rev) {
    if (rev.empty())
        return;
    std::lock_guard lock(ownMutex_);
    if (!ownRevisions_.insert(rev).second)
        return;
    ownOrder_.push_back(rev);
    if (ownOrder_.size() > ownRevisionsKept) {
        ownRevisions_.erase(ownOrder_.front());
        ownOrder_.pop_front();
    }
}

bool Backend::isOwn(const std::string& rev) {
    std::lock_guard lock(ownMutex_);
    return ownRevisions_.contains(rev);
}

}  // namespace zettly::couch
