#include "platform/gnome/ShellHotKey.h"

#include "platform/Log.h"
#include "platform/gnome/ShellBridge.h"
#include "platform/linux/ShortcutKeyNames.h"

namespace zettly {

ShellHotKey::ShellHotKey(ShellBridge& bridge, KeyboardLayout& layout, Log& log)
    : bridge_(bridge), layout_(layout), log_(log) {
    connect(&bridge_, &ShellBridge::hotKeyActivated, this, [this] {
        if (combo_ && pressed_)
            pressed_();
    });
    connect(&bridge_, &ShellBridge::presenceChanged, this, [this](bool present) {
        if (present && combo_)
            grab();
    });
}

void ShellHotKey::bind(HotKeyCombo combo, std::function<void()> pressed,
                       std::function<void(const HotKeyState&)> answered) {
    combo_ = combo;
    pressed_ = std::move(pressed);
    answered_ = std::move(answered);
    grab();
}

void ShellHotKey::grab() {
    auto answer = [this](HotKeyState state) {
        if (answered_)
            answered_(state);
    };
    auto accelerator = keynames::gtkAccelerator(*combo_, layout_);
    if (!accelerator) {
        answer({HotKeyState::Kind::noSuchKey, {}, {}});
        return;
    }
    auto bound = bridge_.bindHotKey(QString::fromStdString(*accelerator));
    if (!bound) {
        answer({HotKeyState::Kind::failed, "GNOME Shell did not answer", {}});
    } else if (!*bound) {
        log_.line("[Zettly] GNOME Shell refused the shortcut " + *accelerator +
                  " (another shortcut has it)");
        answer({HotKeyState::Kind::taken, {}, {}});
    } else {
        answer({HotKeyState::Kind::bound, combo_->display(layout_), {}});
    }
}

void ShellHotKey::release() {
    if (!combo_)
        return;
    combo_.reset();
    bridge_.bindHotKey(QString());
}

}  // namespace zettly
