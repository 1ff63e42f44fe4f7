#pragma once

#include <QString>
#include <QWidget>
#include <cstdint>
#include <utility>

#include "store/StoreHealth.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

namespace zettly {

struct SettingsContext;

// Settings › Storage: how many items and for how long the history keeps
// them, whether images are saved and up to what size as copied, clearing at
// quit and now. Every change is
// stored at once. While new copies cannot be saved, the page says why first.
class StoragePage : public QWidget {
    Q_OBJECT
public:
    explicit StoragePage(SettingsContext& context, QWidget* parent = nullptr);

    // Shows the stored preferences as they are now.
    void reload();

    static constexpr std::int64_t limits[] = {50, 100, 200, 500, 1000, 10000, 100000};
    static constexpr std::int64_t retentions[] = {5, 15, 30, 60, 1440, 10080, 43200};  // minutes
    // MiB; 0 is off. The history takes no copy over 16 MiB at all.
    static constexpr std::int64_t originalLimits[] = {0, 5, 10, 16};

    // "200 items".
    static QString limitLabel(std::int64_t items);
    // A retention in the largest unit that reads naturally: minutes below an
    // hour, days for one day and 30 days, weeks for one week, hours for
    // everything else from an hour on ("1.5 hours" for 90 minutes).
    static QString retentionLabel(std::int64_t minutes);
    // "Off" for 0, else "10 MB".
    static QString originalLimitLabel(std::int64_t megabytes);
    // Why new copies are not being saved, one sentence; empty while they are.
    // The tray's tooltip says the same.
    static QString problemText(const StoreHealth::Status& status);
    // What happened to a history file that could not be used as it was: a
    // title and a sentence, for the one notification about it.
    static std::pair<QString, QString> rescueText(const StoreHealth::Rescue& rescue);

    QComboBox* limitPicker() const { return limit_; }
    QComboBox* retentionPicker() const { return retention_; }
    QCheckBox* saveImagesSwitch() const { return saveImages_; }
    QComboBox* originalLimitPicker() const { return originalLimit_; }
    QCheckBox* clearOnQuitSwitch() const { return clearOnQuit_; }
    QPushButton* clearButton() const { return clear_; }
    QLabel* problemLabel() const { return problem_; }

private:
    void clearHistory();

    SettingsContext& context_;
    QLabel* problem_;
    QComboBox* limit_;
    QComboBox* retention_;
    QCheckBox* saveImages_;
    QComboBox* originalLimit_;
    QCheckBox* clearOnQuit_;
    QPushButton* clear_;
};

}  // namespace zettly
