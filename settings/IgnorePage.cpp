#include "settings/IgnorePage.h"

#include <QAction>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <algorithm>
#include <set>
#include <string_view>

#include "capture/PasteboardMonitor.h"
#include "platform/Defaults.h"
#include "settings/PageParts.h"
#include "settings/RunningAppsButton.h"
#include "store/ClipPrefs.h"
#include "store/PrefKeys.h"
#include "ui/Look.h"

namespace zettly {
namespace {

// A red disc with a white "!" for the end of the pattern field.
QIcon problemIcon() {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(pageparts::problemRed);
    p.drawEllipse(QRectF(2, 2, 28, 28));
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(14, 7, 4, 12), 2, 2);
    p.drawEllipse(QRectF(14, 21, 4, 4));
    return QIcon(pixmap);
}

// What went wrong, for the ICU errors a hand-written pattern runs into.
QString reasonFor(std::string_view code) {
    if (code == "U_REGEX_MISSING_CLOSE_BRACKET")
        //: Settings › Ignore: why a regular expression is invalid.
        return IgnorePage::tr("A \u201c[\u201d is not closed.");
    if (code == "U_REGEX_MISMATCHED_PAREN")
        //: Settings › Ignore: why a regular expression is invalid.
        return IgnorePage::tr("The parentheses do not match.");
    if (code == "U_REGEX_RULE_SYNTAX")
        //: Settings › Ignore: why a regular expression is invalid (e.g. "*" with nothing
        //: before it).
        return IgnorePage::tr("Syntax error, for example a repeat with nothing to repeat.");
    if (code == "U_REGEX_BAD_ESCAPE_SEQUENCE")
        //: Settings › Ignore: why a regular expression is invalid.
        return IgnorePage::tr("Unknown escape sequence after a backslash.");
    if (code == "U_REGEX_PROPERTY_SYNTAX")
        //: Settings › Ignore: why a regular expression is invalid; \p{…} names a Unicode property.
        return IgnorePage::tr("Unknown or malformed \\p{…} property.");
    if (code == "U_REGEX_BAD_INTERVAL" || code == "U_REGEX_MAX_LT_MIN" ||
        code == "U_REGEX_NUMBER_TOO_BIG")
        //: Settings › Ignore: why a regular expression is invalid; {n,m} is a repeat count.
        return IgnorePage::tr("The repeat count in {n,m} is not valid.");
    if (code == "U_REGEX_INVALID_RANGE")
        //: Settings › Ignore: why a regular expression is invalid, e.g. [z-a] or an unfinished [a-.
        return IgnorePage::tr("A range in [\u2026] is not valid.");
    if (code == "U_REGEX_INVALID_BACK_REF")
        //: Settings › Ignore: why a regular expression is invalid, e.g. \2 with one group.
        return IgnorePage::tr("A back reference names a group that does not exist.");
    if (code == "U_REGEX_LOOK_BEHIND_LIMIT")
        //: Settings › Ignore: why a regular expression is invalid.
        return IgnorePage::tr("A look-behind must have a limited length.");
    if (code == "U_REGEX_INVALID_FLAG")
        //: Settings › Ignore: why a regular expression is invalid, e.g. (?z).
        return IgnorePage::tr("Unknown flag in (?\u2026).");
    //: Settings › Ignore: why a regular expression is invalid, for a rarer error. %1 is the
    //: regular-expression library's own error name (not translated).
    return IgnorePage::tr("Not a valid regular expression (%1).")
        .arg(QString::fromLatin1(code.data(), static_cast<qsizetype>(code.size())));
}

QString addLabel() {
    //: Settings › Ignore: button that adds the typed application id or pattern to its list.
    return IgnorePage::tr("Add");
}

QString removeLabel() {
    //: Settings › Ignore: button that removes the selected applications or pattern.
    return IgnorePage::tr("Remove");
}

}  // namespace

IgnorePage::IgnorePage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* layout = new QVBoxLayout(this);

    // ---- applications ----
    //: Settings › Ignore: title of the section with the ignored applications.
    auto* apps = new QGroupBox(tr("Applications"), this);
    auto* appsLayout = new QVBoxLayout(apps);
    //: Settings › Ignore: explanation of the ignored applications.
    appsLayout->addWidget(pageparts::noteLabel(
        tr("Nothing you copy while one of these applications is in front is saved."), apps));
    auto* frontmostNote = new pageparts::NoteBox(apps);
    frontmostNote_ = frontmostNote;
    frontmostNote_->setObjectName(QStringLiteral("appsUnrecognisedNote"));
    //: Settings › Ignore, above the application list in a session where Zettly cannot tell
    //: which application is in front. The marks are hints password managers add to what they
    //: copy.
    auto* frontmostText = new QLabel(
        tr("In this session Zettly cannot tell which application is in front, so the "
           "applications in this list are not recognised. Text patterns, and the marks password "
           "managers put on what they copy, still keep copies out."),
        frontmostNote);
    frontmostText->setWordWrap(true);
    frontmostNote->content()->addWidget(frontmostText);
    appsLayout->addWidget(frontmostNote_);
    appList_ = new QListWidget(apps);
    appList_->setObjectName(QStringLiteral("appList"));
    appList_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    appsLayout->addWidget(appList_, 1);
    //: Settings › Ignore: shown under the application list while the user has not changed it.
    defaultsNote_ =
        pageparts::noteLabel(tr("These are the defaults: password managers Zettly knows. Adding "
                                "or removing one makes the list your own."),
                             apps);
    defaultsNote_->setObjectName(QStringLiteral("appDefaultsNote"));
    appsLayout->addWidget(defaultsNote_);

    auto* appRow = new QHBoxLayout;
    appField_ = new QLineEdit(apps);
    appField_->setObjectName(QStringLiteral("appField"));
    //: Settings › Ignore: placeholder of the field for an application id to ignore.
    appField_->setPlaceholderText(tr("Application id, like org.keepassxc.KeePassXC"));
    appField_->setClearButtonEnabled(true);
    addAppButton_ = new QPushButton(addLabel(), apps);
    addAppButton_->setObjectName(QStringLiteral("addAppButton"));
    runningAppsButton_ = new RunningAppsButton(
        context_.runningApps,
        [this](const std::string& appId) {
            const std::vector<std::string> ignored = ignoredApps();
            return std::find(ignored.begin(), ignored.end(), appId) != ignored.end();
        },
        apps);
    runningAppsButton_->setObjectName(QStringLiteral("runningAppsButton"));
    appRow->addWidget(appField_, 1);
    appRow->addWidget(addAppButton_);
    appRow->addWidget(runningAppsButton_);
    appsLayout->addLayout(appRow);

    auto* appButtons = new QHBoxLayout;
    removeAppButton_ = new QPushButton(removeLabel(), apps);
    removeAppButton_->setObjectName(QStringLiteral("removeAppButton"));
    //: Settings › Ignore: button that goes back to the built-in list of ignored applications.
    defaultsButton_ = new QPushButton(tr("Restore Defaults"), apps);
    defaultsButton_->setObjectName(QStringLiteral("appDefaultsButton"));
    appButtons->addWidget(removeAppButton_);
    appButtons->addStretch(1);
    appButtons->addWidget(defaultsButton_);
    appsLayout->addLayout(appButtons);
    layout->addWidget(apps, 1);

    // ---- patterns ----
    //: Settings › Ignore: title of the section with the ignored text patterns.
    auto* patterns = new QGroupBox(tr("Text Patterns"), this);
    auto* patternsLayout = new QVBoxLayout(patterns);
    //: Settings › Ignore: explanation of the patterns. "Regular expressions" is the technical
    //: term; matching is case-sensitive and a match anywhere in the text counts.
    patternsLayout->addWidget(pageparts::noteLabel(
        tr("A copied text in which one of these regular expressions finds a match is "
           "not saved. Upper and lower case count."),
        patterns));
    patternList_ = new QListWidget(patterns);
    patternList_->setObjectName(QStringLiteral("patternList"));
    patternsLayout->addWidget(patternList_, 1);

    auto* patternRow = new QHBoxLayout;
    patternField_ = new QLineEdit(patterns);
    patternField_->setObjectName(QStringLiteral("patternField"));
    //: Settings › Ignore: placeholder of the field for a regular expression; the example
    //: matches six-digit codes.
    patternField_->setPlaceholderText(tr("Regular expression, like ^\\d{6}$"));
    patternMark_ = patternField_->addAction(problemIcon(), QLineEdit::TrailingPosition);
    patternMark_->setObjectName(QStringLiteral("patternMark"));
    patternMark_->setVisible(false);
    savePatternButton_ = new QPushButton(patterns);
    savePatternButton_->setObjectName(QStringLiteral("savePatternButton"));
    //: Settings › Ignore: button that stops editing a pattern without saving it.
    cancelEditButton_ = new QPushButton(tr("Cancel"), patterns);
    cancelEditButton_->setObjectName(QStringLiteral("cancelPatternButton"));
    patternRow->addWidget(patternField_, 1);
    patternRow->addWidget(savePatternButton_);
    patternRow->addWidget(cancelEditButton_);
    patternsLayout->addLayout(patternRow);

    patternProblem_ = pageparts::problemLabel(patterns);
    patternProblem_->setObjectName(QStringLiteral("patternProblem"));
    patternsLayout->addWidget(patternProblem_);

    auto* patternButtons = new QHBoxLayout;
    //: Settings › Ignore: button that puts the selected pattern into the field for editing.
    editPatternButton_ = new QPushButton(tr("Edit"), patterns);
    editPatternButton_->setObjectName(QStringLiteral("editPatternButton"));
    removePatternButton_ = new QPushButton(removeLabel(), patterns);
    removePatternButton_->setObjectName(QStringLiteral("removePatternButton"));
    patternButtons->addWidget(editPatternButton_);
    patternButtons->addWidget(removePatternButton_);
    patternButtons->addStretch(1);
    patternsLayout->addLayout(patternButtons);
    layout->addWidget(patterns, 1);

    // ---- wiring ----
    auto addTypedApp = [this] {
        addApp(appField_->text());
        appField_->clear();
    };
    connect(addAppButton_, &QPushButton::clicked, this, addTypedApp);
    connect(appField_, &QLineEdit::returnPressed, this, addTypedApp);
    connect(appField_, &QLineEdit::textChanged, this, [this] { updateButtons(); });
    connect(runningAppsButton_, &RunningAppsButton::picked, this,
            [this](const QString& appId) { addApp(appId); });
    auto removeSelectedApps = [this] {
        std::vector<std::string> chosen;
        for (QListWidgetItem* item : appList_->selectedItems())
            chosen.push_back(item->text().toStdString());
        for (const std::string& app : chosen)
            removeApp(app);
    };
    connect(removeAppButton_, &QPushButton::clicked, this, removeSelectedApps);
    new QShortcut(QKeySequence::Delete, appList_, removeSelectedApps, Qt::WidgetShortcut);
    connect(defaultsButton_, &QPushButton::clicked, this, [this] { useDefaultApps(); });
    connect(appList_, &QListWidget::itemSelectionChanged, this, [this] { updateButtons(); });

    connect(patternField_, &QLineEdit::textChanged, this, [this] { checkPatternField(); });
    connect(patternField_, &QLineEdit::returnPressed, this, [this] { submitPatternField(); });
    connect(savePatternButton_, &QPushButton::clicked, this, [this] { submitPatternField(); });
    connect(cancelEditButton_, &QPushButton::clicked, this, [this] { endEditingPattern(); });
    connect(editPatternButton_, &QPushButton::clicked, this, [this] {
        if (QListWidgetItem* item = patternList_->currentItem())
            beginEditingPattern(patternList_->row(item));
    });
    connect(patternList_, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { beginEditingPattern(patternList_->row(item)); });
    auto removeSelectedPattern = [this] {
        if (QListWidgetItem* item = patternList_->currentItem())
            removePattern(patternList_->row(item));
    };
    connect(removePatternButton_, &QPushButton::clicked, this, removeSelectedPattern);
    new QShortcut(QKeySequence::Delete, patternList_, removeSelectedPattern, Qt::WidgetShortcut);
    connect(patternList_, &QListWidget::itemSelectionChanged, this, [this] { updateButtons(); });

    endEditingPattern();
    reload();
}

// ---- applications -----------------------------------------------------------

std::vector<std::string> IgnorePage::ignoredApps() const {
    return ClipPrefs(context_.defaults)
        .ignoredApps()
        .value_or(PasteboardMonitor::builtInIgnoredApps());
}

void IgnorePage::reload() {
    const bool ownList = ClipPrefs(context_.defaults).ignoredApps().has_value();
    std::set<QString> selected;
    for (QListWidgetItem* item : appList_->selectedItems())
        selected.insert(item->text());
    appList_->clear();
    for (const std::string& app : ignoredApps()) {
        auto* item = new QListWidgetItem(QString::fromStdString(app), appList_);
        item->setSelected(selected.contains(item->text()));
    }
    defaultsNote_->setVisible(!ownList);
    frontmostNote_->setVisible(context_.limitedBy(Limitation::noFrontmostApp));
    defaultsButton_->setEnabled(ownList);

    // A pattern being edited stays in the field while the list changes
    // under it (a sync, a removal): the edit follows its pattern to its new
    // row, or becomes an addition when the pattern is gone.
    const std::vector<std::string> patterns = ClipPrefs(context_.defaults).ignoredPatterns();
    const int current = patternList_->currentRow();
    patternList_->clear();
    for (const std::string& pattern : patterns) {
        auto* item = new QListWidgetItem(QString::fromStdString(pattern), patternList_);
        // A pattern stored by an older version or by hand can still be
        // broken; capture skips it, and the list says so.
        if (std::optional<QString> problem = patternProblem(item->text())) {
            item->setIcon(problemIcon());
            item->setToolTip(*problem);
        }
    }
    if (current >= 0 && current < patternList_->count())
        patternList_->setCurrentRow(current);
    if (editingRow_) {
        const QList<QListWidgetItem*> found =
            patternList_->findItems(editingOriginal_, Qt::MatchExactly);
        if (found.isEmpty()) {
            editingRow_.reset();
            savePatternButton_->setText(addLabel());
            cancelEditButton_->setVisible(false);
        } else {
            editingRow_ = patternList_->row(found.front());
        }
    }
    updateButtons();
}

void IgnorePage::addApp(const QString& appId) {
    const std::string app = appId.trimmed().toStdString();
    if (app.empty())
        return;
    std::vector<std::string> apps = ignoredApps();
    if (std::find(apps.begin(), apps.end(), app) == apps.end()) {
        apps.push_back(app);
        context_.defaults.setStringArray(prefkey::ignoredApps, apps);
    }
    reload();
    const QList<QListWidgetItem*> found =
        appList_->findItems(QString::fromStdString(app), Qt::MatchExactly);
    if (!found.isEmpty())
        appList_->setCurrentItem(found.front());
}

void IgnorePage::removeApp(const std::string& appId) {
    std::vector<std::string> apps = ignoredApps();
    auto gone = std::remove(apps.begin(), apps.end(), appId);
    if (gone == apps.end())
        return;
    apps.erase(gone, apps.end());
    // Stored even when empty: an empty list of one's own ignores nothing,
    // while no list at all would bring the built-in one back.
    context_.defaults.setStringArray(prefkey::ignoredApps, apps);
    reload();
}

void IgnorePage::useDefaultApps() {
    context_.defaults.remove(prefkey::ignoredApps);
    reload();
}

// ---- patterns ---------------------------------------------------------------

std::optional<QString> IgnorePage::patternProblem(const QString& pattern) {
    if (pattern.isEmpty())
        //: Settings › Ignore: why an empty pattern cannot be stored.
        return tr("An empty pattern would match every text you copy.");
    const std::optional<PasteboardMonitor::PatternError> error =
        PasteboardMonitor::patternError(pattern.toStdString());
    if (!error)
        return std::nullopt;
    QString reason = reasonFor(error->code);
    if (error->offset >= 0 && error->line == 1)
        //: Settings › Ignore: a reason why a pattern is invalid (%1, a full sentence) and where
        //: in the pattern the problem was found (%2, counted in characters from 1).
        reason = tr("%1 Found at character %2.").arg(reason).arg(error->offset);
    else if (error->offset >= 0 && error->line > 1)
        //: Settings › Ignore: a reason why a pattern is invalid (%1, a full sentence) and where
        //: the problem was found: line %2, character %3.
        reason = tr("%1 Found in line %2 at character %3.")
                     .arg(reason)
                     .arg(error->line)
                     .arg(error->offset);
    return reason;
}

bool IgnorePage::addPattern(const QString& pattern) {
    if (patternProblem(pattern))
        return false;
    std::vector<std::string> patterns = ClipPrefs(context_.defaults).ignoredPatterns();
    const std::string text = pattern.toStdString();
    if (std::find(patterns.begin(), patterns.end(), text) != patterns.end())
        return false;
    patterns.push_back(text);
    storePatterns(patterns);
    patternList_->setCurrentRow(patternList_->count() - 1);
    return true;
}

bool IgnorePage::replacePattern(int row, const QString& pattern) {
    std::vector<std::string> patterns = ClipPrefs(context_.defaults).ignoredPatterns();
    if (row < 0 || row >= static_cast<int>(patterns.size()) || patternProblem(pattern))
        return false;
    const std::string text = pattern.toStdString();
    for (int other = 0; other < static_cast<int>(patterns.size()); ++other)
        if (other != row && patterns[static_cast<std::size_t>(other)] == text)
            return false;
    patterns[static_cast<std::size_t>(row)] = text;
    storePatterns(patterns);
    patternList_->setCurrentRow(row);
    return true;
}

void IgnorePage::removePattern(int row) {
    std::vector<std::string> patterns = ClipPrefs(context_.defaults).ignoredPatterns();
    if (row < 0 || row >= static_cast<int>(patterns.size()))
        return;
    patterns.erase(patterns.begin() + row);
    storePatterns(patterns);
}

void IgnorePage::storePatterns(const std::vector<std::string>& patterns) {
    context_.defaults.setStringArray(prefkey::ignoredPatterns, patterns);
    reload();
}

void IgnorePage::checkPatternField() {
    const QString text = patternField_->text();
    // Nothing typed is not an error to shout about; the button just waits.
    const std::optional<QString> problem = text.isEmpty() ? std::nullopt : patternProblem(text);
    patternMark_->setVisible(problem.has_value());
    patternMark_->setToolTip(problem.value_or(QString()));
    patternField_->setToolTip(problem.value_or(QString()));
    patternProblem_->setText(problem.value_or(QString()));
    patternProblem_->setVisible(problem.has_value());
    QPalette palette = patternField_->palette();
    palette.setColor(QPalette::Text,
                     problem ? pageparts::problemRed : this->palette().color(QPalette::Text));
    patternField_->setPalette(palette);
    updateButtons();
}

void IgnorePage::submitPatternField() {
    const QString text = patternField_->text();
    if (text.isEmpty() || patternProblem(text))
        return;  // the mark and the reason are already showing
    const bool stored = editingRow_ ? replacePattern(*editingRow_, text) : addPattern(text);
    if (!stored) {
        //: Settings › Ignore: shown under the pattern field when the typed pattern is already in
        //: the list.
        patternProblem_->setText(tr("This pattern is already in the list."));
        patternProblem_->setVisible(true);
        return;
    }
    endEditingPattern();
}

void IgnorePage::beginEditingPattern(int row) {
    if (row < 0 || row >= patternList_->count())
        return;
    editingRow_ = row;
    editingOriginal_ = patternList_->item(row)->text();
    patternField_->setText(editingOriginal_);
    patternField_->selectAll();
    patternField_->setFocus();
    //: Settings › Ignore: button that stores the edited pattern in place of the old one.
    savePatternButton_->setText(tr("Save"));
    cancelEditButton_->setVisible(true);
    updateButtons();
}

void IgnorePage::endEditingPattern() {
    editingRow_.reset();
    patternField_->clear();
    savePatternButton_->setText(addLabel());
    cancelEditButton_->setVisible(false);
    checkPatternField();
}

void IgnorePage::updateButtons() {
    addAppButton_->setEnabled(!appField_->text().trimmed().isEmpty());
    removeAppButton_->setEnabled(!appList_->selectedItems().isEmpty());
    const QString pattern = patternField_->text();
    savePatternButton_->setEnabled(!pattern.isEmpty() && !patternProblem(pattern));
    const bool patternChosen = patternList_->currentItem() != nullptr;
    editPatternButton_->setEnabled(patternChosen);
    removePatternButton_->setEnabled(patternChosen);
}

}  // namespace zettly
