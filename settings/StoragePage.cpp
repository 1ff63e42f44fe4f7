#include "settings/StoragePage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSignalBlocker>
#include <algorithm>
#include <iterator>
#include <limits>
#include <vector>

#include "platform/Defaults.h"
#include "settings/SettingsContext.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "ui/Dialogs.h"

namespace zettly {
namespace {

constexpr std::int64_t hour = 60;
constexpr std::int64_t day = 24 * hour;
constexpr std::int64_t week = 7 * day;
constexpr std::int64_t month = 30 * day;

// A value typed into the preferences file by hand can exceed what the
// plural rules count with.
int pluralCount(std::int64_t value) {
    return int(std::clamp<std::int64_t>(value, 0, std::numeric_limits<int>::max()));
}

// Fills the picker with the offered values and, when the stored one is not
// among them (set by hand or by an older version), with that one too, in
// order: the picker always shows the value in force.
void fill(QComboBox* picker, const std::int64_t* first, const std::int64_t* last,
          std::int64_t stored, QString (*label)(std::int64_t)) {
    std::vector<std::int64_t> values(first, last);
    if (std::find(values.begin(), values.end(), stored) == values.end()) {
        values.push_back(stored);
        std::sort(values.begin(), values.end());
    }
    const QSignalBlocker block(picker);
    picker->clear();
    for (std::int64_t value : values) {
        picker->addItem(label(value), QVariant::fromValue<qint64>(value));
        if (value == stored)
            picker->setCurrentIndex(picker->count() - 1);
    }
}

}  // namespace

// No English translation is loaded, so the source texts are what English
// readers see: the value 1 gets its own text rather than "1 hours". Other
// languages translate the %n forms with all their plural forms.
QString StoragePage::limitLabel(std::int64_t items) {
    if (items == 1)
        //: Settings › Storage › "Keep up to:" picker, a history of one single item.
        return tr("1 item");
    //: Settings › Storage › "Keep up to:" picker: how many items the history keeps, with the
    //: digits grouped as the language writes them (100,000).
    return tr("%Ln items", nullptr, pluralCount(items));
}

QString StoragePage::retentionLabel(std::int64_t minutes) {
    if (minutes < hour) {
        if (minutes == 1)
            //: Settings › Storage › "Delete after:" picker.
            return tr("1 minute");
        //: Settings › Storage › "Delete after:" picker: items older than this are deleted.
        return tr("%n minutes", nullptr, pluralCount(minutes));
    }
    if (minutes == day)
        //: Settings › Storage › "Delete after:" picker.
        return tr("1 day");
    if (minutes == month)
        //: Settings › Storage › "Delete after:" picker: items older than this are deleted.
        return tr("%n days", nullptr, pluralCount(minutes / day));
    if (minutes == week)
        //: Settings › Storage › "Delete after:" picker.
        return tr("1 week");
    if (minutes == hour)
        //: Settings › Storage › "Delete after:" picker.
        return tr("1 hour");
    if (minutes % hour == 0)
        //: Settings › Storage › "Delete after:" picker: items older than this are deleted.
        return tr("%n hours", nullptr, pluralCount(minutes / hour));
    //: Settings › Storage › "Delete after:" picker, a retention set outside the app that is not
    //: a whole number of hours. %1 is a number with a fraction, such as 1.5.
    return tr("%1 hours").arg(QLocale().toString(double(minutes) / hour, 'g', 4));
}

QString StoragePage::originalLimitLabel(std::int64_t megabytes) {
    if (megabytes == 0)
        //: Settings › Storage › "Keep images as copied up to:" picker: only the reduced copy
        //: is kept.
        return tr("Off");
    //: Settings › Storage › "Keep images as copied up to:" picker. %1 is a number of
    //: megabytes.
    return tr("%1 MB").arg(QLocale().toString(qlonglong(megabytes)));
}

QString StoragePage::problemText(const StoreHealth::Status& status) {
    using Problem = StoreHealth::Problem;
    const QString folder =
        QDir::toNativeSeparators(QString::fromStdString(status.file.parent_path().string()));
    switch (status.problem) {
        case Problem::none:
            return {};
        case Problem::diskFull:
            //: Settings › Storage and the tray tooltip, while copies cannot be saved.
            return tr("New copies are not being saved: the disk is full");
        case Problem::readOnly:
            //: Settings › Storage and the tray tooltip. %1 is a folder, e.g.
            //: /home/ann/.local/share/Zettly/Library.
            return tr("New copies are not being saved: Zettly cannot write to %1").arg(folder);
        case Problem::locked:
            //: Settings › Storage and the tray tooltip, while another program (a backup, a
            //: second Zettly) keeps the history's database locked.
            return tr("New copies are not being saved: another program is using the history");
        case Problem::diskError:
            //: Settings › Storage and the tray tooltip.
            return tr("New copies are not being saved: the disk reported an error");
        case Problem::damaged:
            //: Settings › Storage and the tray tooltip. %1 is a file name, e.g.
            //: clipboard.sqlite.
            return tr("New copies are not being saved: %1 is damaged and could not be repaired")
                .arg(QString::fromStdString(status.file.filename().string()));
    }
    return {};
}

std::pair<QString, QString> StoragePage::rescueText(const StoreHealth::Rescue& rescue) {
    const QString file = QString::fromStdString(rescue.file.filename().string());
    const QString aside =
        QDir::toNativeSeparators(QString::fromStdString(rescue.aside.filename().string()));
    if (rescue.kind == StoreHealth::Rescue::Kind::foreign)
        return {//: Title of the notification when a history file was made by another program.
                tr("Zettly started a new history"),
                //: Notification. %1 is a file name (clipboard.sqlite), %2 the name it was
                //: renamed to (clipboard.sqlite.foreign-1800000000).
                tr("%1 was not made by Zettly. It was left untouched as %2.").arg(file, aside)};
    if (rescue.kept == 0 && rescue.unreadable == 0)
        return {//: Title of the notification when a history file could not be read at all.
                tr("Zettly could not read its history"),
                //: Notification. %1 is a file name (clipboard.sqlite), %2 the name the damaged
                //: file was renamed to (clipboard.sqlite.corrupt-1800000000).
                tr("%1 is damaged and was started anew. The damaged file is kept as %2.")
                    .arg(file, aside)};
    return {//: Title of the notification when a damaged history file was repaired.
            tr("Zettly repaired its history"),
            //: Notification. %1 is a file name (clipboard.sqlite), %2 the number of entries
            //: kept, %3 the number lost, %4 the name the damaged file was renamed to.
            tr("%1 was damaged. %2 entries were saved into a new file, %3 could not be read. The "
               "damaged file is kept as %4.")
                .arg(file, QLocale().toString(qlonglong(rescue.kept)),
                     QLocale().toString(qlonglong(rescue.unreadable)), aside)};
}

StoragePage::StoragePage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

    problem_ = new QLabel(this);
    problem_->setWordWrap(true);
    problem_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // The palette's own error-ish colour would not exist in every style;
    // bold reads as a warning in all of them.
    QFont bold = problem_->font();
    bold.setBold(true);
    problem_->setFont(bold);
    problem_->setVisible(false);
    form->addRow(problem_);

    limit_ = new QComboBox(this);
    //: Settings › Storage: label before the picker of how many items the history keeps.
    form->addRow(tr("Keep up to:"), limit_);
    connect(limit_, &QComboBox::activated, this, [this](int index) {
        context_.defaults.setInteger(prefkey::clipboardLimit,
                                     limit_->itemData(index).value<qint64>());
    });

    retention_ = new QComboBox(this);
    //: Settings › Storage: label before the picker of the age at which items are deleted.
    form->addRow(tr("Delete after:"), retention_);
    connect(retention_, &QComboBox::activated, this, [this](int index) {
        context_.defaults.setInteger(prefkey::clipboardRetentionMinutes,
                                     retention_->itemData(index).value<qint64>());
    });

    //: Settings › Storage switch: copied images are kept in the history too.
    saveImages_ = new QCheckBox(tr("Save images"), this);
    form->addRow(saveImages_);
    connect(saveImages_, &QCheckBox::toggled, this, [this](bool on) {
        context_.defaults.setBool(prefkey::saveImages, on);
        originalLimit_->setEnabled(on);
    });

    originalLimit_ = new QComboBox(this);
    originalLimit_->setToolTip(
        //: Settings › Storage, tooltip of the "Keep images as copied up to:" picker.
        tr("Picking an image pastes it as it was copied, at full size. Larger images and images "
           "from other devices paste reduced to 1280 pixels."));
    //: Settings › Storage: label before the picker of the largest image kept as it was copied.
    form->addRow(tr("Keep images as copied up to:"), originalLimit_);
    connect(originalLimit_, &QComboBox::activated, this, [this](int index) {
        ClipPrefs(context_.defaults)
            .setImageOriginalLimitMB(originalLimit_->itemData(index).value<qint64>());
    });

    //: Settings › Storage switch: the history (except pinned items) is deleted when Zettly quits.
    clearOnQuit_ = new QCheckBox(tr("Clear history when Zettly quits"), this);
    form->addRow(clearOnQuit_);
    connect(clearOnQuit_, &QCheckBox::toggled, this,
            [this](bool on) { context_.defaults.setBool(prefkey::clearOnQuit, on); });

    //: Settings › Storage button: asks, then deletes the history except pinned items.
    clear_ = new QPushButton(tr("Clear History\u2026"), this);
    clear_->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    form->addRow(clear_);
    connect(clear_, &QPushButton::clicked, this, [this] { clearHistory(); });

    reload();
}

void StoragePage::reload() {
    const QString problem =
        context_.storageStatus ? problemText(context_.storageStatus()) : QString();
    problem_->setText(problem);
    problem_->setVisible(!problem.isEmpty());
    const ClipPrefs prefs(context_.defaults);
    fill(limit_, std::begin(limits), std::end(limits), prefs.clipboardLimit(), &limitLabel);
    fill(retention_, std::begin(retentions), std::end(retentions),
         prefs.clipboardRetentionMinutes(), &retentionLabel);
    fill(originalLimit_, std::begin(originalLimits), std::end(originalLimits),
         prefs.imageOriginalLimitMB(), &originalLimitLabel);
    {
        const QSignalBlocker block(saveImages_);
        saveImages_->setChecked(prefs.saveImages());
    }
    originalLimit_->setEnabled(prefs.saveImages());
    {
        const QSignalBlocker block(clearOnQuit_);
        clearOnQuit_->setChecked(prefs.clearOnQuit());
    }
}

void StoragePage::clearHistory() {
    const PopupTexts& texts = context_.dialogTexts;
    if (!dialogs::confirm(this, QString::fromStdString(texts.clearTitle),
                          QString::fromStdString(texts.clearDetail),
                          QString::fromStdString(texts.clearButton)))
        return;
    // Pinned items stay, images included, as the confirmation says.
    context_.texts.clear(true);
    context_.images.clear(true);
}

}  // namespace zettly
