#include "popup/DeepSearch.h"

#include <algorithm>
#include <utility>

namespace zettly {

// Shared by the main thread and the executor. `cancelled` is the only field
// both touch while a slice runs; the rest belongs to whichever side holds
// the turn (the executor while running, the main thread while paused).
struct DeepSearch::Job {
    Job(ClipboardStore& store, MainQueue& mainQueue, DeepSearch* owner)
        : store(store), mainQueue(mainQueue), owner(owner) {}
    ClipboardStore& store;
    MainQueue& mainQueue;
    DeepSearch* owner;  // valid until cancelled, which the owner's end does
    std::string query;
    ClipboardStore::SearchFilter filter;
    std::shared_ptr<const IdSet> skip;
    Receiver receiver;
    std::atomic<bool> cancelled{false};
    bool listed = false;
    std::vector<std::int64_t> candidates;
    std::size_t next = 0;
};

DeepSearch::DeepSearch(ClipboardStore& store, Executor& executor, MainQueue& mainQueue)
    : store_(store), executor_(executor), mainQueue_(mainQueue) {}

DeepSearch::~DeepSearch() {
    cancel();
}

void DeepSearch::start(std::string foldedQuery, ClipboardStore::SearchFilter filter,
                       std::shared_ptr<const IdSet> skip, Receiver receiver) {
    cancel();
    job_ = std::make_shared<Job>(store_, mainQueue_, this);
    job_->query = std::move(foldedQuery);
    job_->filter = std::move(filter);
    job_->skip = std::move(skip);
    job_->receiver = std::move(receiver);
    state_ = State::running;
    executor_.run([job = job_] { work(job); });
}

bool DeepSearch::resume() {
    if (state_ != State::paused || !job_)
        return false;
    state_ = State::running;
    executor_.run([job = job_] { work(job); });
    return true;
}

void DeepSearch::cancel() {
    if (job_)
        job_->cancelled = true;
    job_.reset();
    state_ = State::idle;
}

void DeepSearch::work(const std::shared_ptr<Job>& job) {
    auto deliver = [&job](std::vector<ClipboardStore::Item> found, State state) {
        job->mainQueue.post([job, found = std::move(found), state]() mutable {
            // Set on the main thread, so this reads it without a race.
            if (job->cancelled)
                return;
            job->owner->state_ = state;
            job->receiver(std::move(found));
        });
    };
    if (job->cancelled)
        return;
    if (!job->listed) {
        job->candidates = job->store.searchCandidates(job->query, job->filter);
        job->listed = true;
    }
    std::size_t page = 0;
    while (job->next < job->candidates.size()) {
        if (job->cancelled)
            return;
        const std::size_t end = std::min(job->next + sliceRows, job->candidates.size());
        std::vector<std::int64_t> slice(job->candidates.begin() + std::ptrdiff_t(job->next),
                                        job->candidates.begin() + std::ptrdiff_t(end));
        job->next = end;
        std::vector<ClipboardStore::Item> found = job->store.searchMatches(
            job->query, slice, [&job](const std::string& id) { return job->skip->contains(id); });
        page += found.size();
        const bool done = job->next == job->candidates.size();
        if (done || page >= pageSize) {
            // The last post of a turn hands the turn back to the main thread.
            deliver(std::move(found), done ? State::finished : State::paused);
            return;
        }
        if (!found.empty())
            deliver(std::move(found), State::running);
    }
    deliver({}, State::finished);
}

}  // namespace zettly
