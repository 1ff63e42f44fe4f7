#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zettly::couch {

// The largest answer read by default: a batch of 24 images of up to 900 KB
// each, sealed and base64'd, is about 29 MiB, and its JSON adds little.
inline constexpr std::size_t largestAnswer = std::size_t{64} << 20;
// Answers that carry no records (the session, database info, a page of the
// long-poll's change ids) are far smaller.
inline constexpr std::size_t smallAnswer = std::size_t{4} << 20;

struct HttpResponse {
    // 0 when no answer arrived in full (refused, unreachable, timed out,
    // aborted, too large).
    long status = 0;
    std::string body;
    // Why no answer arrived, in English, for the log.
    std::string transportError;
    // A time limit ended the request: the stall limit, the connect limit or
    // the overall one.
    bool timedOut = false;
    // The overall limit ended it while the server was still answering (one
    // that trickles its answer).
    bool tooSlow = false;
    // The answer was larger than the request's limit; what arrived of it is
    // dropped.
    bool tooLarge = false;
    // Not sent: it would have carried the credentials over plain http to
    // another machine (or the address is not one HttpClient may use).
    bool refused = false;
    // The server's Date header in seconds since 1970, and this computer's
    // clock when it arrived; also kept when the transfer failed later on.
    std::optional<std::int64_t> serverDate;
    double receivedAt = 0;

    bool answered() const { return status != 0; }
    bool success() const { return status >= 200 && status < 300; }
};

struct HttpLimits {
    // Gives up when nothing moves this long, so that a batch of images on a
    // slow line still gets through...
    double stallSeconds = 30;
    // ...but never takes longer than this in all, so that a server sending
    // a byte now and then cannot hold the caller.
    double totalSeconds = 300;
    // The most of the answer's body (after decompression) that is read.
    std::size_t maxBody = largestAnswer;
};

// One libcurl handle with basic auth, reused between requests so that the
// connection (and its TLS session) stays open. Not for concurrent use: each
// thread that talks to the server has its own. Redirects are not followed,
// proxies are not used for this computer's own addresses, and credentials
// go over plain http only to this computer.
class HttpClient {
public:
    HttpClient(std::string user, std::string password);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // A non-empty `jsonBody` is sent as application/json. When `cancel`
    // turns true the transfer is abandoned within about a second (the push
    // long-poll's shutdown).
    HttpResponse send(std::string_view method, const std::string& url, const std::string& jsonBody,
                      const HttpLimits& limits, const std::atomic<bool>* cancel = nullptr);

private:
    void* handle_;
    std::string user_;
    std::string password_;
};

// Percent-encodes a path segment or query value.
std::string escape(std::string_view text);

// A URL taken apart as libcurl reads it, for the checks of where a request
// may go.
struct UrlParts {
    std::string scheme;  // in lower case
    std::string host;
    std::string path;
    bool credentials = false;  // a user name or password in the address
    bool queryOrFragment = false;
};
// None when libcurl does not take it for a URL.
std::optional<UrlParts> parseUrl(const std::string& url);

// True for a host name that names this computer: localhost, 127.0.0.0/8 or
// ::1 (with or without brackets). Nothing sent to it crosses a network.
bool isLoopback(std::string_view host);

}  // namespace zettly::couch
