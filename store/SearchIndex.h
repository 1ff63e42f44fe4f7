#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/Sql.h"

namespace zettly::searchindex {

// The text history's search index: an FTS5 table of the folded trigrams of
// every text (store/FoldTrigrams.h), without positions, without a copy of
// the texts, kept by triggers on `items` and brought up to date in batches.
//
// Indexing a row costs more than storing it, so triggers only note what
// changed: a new or edited row goes into `search_pending`, an
// indexed row deleted or edited leaves its old text in `search_gone` (FTS5
// needs it to remove the postings). Captures index a batch once enough has
// gathered. Every row not in the index is a search candidate anyway, so a
// search never misses one.
//
// FTS5 removes a row by writing delete markers; the old postings stay in
// older segments until they are merged. The purge rewrites the whole index
// into one segment (about 2.5 s for 100,000 texts), and SQLite's
// secure_delete overwrites the pages it frees. It is due after a deletion the
// user asked for and once a day for what trimming removed: merging on every
// deletion would cost each capture more than the capture itself.

// The tables, triggers and indexes, on any connection the store opens (the
// rebuild's too; the tokenizer is registered first). On a file without the
// index every row is queued and indexed now, as are rows left queued. A
// failure here (SQLite without FTS5) shows when a search cannot use the
// index: it then reads every row, and says so in the log.
void apply(sql::Database& db);

// Tables the index and its queues make; a file holding them is ours, and a
// rebuild makes them anew rather than copying them.
const std::vector<std::string_view>& tableNames();

// Indexes up to `rows` queued rows (removals first); false when a statement
// failed. Runs inside the caller's transaction when there is one.
bool indexQueued(sql::Database& db, std::int64_t rows);
// Whether a capture should index a batch now.
bool batchDue(sql::Database& db);
inline constexpr std::int64_t batchRows = 100;
inline constexpr std::int64_t batchBytes = 1 << 20;

// After a deletion or edit the user made, in its transaction: the old texts
// leave the queue at once (trimmed ones wait for the next batch), and the
// next purge does not wait a day. False when a statement failed.
bool forgetDeleted(sql::Database& db);
// Indexes everything queued, and rewrites the index without what was
// removed when a deletion asked for it or the last purge is older than a
// day (`force`: now). False when a statement failed.
bool purgeIfDue(sql::Database& db, double now, bool force = false);

// The rows that may hold a query, by its matchExpression(): those whose
// trigrams are all in the index, those not in it, and every named row (a
// label is short and not indexed). False, with `error` set, when the index
// cannot be read.
bool candidates(sql::Database& db, const std::string& match, std::vector<std::int64_t>& rows,
                std::string& error);

}  // namespace zettly::searchindex
