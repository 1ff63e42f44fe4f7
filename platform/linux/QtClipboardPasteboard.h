#pragma once

#include <QObject>
#include <atomic>
#include <functional>

#include "platform/Pasteboard.h"

namespace zettly {

// A clipboard written through QClipboard: Qt answers the other
// applications' requests for what Zettly puts there, in every format it can
// encode, and tells of each new owner. The backends add how they read it.
class QtClipboardPasteboard : public QObject, public Pasteboard {
    Q_OBJECT
public:
    std::int64_t changeCount() override { return count_.load(); }
    bool signalsChanges() const override { return true; }
    void setChangeHandler(std::function<void()> handler) override;

    void clear() override;
    void writeString(std::string_view text) override;
    bool writeImage(std::span<const std::uint8_t> data, std::string_view type) override;

protected:
    explicit QtClipboardPasteboard(QObject* parent = nullptr);
    // Each change, after the count was raised and before the handler runs.
    virtual void changed() {}

private:
    std::atomic<std::int64_t> count_{0};
    std::function<void()> handler_;
};

}  // namespace zettly
