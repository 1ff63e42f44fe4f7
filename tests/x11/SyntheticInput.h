#pragma once

#include <memory>

namespace zettly::test {

// Key presses the way a keyboard makes them, through XTEST on an X
// connection of its own (not Qt's, whose grab receives the press), for the
// benchmarks and tests that drive the X11 backend from outside. Its header
// names nothing of X, so its users need no X headers.
class SyntheticInput {
public:
    // Throws when there is no X server or it lacks XTEST.
    SyntheticInput();
    ~SyntheticInput();
    SyntheticInput(const SyntheticInput&) = delete;
    SyntheticInput& operator=(const SyntheticInput&) = delete;

    // Alt down, V down, V up, Alt up, sent in one flush.
    void pressAltV();

    // Waits until the X server has handled every request Qt sent so far
    // (a painted frame's image among them).
    static void qtRoundTrip();

private:
    struct Connection;
    std::unique_ptr<Connection> x11_;
};

}  // namespace zettly::test
