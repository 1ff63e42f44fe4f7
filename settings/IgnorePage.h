#pragma once

#include <QWidget>
#include <optional>
#include <string>
#include <vector>

#include "settings/SettingsContext.h"

class QAction;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace zettly {

class RunningAppsButton;

// Settings › Ignore: the applications whose copies are not saved, and the
// regular expressions that keep matching texts out of the history.
//
// Until the user changes the application list, the built-in list of
// password managers applies and is shown as such; the first change stores
// the whole list as shown (from then on only the stored list counts, even
// when it is empty). A pattern is checked with the same compiler capture
// uses while it is typed; one that capture would skip is marked with the
// reason and cannot be stored.
class IgnorePage : public QWidget {
    Q_OBJECT
public:
    explicit IgnorePage(SettingsContext& context, QWidget* parent = nullptr);

    // Reads both lists again.
    void reload();

    // The application ids that apply now: the stored list, or the built-in
    // one while none is stored.
    std::vector<std::string> ignoredApps() const;
    // Trimmed; an empty id or one already listed changes nothing.
    void addApp(const QString& appId);
    void removeApp(const std::string& appId);
    // Forgets the stored list, so the built-in list applies again.
    void useDefaultApps();

    // Why `pattern` cannot be stored, in the user's words; none when it can.
    static std::optional<QString> patternProblem(const QString& pattern);
    // False (with nothing stored) for a pattern with a problem or one that is
    // already listed.
    bool addPattern(const QString& pattern);
    bool replacePattern(int row, const QString& pattern);
    void removePattern(int row);

private:
    void checkPatternField();
    void submitPatternField();
    void beginEditingPattern(int row);
    void endEditingPattern();
    void storePatterns(const std::vector<std::string>& patterns);
    void updateButtons();

    SettingsContext& context_;

    QListWidget* appList_;
    QLabel* defaultsNote_;
    // Why the list does nothing in this session; hidden when it works.
    QWidget* frontmostNote_;
    QLineEdit* appField_;
    QPushButton* addAppButton_;
    RunningAppsButton* runningAppsButton_;
    QPushButton* removeAppButton_;
    QPushButton* defaultsButton_;

    QListWidget* patternList_;
    QLineEdit* patternField_;
    QAction* patternMark_;
    QLabel* patternProblem_;
    QPushButton* savePatternButton_;
    QPushButton* cancelEditButton_;
    QPushButton* editPatternButton_;
    QPushButton* removePatternButton_;
    // The row whose pattern the field is editing; none while adding.
    std::optional<int> editingRow_;
    QString editingOriginal_;
};

}  // namespace zettly
