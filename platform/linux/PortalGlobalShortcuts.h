#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <optional>
#include <string>
#include <vector>

#include "platform/GlobalHotKey.h"
#include "platform/Log.h"

namespace zettly {

namespace portal {
class Request;
}

// One shortcut as the GlobalShortcuts portal passes it: an id and its
// properties (description, preferred_trigger; trigger_description back).
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};
using PortalShortcuts = QList<PortalShortcut>;
QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut);
const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut);
// Makes the type known to QtDBus; any number of calls.
void registerPortalShortcutTypes();

// The system-wide shortcut through the desktop's GlobalShortcuts portal
// (KDE Plasma, GNOME 48 and later, Hyprland with its portal). Zettly only
// proposes the combination: the desktop asks the user, may bind another
// key, and keeps the user's choice in its own settings, so the answer is
// `bound` with how the desktop names the key it bound. Main thread.
class PortalGlobalShortcuts final : public QObject, public GlobalHotKey {
    Q_OBJECT
public:
    static inline const QString shortcutId = QStringLiteral("toggle-history");

    // The portal interface's version on `bus`; none when no portal offers
    // global shortcuts there. Blocks while the bus starts the portal.
    static std::optional<unsigned> version(const QDBusConnection& bus);
    static bool available(const QDBusConnection& bus) { return version(bus).has_value(); }

    // `bus` as portal::openConnection() gives it, `version` as version()
    // read it. `desktopNames` picks the keyboard settings to open where the
    // portal has no dialog of its own.
    PortalGlobalShortcuts(QDBusConnection bus, unsigned version, KeyboardLayout& layout, Log& log,
                          std::string desktopNames);
    ~PortalGlobalShortcuts() override;

    void bind(HotKeyCombo combo, std::function<void()> pressed,
              std::function<void(const HotKeyState&)> answered) override;
    void release() override;
    bool desktopChoosesKey() const override { return true; }
    // The portal's own dialog (version 2), else the desktop's keyboard
    // settings; logs why when there is neither.
    void openDesktopDialog() override;

    const HotKeyState& state() const { return state_; }

    // The desktop's keyboard settings, as commands to try in turn, for the
    // desktops named in `desktopNames` (KDE, GNOME); empty for others.
    static std::vector<QStringList> keyboardSettingsCommands(std::string_view desktopNames);

private Q_SLOTS:
    void activated(const QDBusMessage& message);
    void shortcutsChanged(const QDBusMessage& message);

private:
    void createSession();
    void bindShortcuts();
    void answerBound(const PortalShortcuts& shortcuts);
    void fail(const std::string& why);
    void setState(HotKeyState state);
    void endSession();
    bool openKeyboardSettings();

    QDBusConnection bus_;
    unsigned version_;
    KeyboardLayout& layout_;
    Log& log_;
    std::string desktopNames_;
    std::optional<HotKeyCombo> combo_;
    std::function<void()> pressed_;
    std::function<void(const HotKeyState&)> answered_;
    HotKeyState state_;
    QString session_;
    QPointer<portal::Request> pending_;
};

}  // namespace zettly

Q_DECLARE_METATYPE(zettly::PortalShortcut)
