// Signing in and talking to the server: the one shared HTTP connection, and
// what its answers mean as cloud errors.
#include <utility>

#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

std::optional<Json> parse(const std::string& body) {
    Json json = Json::parse(body, nullptr, false);
    if (json.is_discarded())
        return std::nullopt;
    return json;
}

std::string reasonOf(const HttpResponse& response) {
    auto json = parse(response.body);
    if (!json)
        return "HTTP " + std::to_string(response.status);
    std::string reason =
        stringMember(*json, "error").value_or("HTTP " + std::to_string(response.status));
    if (auto detail = stringMember(*json, "reason"); detail && !detail->empty())
        reason += ": " + *detail;
    return reason;
}

CloudError requestFailure(const HttpResponse& response, const std::string& what) {
    if (response.refused) {
        CloudError error(CloudErrorCode::invalidArguments, what + ": " + response.transportError);
        error.userMessage = describe(CouchUrlProblem::plainHttpToAnotherMachine);
        return error;
    }
    if (response.tooLarge) {
        CloudError error(CloudErrorCode::limitExceeded, what + ": " + response.transportError);
        error.userMessage = "The sync server sent an answer too large to accept";
        return error;
    }
    if (!response.answered()) {
        CloudError error(CloudErrorCode::networkFailure, what + ": " + response.transportError);
        if (response.tooSlow)
            error.userMessage = "The sync server took too long to answer";
        return error;
    }
    const std::string reason = what + ": " + reasonOf(response);
    const long status = response.status;
    if (status == 401 || status == 403)
        return CloudError(CloudErrorCode::notAuthenticated, reason);
    if (status == 404)
        return CloudError(CloudErrorCode::zoneNotFound, reason);
    if (status == 413)
        return CloudError(CloudErrorCode::limitExceeded, reason);
    if (status == 429)
        return CloudError(CloudErrorCode::requestRateLimited, reason);
    if (status >= 500)
        return CloudError(CloudErrorCode::serviceUnavailable, reason);
    return CloudError(CloudErrorCode::serverRejectedRequest, reason);
}

CloudError unexpectedAnswer(const std::string& what) {
    return CloudError(CloudErrorCode::serverRejectedRequest,
                      what + ": the server's answer is not what CouchDB sends");
}

Backend::Backend(CouchSettings settings, Log& log)
    : settings_(std::move(settings)),
      log_(log),
      http_(settings_.user, settings_.password),
      passphrase_(settings_.passphrase) {
    if (!couchUrlProblem(settings_.databaseUrl)) {
        std::string url = settings_.databaseUrl;
        while (url.ends_with('/'))
            url.pop_back();
        databaseUrl_ = url;
        serverUrl_ = url.substr(0, url.rfind('/'));
    }
}

bool Backend::configured() const {
    return !settings_.databaseUrl.empty() && !settings_.user.empty() &&
           !settings_.passphrase.empty();
}

CloudResult<> Backend::usable() const {
    if (!configured())
        return CloudError(CloudErrorCode::notAuthenticated, "No sync server is set up");
    if (databaseUrl_.empty())
        return CloudError(
            CloudErrorCode::invalidArguments,
            describe(
                couchUrlProblem(settings_.databaseUrl).value_or(CouchUrlProblem::notAnAddress)));
    return {};
}

HttpResponse Backend::send(std::string_view method, const std::string& url, const std::string& body,
                           std::size_t maxBody) {
    // The stall limit alone lets a server that sends a byte now and then
    // hold sync for ever. A batch of images takes longer than one JSON
    // answer: 29 MiB at 1 Mbit/s is about four minutes, within ten times
    // the default 30 seconds.
    const double stall = settings_.requestTimeoutSeconds;
    const HttpLimits limits{stall, stall * 10, maxBody};
    HttpResponse response;
    {
        std::lock_guard lock(httpMutex_);
        response = http_.send(method, url, body, limits);
    }
    noteClock(response);
    return response;
}

void Backend::noteClock(const HttpResponse& response) {
    if (!response.serverDate)
        return;
    std::lock_guard lock(clockMutex_);
    clockSkew_ = response.receivedAt - static_cast<double>(*response.serverDate);
}

std::optional<double> Backend::clockSkew() const {
    std::lock_guard lock(clockMutex_);
    return clockSkew_;
}

CloudResult<Json> Backend::call(std::string_view method, const std::string& url,
                                const std::string& body, const std::string& what,
                                std::size_t maxBody) {
    auto response = send(method, url, body, maxBody);
    if (!response.success())
        return requestFailure(response, what);
    auto json = parse(response.body);
    if (!json)
        return unexpectedAnswer(what);
    return std::move(*json);
}

CloudResult<std::string> Backend::userRecordName() {
    if (auto ready = usable(); !ready)
        return ready.error();
    auto session = call("GET", serverUrl_ + "/_session", {}, "Signing in", smallAnswer);
    if (!session)
        return session.error();
    // pouchdb-server without admins ("admin party") signs nobody in.
    const Json* context = member(session.value(), "userCtx");
    if (auto name = context ? stringMember(*context, "name") : std::nullopt; name && !name->empty())
        return *name;
    return settings_.user;
}

}  // namespace zettly::couch
