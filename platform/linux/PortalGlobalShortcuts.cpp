#include "platform/linux/PortalGlobalShortcuts.h"

#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QProcess>
#include <QStandardPaths>
#include <mutex>
#include <utility>

#include "platform/linux/PortalRequest.h"
#include "platform/linux/ShortcutKeyNames.h"

namespace zettly {

namespace {

const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

PortalShortcuts shortcutsIn(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QDBusArgument>())
        return qdbus_cast<PortalShortcuts>(value.value<QDBusArgument>());
    return value.value<PortalShortcuts>();
}

// Why a request ended without being carried out, as the failed state's
// detail.
std::string refusal(unsigned response) {
    return response == 1 ? "it was cancelled in the desktop's dialog"
                         : "the desktop ended the request without binding it";
}

bool namesDesktop(std::string_view names, std::string_view wanted) {
    while (!names.empty()) {
        std::size_t end = names.find(':');
        std::string_view name = names.substr(0, end);
        if (QString::fromUtf8(name.data(), qsizetype(name.size()))
                .compare(QString::fromUtf8(wanted.data(), qsizetype(wanted.size())),
                         Qt::CaseInsensitive) == 0)
            return true;
        if (end == std::string_view::npos)
            break;
        names.remove_prefix(end + 1);
    }
    return false;
}

}  // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

void registerPortalShortcutTypes() {
    static std::once_flag once;
    std::call_once(once, [] {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<PortalShortcuts>();
    });
}

std::optional<unsigned> PortalGlobalShortcuts::version(const QDBusConnection& bus) {
    return portal::uintProperty(bus, shortcutsInterface, QStringLiteral("version"));
}

PortalGlobalShortcuts::PortalGlobalShortcuts(QDBusConnection bus, unsigned version,
                                             KeyboardLayout& layout, Log& log,
                                             std::string desktopNames)
    : bus_(std::move(bus)),
      version_(version),
      layout_(layout),
      log_(log),
      desktopNames_(std::move(desktopNames)) {
    registerPortalShortcutTypes();
    // Both come for every session of this connection; ours is picked out
    // by its handle.
    bus_.connect(portal::service, portal::objectPath, shortcutsInterface,
                 QStringLiteral("Activated"), this, SLOT(activated(QDBusMessage)));
    bus_.connect(portal::service, portal::objectPath, shortcutsInterface,
                 QStringLiteral("ShortcutsChanged"), this, SLOT(shortcutsChanged(QDBusMessage)));
}

PortalGlobalShortcuts::~PortalGlobalShortcuts() {
    endSession();
}

void PortalGlobalShortcuts::bind(HotKeyCombo combo, std::function<void()> pressed,
                                 std::function<void(const HotKeyState&)> answered) {
    pressed_ = std::move(pressed);
    answered_ = std::move(answered);
    // The same wish again: the desktop's answer, or the one still to come,
    // stands, and a second dialog would only ask the user once more.
    const bool alive = pending_ || !session_.isEmpty();
    if (combo_ == combo && alive && state_.kind != HotKeyState::Kind::failed) {
        if (answered_)
            answered_(state_);
        return;
    }
    endSession();
    combo_ = combo;
    setState(HotKeyState{});
    createSession();
}

void PortalGlobalShortcuts::release() {
    endSession();
    combo_.reset();
    pressed_ = nullptr;
    answered_ = nullptr;
    state_ = HotKeyState{};
}

void PortalGlobalShortcuts::createSession() {
    pending_ = portal::createSession(
        bus_, shortcutsInterface, this,
        [this](const QString& session) {
            session_ = session;
            bindShortcuts();
        },
        [this](unsigned response, const QString& error) {
            fail(response ? refusal(response)
                          : "the desktop portal refused it (" + error.toStdString() + ")");
        });
}

void PortalGlobalShortcuts::bindShortcuts() {
    //: The description of Zettly's global shortcut in the desktop's shortcut dialog and
    //: settings.
    QVariantMap properties{{QStringLiteral("description"), tr("Open the clipboard history")}};
    if (auto trigger = keynames::portalTrigger(*combo_, layout_))
        properties.insert(QStringLiteral("preferred_trigger"), QString::fromStdString(*trigger));
    PortalShortcuts shortcuts{{shortcutId, properties}};
    pending_ = portal::Request::send(
        bus_, shortcutsInterface, QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(session_)), QVariant::fromValue(shortcuts), QString()},
        {}, this,
        [this](unsigned response, const QVariantMap& results) {
            if (response != 0)
                return fail(refusal(response));
            answerBound(shortcutsIn(results.value(QStringLiteral("shortcuts"))));
        },
        [this](const QString& error) {
            fail("the desktop portal refused it (" + error.toStdString() + ")");
        });
}

void PortalGlobalShortcuts::answerBound(const PortalShortcuts& shortcuts) {
    for (const PortalShortcut& shortcut : shortcuts) {
        if (shortcut.id != shortcutId)
            continue;
        // An empty description: bound, but the user gave it no key yet.
        const QString trigger =
            shortcut.properties.value(QStringLiteral("trigger_description")).toString();
        setState(HotKeyState{HotKeyState::Kind::bound, trigger.toStdString(), {}});
        return;
    }
    fail("the desktop did not bind it");
}

void PortalGlobalShortcuts::fail(const std::string& why) {
    endSession();
    log_.line("[Zettly] the shortcut " + (combo_ ? combo_->display(layout_) : std::string()) +
              " was not bound: " + why);
    setState(HotKeyState{HotKeyState::Kind::failed, why, {}});
}

void PortalGlobalShortcuts::setState(HotKeyState state) {
    state_ = std::move(state);
    // The handler may bind again, which replaces it.
    if (auto answered = answered_)
        answered(state_);
}

void PortalGlobalShortcuts::endSession() {
    if (pending_)
        pending_->abandon();
    portal::closeSession(bus_, session_);
    session_.clear();
}

void PortalGlobalShortcuts::activated(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || session_.isEmpty() || !pressed_ ||
        arguments.at(0).value<QDBusObjectPath>().path() != session_ ||
        arguments.at(1).toString() != shortcutId)
        return;
    auto pressed = pressed_;  // the handler may bind again
    pressed();
}

void PortalGlobalShortcuts::shortcutsChanged(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || session_.isEmpty() ||
        arguments.at(0).value<QDBusObjectPath>().path() != session_)
        return;
    // The user gave it another key in the desktop's settings.
    for (const PortalShortcut& shortcut : shortcutsIn(arguments.at(1)))
        if (shortcut.id == shortcutId)
            return answerBound({shortcut});
}

void PortalGlobalShortcuts::openDesktopDialog() {
    if (version_ < 2 || session_.isEmpty()) {
        if (!openKeyboardSettings())
            log_.line(
                "[Zettly] cannot show where to change the shortcut: the desktop portal "
                "has no shortcut dialog and no keyboard settings were found for " +
                (desktopNames_.empty() ? std::string("this desktop") : desktopNames_));
        return;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(portal::service, portal::objectPath, shortcutsInterface,
                                       QStringLiteral("ConfigureShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(session_)) << QString() << QVariantMap{};
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        QDBusPendingReply<> reply = *w;
        if (!reply.isError())
            return;
        log_.line("[Zettly] the desktop portal did not show its shortcut dialog: " +
                  reply.error().message().toStdString());
        openKeyboardSettings();
    });
}

bool PortalGlobalShortcuts::openKeyboardSettings() {
    for (const QStringList& command : keyboardSettingsCommands(desktopNames_)) {
        if (QStandardPaths::findExecutable(command.constFirst()).isEmpty())
            continue;
        if (QProcess::startDetached(command.constFirst(), command.mid(1)))
            return true;
        log_.line("[Zettly] could not start " + command.join(QLatin1Char(' ')).toStdString());
    }
    return false;
}

std::vector<QStringList> PortalGlobalShortcuts::keyboardSettingsCommands(
    std::string_view desktopNames) {
    if (namesDesktop(desktopNames, "KDE"))
        return {{QStringLiteral("systemsettings"), QStringLiteral("kcm_keys")},
                {QStringLiteral("kcmshell6"), QStringLiteral("kcm_keys")},
                {QStringLiteral("kcmshell5"), QStringLiteral("kcm_keys")}};
    if (namesDesktop(desktopNames, "GNOME"))
        return {{QStringLiteral("gnome-control-center"), QStringLiteral("keyboard")}};
    return {};
}

}  // namespace zettly
