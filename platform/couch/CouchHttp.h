#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace zettly::couch {

struct HttpResponse {
    // 0 when no answer arrived (refused, unreachable, timed out, aborted).
    long status = 0;
    std::string body;
    // libcurl's explanation when no answer arrived.
    std::string transportError;
    bool timedOut = false;

    bool answered() const { return status != 0; }
    bool success() const { return status >= 200 && status < 300; }
};

// One libcurl handle with basic auth, reused between requests so that the
// connection (and its TLS session) stays open. Not for concurrent use: each
// thread that talks to the server has its own.
class HttpClient {
public:
    HttpClient(std::string user, std::string password);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Gives up when nothing moves for `stallSeconds` (so that a batch of
    // images on a slow line still gets through) or, when `totalSeconds` is
    // positive, after that long in all. A non-empty `jsonBody` is sent as
    // application/json. When `cancel` turns true the transfer is abandoned
    // within about a second (the push long-poll's shutdown).
    HttpResponse send(std::string_view method, const std::string& url, const std::string& jsonBody,
                      double stallSeconds, const std::atomic<bool>* cancel = nullptr,
                      double totalSeconds = 0);

private:
    void* handle_;
    std::string user_;
    std::string password_;
};

// Percent-encodes a path segment or query value.
std::string escape(std::string_view text);

}  // namespace zettly::couch
