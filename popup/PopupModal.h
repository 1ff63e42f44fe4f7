#pragma once

namespace zettly {

// Sets the controller's modal flag for the life of a dialog.
class ModalScope {
public:
    explicit ModalScope(bool& flag) : flag_(flag) { flag_ = true; }
    ~ModalScope() { flag_ = false; }
    ModalScope(const ModalScope&) = delete;
    ModalScope& operator=(const ModalScope&) = delete;

private:
    bool& flag_;
};

}  // namespace zettly
