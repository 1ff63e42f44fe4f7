#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>

namespace zettly::foldtrigrams {

// The tokenizer behind the text history's search index: a text is folded
// (search::fold) and every run of three code points in it is one token. A
// folded query found in a text byte for byte is made of code points the
// folded text holds in the same order, so every trigram of the query is a
// token of the text: looking the trigrams up can only narrow, never miss.
inline constexpr const char* tokenizerName = "zettly_fold_trigram";

// Registers the tokenizer with FTS5 on this connection; false (with SQLite's
// message in `error`) when FTS5 is missing. Every connection that creates,
// writes or queries the index needs it.
bool registerTokenizer(sqlite3* db, std::string& error);

// The trigrams of an already folded text, in order, repeats included.
std::vector<std::string_view> trigrams(std::string_view folded);

// An FTS5 query that holds when every trigram of the folded query is there;
// empty for a query of fewer than three code points, which the index cannot
// narrow.
std::string matchExpression(std::string_view foldedQuery);

}  // namespace zettly::foldtrigrams
