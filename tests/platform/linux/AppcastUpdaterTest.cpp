#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest/QTest>
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/linux/AppcastUpdater.h"
#include "platform/linux/QtMainQueue.h"
#include "store/Defaults.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

using Kind = UpdateCheckResult::Kind;

// A one-answer-per-connection HTTP server on 127.0.0.1: path to raw response.
class FeedServer {
public:
    FeedServer() {
        server_.listen(QHostAddress::LocalHost);
        QObject::connect(&server_, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection())
                serve(socket);
        });
    }
    QString url(const QString& path) const {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(server_.serverPort()).arg(path);
    }
    void ok(const QString& path, const QByteArray& body) {
        routes_[path] = "HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\nContent-Length: " +
                        QByteArray::number(body.size()) + "\r\n\r\n" + body;
    }
    void redirect(const QString& path, const QString& target) {
        routes_[path] =
            "HTTP/1.1 302 Found\r\nLocation: " + target.toUtf8() + "\r\nContent-Length: 0\r\n\r\n";
    }

private:
    void serve(QTcpSocket* socket) {
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
            request_[socket] += socket->readAll();
            if (!request_[socket].contains("\r\n\r\n"))
                return;
            const QString path = QString::fromUtf8(request_[socket].split(' ').value(1));
            request_.erase(socket);
            auto route = routes_.find(path);
            socket->write(route != routes_.end()
                              ? route->second
                              : QByteArray("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"));
            socket->disconnectFromHost();
        });
    }

    QTcpServer server_;
    std::map<QString, QByteArray> routes_;
    std::map<QTcpSocket*, QByteArray> request_;
};

const QByteArray feed = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel>
  <title>Zettly</title>
  <item>
    <title>1.1</title>
    <enclosure url="https://example.org/zettly-1.1.tar.gz" sparkle:version="1.1" length="1"/>
  </item>
  <item>
    <title>1.2.3</title>
    <sparkle:version>1.2.3.1</sparkle:version>
    <sparkle:shortVersionString>1.2.3</sparkle:shortVersionString>
    <sparkle:minimumSystemVersion>10.13</sparkle:minimumSystemVersion>
    <sparkle:releaseNotesLink>https://example.org/notes/1.2.3.html</sparkle:releaseNotesLink>
    <sparkle:deltas>
      <enclosure url="https://example.org/delta-1.1-1.2.3" sparkle:version="1.2.3.1"/>
    </sparkle:deltas>
    <enclosure url="https://example.org/zettly-1.2.3.tar.gz" length="1"/>
  </item>
  <item>
    <title>2.0 beta</title>
    <sparkle:channel>beta</sparkle:channel>
    <enclosure url="https://example.org/zettly-2.0b1.tar.gz" sparkle:version="2.0b1"/>
  </item>
</channel>
</rss>)";

struct AppcastUpdaterTest : ::testing::Test {
    test::TempDir dir;
    test::FakeClock clock;
    test::RecordingLog log;
    Defaults defaults{dir / "defaults.json", clock, log};
    QtMainQueue queue;
    FeedServer server;

    UpdateCheckResult check(const std::string& running, const QString& feedUrl) {
        defaults.setString(AppcastUpdater::feedUrlKey, feedUrl.toStdString());
        AppcastUpdater updater(running, defaults, queue, clock, log);
        std::optional<UpdateCheckResult> result;
        updater.onUserCheckResult = [&](const UpdateCheckResult& r) { result = r; };
        updater.checkForUpdates();
        EXPECT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, 30'000));
        EXPECT_EQ(updater.notice().version(), std::nullopt);
        return result.value_or(UpdateCheckResult{});
    }
};

TEST_F(AppcastUpdaterTest, ANewerReleaseIsOfferedWithItsShownVersionAndLinks) {
    server.ok("/feed.xml", feed);
    server.redirect("/old.xml", server.url("/feed.xml"));
    UpdateCheckResult r = check("1.1", server.url("/old.xml"));
    ASSERT_EQ(r.kind, Kind::newer) << r.error;
    EXPECT_EQ(r.version, "1.2.3");
    EXPECT_EQ(r.releaseNotesUrl, "https://example.org/notes/1.2.3.html");
    EXPECT_EQ(r.downloadUrl, "https://example.org/zettly-1.2.3.tar.gz");

    AppcastUpdater updater("1.1", defaults, queue, clock, log);
    updater.checkInBackground();
    EXPECT_TRUE(QTest::qWaitFor([&] { return updater.notice().version().has_value(); }, 30'000));
    EXPECT_EQ(updater.notice().version(), "1.2.3");
}

TEST_F(AppcastUpdaterTest, TheNewestReleaseOrANewerBuildIsUpToDate) {
    server.ok("/feed.xml", feed);
    EXPECT_EQ(check("1.2.3.1", server.url("/feed.xml")).kind, Kind::upToDate);
    EXPECT_EQ(check("1.3", server.url("/feed.xml")).kind, Kind::upToDate);
}

TEST_F(AppcastUpdaterTest, ABrokenOrEmptyFeedIsAnErrorNeverAnUpdate) {
    server.ok("/cut.xml", feed.left(feed.indexOf("<item>", 300)));
    server.ok("/html.xml", "<html><body>Moved</body>");
    server.ok("/beta.xml",
              R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
        <channel><item><sparkle:channel>beta</sparkle:channel><sparkle:version>9</sparkle:version>
        </item><item><title>no version</title></item></channel></rss>)");

    UpdateCheckResult cut = check("1.0", server.url("/cut.xml"));
    EXPECT_EQ(cut.kind, Kind::failed);
    EXPECT_NE(cut.error.find("not valid XML"), std::string::npos) << cut.error;
    EXPECT_EQ(check("1.0", server.url("/html.xml")).kind, Kind::failed);
    UpdateCheckResult beta = check("1.0", server.url("/beta.xml"));
    EXPECT_EQ(beta.kind, Kind::failed);
    EXPECT_EQ(beta.error, "The update feed lists no release.");
}

TEST_F(AppcastUpdaterTest, UnreachableHugeAndPlainHttpFeedsFailWithAReason) {
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QString closedUrl =
        QStringLiteral("http://127.0.0.1:%1/feed.xml").arg(closed.serverPort());
    closed.close();
    UpdateCheckResult refused = check("1.0", closedUrl);
    EXPECT_EQ(refused.kind, Kind::failed);
    EXPECT_NE(refused.error.find("Could not reach the update server"), std::string::npos)
        << refused.error;

    server.ok("/huge.xml", QByteArray(AppcastUpdater::maximumFeedBytes + 1, ' '));
    EXPECT_EQ(check("1.0", server.url("/huge.xml")).error, "The update feed is larger than 1 MB.");

    // 203.0.113.0/24 is reserved for documentation: nothing must connect there.
    const std::string https = "The update feed must be reached over https";
    server.redirect("/away.xml", "http://203.0.113.7/feed.xml");
    EXPECT_EQ(check("1.0", server.url("/away.xml")).error.rfind(https, 0), 0u);
    EXPECT_EQ(check("1.0", "http://203.0.113.7/feed.xml").error.rfind(https, 0), 0u);
    EXPECT_EQ(check("1.0", "file:///etc/passwd").kind, Kind::failed);
}

TEST_F(AppcastUpdaterTest, TheEnvironmentOverridesTheFeedPreferenceAndAutomaticChecksDefaultOn) {
    AppcastUpdater updater("1.0", defaults, queue, clock, log);
    EXPECT_FALSE(updater.configured());
    EXPECT_TRUE(updater.automaticallyChecks());
    updater.setAutomaticallyChecks(false);
    EXPECT_EQ(defaults.boolObject(AppcastUpdater::automaticChecksKey), false);
    EXPECT_FALSE(updater.automaticallyChecks());

    defaults.setString(AppcastUpdater::feedUrlKey, " https://example.org/appcast.xml\n");
    EXPECT_EQ(updater.feedUrl(), "https://example.org/appcast.xml");
    qputenv(AppcastUpdater::feedEnvironment, "https://mirror.example.net/appcast.xml");
    EXPECT_EQ(updater.feedUrl(), "https://mirror.example.net/appcast.xml");
    qputenv(AppcastUpdater::feedEnvironment, "");
    EXPECT_FALSE(updater.configured());
    EXPECT_FALSE(updater.canCheckForUpdates());
    qunsetenv(AppcastUpdater::feedEnvironment);
    EXPECT_TRUE(updater.configured());
}

}  // namespace
}  // namespace zettly

// The network replies and the test server run on Qt's event loop.
int main(int argc, char** argv) {
    qunsetenv(zettly::AppcastUpdater::feedEnvironment);
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
