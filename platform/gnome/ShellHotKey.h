#pragma once

#include <QObject>
#include <functional>
#include <optional>

#include "platform/GlobalHotKey.h"

namespace zettly {

class KeyboardLayout;
class Log;
class ShellBridge;

// The global shortcut where GNOME has no GlobalShortcuts portal (before
// GNOME 48): Zettly's Shell extension grabs the combination as the Shell
// grabs its own and signals each press. Bound again when the extension
// comes back after being turned off. Main thread.
class ShellHotKey final : public QObject, public GlobalHotKey {
    Q_OBJECT
public:
    ShellHotKey(ShellBridge& bridge, KeyboardLayout& layout, Log& log);

    void bind(HotKeyCombo combo, std::function<void()> pressed,
              std::function<void(const HotKeyState&)> answered) override;
    void release() override;

private:
    void grab();

    ShellBridge& bridge_;
    KeyboardLayout& layout_;
    Log& log_;
    std::optional<HotKeyCombo> combo_;
    std::function<void()> pressed_;
    std::function<void(const HotKeyState&)> answered_;
};

}  // namespace zettly
