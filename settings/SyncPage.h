#pragma once

#include <QWidget>

#include "settings/SettingsContext.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QTimer;

namespace zettly {

class Defaults;
class SyncServerBox;

// Settings › Sync: the sync switch and the chip-order switch (which only
// matters while sync is on), the state the last sync left, and the action
// that deletes the copy on the sync server.
class SyncPage : public QWidget {
    Q_OBJECT
public:
    explicit SyncPage(SettingsContext& context, QWidget* parent = nullptr);

    // Reads both switches and the status again.
    void reload();

    // The status line for the stored sync state at `now` (seconds since
    // 1970): the last error as stored, else when the last sync ended, else
    // that none has run yet.
    static QString statusText(const Defaults& defaults, double now);
    // The stored status ("CloudKit 4", "Sync is not set up") in the user's
    // words; anything else as stored.
    static QString describeStatus(const QString& stored);
    // "just now", "5 minutes ago", "3 hours ago", then the local date and time.
    static QString relativeTime(double at, double now);

    // Asks to confirm, then deletes the cloud copy through the context's
    // hook; the button stays disabled until the hook answers.
    void deleteCloudCopy();
    bool deletingCloudCopy() const { return deleting_; }

private:
    void setSync(bool on);
    void setChipOrderSync(bool on);
    void finishDelete(const std::optional<std::string>& error);
    void showStatus();

    SettingsContext& context_;
    QCheckBox* syncSwitch_;
    QCheckBox* chipOrderSwitch_;
    QLabel* status_;
    SyncServerBox* server_ = nullptr;  // only with a sync backend
    QPushButton* deleteButton_;
    QLabel* deleteResult_;
    // Keeps "5 minutes ago" true while the window stays open.
    QTimer* statusTimer_;
    bool deleting_ = false;
};

}  // namespace zettly
