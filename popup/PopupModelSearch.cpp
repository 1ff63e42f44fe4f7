// The history window's search beyond the loaded texts: starting it, and
// merging what it finds into the list in the window's order.
#include <algorithm>
#include <iterator>
#include <optional>

#include "popup/PopupModel.h"

namespace zettly {

namespace {

ClipboardStore::SearchFilter storeFilter(const PopupModel::Filter& filter) {
    using Kind = PopupModel::Filter::Kind;
    ClipboardStore::SearchFilter rows;
    switch (filter.kind()) {
        case Kind::all:
            rows.pinned = false;
            break;
        case Kind::pinned:
            rows.pinned = true;
            break;
        case Kind::text:
            rows.link = false;
            break;
        case Kind::links:
            rows.link = true;
            break;
        case Kind::category:
            rows.category = filter.categoryId();
            break;
        case Kind::images:
            break;
    }
    return rows;
}

}  // namespace

bool PopupModel::listedBefore(const Entry& a, const Entry& b) {
    // Pinned items without a category are the user's standing picks; filed
    // items sort by time within their category instead.
    const bool aTop = a.pinned() && !a.category();
    const bool bTop = b.pinned() && !b.category();
    if (aTop != bTop)
        return aTop;
    return a.createdAt() > b.createdAt();
}

SearchKey PopupModel::searchKey(const Entry& entry) {
    if (const ClipboardStore::Item* text = entry.text())
        return SearchKey(text->text, text->label);
    return SearchKey(std::string_view{}, entry.label());
}

void PopupModel::showMore() {
    if (deepSearch_.resume())
        finish(0);
}

void PopupModel::stopSearching() {
    deepSearch_.cancel();
    finish(0);
}

void PopupModel::restartDeepSearch() {
    searchStale_ = false;
    deepSearch_.cancel();
    // Images have no text to search; all of them are loaded.
    if (!foldedQuery_.empty() && filter_.kind() != Filter::Kind::images) {
        deepSearch_.start(
            foldedQuery_, storeFilter(filter_), loadedIds_,
            [this](std::vector<ClipboardStore::Item> found) { receive(std::move(found)); });
    }
}

void PopupModel::receive(std::vector<ClipboardStore::Item> found) {
    unsigned changes = 0;
    if (!found.empty())
        mergeDeepResults(std::move(found), changes);
    if (!searching())
        awaitedId_.reset();
    finish(changes);
}

void PopupModel::dropDeepResults() {
    if (deepCount_ == 0)
        return;
    // Only a reload makes `entries_` stale, and it leaves no finds behind:
    // every shown entry is a live one to hand back before compacting.
    for (std::size_t row = 0; row < shown_.size(); ++row)
        all_[shown_[row]] = std::move(entries_[row]);
    entries_.clear();
    shown_.clear();
    pending_.clear();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (isDeep_[i])
            continue;
        if (kept != i) {  // a move onto itself would empty the entry
            all_[kept] = std::move(all_[i]);
            keys_[kept] = std::move(keys_[i]);
        }
        ++kept;
    }
    all_.resize(kept);
    keys_.resize(kept);
    rowOf_.assign(kept, notShown);
    isDeep_.assign(kept, false);
    deepCount_ = 0;
}

void PopupModel::mergeDeepResults(std::vector<ClipboardStore::Item> found, unsigned& changes) {
    materialize(changes);  // allAt reads through `rowOf_` from here on
    std::vector<Entry> incoming;
    incoming.reserve(found.size());
    for (ClipboardStore::Item& item : found) {
        Entry entry{std::move(item)};
        if (passes(entry, filter_))
            incoming.push_back(std::move(entry));
    }
    std::stable_sort(incoming.begin(), incoming.end(), &PopupModel::listedBefore);

    // One merge of two ordered lists; finds equal in order to a loaded
    // entry go after it.
    const std::size_t total = all_.size() + incoming.size();
    std::vector<Entry> all;
    std::vector<SearchKey> keys;
    std::vector<std::size_t> rowOf;
    std::vector<bool> isDeep;
    all.reserve(total);
    keys.reserve(total);
    rowOf.reserve(total);
    isDeep.reserve(total);
    std::vector<std::size_t> movedTo(all_.size());
    std::vector<std::size_t> added;
    std::size_t old = 0;
    auto takeOld = [&] {
        movedTo[old] = all.size();
        all.push_back(std::move(all_[old]));
        keys.push_back(std::move(keys_[old]));
        rowOf.push_back(rowOf_[old]);
        isDeep.push_back(isDeep_[old]);
        ++old;
    };
    for (Entry& entry : incoming) {
        while (old < all_.size() && !listedBefore(entry, allAt(old)))
            takeOld();
        added.push_back(all.size());
        keys.push_back(searchKey(entry));
        rowOf.push_back(notShown);
        isDeep.push_back(true);
        all.push_back(std::move(entry));
    }
    while (old < all_.size())
        takeOld();

    const bool hasSelected = selection_ < pending_.size();
    const std::size_t selected = hasSelected ? movedTo[pending_[selection_]] : 0;
    all_ = std::move(all);
    keys_ = std::move(keys);
    rowOf_ = std::move(rowOf);
    isDeep_ = std::move(isDeep);
    deepCount_ += added.size();
    for (std::size_t& index : shown_)
        index = movedTo[index];
    std::vector<std::size_t> pending;
    pending.reserve(pending_.size() + added.size());
    for (std::size_t& index : pending_)
        index = movedTo[index];
    std::merge(pending_.begin(), pending_.end(), added.begin(), added.end(),
               std::back_inserter(pending));
    pending_ = std::move(pending);

    // Rows found above the highlighted one push it down; it stays on its
    // entry, which the listener holds already.
    if (hasSelected) {
        const auto row = static_cast<std::size_t>(
            std::lower_bound(pending_.begin(), pending_.end(), selected) - pending_.begin());
        if (row != selection_) {
            selection_ = row;
            changes |= selectionChanged;
        }
    }
    if (awaitedId_) {
        for (std::size_t index : added) {
            if (allAt(index).id() == *awaitedId_) {
                const auto row = static_cast<std::size_t>(
                    std::lower_bound(pending_.begin(), pending_.end(), index) - pending_.begin());
                awaitedId_.reset();
                assignSelection(row, changes);
                break;
            }
        }
    }
}

}  // namespace zettly
