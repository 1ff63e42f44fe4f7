#include "platform/linux/PortalRemoteDesktop.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/linux/PortalRequest.h"

namespace zettly {

namespace {

const QString remoteInterface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
constexpr unsigned keyboardDevice = 1;
// Kept until the user revokes it in the desktop's settings.
constexpr unsigned persistUntilRevoked = 2;

// The evdev codes of the chord: modifiers first, released in reverse.
std::vector<int> keycodesOf(PasteChord chord) {
    constexpr int ctrl = 29, shift = 42, v = 47, insert = 110;
    switch (chord) {
        case PasteChord::ctrlV:
            return {ctrl, v};
        case PasteChord::ctrlShiftV:
            return {ctrl, shift, v};
        case PasteChord::shiftInsert:
            return {shift, insert};
    }
    return {};
}

std::string refusal(unsigned response) {
    return response == 1 ? "the request to type the paste keys was declined"
                         : "the desktop ended the request to type the paste keys";
}

std::string trimmed(std::string text) {
    const char* space = " \t\r\n";
    text.erase(text.find_last_not_of(space) + 1);
    text.erase(0, text.find_first_not_of(space));
    return text;
}

}  // namespace

bool PortalRemoteDesktop::available(const QDBusConnection& bus) {
    if (!portal::uintProperty(bus, remoteInterface, QStringLiteral("version")))
        return false;
    auto devices =
        portal::uintProperty(bus, remoteInterface, QStringLiteral("AvailableDeviceTypes"));
    return devices && (*devices & keyboardDevice);
}

PortalRemoteDesktop::PortalRemoteDesktop(QDBusConnection bus, std::filesystem::path tokenFile,
                                         Log& log)
    : bus_(std::move(bus)), tokenFile_(std::move(tokenFile)), log_(log) {}

PortalRemoteDesktop::~PortalRemoteDesktop() {
    endSession();
}

bool PortalRemoteDesktop::ready() {
    return stage_ != Stage::stopped;
}

void PortalRemoteDesktop::type(PasteChord chord) {
    switch (stage_) {
        case Stage::started:
            press(chord);
            break;
        case Stage::idle:
        case Stage::asking:
            // Typed once the desktop agrees; only the newest paste counts.
            waiting_ = chord;
            prepare();
            break;
        case Stage::stopped:
            log_.line("[Zettly] the paste keys were not typed: " + problem_);
            break;
    }
}

void PortalRemoteDesktop::prepare() {
    if (stage_ != Stage::idle)
        return;
    stage_ = Stage::asking;
    pending_ = portal::createSession(
        bus_, remoteInterface, this,
        [this](const QString& session) {
            session_ = session;
            bus_.connect(portal::service, session_, sessionInterface, QStringLiteral("Closed"),
                         this, SLOT(sessionClosed()));
            selectDevices();
        },
        [this](unsigned response, const QString& error) {
            stop(response
                     ? refusal(response)
                     : "the desktop portal refused to type keys (" + error.toStdString() + ")");
        });
}

void PortalRemoteDesktop::selectDevices() {
    QVariantMap options{{QStringLiteral("types"), keyboardDevice},
                        {QStringLiteral("persist_mode"), persistUntilRevoked}};
    // A token is good for one session: the desktop then skips its dialog.
    if (std::string token = storedToken(); !token.empty())
        options.insert(QStringLiteral("restore_token"), QString::fromStdString(token));
    pending_ = portal::Request::send(
        bus_, remoteInterface, QStringLiteral("SelectDevices"),
        {QVariant::fromValue(QDBusObjectPath(session_))}, options, this,
        [this](unsigned response, const QVariantMap&) {
            if (response != 0)
                return stop(refusal(response));
            start();
        },
        [this](const QString& error) {
            stop("the desktop portal refused a keyboard (" + error.toStdString() + ")");
        });
}

void PortalRemoteDesktop::start() {
    pending_ = portal::Request::send(
        bus_, remoteInterface, QStringLiteral("Start"),
        {QVariant::fromValue(QDBusObjectPath(session_)), QString()}, {}, this,
        [this](unsigned response, const QVariantMap& results) {
            if (response != 0)
                return stop(refusal(response));
            started(results);
        },
        [this](const QString& error) {
            stop("the desktop portal did not start typing (" + error.toStdString() + ")");
        });
}

void PortalRemoteDesktop::started(const QVariantMap& results) {
    if (!(results.value(QStringLiteral("devices")).toUInt() & keyboardDevice))
        return stop("the desktop granted no keyboard to type with");
    // The token just used is spent; without a new one the next session asks
    // again.
    storeToken(results.value(QStringLiteral("restore_token")).toString().toStdString());
    stage_ = Stage::started;
    log_.line("[Zettly] the desktop lets Zettly type the paste keys");
    notify();
    if (waiting_) {
        PasteChord chord = *waiting_;
        waiting_.reset();
        press(chord);
    }
}

void PortalRemoteDesktop::stop(const std::string& why) {
    endSession();
    stage_ = Stage::stopped;
    problem_ = why;
    waiting_.reset();
    log_.line("[Zettly] pasting stays off until it is allowed again in Settings: " + why);
    notify();
}

void PortalRemoteDesktop::askAgain() {
    if (stage_ == Stage::stopped) {
        stage_ = Stage::idle;
        problem_.clear();
        notify();
    }
    prepare();
}

void PortalRemoteDesktop::endSession() {
    if (pending_)
        pending_->abandon();
    if (session_.isEmpty())
        return;
    bus_.disconnect(portal::service, session_, sessionInterface, QStringLiteral("Closed"), this,
                    SLOT(sessionClosed()));
    portal::closeSession(bus_, session_);
    session_.clear();
}

void PortalRemoteDesktop::sessionClosed() {
    // The user stopped it (a desktop's "stop sharing" control) or the
    // portal went away: the next paste asks anew.
    log_.line("[Zettly] the desktop ended Zettly's typing session");
    endSession();
    stage_ = Stage::idle;
    waiting_.reset();
    notify();
}

void PortalRemoteDesktop::press(PasteChord chord) {
    const std::vector<int> keys = keycodesOf(chord);
    std::vector<std::pair<int, unsigned>> events;
    for (int key : keys)
        events.emplace_back(key, 1u);
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        events.emplace_back(*key, 0u);
    const QString session = session_;
    for (const auto& [key, state] : events) {
        QDBusMessage call =
            QDBusMessage::createMethodCall(portal::service, portal::objectPath, remoteInterface,
                                           QStringLiteral("NotifyKeyboardKeycode"));
        call << QVariant::fromValue(QDBusObjectPath(session)) << QVariantMap{} << key << state;
        auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, session](QDBusPendingCallWatcher* finished) {
                    finished->deleteLater();
                    QDBusPendingReply<> reply = *finished;
                    // One report for the whole chord: the session is gone
                    // after the first.
                    if (!reply.isError() || session != session_)
                        return;
                    log_.line("[Zettly] the desktop refused the typed paste keys: " +
                              reply.error().message().toStdString());
                    endSession();
                    stage_ = Stage::idle;
                    notify();
                });
    }
}

std::string PortalRemoteDesktop::storedToken() const {
    std::ifstream in(tokenFile_);
    return trimmed(std::string(std::istreambuf_iterator<char>(in), {}));
}

void PortalRemoteDesktop::storeToken(const std::string& token) {
    std::error_code ec;
    if (token.empty()) {
        std::filesystem::remove(tokenFile_, ec);
        if (ec)
            log_.line("[Zettly] could not remove the spent typing permission " +
                      tokenFile_.string() + ": " + ec.message());
        return;
    }
    if (!files::createPrivateDirectories(tokenFile_.parent_path(), ec) ||
        !files::writeAtomically(tokenFile_, token, ec))
        log_.line("[Zettly] could not keep the typing permission in " + tokenFile_.string() + " (" +
                  ec.message() + "); the desktop will ask again next time");
}

void PortalRemoteDesktop::notify() {
    if (auto handler = changed)
        handler();
}

}  // namespace zettly
