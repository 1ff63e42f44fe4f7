#pragma once

#include "platform/Keyboard.h"

namespace zettly {

// What the keys type on a US keyboard: key names where the session gives no
// view of the user's own layout.
class UsKeyboardLayout final : public KeyboardLayout {
public:
    std::optional<std::string> character(std::uint32_t macKeyCode) override;
};

}  // namespace zettly
