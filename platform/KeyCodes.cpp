#include <utility>

#include "platform/Keyboard.h"

namespace zettly {

namespace {

// {Mac virtual key code, evdev code} for the keys of an ANSI keyboard plus
// the ISO key beside the left Shift. Modifier keys are left out: a shortcut
// is stored as its key and a modifier mask, never as a modifier key alone.
constexpr std::pair<std::uint32_t, std::uint32_t> keys[] = {
    // letters
    {0, 30},   // A
    {1, 31},   // S
    {2, 32},   // D
    {3, 33},   // F
    {4, 35},   // H
    {5, 34},   // G
    {6, 44},   // Z
    {7, 45},   // X
    {8, 46},   // C
    {9, 47},   // V
    {11, 48},  // B
    {12, 16},  // Q
    {13, 17},  // W
    {14, 18},  // E
    {15, 19},  // R
    {16, 21},  // Y
    {17, 20},  // T
    {31, 24},  // O
    {32, 22},  // U
    {34, 23},  // I
    {35, 25},  // P
    {37, 38},  // L
    {38, 36},  // J
    {40, 37},  // K
    {45, 49},  // N
    {46, 50},  // M
    // digit row
    {18, 2},   // 1
    {19, 3},   // 2
    {20, 4},   // 3
    {21, 5},   // 4
    {23, 6},   // 5
    {22, 7},   // 6
    {26, 8},   // 7
    {28, 9},   // 8
    {25, 10},  // 9
    {29, 11},  // 0
    {27, 12},  // -
    {24, 13},  // =
    // punctuation
    {33, 26},  // [
    {30, 27},  // ]
    {41, 39},  // ;
    {39, 40},  // '
    {50, 41},  // `
    {42, 43},  // backslash
    {43, 51},  // ,
    {47, 52},  // .
    {44, 53},  // /
    {10, 86},  // the ISO key between left Shift and Z
    // editing and navigation
    {36, 28},    // Return
    {48, 15},    // Tab
    {49, 57},    // Space
    {51, 14},    // Backspace (Delete on a Mac)
    {53, 1},     // Escape
    {114, 110},  // Insert (Help on a Mac)
    {115, 102},  // Home
    {116, 104},  // Page Up
    {117, 111},  // forward Delete
    {119, 107},  // End
    {121, 109},  // Page Down
    {123, 105},  // Left
    {124, 106},  // Right
    {125, 108},  // Down
    {126, 103},  // Up
    // function keys
    {122, 59},  // F1
    {120, 60},  // F2
    {99, 61},   // F3
    {118, 62},  // F4
    {96, 63},   // F5
    {97, 64},   // F6
    {98, 65},   // F7
    {100, 66},  // F8
    {101, 67},  // F9
    {109, 68},  // F10
    {103, 87},  // F11
    {111, 88},  // F12
    // keypad
    {82, 82},   // 0
    {83, 79},   // 1
    {84, 80},   // 2
    {85, 81},   // 3
    {86, 75},   // 4
    {87, 76},   // 5
    {88, 77},   // 6
    {89, 71},   // 7
    {91, 72},   // 8
    {92, 73},   // 9
    {65, 83},   // .
    {67, 55},   // *
    {69, 78},   // +
    {75, 98},   // /
    {78, 74},   // -
    {81, 117},  // =
    {76, 96},   // Enter
    {71, 69},   // Clear on a Mac keypad sits where Num Lock is
};

}  // namespace

std::optional<std::uint32_t> evdevFromMacKeyCode(std::uint32_t macKeyCode) {
    for (const auto& [mac, evdev] : keys)
        if (mac == macKeyCode)
            return evdev;
    return std::nullopt;
}

std::optional<std::uint32_t> macKeyCodeFromEvdev(std::uint32_t evdevCode) {
    for (const auto& [mac, evdev] : keys)
        if (evdev == evdevCode)
            return mac;
    return std::nullopt;
}

}  // namespace zettly
