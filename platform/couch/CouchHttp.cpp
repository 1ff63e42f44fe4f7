#include "platform/couch/CouchHttp.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <memory>
#include <mutex>
#include <utility>

#include <curl/curl.h>

namespace zettly::couch {

namespace {

// curl_global_init is not thread-safe and must run before the first handle,
// whichever thread makes it.
void initialiseCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// What the callbacks of one transfer share.
struct Transfer {
    HttpResponse& response;
    std::size_t maxBody;
    const std::atomic<bool>* cancel;
    std::chrono::steady_clock::time_point deadline;
    std::size_t headerBytes = 0;
    bool overTime = false;
};

double secondsSince1970() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

// Refusing the data (a count other than the one given) ends the transfer.
std::size_t collect(char* data, std::size_t size, std::size_t count, void* target) {
    auto& transfer = *static_cast<Transfer*>(target);
    std::string& body = transfer.response.body;
    const std::size_t bytes = size * count;
    if (bytes > transfer.maxBody - body.size()) {
        transfer.response.tooLarge = true;
        return 0;
    }
    body.append(data, bytes);
    return bytes;
}

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

// Picks out the Date header. The headers count against the same limit as the
// body, so that endless headers cannot fill the memory either.
std::size_t header(char* data, std::size_t size, std::size_t count, void* target) {
    auto& transfer = *static_cast<Transfer*>(target);
    const std::size_t bytes = size * count;
    transfer.headerBytes += bytes;
    if (transfer.headerBytes > transfer.maxBody) {
        transfer.response.tooLarge = true;
        return 0;
    }
    std::string_view line(data, bytes);
    // Each response (a "100 Continue" before the real one) starts afresh.
    if (line.starts_with("HTTP/")) {
        transfer.response.serverDate.reset();
    } else if (lowercase(line.substr(0, 5)) == "date:") {
        std::string value(line.substr(5));
        while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back())))
            value.pop_back();
        const std::time_t date = curl_getdate(value.c_str(), nullptr);
        if (date != -1) {
            transfer.response.serverDate = date;
            transfer.response.receivedAt = secondsSince1970();
        }
    }
    return bytes;
}

// Called about once a second even while nothing moves. The overall limit is
// kept here rather than by libcurl so that its end tells which limit it was.
int progress(void* target, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(target);
    if (transfer.cancel && transfer.cancel->load())
        return 1;
    transfer.overTime = std::chrono::steady_clock::now() >= transfer.deadline;
    return transfer.overTime ? 1 : 0;
}

long milliseconds(double seconds, long fallback) {
    if (!std::isfinite(seconds) || seconds <= 0)
        return fallback;
    return static_cast<long>(std::min(seconds, 24.0 * 3600) * 1000);
}

std::string sizeText(std::size_t bytes) {
    if (bytes >= (std::size_t{1} << 20) && bytes % (std::size_t{1} << 20) == 0)
        return std::to_string(bytes >> 20) + " MiB";
    if (bytes >= 1024 && bytes % 1024 == 0)
        return std::to_string(bytes >> 10) + " KiB";
    return std::to_string(bytes) + " bytes";
}

std::string secondsText(long milliseconds) {
    if (milliseconds % 1000 == 0)
        return std::to_string(milliseconds / 1000) + " seconds";
    return std::to_string(milliseconds) + " milliseconds";
}

std::optional<std::string> urlPart(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, 0) != CURLUE_OK || !text)
        return std::nullopt;
    std::string value(text);
    curl_free(text);
    return value;
}

// Where a request may go. Empty `problem` when it may.
struct Destination {
    std::string problem;
    bool loopback = false;
};

Destination destinationOf(const std::string& address, bool withCredentials) {
    const auto url = parseUrl(address);
    if (!url)
        return {"Not sent: \"" + address + "\" is not a web address", false};
    const bool loopback = isLoopback(url->host);
    if (url->scheme != "https" && (withCredentials || url->credentials) && !loopback)
        return {
            "Not sent: the password would cross the network unencrypted; only https:// may "
            "carry it to another machine",
            loopback};
    return {{}, loopback};
}

}  // namespace

HttpClient::HttpClient(std::string user, std::string password)
    : handle_(nullptr), user_(std::move(user)), password_(std::move(password)) {
    initialiseCurl();
    handle_ = curl_easy_init();
}

HttpClient::~HttpClient() {
    if (handle_)
        curl_easy_cleanup(static_cast<CURL*>(handle_));
}

HttpResponse HttpClient::send(std::string_view method, const std::string& url,
                              const std::string& jsonBody, const HttpLimits& limits,
                              const std::atomic<bool>* cancel) {
    HttpResponse response;
    auto* curl = static_cast<CURL*>(handle_);
    if (!curl) {
        response.transportError = "libcurl could not start";
        return response;
    }
    const bool withCredentials = !user_.empty() || !password_.empty();
    const Destination destination = destinationOf(url, withCredentials);
    if (!destination.problem.empty()) {
        response.refused = true;
        response.transportError = destination.problem;
        return response;
    }
    curl_easy_reset(curl);
    char errorText[CURL_ERROR_SIZE] = {};
    const std::string verb(method);
    const long stall = milliseconds(limits.stallSeconds, 30'000);
    const long total = milliseconds(limits.totalSeconds, 300'000);
    const auto started = std::chrono::steady_clock::now();
    Transfer transfer{response, limits.maxBody, cancel, started + std::chrono::milliseconds(total)};

    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    // Off already; said here because the check above holds only for this URL.
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    // A proxy would see a loopback request's credentials in clear, and
    // could not reach this computer's server anyway.
    if (destination.loopback)
        curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, std::min({stall, total, 15'000L}));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, std::max(stall / 1000, 1L));
    // Only should the progress callback not be called in time.
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, total + 2'000);
    // Refuses a too large answer before reading it when its length is known.
    curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits.maxBody));
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    if (withCredentials) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
        curl_easy_setopt(curl, CURLOPT_USERNAME, user_.c_str());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, password_.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, header);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);

    curl_slist* headers = curl_slist_append(nullptr, "Accept: application/json");
    if (!jsonBody.empty()) {
        headers = curl_slist_append(headers, "Content-Type: application/json");
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, jsonBody.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(jsonBody.size()));
    }
    if (verb == "GET" && jsonBody.empty())
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    else
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, verb.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);

    const CURLcode code = curl_easy_perform(curl);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    curl_slist_free_all(headers);
    if (code == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
        return response;
    }
    response.body.clear();
    response.body.shrink_to_fit();
    if (code == CURLE_FILESIZE_EXCEEDED)
        response.tooLarge = true;
    response.tooSlow = transfer.overTime || (code == CURLE_OPERATION_TIMEDOUT &&
                                             elapsed >= std::chrono::milliseconds(total));
    response.timedOut = response.tooSlow || code == CURLE_OPERATION_TIMEDOUT;
    if (response.tooLarge)
        response.transportError =
            "The answer is larger than " + sizeText(limits.maxBody) + "; the rest was not read";
    else if (response.tooSlow)
        response.transportError =
            "The server did not finish its answer within " + secondsText(total);
    else
        response.transportError = errorText[0] ? errorText : curl_easy_strerror(code);
    return response;
}

std::string escape(std::string_view text) {
    std::string out;
    static constexpr char hex[] = "0123456789ABCDEF";
    for (unsigned char c : text) {
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
            c == '-' || c == '_' || c == '.' || c == '~') {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 15]);
        }
    }
    return out;
}

std::optional<UrlParts> parseUrl(const std::string& address) {
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), curl_url_cleanup);
    if (!url || curl_url_set(url.get(), CURLUPART_URL, address.c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    auto part = [&url](CURLUPart which) { return urlPart(url.get(), which); };
    return UrlParts{
        .scheme = lowercase(part(CURLUPART_SCHEME).value_or("")),
        .host = part(CURLUPART_HOST).value_or(""),
        .path = part(CURLUPART_PATH).value_or(""),
        .credentials = part(CURLUPART_USER) || part(CURLUPART_PASSWORD),
        .queryOrFragment = part(CURLUPART_QUERY) || part(CURLUPART_FRAGMENT),
    };
}

bool isLoopback(std::string_view name) {
    const std::string host = lowercase(name);
    if (host == "localhost" || host == "[::1]" || host == "::1")
        return true;
    // A dotted IPv4 address in 127.0.0.0/8; "127.example.org" is not one.
    int parts = 0;
    std::size_t start = 0;
    for (;;) {
        const std::size_t dot = host.find('.', start);
        const std::string part = host.substr(start, dot - start);
        if (part.empty() || part.size() > 3 ||
            !std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
            std::stoi(part) > 255 || (parts == 0 && part != "127"))
            return false;
        ++parts;
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    return parts == 4;
}

}  // namespace zettly::couch
