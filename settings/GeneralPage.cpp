#include "settings/GeneralPage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "platform/Autostart.h"
#include "platform/Defaults.h"
#include "settings/PageParts.h"
#include "settings/SettingsContext.h"
#include "settings/ShortcutRecorder.h"
#include "store/ClipPrefs.h"
#include "store/PrefKeys.h"
#include "ui/Look.h"

namespace zettly {
namespace {

QLabel* hiddenNote(QWidget* parent) {
    QLabel* label = pageparts::noteLabel({}, parent);
    label->hide();
    return label;
}

bool sameDelay(double a, double b) {
    return std::abs(a - b) < 1e-9;
}

}  // namespace

GeneralPage::GeneralPage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

    recorder_ = new ShortcutRecorder(context_, this);
    //: Settings › General: label before the button that records the shortcut opening the history.
    form->addRow(tr("Open history with:"), recorder_);

    position_ = new QComboBox(this);
    //: Settings › General › where the history window opens: near the mouse pointer.
    position_->addItem(tr("At the pointer"), QStringLiteral("cursor"));
    //: Settings › General › where the history window opens: centred on the screen.
    position_->addItem(tr("In the center of the screen"), QStringLiteral("center"));
    //: Settings › General: label before the picker of where the history window opens.
    form->addRow(tr("Show window:"), position_);
    connect(position_, &QComboBox::activated, this, [this](int index) {
        ClipPrefs(context_.defaults)
            .setPopupPosition(position_->itemData(index).toString() == QLatin1String("center")
                                  ? ClipPrefs::PopupPosition::center
                                  : ClipPrefs::PopupPosition::cursor);
    });

    preview_ = new QComboBox(this);
    //: Settings › General: label before the picker of when the full preview of an item opens.
    form->addRow(tr("Show preview:"), preview_);
    connect(preview_, &QComboBox::activated, this, [this](int index) {
        context_.defaults.setDouble(prefkey::previewDelay, preview_->itemData(index).toDouble());
    });

    //: Settings › General switch: choosing an item in the history also pastes it into the app
    //: that was in front.
    paste_ = new QCheckBox(tr("Paste right away"), this);
    form->addRow(paste_);
    connect(paste_, &QCheckBox::toggled, this,
            [this](bool on) { context_.defaults.setBool(prefkey::pasteAutomatically, on); });
    auto* pasteHint = hiddenNote(this);
    //: Settings › General, under "Paste right away": what the switch does, and the key that does
    //: the other thing for one pick.
    pasteHint->setText(
        tr("Choosing an item also pastes it into the window you were working "
           "in. Alt+Return in the history does the other."));
    pasteHint->setHidden(false);
    form->addRow(pasteHint);
    pasteNote_ = hiddenNote(this);
    form->addRow(pasteNote_);

    if (context_.autostart) {
        //: Settings › General switch: start Zettly when the user logs in to the desktop.
        launch_ = new QCheckBox(tr("Launch at login"), this);
        form->addRow(launch_);
        connect(launch_, &QCheckBox::toggled, this, [this](bool on) { setLaunchAtLogin(on); });
        launchError_ = hiddenNote(this);
        launchError_->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(launchError_);
    }

    reload();
}

void GeneralPage::reload() {
    const ClipPrefs prefs(context_.defaults);
    {
        const QSignalBlocker block(paste_);
        paste_->setChecked(prefs.pasteAutomatically());
    }

    const std::vector<Limitation> limits =
        context_.limitations ? context_.limitations() : std::vector<Limitation>{};
    auto limited = [&](Limitation limitation) {
        return std::find(limits.begin(), limits.end(), limitation) != limits.end();
    };
    pasteNote_->clear();
    if (limited(Limitation::noPaste))
        //: Settings › General, under "Paste right away" in a session where Zettly cannot type
        //: into other applications.
        pasteNote_->setText(
            tr("In this session Zettly cannot type into other apps' windows, so the item only "
               "goes to the clipboard. Paste it yourself with Ctrl+V."));
    else if (limited(Limitation::noXTest))
        //: Settings › General, under "Paste right away" when the X server cannot simulate
        //: key presses. XTEST is the name of the X server extension; keep it.
        pasteNote_->setText(
            tr("This X server lacks the XTEST extension, which Zettly needs to press Ctrl+V "
               "for you, so the item only goes to the clipboard. Enable XTEST in the X "
               "server's configuration (or install the package that provides it) and "
               "start Zettly again."));
    pasteNote_->setHidden(pasteNote_->text().isEmpty());

    position_->setCurrentIndex(prefs.popupPosition() == ClipPrefs::PopupPosition::center ? 1 : 0);
    reloadPreview();
    recorder_->reload();

    if (launch_) {
        const QSignalBlocker block(launch_);
        launch_->setChecked(context_.autostart->isEnabled());
        launchError_->clear();
        launchError_->setHidden(true);
    }
}

void GeneralPage::reloadPreview() {
    // Anything not above 0 means "only with the shortcut" to the history
    // window, whatever number is stored; a positive value from elsewhere
    // gets an entry of its own so the picker never shows a delay that is
    // not the one in use.
    const double stored = ClipPrefs(context_.defaults).previewDelay();
    const double shown = stored > 0 ? stored : 0;
    std::vector<double> delays(std::begin(previewDelays), std::end(previewDelays));
    if (std::none_of(delays.begin(), delays.end(), [&](double d) { return sameDelay(d, shown); })) {
        delays.push_back(shown);
        std::sort(delays.begin(), delays.end());
    }

    const QSignalBlocker block(preview_);
    preview_->clear();
    for (double delay : delays) {
        if (delay > 0)
            //: Settings › General › preview picker: the preview opens once the selection has
            //: rested this long. %1 is a number of seconds, such as 0.5. "s" is seconds.
            preview_->addItem(tr("After %1 s").arg(QLocale().toString(delay)), delay);
        else
            //: Settings › General › preview picker: the preview opens only when the user
            //: presses one of these shortcuts in the history window.
            preview_->addItem(tr("Only with Super+Space or Ctrl+Y"), 0.0);
        if (sameDelay(delay, shown))
            preview_->setCurrentIndex(preview_->count() - 1);
    }
}

void GeneralPage::setLaunchAtLogin(bool on) {
    const Autostart::Result result =
        on ? context_.autostart->enable() : context_.autostart->disable();
    {
        // The switch shows what the desktop will do, not what was asked for.
        const QSignalBlocker block(launch_);
        launch_->setChecked(context_.autostart->isEnabled());
    }
    if (result.ok) {
        launchError_->clear();
        launchError_->setHidden(true);
        return;
    }
    QString headline;
    if (on)
        //: Settings › General, under "Launch at login" when the login entry could not be
        //: written. The system's reason follows on the next line.
        headline = tr("Zettly could not be set to start at login.");
    else
        //: Settings › General, under "Launch at login" when the login entry could not be
        //: removed. The system's reason follows on the next line.
        headline = tr("Zettly could not be kept from starting at login.");
    launchError_->setText(headline + QLatin1Char('\n') + QString::fromStdString(result.error));
    launchError_->setHidden(false);
}

}  // namespace zettly
