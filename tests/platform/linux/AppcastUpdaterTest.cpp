#include <QCoreApplication>
#include <QMap>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest/QTest>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Defaults.h"
#include "platform/linux/AppcastUpdater.h"
#include "platform/linux/QtMainQueue.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

using Kind = UpdateCheckResult::Kind;

// Answers each request on 127.0.0.1 with the response stored for its path.
class FeedServer {
public:
    FeedServer() {
        server_.listen(QHostAddress::LocalHost);
        QObject::connect(&server_, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection())
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->peek(1 << 16).contains("\r\n\r\n"))
                        return;
                    const QString path = QString::fromUtf8(socket->readAll().split(' ').value(1));
                    socket->write(routes_.value(path, "HTTP/1.1 404 Not Found\r\n\r\n"));
                    socket->disconnectFromHost();
                });
        });
    }
    QString url(const QString& path) const {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(server_.serverPort()).arg(path);
    }
    void ok(const QString& path, const QByteArray& body) {
        routes_[path] = "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) +
                        "\r\n\r\n" + body;
    }
    void redirect(const QString& path, const QString& to) {
        routes_[path] = "HTTP/1.1 302 Found\r\nLocation: " + to.toUtf8() + "\r\n\r\n";
    }

private:
    QTcpServer server_;
    QMap<QString, QByteArray> routes_;
};

const QByteArray feed =
    R"(<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel>
  <item>
    <enclosure url="https://example.org/zettly-1.1.tar.gz" sparkle:version="1.1" length="1"/>
  </item>
  <item>
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

TEST_F(AppcastUpdaterTest, ANewerReleaseIsOfferedWithItsShownVersionAndLinksElseUpToDate) {
    server.ok("/feed.xml", feed);
    server.redirect("/old.xml", server.url("/feed.xml"));
    UpdateCheckResult r = check("1.1", server.url("/old.xml"));
    ASSERT_EQ(r.kind, Kind::newer) << r.error;
    EXPECT_EQ(r.version, "1.2.3");
    EXPECT_EQ(r.releaseNotesUrl, "https://example.org/notes/1.2.3.html");
    EXPECT_EQ(r.downloadUrl, "https://example.org/zettly-1.2.3.tar.gz");
    EXPECT_EQ(check("1.2.3.1", server.url("/feed.xml")).kind, Kind::upToDate);
    EXPECT_EQ(check("1.3", server.url("/feed.xml")).kind, Kind::upToDate);

    AppcastUpdater updater("1.1", defaults, queue, clock, log);
    updater.checkInBackground();
    EXPECT_TRUE(QTest::qWaitFor([&] { return updater.notice().version().has_value(); }, 30'000));
    EXPECT_EQ(updater.notice().version(), "1.2.3");
}

TEST_F(AppcastUpdaterTest, BrokenEmptyUnreachableHugeOrPlainHttpFeedsFailWithAReason) {
    server.ok("/cut.xml", feed.left(feed.lastIndexOf("<item>")));
    server.ok("/beta.xml",
              R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
        <channel><item><sparkle:channel>beta</sparkle:channel><sparkle:version>9</sparkle:version>
        </item><item><title>no version</title></item></channel></rss>)");
    server.ok("/huge.xml", QByteArray(AppcastUpdater::maximumFeedBytes + 1, ' '));
    // 203.0.113.0/24 is reserved for documentation: nothing must connect there.
    server.redirect("/away.xml", "http://203.0.113.7/feed.xml");
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QString closedUrl = QStringLiteral("http://127.0.0.1:%1/").arg(closed.serverPort());
    closed.close();

    const std::string https = "The update feed must be reached over https";
    const std::vector<std::pair<QString, std::string>> failures = {
        {server.url("/cut.xml"), "The update feed is not valid XML"},
        {server.url("/beta.xml"), "The update feed lists no release."},
        {server.url("/huge.xml"), "The update feed is larger than 1 MB."},
        {closedUrl, "Could not reach the update server"},
        {server.url("/away.xml"), https},
        {"http://203.0.113.7/feed.xml", https},
        {"file:///etc/passwd", "The update feed address is not valid"},
    };
    for (const auto& [url, reason] : failures) {
        const UpdateCheckResult r = check("1.0", url);
        EXPECT_EQ(r.kind, Kind::failed) << url.toStdString();
        EXPECT_EQ(r.error.rfind(reason, 0), 0u) << url.toStdString() << ": " << r.error;
    }
}

TEST_F(AppcastUpdaterTest, TheEnvironmentOverridesTheFeedPreferenceAndAutomaticChecksDefaultOn) {
    AppcastUpdater updater("1.0", defaults, queue, clock, log);
    EXPECT_FALSE(updater.configured());
    EXPECT_TRUE(updater.automaticallyChecks());
    defaults.setString(AppcastUpdater::feedUrlKey, " https://example.org/appcast.xml\n");
    EXPECT_EQ(updater.feedUrl(), "https://example.org/appcast.xml");
    qputenv(AppcastUpdater::feedEnvironment, "https://mirror.example.net/appcast.xml");
    EXPECT_EQ(updater.feedUrl(), "https://mirror.example.net/appcast.xml");
    qputenv(AppcastUpdater::feedEnvironment, "");
    EXPECT_FALSE(updater.configured());
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
