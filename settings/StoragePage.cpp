#include "settings/StoragePage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
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
    //: Settings › Storage › "Keep up to:" picker: how many items the history keeps.
    return tr("%n items", nullptr, pluralCount(items));
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

StoragePage::StoragePage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

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
    connect(saveImages_, &QCheckBox::toggled, this,
            [this](bool on) { context_.defaults.setBool(prefkey::saveImages, on); });

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
    const ClipPrefs prefs(context_.defaults);
    fill(limit_, std::begin(limits), std::end(limits), prefs.clipboardLimit(), &limitLabel);
    fill(retention_, std::begin(retentions), std::end(retentions),
         prefs.clipboardRetentionMinutes(), &retentionLabel);
    {
        const QSignalBlocker block(saveImages_);
        saveImages_->setChecked(prefs.saveImages());
    }
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
