#include "popup/PopupModel.h"

#include <algorithm>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "platform/TextSearch.h"
#include "store/ChipOrder.h"

namespace zettly {

namespace {

constexpr std::string_view categoryPrefix = ChipOrder::categoryPrefix;

// Pinned items without a category are the user's standing picks; filed
// items sort by time within their category instead.

// A reload holds the old list and the new one for a moment; with 100 KB
// clips that is tens of megabytes, which the allocator keeps in its heap
// (below its mmap threshold, between live blocks) unless asked to give the
// free pages back.
void returnFreedMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

bool hasId(const PopupModel::Entry& entry, const std::string& id) {
    const std::string& storeId = entry.storeId();
    return id.size() == storeId.size() + 1 && id[0] == (entry.isText() ? 't' : 'i') &&
           id.compare(1, std::string::npos, storeId) == 0;
}

}  // namespace

// ---- Filter ---------------------------------------------------------------

std::optional<PopupModel::Filter> PopupModel::Filter::fromKey(std::string_view key) {
    if (key == "all")
        return all();
    if (key == "pinned")
        return pinned();
    if (key == "text")
        return text();
    if (key == "links")
        return links();
    if (key == "images")
        return images();
    if (key.starts_with(categoryPrefix))
        return category(std::string(key.substr(categoryPrefix.size())));
    return std::nullopt;
}

std::string PopupModel::Filter::key() const {
    switch (kind_) {
        case Kind::all:
            return "all";
        case Kind::pinned:
            return "pinned";
        case Kind::text:
            return "text";
        case Kind::links:
            return "links";
        case Kind::images:
            return "images";
        case Kind::category:
            break;
    }
    return std::string(categoryPrefix) + id_;
}

// ---- Entry ----------------------------------------------------------------

std::string PopupModel::Entry::id() const {
    return (isText() ? "t" : "i") + storeId();
}

const std::string& PopupModel::Entry::storeId() const {
    return std::visit([](const auto& item) -> const std::string& { return item.id; }, item);
}

bool PopupModel::Entry::pinned() const {
    return std::visit([](const auto& item) { return item.pinned; }, item);
}

const std::optional<std::string>& PopupModel::Entry::category() const {
    return std::visit(
        [](const auto& item) -> const std::optional<std::string>& { return item.category; }, item);
}

const std::optional<std::string>& PopupModel::Entry::label() const {
    return std::visit(
        [](const auto& item) -> const std::optional<std::string>& { return item.label; }, item);
}

double PopupModel::Entry::createdAt() const {
    return std::visit([](const auto& item) { return item.createdAt; }, item);
}

bool PopupModel::Entry::isLink() const {
    const ClipboardStore::Item* item = text();
    return item && item->type == "url";
}

// ---- model ----------------------------------------------------------------

std::string PopupModel::englishTitle(Filter::Kind kind) {
    switch (kind) {
        case Filter::Kind::all:
            return "All";
        case Filter::Kind::pinned:
            return "Pinned";
        case Filter::Kind::text:
            return "Text";
        case Filter::Kind::links:
            return "Links";
        case Filter::Kind::images:
            return "Images";
        case Filter::Kind::category:
            break;
    }
    return "?";
}

PopupModel::PopupModel(ClipboardStore& texts, ImageClipStore& images, ChipOrder& chipOrder,
                       Executor& searchExecutor, MainQueue& mainQueue, TitleFunction title)
    : texts_(texts),
      images_(images),
      chipOrder_(chipOrder),
      titleFunction_(std::move(title)),
      deepSearch_(texts, searchExecutor, mainQueue) {
    if (!titleFunction_)
        titleFunction_ = &PopupModel::englishTitle;
}

void PopupModel::setQuery(std::string query) {
    unsigned changes = 0;
    applyQuery(std::move(query), changes);
    finish(changes);
}

void PopupModel::setFilter(Filter filter) {
    unsigned changes = 0;
    applyFilter(std::move(filter), changes);
    finish(changes);
}

void PopupModel::setSelection(std::size_t index) {
    unsigned changes = 0;
    awaitedId_.reset();
    assignSelection(index, changes);
    finish(changes);
}

void PopupModel::setDragging(std::optional<Filter> filter) {
    if (filter == dragging_)
        return;
    dragging_ = std::move(filter);
    finish(draggingChanged);
}

void PopupModel::reload(const std::optional<std::string>& keeping) {
    unsigned changes = 0;
    reloadInto(keeping, changes);
    finish(changes);
    returnFreedMemory();
}

void PopupModel::reset() {
    unsigned changes = 0;
    applyQuery("", changes);
    reloadInto(std::nullopt, changes);
    applyFilter(filters_.empty() ? Filter::all() : filters_.front(), changes);
    ++openCount_;
    changes |= opened;
    finish(changes);
    returnFreedMemory();
}

void PopupModel::rebuild() {
    unsigned changes = 0;
    rebuildInto(changes);
    finish(changes);
}

void PopupModel::move(int delta) {
    if (pending_.empty())
        return;
    const auto last = static_cast<long long>(pending_.size()) - 1;
    const long long target = std::clamp(static_cast<long long>(selection_) + delta, 0LL, last);
    unsigned changes = 0;
    awaitedId_.reset();
    assignSelection(static_cast<std::size_t>(target), changes);
    finish(changes);
}

void PopupModel::cycleFilter(int step) {
    if (filters_.empty())
        return;
    auto found = std::find(filters_.begin(), filters_.end(), filter_);
    const auto count = static_cast<long long>(filters_.size());
    const long long current = found == filters_.end() ? 0 : found - filters_.begin();
    const long long next = ((current + step) % count + count) % count;
    unsigned changes = 0;
    applyFilter(filters_[static_cast<std::size_t>(next)], changes);
    finish(changes);
}

const PopupModel::Entry& PopupModel::allAt(std::size_t index) const {
    const std::size_t row = entriesStale_ ? notShown : rowOf_.at(index);
    return row == notShown ? all_[index] : entries_[row];
}

std::optional<PopupModel::Entry> PopupModel::entry(std::ptrdiff_t index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= entries_.size())
        return std::nullopt;
    return entries_[static_cast<std::size_t>(index)];
}

std::string PopupModel::title(const Filter& filter) const {
    if (!filter.isCategory())
        return titleFunction_(filter.kind());
    for (const auto& category : categories_)
        if (category.id == filter.categoryId())
            return category.name;
    return "?";
}

std::optional<std::string> PopupModel::categoryTag(const Entry& entry) const {
    const std::optional<std::string>& category = entry.category();
    if (!category)
        return std::nullopt;
    if (filter_.isCategory() && filter_.categoryId() == *category)
        return std::nullopt;
    for (const auto& known : categories_)
        if (known.id == *category)
            return known.name;
    return std::nullopt;
}

void PopupModel::moveChip(const Filter& from, const Filter& to) {
    if (from == to)
        return;
    auto f = std::find(filters_.begin(), filters_.end(), from);
    auto t = std::find(filters_.begin(), filters_.end(), to);
    if (f == filters_.end() || t == filters_.end())
        return;
    // The dragged chip takes the target's place: behind it when dragged
    // rightwards, in front of it when dragged leftwards.
    if (f < t)
        std::rotate(f, f + 1, t + 1);
    else
        std::rotate(t, f, f + 1);
    std::vector<std::string> keys;
    keys.reserve(filters_.size());
    for (const Filter& filter : filters_)
        keys.push_back(filter.key());
    chipOrder_.save(keys);
    finish(filtersChanged);
}

bool PopupModel::passes(const Entry& entry, const Filter& filter) {
    switch (filter.kind()) {
        case Filter::Kind::all:
            // All is the working list; everything pinned lives under Pinned.
            return !entry.pinned();
        case Filter::Kind::pinned:
            return entry.pinned();
        case Filter::Kind::text:
            return entry.isText() && !entry.isLink();
        case Filter::Kind::links:
            return entry.isLink();
        case Filter::Kind::images:
            return entry.isImage();
        case Filter::Kind::category:
            return entry.category() == filter.categoryId();
    }
    return false;
}

// ---- internals ------------------------------------------------------------

void PopupModel::reloadInto(const std::optional<std::string>& keeping, unsigned& changes) {
    std::vector<ClipboardStore::Category> categories = texts_.categories();
    if (categories != categories_) {
        categories_ = std::move(categories);
        changes |= filtersChanged;
    }

    std::vector<Filter> filters;
    for (const std::string& key : chipOrder_.current(categories_))
        if (std::optional<Filter> filter = Filter::fromKey(key))
            filters.push_back(std::move(*filter));
    if (filters != filters_) {
        filters_ = std::move(filters);
        changes |= filtersChanged;
    }

    // The active category was deleted (here or on another device).
    if (filter_.isCategory() &&
        std::find(filters_.begin(), filters_.end(), filter_) == filters_.end())
        applyFilter(filters_.empty() ? Filter::all() : filters_.front(), changes);

    // What the running search found belongs to the old list.
    deepSearch_.cancel();
    searchStale_ = true;
    awaitedId_.reset();

    std::vector<ClipboardStore::Item> texts = texts_.fetch(textLimit, 0);
    std::vector<ImageClipStore::Item> images = images_.fetchAll();
    std::vector<Entry> merged;
    merged.reserve(texts.size() + images.size());
    for (auto& item : texts)
        merged.push_back(Entry{std::move(item)});
    for (auto& item : images)
        merged.push_back(Entry{std::move(item)});
    std::stable_sort(merged.begin(), merged.end(), &PopupModel::listedBefore);

    all_ = std::move(merged);
    ++loads_;
    keys_.clear();
    keys_.reserve(all_.size());
    auto loadedIds = std::make_shared<DeepSearch::IdSet>();
    for (const Entry& entry : all_) {
        keys_.push_back(searchKey(entry));
        if (entry.isText())
            loadedIds->insert(entry.storeId());
    }
    loadedIds_ = std::move(loadedIds);
    // `entries_` still holds the old list's entries until materialize().
    rowOf_.assign(all_.size(), notShown);
    isDeep_.assign(all_.size(), false);
    deepCount_ = 0;
    entriesStale_ = true;
    rebuildInto(changes);

    if (keeping) {
        std::size_t row = 0;
        while (row < pending_.size() && !hasId(allAt(pending_[row]), *keeping))
            ++row;
        if (row < pending_.size())
            assignSelection(row, changes);
        else if (!foldedQuery_.empty() && keeping->starts_with('t'))
            awaitedId_ = *keeping;
    }
}

void PopupModel::rebuildInto(unsigned& changes) {
    pending_.clear();
    for (std::size_t i = 0; i < all_.size(); ++i)
        if (passes(allAt(i), filter_) && matchesQuery(i))
            pending_.push_back(i);
    if (selection_ >= pending_.size())
        assignSelection(pending_.empty() ? 0 : pending_.size() - 1, changes);
}

void PopupModel::applyQuery(std::string query, unsigned& changes) {
    if (query != query_) {
        query_ = std::move(query);
        changes |= queryChanged;
        if (std::string folded = search::foldQuery(query_); folded != foldedQuery_) {
            foldedQuery_ = std::move(folded);
            dropDeepResults();
            searchStale_ = true;
        }
    }
    awaitedId_.reset();
    rebuildInto(changes);
    assignSelection(0, changes);
}

void PopupModel::applyFilter(Filter filter, unsigned& changes) {
    if (filter != filter_) {
        filter_ = std::move(filter);
        changes |= filterChanged;
        dropDeepResults();
        searchStale_ = true;
    }
    awaitedId_.reset();
    rebuildInto(changes);
    assignSelection(0, changes);
}

void PopupModel::assignSelection(std::size_t index, unsigned& changes) {
    if (index == selection_)
        return;
    selection_ = index;
    changes |= selectionChanged;
    if (onSelectionChanged) {
        // The listener reads the selected entry.
        materialize(changes);
        onSelectionChanged();
    }
}

void PopupModel::materialize(unsigned& changes) {
    if (entriesStale_) {
        // A reload that brought nothing new (a sync pass without changes,
        // an opening) keeps the list as it is and redraws nothing; the fresh
        // copies of the shown entries go.
        bool same = pending_.size() == entries_.size();
        for (std::size_t row = 0; same && row < pending_.size(); ++row)
            same = all_[pending_[row]] == entries_[row];
        if (same) {
            for (std::size_t index : pending_)
                Entry released = std::move(all_[index]);
        } else {
            entries_.clear();
            entries_.reserve(pending_.size());
            for (std::size_t index : pending_)
                entries_.push_back(std::move(all_[index]));
            changes |= entriesChanged;
        }
        for (std::size_t row = 0; row < pending_.size(); ++row)
            rowOf_[pending_[row]] = row;
        shown_ = pending_;
        entriesStale_ = false;
        return;
    }
    if (pending_ == shown_)
        return;
    // Both index lists ascend, so one pass sorts the held entries into kept
    // ones and ones that go back to `all_`.
    std::vector<Entry> next;
    next.reserve(pending_.size());
    std::size_t held = 0;
    auto returnUpTo = [&](std::size_t index) {
        for (; held < shown_.size() && shown_[held] < index; ++held) {
            all_[shown_[held]] = std::move(entries_[held]);
            rowOf_[shown_[held]] = notShown;
        }
    };
    for (std::size_t index : pending_) {
        returnUpTo(index);
        if (held < shown_.size() && shown_[held] == index)
            next.push_back(std::move(entries_[held++]));
        else
            next.push_back(std::move(all_[index]));
        rowOf_[index] = next.size() - 1;
    }
    returnUpTo(all_.size());
    entries_ = std::move(next);
    shown_ = pending_;
    changes |= entriesChanged;
}

void PopupModel::finish(unsigned changes) {
    materialize(changes);
    if (searchStale_)
        restartDeepSearch();
    if (deepSearch_.state() == DeepSearch::State::paused && selection_ + nearEnd >= entries_.size())
        deepSearch_.resume();
    if (searching() != searchingReported_) {
        searchingReported_ = searching();
        changes |= searchingChanged;
    }
    if (changes && onChange)
        onChange(changes);
}

bool PopupModel::matchesQuery(std::size_t index) const {
    if (foldedQuery_.empty())
        return true;
    // Images are found by their name only.
    const Entry& entry = allAt(index);
    if (const ClipboardStore::Item* text = entry.text())
        return keys_[index].matches(text->text, foldedQuery_);
    return keys_[index].labelMatches(foldedQuery_);
}

}  // namespace zettly
