// The portal classes against a portal of our own on a private session bus:
// a dbus-daemon started by each test, and a fake org.freedesktop.portal.Desktop
// that answers on a thread of its own (as the real one is another process),
// so that the blocking property reads cannot wait on the test's own thread.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QTest>
#include <QThread>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/UsKeyboardLayout.h"
#include "platform/linux/PortalGlobalShortcuts.h"
#include "platform/linux/PortalRemoteDesktop.h"
#include "platform/linux/PortalRequest.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;

constexpr int patienceMs = 10000;

const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString remoteInterface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");

// What the fake portal answers and what it was asked, shared with its
// thread.
struct PortalScript {
    unsigned shortcutsVersion = 2;
    unsigned bindResponse = 0;
    QString triggerDescription = QStringLiteral("Meta+Shift+V");
    unsigned startResponse = 0;
};

struct PortalCalls {
    std::vector<QString> methods;  // in the order they came
    std::vector<QVariantMap> boundShortcuts;
    std::vector<QVariantMap> selectDevicesOptions;
    std::vector<QString> configuredSessions;
    std::vector<QString> closedSessions;
    std::vector<std::pair<int, unsigned>> keys;
    QString lastSession;
    int count(const QString& method) const {
        return int(std::count(methods.begin(), methods.end(), method));
    }
};

class FakePortal final : public QDBusVirtualObject {
public:
    explicit FakePortal(QDBusConnection bus) : bus_(std::move(bus)) {}

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        const QString member = message.member();
        const QVariantList args = message.arguments();
        std::lock_guard lock(mutex_);
        calls_.methods.push_back(member);
        if (member == QLatin1String("Get"))
            return answerProperty(message, args.at(0).toString(), args.at(1).toString());
        if (member == QLatin1String("Close")) {
            if (message.interface() == QLatin1String("org.freedesktop.portal.Session"))
                calls_.closedSessions.push_back(message.path());
            return reply(message, {});
        }
        if (member == QLatin1String("NotifyKeyboardKeycode")) {
            calls_.keys.emplace_back(args.at(2).toInt(), args.at(3).toUInt());
            return reply(message, {});
        }
        if (member == QLatin1String("ConfigureShortcuts")) {
            calls_.configuredSessions.push_back(args.at(0).value<QDBusObjectPath>().path());
            return reply(message, {});
        }
        const QVariantMap options = qdbus_cast<QVariantMap>(args.constLast());
        const QString request = handle(message, QStringLiteral("request"),
                                       options.value(QStringLiteral("handle_token")).toString());
        reply(message, {QVariant::fromValue(QDBusObjectPath(request))});
        if (member == QLatin1String("CreateSession")) {
            calls_.lastSession =
                handle(message, QStringLiteral("session"),
                       options.value(QStringLiteral("session_handle_token")).toString());
            respond(request, 0, {{QStringLiteral("session_handle"), calls_.lastSession}});
        } else if (member == QLatin1String("BindShortcuts")) {
            const auto asked = qdbus_cast<PortalShortcuts>(args.at(1));
            calls_.boundShortcuts.push_back(asked.value(0).properties);
            PortalShortcuts bound;
            for (const PortalShortcut& shortcut : asked)
                bound.push_back(
                    {shortcut.id,
                     {{QStringLiteral("description"),
                       shortcut.properties.value(QStringLiteral("description"))},
                      {QStringLiteral("trigger_description"), script_.triggerDescription}}});
            respond(request, script_.bindResponse,
                    {{QStringLiteral("shortcuts"), QVariant::fromValue(bound)}});
        } else if (member == QLatin1String("SelectDevices")) {
            calls_.selectDevicesOptions.push_back(options);
            respond(request, 0, {});
        } else if (member == QLatin1String("Start")) {
            ++starts_;
            respond(request, script_.startResponse,
                    {{QStringLiteral("devices"), 1u},
                     {QStringLiteral("restore_token"), QStringLiteral("restore-%1").arg(starts_)}});
        }
        return true;
    }

    void script(const PortalScript& script) {
        std::lock_guard lock(mutex_);
        script_ = script;
    }
    PortalCalls calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }

    void emitShortcutSignal(const QString& name, QVariantList arguments) {
        QDBusMessage signal =
            QDBusMessage::createSignal(portal::objectPath, shortcutsInterface, name);
        signal.setArguments(arguments);
        bus_.send(signal);
    }

private:
    // Where a portal puts the object for `token`: .../KIND/SENDER/TOKEN.
    static QString handle(const QDBusMessage& message, const QString& kind, const QString& token) {
        QString sender = message.service().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
        return portal::objectPath + '/' + kind + '/' + sender + '/' + token;
    }

    bool reply(const QDBusMessage& message, const QVariantList& arguments) {
        return bus_.send(message.createReply(arguments));
    }

    void respond(const QString& request, unsigned code, const QVariantMap& results) {
        QDBusMessage signal = QDBusMessage::createSignal(
            request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        signal << code << results;
        bus_.send(signal);
    }

    bool answerProperty(const QDBusMessage& message, const QString& interface,
                        const QString& name) {
        unsigned value = 0;
        if (interface == shortcutsInterface && name == QLatin1String("version"))
            value = script_.shortcutsVersion;
        else if (interface == remoteInterface && name == QLatin1String("version"))
            value = 2;
        else if (interface == remoteInterface && name == QLatin1String("AvailableDeviceTypes"))
            value = 7;
        else
            return bus_.send(message.createErrorReply(QDBusError::UnknownProperty, name));
        return reply(message, {QVariant::fromValue(QDBusVariant(value))});
    }

    QDBusConnection bus_;
    mutable std::mutex mutex_;
    PortalScript script_;
    PortalCalls calls_;
    int starts_ = 0;
};

class PortalTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerPortalShortcutTypes();
        const fs::path config = dir / "bus.conf";
        std::ofstream(config) << "<busconfig><type>session</type><listen>unix:dir="
                              << dir.path().string()
                              << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                 "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                 "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                                 "</busconfig>";
        daemon.start(QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--nofork"), QStringLiteral("--print-address=1"),
                      QStringLiteral("--config-file=") + QString::fromStdString(config.string())});
        ASSERT_TRUE(daemon.waitForReadyRead(patienceMs)) << "dbus-daemon did not start";
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        static int buses = 0;
        ++buses;
        clientName = QStringLiteral("client-%1").arg(buses);
        portalName = QStringLiteral("portal-%1").arg(buses);
        client =
            std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address, clientName));
        portalBus =
            std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address, portalName));
        ASSERT_TRUE(client->isConnected() && portalBus->isConnected());
        ASSERT_TRUE(portalBus->registerService(portal::service));
        fake = new FakePortal(*portalBus);
        ASSERT_TRUE(
            portalBus->registerVirtualObject(portal::objectPath, fake, QDBusConnection::SubPath));
        fake->moveToThread(&portalThread);
        portalThread.start();
    }

    void TearDown() override {
        portalBus->unregisterObject(portal::objectPath, QDBusConnection::UnregisterTree);
        QDBusConnection::disconnectFromBus(clientName);
        QDBusConnection::disconnectFromBus(portalName);
        portalThread.quit();
        portalThread.wait();
        delete fake;
        daemon.terminate();
        daemon.waitForFinished();
    }

    template <typename Condition>
    bool eventually(Condition condition) {
        return QTest::qWaitFor(condition, patienceMs);
    }

    test::TempDir dir;
    QProcess daemon;
    QThread portalThread;
    QString clientName, portalName;
    std::unique_ptr<QDBusConnection> client, portalBus;
    FakePortal* fake = nullptr;
    UsKeyboardLayout us;
    test::RecordingLog log;
};

// ---- the shortcut -------------------------------------------------------------

struct ShortcutsTest : PortalTest {
    std::vector<HotKeyState> answers;
    int presses = 0;
    void bind(PortalGlobalShortcuts& hotKey, HotKeyCombo combo) {
        hotKey.bind(
            combo, [this] { ++presses; },
            [this](const HotKeyState& state) { answers.push_back(state); });
    }
    bool settled(const PortalGlobalShortcuts& hotKey) {
        return eventually([&] { return hotKey.state().kind != HotKeyState::Kind::waiting; });
    }
};

TEST_F(ShortcutsTest, TheDesktopsChoiceIsShownAndItsPressesAndChangesReachUs) {
    EXPECT_EQ(PortalGlobalShortcuts::version(*client), 2u);
    PortalGlobalShortcuts hotKey(*client, 2, us, log, "KDE");
    EXPECT_TRUE(hotKey.desktopChoosesKey());
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    ASSERT_TRUE(settled(hotKey));
    EXPECT_EQ(answers, (std::vector<HotKeyState>{
                           {HotKeyState::Kind::waiting, {}, {}},
                           {HotKeyState::Kind::bound, "Meta+Shift+V", {}},
                       }));
    const PortalCalls calls = fake->calls();
    ASSERT_EQ(calls.boundShortcuts.size(), 1u);
    EXPECT_EQ(calls.boundShortcuts[0].value("preferred_trigger").toString(), "ALT+v");
    EXPECT_FALSE(calls.boundShortcuts[0].value("description").toString().isEmpty());

    // Presses of our shortcut in our session count; another's do not.
    const QString session = calls.lastSession;
    auto activate = [&](const QString& inSession, const QString& id) {
        fake->emitShortcutSignal("Activated", {QVariant::fromValue(QDBusObjectPath(inSession)), id,
                                               qulonglong(1), QVariantMap{}});
    };
    activate(session + "x", PortalGlobalShortcuts::shortcutId);
    activate(session, "another-shortcut");
    activate(session, PortalGlobalShortcuts::shortcutId);
    ASSERT_TRUE(eventually([&] { return presses > 0; }));
    // The other two came first on the same connection: had they counted,
    // they would show by now.
    EXPECT_EQ(presses, 1);

    // The user picks another key in the desktop's settings.
    PortalShortcuts changed{
        {PortalGlobalShortcuts::shortcutId, {{"trigger_description", QStringLiteral("Ctrl+F9")}}}};
    fake->emitShortcutSignal("ShortcutsChanged", {QVariant::fromValue(QDBusObjectPath(session)),
                                                  QVariant::fromValue(changed)});
    ASSERT_TRUE(eventually([&] { return hotKey.state().detail == "Ctrl+F9"; }));
    EXPECT_EQ(answers.back(), (HotKeyState{HotKeyState::Kind::bound, "Ctrl+F9", {}}));

    // The portal's own dialog shows this session's shortcuts.
    hotKey.openDesktopDialog();
    ASSERT_TRUE(eventually([&] { return !fake->calls().configuredSessions.empty(); }));
    EXPECT_EQ(fake->calls().configuredSessions, std::vector<QString>{session});
}

TEST_F(ShortcutsTest, TheSameWishKeepsTheSessionAndAnotherReplacesIt) {
    PortalGlobalShortcuts hotKey(*client, 2, us, log, "KDE");
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    ASSERT_TRUE(settled(hotKey));
    const QString first = fake->calls().lastSession;

    // Registered again after the settings closed: no second dialog.
    answers.clear();
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    EXPECT_EQ(answers, (std::vector<HotKeyState>{{HotKeyState::Kind::bound, "Meta+Shift+V", {}}}));
    EXPECT_EQ(fake->calls().count("CreateSession"), 1);

    bind(hotKey, {keycode::k, HotKeyCombo::command});
    ASSERT_TRUE(eventually([&] { return fake->calls().boundShortcuts.size() == 2; }));
    const PortalCalls calls = fake->calls();
    EXPECT_EQ(calls.boundShortcuts[1].value("preferred_trigger").toString(), "CTRL+k");
    EXPECT_EQ(calls.closedSessions, std::vector<QString>{first});
    ASSERT_TRUE(settled(hotKey));

    // Presses in the closed session no longer count.
    fake->emitShortcutSignal("Activated",
                             {QVariant::fromValue(QDBusObjectPath(first)),
                              PortalGlobalShortcuts::shortcutId, qulonglong(1), QVariantMap{}});
    fake->emitShortcutSignal("Activated",
                             {QVariant::fromValue(QDBusObjectPath(calls.lastSession)),
                              PortalGlobalShortcuts::shortcutId, qulonglong(2), QVariantMap{}});
    ASSERT_TRUE(eventually([&] { return presses > 0; }));
    EXPECT_EQ(presses, 1);
}

TEST_F(ShortcutsTest, ACancelledDialogFailsWithAReasonAndEndsTheSession) {
    fake->script({.bindResponse = 1});
    PortalGlobalShortcuts hotKey(*client, 2, us, log, "KDE");
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    ASSERT_TRUE(settled(hotKey));
    EXPECT_EQ(hotKey.state().kind, HotKeyState::Kind::failed);
    EXPECT_NE(hotKey.state().detail.find("cancelled"), std::string::npos) << hotKey.state().detail;
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("Alt+V"), std::string::npos);
    ASSERT_TRUE(eventually([&] { return fake->calls().closedSessions.size() == 1; }));

    // After a failure the same combination is asked for again.
    fake->script({});
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    ASSERT_TRUE(settled(hotKey));
    EXPECT_EQ(hotKey.state(), (HotKeyState{HotKeyState::Kind::bound, "Meta+Shift+V", {}}));
}

TEST_F(ShortcutsTest, WithoutAPortalThereIsNoVersionAndBindFailsWithTheBusError) {
    portalBus->unregisterService(portal::service);
    EXPECT_EQ(PortalGlobalShortcuts::version(*client), std::nullopt);
    EXPECT_FALSE(PortalRemoteDesktop::available(*client));
    PortalGlobalShortcuts hotKey(*client, 1, us, log, "KDE");
    bind(hotKey, {keycode::v, HotKeyCombo::option});
    ASSERT_TRUE(settled(hotKey));
    EXPECT_EQ(hotKey.state().kind, HotKeyState::Kind::failed);
    EXPECT_NE(hotKey.state().detail.find("CreateSession"), std::string::npos)
        << hotKey.state().detail;
}

// ---- typing the paste keys ------------------------------------------------------

struct RemoteDesktopTest : PortalTest {
    fs::path tokenFile = dir / "config/zettly/remote-desktop-token";
    std::string stored() {
        std::ifstream in(tokenFile);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

TEST_F(RemoteDesktopTest, TheRestoreTokenIsKeptPrivatelyAndSentBackTheNextTime) {
    EXPECT_TRUE(PortalRemoteDesktop::available(*client));
    {
        PortalRemoteDesktop typer(*client, tokenFile, log);
        EXPECT_TRUE(typer.ready());
        typer.prepare();
        ASSERT_TRUE(eventually([&] { return stored() == "restore-1"; }));
    }
    struct stat st {};
    ASSERT_EQ(::stat(tokenFile.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    PortalRemoteDesktop again(*client, tokenFile, log);
    again.prepare();
    ASSERT_TRUE(eventually([&] { return stored() == "restore-2"; }));
    const std::vector<QVariantMap> selected = fake->calls().selectDevicesOptions;
    ASSERT_EQ(selected.size(), 2u);
    EXPECT_FALSE(selected[0].contains("restore_token"));
    EXPECT_EQ(selected[1].value("restore_token").toString(), "restore-1");
    for (const QVariantMap& options : selected) {
        EXPECT_EQ(options.value("types").toUInt(), 1u);
        EXPECT_EQ(options.value("persist_mode").toUInt(), 2u);
    }
}

TEST_F(RemoteDesktopTest, TheFirstPasteAsksForTheSessionThenEachChordIsPressedAndReleasedInOrder) {
    PortalRemoteDesktop typer(*client, tokenFile, log);
    typer.type(PasteChord::ctrlShiftV);
    const std::vector<std::pair<int, unsigned>> ctrlShiftV = {{29, 1}, {42, 1}, {47, 1},
                                                              {47, 0}, {42, 0}, {29, 0}};
    ASSERT_TRUE(eventually([&] { return fake->calls().keys.size() == ctrlShiftV.size(); }));
    EXPECT_EQ(fake->calls().keys, ctrlShiftV);

    typer.type(PasteChord::shiftInsert);
    ASSERT_TRUE(eventually([&] { return fake->calls().keys.size() == ctrlShiftV.size() + 4; }));
    const auto keys = fake->calls().keys;
    EXPECT_EQ(std::vector(keys.begin() + 6, keys.end()),
              (std::vector<std::pair<int, unsigned>>{{42, 1}, {110, 1}, {110, 0}, {42, 0}}));
    EXPECT_EQ(fake->calls().count("Start"), 1);
}

TEST_F(RemoteDesktopTest, ADeclinedRequestIsNotAskedAgainUntilTheUserSaysSo) {
    fake->script({.startResponse = 1});
    PortalRemoteDesktop typer(*client, tokenFile, log);
    int changes = 0;
    typer.changed = [&] { ++changes; };
    typer.type(PasteChord::ctrlV);
    ASSERT_TRUE(eventually([&] { return !typer.ready(); }));
    EXPECT_NE(typer.problem().find("declined"), std::string::npos) << typer.problem();
    EXPECT_GE(changes, 1);

    typer.type(PasteChord::ctrlV);
    typer.prepare();
    EXPECT_EQ(fake->calls().count("CreateSession"), 1);
    EXPECT_TRUE(fake->calls().keys.empty());

    fake->script({});
    typer.askAgain();
    EXPECT_TRUE(typer.ready());
    EXPECT_EQ(typer.problem(), "");
    ASSERT_TRUE(eventually([&] { return stored() == "restore-2"; }));
    EXPECT_EQ(fake->calls().count("CreateSession"), 2);
    // The paste that was declined is not typed later.
    EXPECT_TRUE(fake->calls().keys.empty());
}

}  // namespace
}  // namespace zettly

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
