#pragma once

#include <QWidget>

namespace zettly {

struct SettingsContext;

// Settings › About: what Zettly is, its version, where to find its source
// and report problems, and the licences of the libraries it ships with.
class AboutPage : public QWidget {
    Q_OBJECT
public:
    explicit AboutPage(SettingsContext& context, QWidget* parent = nullptr);

    // Nothing on this page comes from the preferences; here for the window,
    // which reloads every page alike.
    void reload() {}

    static constexpr const char* siteUrl = "https://zettly.org";
    static constexpr const char* sourceUrl = "https://zettly.org/source";
    static constexpr const char* issuesUrl = "https://zettly.org/issues";
};

}  // namespace zettly
