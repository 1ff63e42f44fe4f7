#include "settings/GeneralPage.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "platform/Autostart.h"
#include "platform/Defaults.h"
#include "settings/PageParts.h"
#include "settings/PasteKeysBox.h"
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
    : QWidget(parent), context_(context), form_(new QFormLayout(this)) {
    QFormLayout* form = form_;
    // Pickers keep their natural width; only the wrapping notes and the
    // paste keys take the width there is.
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);

    // Apart from the settings below it: it speaks of the whole session.
    sessionNote_ = new QWidget(this);
    auto* sessionRow = new QVBoxLayout(sessionNote_);
    sessionRow->setContentsMargins(0, 0, 0, 6);
    auto* session = new pageparts::NoteBox(sessionNote_);
    sessionRow->addWidget(session);
    //: Settings › General, at the top in a session where some things cannot work: the heading
    //: of the list of what does not.
    auto* sessionTitle =
        new QLabel(tr("Some features are not available in this session:"), session);
    sessionTitle->setWordWrap(true);
    session->content()->addWidget(sessionTitle);
    sessionLines_ = new QWidget(session);
    auto* lines = new QGridLayout(sessionLines_);
    lines->setContentsMargins(0, 0, 0, 0);
    lines->setHorizontalSpacing(6);
    lines->setVerticalSpacing(3);
    lines->setColumnStretch(1, 1);
    session->content()->addWidget(sessionLines_);
    remedy_ = new QPushButton(session);
    remedy_->setHidden(true);
    session->content()->addWidget(remedy_, 0, Qt::AlignLeft);
    connect(remedy_, &QPushButton::clicked, this, [this] {
        if (remedyFor_ && context_.remedy)
            context_.remedy(*remedyFor_);
    });
    form->addRow(sessionNote_);

    recorder_ = new ShortcutRecorder(context_, this);
    //: Settings › General: label before the button that records the shortcut opening the history.
    form->addRow(tr("Open history with:"), recorder_);
    shortcutWish_ = hiddenNote(this);
    //: Settings › General, under the shortcut where the desktop decides which key opens the
    //: history: the recorded key is only a proposal.
    shortcutWish_->setText(
        tr("Zettly proposes this key to your desktop, which may choose "
           "another."));
    shortcutProblem_ = pageparts::problemLabel(this);
    shortcutHelp_ = hiddenNote(this);
    for (QLabel* label : {shortcutWish_, shortcutProblem_, shortcutHelp_})
        form->addRow(label);
    //: Settings › General, under the shortcut where the desktop decides which key opens the
    //: history: opens the desktop's own shortcut settings.
    desktopShortcuts_ = new QPushButton(tr("Change in System Settings\u2026"), this);
    desktopShortcuts_->hide();
    connect(desktopShortcuts_, &QPushButton::clicked, this, [this] {
        if (context_.openDesktopHotKeyDialog)
            context_.openDesktopHotKeyDialog();
    });
    form->addRow(desktopShortcuts_);
    shortcutCommandRow_ = new QWidget(this);
    auto* commandRow = new QHBoxLayout(shortcutCommandRow_);
    commandRow->setContentsMargins(0, 0, 0, 0);
    shortcutCommand_ = new QLabel(shortcutCommandRow_);
    shortcutCommand_->setTextFormat(Qt::PlainText);
    shortcutCommand_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    shortcutCommand_->setTextInteractionFlags(Qt::TextSelectableByMouse |
                                              Qt::TextSelectableByKeyboard);
    shortcutCommand_->setCursor(Qt::IBeamCursor);
    shortcutCommand_->hide();
    commandRow->addWidget(shortcutCommand_, 1);
    //: Settings › General: copies the command or configuration line shown beside it.
    copyCommand_ = new QPushButton(tr("Copy"), shortcutCommandRow_);
    connect(copyCommand_, &QPushButton::clicked, this,
            [this] { QGuiApplication::clipboard()->setText(shortcutCommand_->text()); });
    commandRow->addWidget(copyCommand_, 0, Qt::AlignTop);
    shortcutCommandRow_->hide();
    form->addRow(shortcutCommandRow_);

    position_ = new QComboBox(this);
    //: Settings › General › where the history window opens: near the mouse pointer.
    position_->addItem(tr("At the pointer"), QStringLiteral("cursor"));
    //: Settings › General › where the history window opens: centred on the screen.
    position_->addItem(tr("In the center of the screen"), QStringLiteral("center"));
    //: Settings › General: label before the picker of where the history window opens.
    form->addRow(tr("Show window:"), position_);
    positionNote_ = hiddenNote(this);
    //: Settings › General, under the greyed-out "Show window:" picker on a desktop that places
    //: windows itself (Wayland).
    positionNote_->setText(
        tr("This desktop decides where the history opens, so this choice has no effect here. "
           "It is kept for sessions where Zettly can place the window."));
    form->addRow(positionNote_);
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
    pasteKeys_ = new PasteKeysBox(context_, this);
    pasteKeys_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    //: Settings › General: label before the list of applications with keys of their own for
    //: pasting.
    form->addRow(tr("Paste keys:"), pasteKeys_);

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

    const std::vector<Limitation> limits = context_.currentLimitations();
    auto limited = [&](Limitation limitation) {
        return std::find(limits.begin(), limits.end(), limitation) != limits.end();
    };
    reloadSessionNote(limits);
    pasteNote_->clear();
    if (limited(Limitation::noKeyTypingProtocol))
        //: Settings › General, under "Paste right away" on a Wayland desktop that lets no
        //: application press keys. KWin is a name; keep it.
        pasteNote_->setText(
            tr("This desktop offers applications no way to press keys (no virtual keyboard, "
               "no KWin fake input, no remote desktop portal), so the item only goes to the "
               "clipboard. Paste it yourself with Ctrl+V."));
    else if (limited(Limitation::noPaste))
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
    // Where nothing can be pasted the switch would change nothing.
    paste_->setEnabled(!limited(Limitation::noPaste));
    // Keys for applications nothing can be typed into would be a choice
    // without effect.
    form_->setRowVisible(pasteKeys_, !limited(Limitation::noPaste));
    pasteKeys_->reload();

    position_->setCurrentIndex(prefs.popupPosition() == ClipPrefs::PopupPosition::center ? 1 : 0);
    // The stored choice stays as it is: it applies again on a desktop that
    // lets Zettly place the window.
    const bool placedByDesktop = limited(Limitation::noWindowPlacement);
    position_->setEnabled(!placedByDesktop);
    positionNote_->setHidden(!placedByDesktop);
    reloadPreview();
    recorder_->reload();
    reloadShortcutNote();

    if (launch_) {
        const QSignalBlocker block(launch_);
        launch_->setChecked(context_.autostart->isEnabled());
        launchError_->clear();
        launchError_->setHidden(true);
    }
}

QStringList GeneralPage::limitationLines(const std::vector<Limitation>& limits) {
    auto limited = [&](Limitation limitation) {
        return std::find(limits.begin(), limits.end(), limitation) != limits.end();
    };
    const bool noPaste = limited(Limitation::noPaste);
    const bool noKeyTyping = limited(Limitation::noKeyTypingProtocol);
    QStringList lines;
    for (Limitation limitation : limits) {
        switch (limitation) {
            case Limitation::noGlobalShortcut:
                //: Settings › General, list of what this session cannot do.
                lines << tr(
                    "Zettly cannot have a shortcut of its own, so the history opens with "
                    "one you set up in your desktop's keyboard settings.");
                break;
            case Limitation::noPaste:
                // The line for the missing way of typing keys says why.
                if (!noKeyTyping)
                    //: Settings › General, list of what this session cannot do.
                    lines << tr(
                        "Zettly cannot type into other applications, so a picked item is "
                        "only copied and you paste it yourself.");
                break;
            case Limitation::noXTest:
                //: Settings › General, list of what this session cannot do. XTEST is the name of
                //: an X server extension; keep it.
                lines << tr(
                    "The X server lacks the XTEST extension, so a picked item is only "
                    "copied, not pasted.");
                break;
            case Limitation::captureOnlyWhileFocused:
                //: Settings › General, list of what this session cannot do.
                lines << tr(
                    "Zettly can read the clipboard only while one of its windows is "
                    "active, so what you copy in other applications may not be saved.");
                break;
            case Limitation::noFrontmostApp:
                //: Settings › General, list of what this session cannot do. Refers to the list
                //: in Settings › Ignore.
                lines << tr(
                    "Zettly cannot tell which application is in front, so ignored "
                    "applications are not recognised; text patterns still apply.");
                break;
            case Limitation::noWindowActivation:
                // Nothing is pasted anyway when typing is impossible too.
                if (!noPaste)
                    //: Settings › General, list of what this session cannot do.
                    lines << tr(
                        "Zettly cannot give the keyboard back to the window you were "
                        "working in, so a picked item may not be pasted there.");
                break;
            case Limitation::x11ApplicationsOnly:
                //: Settings › General, list of what this session cannot do. XWayland and X11
                //: are names; keep them.
                lines << tr(
                    "Zettly runs through XWayland, so its shortcut, saving copies and "
                    "pasting work with X11 applications only.");
                break;
            case Limitation::noWindowPlacement:
                //: Settings › General, list of what this session cannot do.
                lines << tr(
                    "This desktop does not let applications place their own windows, so the "
                    "history opens where the desktop puts it, usually in the middle of the "
                    "screen.");
                break;
            case Limitation::noKeyTypingProtocol:
                //: Settings › General, list of what this session cannot do.
                lines << tr(
                    "This desktop offers applications no way to press keys, so a picked "
                    "item is only copied and you paste it yourself.");
                break;
            case Limitation::shellExtensionOff:
                //: Settings › General and the tray, on GNOME when Zettly's GNOME Shell
                //: extension is installed but turned off. A button to turn it on follows.
                lines << tr(
                    "Zettly's GNOME Shell extension is turned off. Without it Zettly sees "
                    "only what you copy while its own window is open, and cannot paste for "
                    "you.");
                break;
            case Limitation::shellExtensionMissing:
                //: Settings › General and the tray, on GNOME when GNOME Shell has not loaded
                //: Zettly's extension.
                lines << tr(
                    "GNOME Shell has not loaded Zettly's extension, which Zettly needs to see "
                    "what you copy and to paste for you. After installing Zettly, log out and "
                    "back in once.");
                break;
            case Limitation::shellExtensionFailed:
                //: Settings › General and the tray, on GNOME when Zettly's GNOME Shell
                //: extension could not run.
                lines << tr(
                    "GNOME Shell could not run Zettly's extension, which Zettly needs to see "
                    "what you copy and to paste for you. The Extensions app shows why.");
                break;
        }
    }
    return lines;
}

QString GeneralPage::remedyLabel(Limitation limitation) {
    switch (limitation) {
        case Limitation::shellExtensionOff:
            //: Settings › General and the tray menu: button that turns on Zettly's GNOME Shell
            //: extension.
            return tr("Turn On Zettly's GNOME Extension");
        case Limitation::shellExtensionMissing:
        case Limitation::shellExtensionFailed:
            //: Settings › General and the tray menu: button that opens GNOME's Extensions app.
            return tr("Open Extensions\u2026");
        default:
            return {};
    }
}

void GeneralPage::reloadSessionNote(const std::vector<Limitation>& limits) {
    remedyFor_.reset();
    for (Limitation limitation : limits)
        if (context_.hasRemedy && context_.hasRemedy(limitation) &&
            !remedyLabel(limitation).isEmpty()) {
            remedyFor_ = limitation;
            break;
        }
    remedy_->setHidden(!remedyFor_);
    if (remedyFor_)
        remedy_->setText(remedyLabel(*remedyFor_));
    qDeleteAll(sessionLines_->findChildren<QLabel*>(Qt::FindDirectChildrenOnly));
    auto* grid = static_cast<QGridLayout*>(sessionLines_->layout());
    int row = 0;
    for (const QString& line : limitationLines(limits)) {
        auto* bullet = new QLabel(QStringLiteral("•"), sessionLines_);
        auto* text = new QLabel(line, sessionLines_);
        text->setObjectName(QStringLiteral("limitation"));
        text->setWordWrap(true);
        text->setTextFormat(Qt::PlainText);
        grid->addWidget(bullet, row, 0, Qt::AlignTop);
        grid->addWidget(text, row, 1);
        ++row;
    }
    sessionNote_->setHidden(row == 0);
}

void GeneralPage::reloadShortcutNote() {
    const HotKeyState state = context_.hotKeyState ? context_.hotKeyState() : HotKeyState{};
    const QString combo = recorder_->displayText(ClipPrefs(context_.defaults).hotKey());
    const QString detail = QString::fromStdString(state.detail);
    const bool desktopChooses = context_.desktopChoosesHotKey && context_.desktopChoosesHotKey();
    QString problem, help;
    switch (state.kind) {
        case HotKeyState::Kind::waiting:
            break;
        case HotKeyState::Kind::bound:
            if (!desktopChooses)
                break;
            if (detail.isEmpty())
                //: Settings › General, under the shortcut: the desktop keeps Zettly's shortcut
                //: but the user gave it no key.
                help = tr("Your desktop has no key for opening the history yet.");
            else
                //: Settings › General, under the shortcut: the key the desktop bound, in the
                //: desktop's words, e.g. "Meta+Shift+V".
                help = tr("Your desktop opens the history with %1.").arg(detail);
            break;
        case HotKeyState::Kind::taken:
            //: Settings › General, under the shortcut when another application holds it. %1 is
            //: the shortcut, e.g. Alt+V.
            problem = tr("%1 is used by another application. Choose another shortcut.").arg(combo);
            break;
        case HotKeyState::Kind::noSuchKey:
            //: Settings › General, under the shortcut when it names a key this keyboard lacks
            //: (a shortcut stored on another computer). %1 is the shortcut.
            problem = tr("%1 is not on this keyboard. Choose another shortcut.").arg(combo);
            break;
        case HotKeyState::Kind::inDesktopSettings:
            if (state.configFile.empty())
                //: Settings › General, under the shortcut in a session where applications cannot
                //: have shortcuts; the command to bind follows on the next line.
                help =
                    tr("This desktop gives applications no shortcuts of their own. To open the "
                       "history with a key, add a shortcut for this command in your desktop's "
                       "keyboard settings:");
            else if (state.configSection.empty())
                //: Settings › General, under the shortcut on a compositor that binds keys only in
                //: its configuration file; the line to add follows. %1 is the file, e.g.
                //: ~/.config/sway/config.
                help = tr("Your compositor gives applications no shortcuts of their own. To open "
                          "the history with a key, add this to %1 and reload the "
                          "configuration:")
                           .arg(QString::fromStdString(state.configFile));
            else
                //: Settings › General, as above for a line that belongs in one part of the
                //: file. %1 is the file, e.g. ~/.config/niri/config.kdl; %2 names the part as
                //: the file writes it, e.g. "binds { }" or "[command]".
                help = tr("Your compositor gives applications no shortcuts of their own. To open "
                          "the history with a key, add this to the %2 section of %1 and reload "
                          "the configuration:")
                           .arg(QString::fromStdString(state.configFile),
                                QString::fromStdString(state.configSection));
            break;
        case HotKeyState::Kind::failed:
            if (detail.isEmpty())
                //: Settings › General, under the shortcut when the desktop refused it without
                //: saying why. %1 is the shortcut, e.g. Alt+V.
                problem = tr("The shortcut %1 could not be set.").arg(combo);
            else
                //: Settings › General, under the shortcut when the desktop refused it. %1 is the
                //: shortcut, e.g. Alt+V; %2 is the system's reason, in English.
                problem = tr("The shortcut %1 could not be set: %2").arg(combo, detail);
            break;
    }
    shortcutProblem_->setText(problem);
    shortcutProblem_->setHidden(problem.isEmpty());
    shortcutHelp_->setText(help);
    shortcutHelp_->setHidden(help.isEmpty());
    const bool bindElsewhere = state.kind == HotKeyState::Kind::inDesktopSettings;
    shortcutCommand_->setText(bindElsewhere ? detail : QString());
    shortcutCommand_->setHidden(!bindElsewhere || detail.isEmpty());
    shortcutCommandRow_->setHidden(shortcutCommand_->isHidden());
    // A shortcut recorded here would never reach Zettly.
    recorder_->setEnabled(!bindElsewhere);
    // Recording still says which key Zettly proposes.
    shortcutWish_->setHidden(!desktopChooses || bindElsewhere);
    desktopShortcuts_->setHidden(!desktopChooses || !context_.openDesktopHotKeyDialog);
}

void GeneralPage::reloadPreview() {
    // A delay from elsewhere (ClipPrefs reads a negative one as 0) gets an
    // entry of its own so the picker never shows a delay that is not the one
    // in use.
    const double shown = ClipPrefs(context_.defaults).previewDelay();
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
