#include "platform/linux/AppcastUpdater.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>
#include <QXmlStreamReader>
#include <cstdlib>

#include "platform/Defaults.h"

namespace zettly {

namespace {

const QString sparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

// A feed decides what the user is offered to open; file: or javascript:
// links from it are dropped.
std::string webLink(const QString& text) {
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return {};
    if (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http"))
        return {};
    return url.toString(QUrl::FullyEncoded).toStdString();
}

struct ItemFields {
    QString version, shortVersion;
    QString enclosureVersion, enclosureShortVersion;
    QString notes, enclosureUrl, link;
    bool onChannel = false;
};

// Reads the rest of an <item>; the reader stands on its start.
std::optional<AppcastRelease> readItem(QXmlStreamReader& xml) {
    ItemFields f;
    while (xml.readNextStartElement()) {
        const auto ns = xml.namespaceUri();
        const auto name = xml.name();
        if (ns == sparkleNamespace && name == QLatin1String("version")) {
            f.version = xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        } else if (ns == sparkleNamespace && name == QLatin1String("shortVersionString")) {
            f.shortVersion = xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        } else if (ns == sparkleNamespace && name == QLatin1String("releaseNotesLink")) {
            f.notes = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (ns == sparkleNamespace && name == QLatin1String("channel")) {
            f.onChannel =
                !xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed().isEmpty();
        } else if (ns.isEmpty() && name == QLatin1String("enclosure")) {
            const QXmlStreamAttributes attributes = xml.attributes();
            f.enclosureUrl = attributes.value(QLatin1String("url")).toString();
            f.enclosureVersion =
                attributes.value(sparkleNamespace, QLatin1String("version")).toString().trimmed();
            f.enclosureShortVersion =
                attributes.value(sparkleNamespace, QLatin1String("shortVersionString"))
                    .toString()
                    .trimmed();
            xml.skipCurrentElement();
        } else if (ns.isEmpty() && name == QLatin1String("link")) {
            f.link = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else {
            // Includes <sparkle:deltas>, whose enclosures patch one old
            // version and are no download for everyone.
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError() || f.onChannel)
        return std::nullopt;
    const QString shortVersion =
        f.shortVersion.isEmpty() ? f.enclosureShortVersion : f.shortVersion;
    QString version = f.version.isEmpty() ? f.enclosureVersion : f.version;
    if (version.isEmpty())
        version = shortVersion;
    if (version.isEmpty())
        return std::nullopt;
    AppcastRelease release;
    release.version = version.toStdString();
    release.displayVersion = (shortVersion.isEmpty() ? version : shortVersion).toStdString();
    release.releaseNotesUrl = webLink(f.notes);
    release.downloadUrl = webLink(f.enclosureUrl);
    if (release.downloadUrl.empty())
        release.downloadUrl = webLink(f.link);
    return release;
}

QString invalidAddress(const QUrl& url) {
    //: Result of "Check for Updates…": the configured update feed address is unusable. The
    //: placeholder is the address.
    return QCoreApplication::translate("zettly::AppcastUpdater",
                                       "The update feed address is not valid: %1")
        .arg(url.toString());
}

// Why the program will not fetch from this address, or nothing.
QString refusal(const QUrl& url) {
    if (!url.isValid() || url.host().isEmpty())
        return invalidAddress(url);
    if (url.scheme() == QLatin1String("https"))
        return {};
    if (url.scheme() == QLatin1String("http")) {
        QHostAddress address;
        const QString host = url.host();
        if (address.setAddress(host)
                ? address.isLoopback()
                : host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
            return {};
        //: Result of "Check for Updates…": the update feed (or a redirect) uses plain http. The
        //: placeholder is the address.
        return QCoreApplication::translate("zettly::AppcastUpdater",
                                           "The update feed must be reached over https: %1")
            .arg(url.toString());
    }
    return invalidAddress(url);
}

UpdateCheckResult failure(const QString& why) {
    return UpdateCheckResult{.kind = UpdateCheckResult::Kind::failed, .error = why.toStdString()};
}

QString tooLarge() {
    //: Result of "Check for Updates…": the server sent far more than an update feed.
    return QCoreApplication::translate("zettly::AppcastUpdater",
                                       "The update feed is larger than 1 MB.");
}

// The state of one request, shared by its signal handlers.
struct Transfer {
    QByteArray body;
    QString refused;  // set when the program cut the transfer short
};

}  // namespace

AppcastReading readAppcast(const QByteArray& bytes) {
    QXmlStreamReader xml(bytes);
    std::optional<AppcastRelease> newest;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement() || xml.name() != QLatin1String("item") ||
            !xml.namespaceUri().isEmpty())
            continue;
        std::optional<AppcastRelease> release = readItem(xml);
        if (release && (!newest || compareVersions(release->version, newest->version) > 0))
            newest = std::move(release);
    }
    if (xml.hasError()) {
        //: Result of "Check for Updates…": the update feed could not be read. The placeholders
        //: are a line number and the XML parser's own message.
        return {std::nullopt,
                QCoreApplication::translate("zettly::AppcastUpdater",
                                            "The update feed is not valid XML (line %1: %2).")
                    .arg(xml.lineNumber())
                    .arg(xml.errorString())};
    }
    if (!newest) {
        //: Result of "Check for Updates…": the update feed names no version that applies.
        return {std::nullopt, QCoreApplication::translate("zettly::AppcastUpdater",
                                                          "The update feed lists no release.")};
    }
    return {std::move(newest), {}};
}

AppcastUpdater::AppcastUpdater(std::string runningVersion, Defaults& defaults, MainQueue& queue,
                               const Clock& clock, Log& log)
    : Updater(queue, clock, log), runningVersion_(std::move(runningVersion)), defaults_(defaults) {}

AppcastUpdater::~AppcastUpdater() = default;

std::string AppcastUpdater::feedUrl() const {
    std::string url;
    if (const char* environment = std::getenv(feedEnvironment))
        url = environment;
    else
        url = defaults_.string(feedUrlKey).value_or("");
    return QString::fromStdString(url).trimmed().toStdString();
}

bool AppcastUpdater::configured() const {
    return !feedUrl().empty();
}

bool AppcastUpdater::automaticallyChecks() const {
    return defaults_.boolObject(automaticChecksKey).value_or(true);
}

void AppcastUpdater::setAutomaticallyChecks(bool on) {
    defaults_.setBool(automaticChecksKey, on);
}

void AppcastUpdater::fetch(std::function<void(UpdateCheckResult)> done) {
    const QUrl url(QString::fromStdString(feedUrl()), QUrl::StrictMode);
    if (QString why = refusal(url); !why.isEmpty()) {
        done(failure(why));
        return;
    }
    if (!network_)
        network_ = std::make_unique<QNetworkAccessManager>();

    QNetworkRequest request(url);
    // Each hop is checked like the feed address itself, so a redirect cannot
    // move the check to plain http on another host.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(maximumRedirects);
    request.setTransferTimeout(timeoutMilliseconds);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QString::fromStdString("Zettly/" + runningVersion_));
    request.setRawHeader("Accept", "application/rss+xml, application/xml;q=0.9, */*;q=0.1");

    QNetworkReply* reply = network_->get(request);
    auto transfer = std::make_shared<Transfer>();
    auto cut = [reply, transfer](const QString& why) {
        transfer->refused = why;
        reply->abort();
    };
    QObject::connect(reply, &QNetworkReply::redirected, reply, [reply, cut](const QUrl& target) {
        if (QString why = refusal(target); !why.isEmpty())
            cut(why);
        else
            Q_EMIT reply->redirectAllowed();
    });
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, cut] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > maximumFeedBytes)
            cut(tooLarge());
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [reply, transfer, cut] {
        if (!transfer->refused.isEmpty())
            return;
        transfer->body += reply->readAll();
        if (transfer->body.size() > maximumFeedBytes)
            cut(tooLarge());
    });
    QObject::connect(
        reply, &QNetworkReply::finished, reply, [this, reply, transfer, done = std::move(done)] {
            reply->deleteLater();
            if (!transfer->refused.isEmpty()) {
                done(failure(transfer->refused));
                return;
            }
            if (reply->error() == QNetworkReply::OperationCanceledError) {
                //: Result of "Check for Updates…": the update server stopped answering.
                done(failure(QCoreApplication::translate(
                    "zettly::AppcastUpdater", "The update server did not answer in time.")));
                return;
            }
            if (reply->error() != QNetworkReply::NoError) {
                //: Result of "Check for Updates…": the placeholder is the network error, e.g.
                //: "Connection refused".
                done(failure(QCoreApplication::translate("zettly::AppcastUpdater",
                                                         "Could not reach the update server: %1")
                                 .arg(reply->errorString())));
                return;
            }
            transfer->body += reply->readAll();
            if (transfer->body.size() > maximumFeedBytes) {
                done(failure(tooLarge()));
                return;
            }
            AppcastReading reading = readAppcast(transfer->body);
            if (!reading.newest) {
                done(failure(reading.error));
                return;
            }
            const AppcastRelease& release = *reading.newest;
            if (compareVersions(release.version, runningVersion_) <= 0) {
                done(UpdateCheckResult{.kind = UpdateCheckResult::Kind::upToDate,
                                       .version = runningVersion_});
                return;
            }
            done(UpdateCheckResult{.kind = UpdateCheckResult::Kind::newer,
                                   .version = release.displayVersion,
                                   .releaseNotesUrl = release.releaseNotesUrl,
                                   .downloadUrl = release.downloadUrl});
        });
}

}  // namespace zettly
