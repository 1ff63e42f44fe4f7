#pragma once

#include <QWidget>

class QCheckBox;

namespace zettly {

struct SettingsContext;

// Settings › About: what Zettly is, its version, where to find its source
// and report problems, and the licences of the libraries it ships with.
class AboutPage : public QWidget {
    Q_OBJECT
public:
    explicit AboutPage(SettingsContext& context, QWidget* parent = nullptr);

    // Only the automatic-check switch comes from the preferences.
    void reload();
    QCheckBox* automaticChecksSwitch() const { return automatic_; }

    static constexpr const char* siteUrl = "https://zettly.org";
    static constexpr const char* sourceUrl = "https://zettly.org/source";
    static constexpr const char* issuesUrl = "https://zettly.org/issues";

private:
    SettingsContext& context_;
    QCheckBox* automatic_ = nullptr;
};

}  // namespace zettly
