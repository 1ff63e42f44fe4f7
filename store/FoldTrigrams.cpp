#include "store/FoldTrigrams.h"

#include <algorithm>

#include "platform/TextSearch.h"

namespace zettly::foldtrigrams {

namespace {

bool startsCodePoint(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
}

// FTS5 keeps no state per tokenizer instance; any non-null pointer will do.
int create(void*, const char**, int, Fts5Tokenizer** out) {
    static int instance;
    *out = reinterpret_cast<Fts5Tokenizer*>(&instance);
    return SQLITE_OK;
}

void destroy(Fts5Tokenizer*) {}

int tokenize(Fts5Tokenizer*, void* context, int, const char* text, int length,
             int (*token)(void*, int, const char*, int, int, int)) {
    // Offsets into the original text would only serve highlighting, which
    // an index without positions (detail=none) cannot do; all tokens claim
    // the whole text.
    const std::string folded = search::fold(std::string_view(text, static_cast<size_t>(length)));
    for (std::string_view gram : trigrams(folded)) {
        int rc = token(context, 0, gram.data(), static_cast<int>(gram.size()), 0, length);
        if (rc != SQLITE_OK)
            return rc;
    }
    return SQLITE_OK;
}

fts5_api* fts5(sqlite3* db, std::string& error) {
    fts5_api* api = nullptr;
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT fts5(?1)", -1, &st, nullptr) != SQLITE_OK) {
        error = sqlite3_errmsg(db);
        return nullptr;
    }
    sqlite3_bind_pointer(st, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(st);
    sqlite3_finalize(st);
    if (!api)
        error = "SQLite was built without FTS5";
    return api;
}

}  // namespace

bool registerTokenizer(sqlite3* db, std::string& error) {
    fts5_api* api = fts5(db, error);
    if (!api)
        return false;
    fts5_tokenizer methods{create, destroy, tokenize};
    if (api->xCreateTokenizer(api, tokenizerName, nullptr, &methods, nullptr) != SQLITE_OK) {
        error = sqlite3_errmsg(db);
        return false;
    }
    return true;
}

std::vector<std::string_view> trigrams(std::string_view folded) {
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < folded.size(); ++i)
        if (startsCodePoint(folded[i]))
            starts.push_back(i);
    std::vector<std::string_view> grams;
    if (starts.size() < 3)
        return grams;
    starts.push_back(folded.size());
    grams.reserve(starts.size() - 3);
    for (std::size_t i = 0; i + 3 < starts.size(); ++i)
        grams.push_back(folded.substr(starts[i], starts[i + 3] - starts[i]));
    return grams;
}

std::string matchExpression(std::string_view foldedQuery) {
    std::vector<std::string_view> grams = trigrams(foldedQuery);
    std::sort(grams.begin(), grams.end());
    grams.erase(std::unique(grams.begin(), grams.end()), grams.end());
    // Phrases side by side must all hold. A few dozen trigrams narrow as
    // well as hundreds; the matches are checked on the texts anyway.
    constexpr std::size_t most = 32;
    std::string expression;
    for (std::size_t i = 0; i < grams.size() && i < most; ++i) {
        expression += expression.empty() ? "\"" : " \"";
        for (char c : grams[i]) {
            if (c == '"')
                expression += '"';
            expression += c;
        }
        expression += '"';
    }
    return expression;
}

}  // namespace zettly::foldtrigrams
