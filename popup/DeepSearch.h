#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/MainQueue.h"
#include "store/ClipboardStore.h"

namespace zettly {

// Searches the whole text history for the history window, away from the
// main thread: the store's candidates first, then their texts a slice at a
// time, so that a capture waiting for the store's lock waits for one slice
// only. Each slice's finds are posted to the main queue as they come; after
// a page of finds the search pauses until the window asks for more, so a
// common word over a long history neither fills memory nor reads every row.
//
// start() and cancel() replace the running search: the old one stops at its
// next slice and whatever it had posted already is dropped on arrival.
//
// Main thread only, except the work it hands to the executor.
class DeepSearch {
public:
    enum class State { idle, running, paused, finished };
    // The finds of one slice, in the window's order; state() tells what
    // comes next.
    using Receiver = std::function<void(std::vector<ClipboardStore::Item> found)>;

    static constexpr std::size_t sliceRows = 128;
    static constexpr std::size_t pageSize = 200;

    DeepSearch(ClipboardStore& store, Executor& executor, MainQueue& mainQueue);
    ~DeepSearch();
    DeepSearch(const DeepSearch&) = delete;
    DeepSearch& operator=(const DeepSearch&) = delete;

    // Rows whose item id is in `skip` (the ones the window holds already)
    // are not reported. The set is shared, not copied: the window makes it
    // once per reading of the stores rather than on every keystroke.
    using IdSet = std::unordered_set<std::string>;
    void start(std::string foldedQuery, ClipboardStore::SearchFilter filter,
               std::shared_ptr<const IdSet> skip, Receiver receiver);
    // Goes on with a paused search for another page; false when none is paused.
    bool resume();
    void cancel();
    State state() const { return state_; }

private:
    struct Job;
    static void work(const std::shared_ptr<Job>& job);

    ClipboardStore& store_;
    Executor& executor_;
    MainQueue& mainQueue_;
    std::shared_ptr<Job> job_;
    State state_ = State::idle;
};

}  // namespace zettly
