#include "settings/PasteKeysBox.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <iterator>

#include "settings/PageParts.h"
#include "settings/RunningAppsButton.h"
#include "settings/SettingsContext.h"
#include "store/ClipPrefs.h"

namespace zettly {
namespace {

constexpr PasteChord offered[] = {PasteChord::ctrlV, PasteChord::ctrlShiftV,
                                  PasteChord::shiftInsert};

}  // namespace

PasteKeysBox::PasteKeysBox(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    //: Settings › General › paste keys: why one would choose the keys for an application. Key
    //: names as on the keyboard; xterm and rxvt are program names.
    layout->addWidget(pageparts::noteLabel(
        tr("Most applications paste with Ctrl+V, terminals with Ctrl+Shift+V, xterm and rxvt "
           "with Shift+Insert. Choose other keys for an application that pastes nothing."),
        this));

    grid_ = new QGridLayout;
    grid_->setContentsMargins(0, 2, 0, 2);
    grid_->setHorizontalSpacing(8);
    grid_->setVerticalSpacing(4);
    // The keys stay beside their application rather than at the far edge of
    // a wide window.
    grid_->setColumnMinimumWidth(0, 160);
    grid_->setColumnStretch(3, 1);
    layout->addLayout(grid_);

    auto* addRowLayout = new QHBoxLayout;
    appField_ = new QLineEdit(this);
    //: Settings › General › paste keys: placeholder of the field for an application id.
    appField_->setPlaceholderText(tr("Application id"));
    appField_->setClearButtonEnabled(true);
    appField_->setMinimumWidth(180);
    //: Settings › General › paste keys: button that adds the typed application to the list.
    addButton_ = new QPushButton(tr("Add"), this);
    addButton_->setEnabled(false);
    runningAppsButton_ = new RunningAppsButton(
        context_.runningApps, [this](const std::string& appId) { return rowOf(appId) >= 0; }, this);
    addRowLayout->addWidget(appField_, 1);
    addRowLayout->addWidget(addButton_);
    addRowLayout->addWidget(runningAppsButton_);
    layout->addLayout(addRowLayout);

    auto addTyped = [this] {
        addApp(appField_->text());
        appField_->clear();
    };
    connect(addButton_, &QPushButton::clicked, this, addTyped);
    connect(appField_, &QLineEdit::returnPressed, this, addTyped);
    connect(appField_, &QLineEdit::textChanged, this,
            [this](const QString& text) { addButton_->setEnabled(!text.trimmed().isEmpty()); });
    connect(runningAppsButton_, &RunningAppsButton::picked, this,
            [this](const QString& appId) { addApp(appId); });

    reload();
}

QString PasteKeysBox::keysName(PasteChord chord) {
    switch (chord) {
        case PasteChord::ctrlV:
            //: Settings › General › paste keys: the keys that paste in most applications.
            return tr("Ctrl+V");
        case PasteChord::ctrlShiftV:
            //: Settings › General › paste keys: the keys that paste in most terminals.
            return tr("Ctrl+Shift+V");
        case PasteChord::shiftInsert:
            //: Settings › General › paste keys: the keys that paste in xterm and rxvt.
            return tr("Shift+Insert");
    }
    return {};
}

void PasteKeysBox::reload() {
    // The row whose button asked for this may still be on the call stack.
    for (const Row& row : rows_)
        for (QWidget* widget : {static_cast<QWidget*>(row.app), static_cast<QWidget*>(row.keys),
                                static_cast<QWidget*>(row.remove)}) {
            grid_->removeWidget(widget);
            widget->hide();
            widget->deleteLater();
        }
    rows_.clear();
    for (const PasteChordChoice& choice : ClipPrefs(context_.defaults).pasteChords())
        addRow(choice);
}

void PasteKeysBox::addRow(const PasteChordChoice& choice) {
    const int line = rowCount();
    const std::string appId = choice.appId;
    Row row{};
    row.app = new QLabel(QString::fromStdString(appId), this);
    row.app->setTextFormat(Qt::PlainText);
    row.app->setTextInteractionFlags(Qt::TextSelectableByMouse);

    row.keys = new QComboBox(this);
    for (PasteChord chord : offered)
        row.keys->addItem(keysName(chord), static_cast<int>(chord));
    row.keys->setCurrentIndex(static_cast<int>(std::distance(
        std::begin(offered), std::find(std::begin(offered), std::end(offered), choice.chord))));
    //: Settings › General › paste keys: accessible name of the keys picker of one application.
    //: %1 is the application id.
    row.keys->setAccessibleName(tr("Paste keys for %1").arg(row.app->text()));
    connect(row.keys, &QComboBox::activated, this, [this, appId, keys = row.keys](int index) {
        setKeys(appId, static_cast<PasteChord>(keys->itemData(index).toInt()));
    });

    row.remove = new QToolButton(this);
    row.remove->setIcon(QIcon::fromTheme(QStringLiteral("list-remove"),
                                         style()->standardIcon(QStyle::SP_TitleBarCloseButton)));
    row.remove->setAutoRaise(true);
    //: Settings › General › paste keys: tooltip of the button that removes an application's
    //: keys, so it is pasted into with the usual keys again.
    row.remove->setToolTip(tr("Remove, pasting with the usual keys again"));
    //: Settings › General › paste keys: accessible name of the remove button of one
    //: application. %1 is the application id.
    row.remove->setAccessibleName(tr("Remove %1").arg(row.app->text()));
    connect(row.remove, &QToolButton::clicked, this, [this, appId] { remove(appId); });

    grid_->addWidget(row.app, line, 0);
    grid_->addWidget(row.keys, line, 1);
    grid_->addWidget(row.remove, line, 2);
    rows_.push_back(row);
}

void PasteKeysBox::addApp(const QString& appId) {
    const std::string app = appId.trimmed().toStdString();
    if (app.empty())
        return;
    if (rowOf(app) < 0) {
        ClipPrefs prefs(context_.defaults);
        std::vector<PasteChordChoice> choices = prefs.pasteChords();
        choices.push_back({app, pasteChordFor(app, choices)});
        prefs.setPasteChords(choices);
        reload();
    }
    if (const int row = rowOf(app); row >= 0)
        rows_[static_cast<std::size_t>(row)].keys->setFocus(Qt::OtherFocusReason);
}

void PasteKeysBox::setKeys(const std::string& appId, PasteChord chord) {
    ClipPrefs prefs(context_.defaults);
    std::vector<PasteChordChoice> choices = prefs.pasteChords();
    auto found = std::find_if(choices.begin(), choices.end(),
                              [&](const PasteChordChoice& c) { return c.appId == appId; });
    // Gone meanwhile (the row was on screen while the list changed): the
    // choice the user just made still counts.
    if (found == choices.end())
        choices.push_back({appId, chord});
    else
        found->chord = chord;
    prefs.setPasteChords(choices);
}

void PasteKeysBox::remove(const std::string& appId) {
    ClipPrefs prefs(context_.defaults);
    std::vector<PasteChordChoice> choices = prefs.pasteChords();
    std::erase_if(choices, [&](const PasteChordChoice& c) { return c.appId == appId; });
    prefs.setPasteChords(choices);
    reload();
    appField_->setFocus(Qt::OtherFocusReason);
}

int PasteKeysBox::rowOf(const std::string& appId) const {
    for (std::size_t row = 0; row < rows_.size(); ++row)
        if (sameAppId(rows_[row].app->text().toStdString(), appId))
            return static_cast<int>(row);
    return -1;
}

QString PasteKeysBox::appIdAt(int row) const {
    return rows_.at(static_cast<std::size_t>(row)).app->text();
}

QComboBox* PasteKeysBox::keysPicker(int row) const {
    return rows_.at(static_cast<std::size_t>(row)).keys;
}

QToolButton* PasteKeysBox::removeButton(int row) const {
    return rows_.at(static_cast<std::size_t>(row)).remove;
}

}  // namespace zettly
