#include "platform/couch/CouchHttp.h"

#include <algorithm>
#include <cmath>
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

std::size_t collect(char* data, std::size_t size, std::size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

int progress(void* cancel, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto* flag = static_cast<const std::atomic<bool>*>(cancel);
    return flag && flag->load() ? 1 : 0;
}

long milliseconds(double seconds) {
    if (!std::isfinite(seconds) || seconds <= 0)
        return 30'000;
    return static_cast<long>(std::min(seconds, 24.0 * 3600) * 1000);
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
                              const std::string& jsonBody, double stallSeconds,
                              const std::atomic<bool>* cancel, double totalSeconds) {
    HttpResponse response;
    auto* curl = static_cast<CURL*>(handle_);
    if (!curl) {
        response.transportError = "libcurl could not start";
        return response;
    }
    curl_easy_reset(curl);
    char errorText[CURL_ERROR_SIZE] = {};
    const std::string verb(method);
    const long stall = milliseconds(stallSeconds);

    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, std::min(stall, 15'000L));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, std::max(stall / 1000, 1L));
    if (totalSeconds > 0)
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, milliseconds(totalSeconds));
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    curl_easy_setopt(curl, CURLOPT_USERNAME, user_.c_str());
    curl_easy_setopt(curl, CURLOPT_PASSWORD, password_.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, const_cast<std::atomic<bool>*>(cancel));
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
    curl_slist_free_all(headers);
    if (code != CURLE_OK) {
        response.body.clear();
        response.timedOut = code == CURLE_OPERATION_TIMEDOUT;
        response.transportError = errorText[0] ? errorText : curl_easy_strerror(code);
        return response;
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
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

}  // namespace zettly::couch
