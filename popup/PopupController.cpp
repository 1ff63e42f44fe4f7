#include "popup/PopupController.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "capture/PasteboardMonitor.h"
#include "platform/Unicode.h"
#include "store/ClipPrefs.h"
#include "sync/SyncPace.h"

namespace zettly {

namespace {

using Entry = PopupModel::Entry;

// Window classes and application ids of the terminal emulators people run
// on Linux desktops; they take Ctrl+Shift+V, since Ctrl+V is a control
// character for the program running in them.
constexpr std::string_view terminals[] = {
    "gnome-terminal",
    "gnome-terminal-server",
    "org.gnome.terminal",
    "org.gnome.console",
    "kgx",
    "konsole",
    "org.kde.konsole",
    "xterm",
    "uxterm",
    "urxvt",
    "rxvt",
    "rxvt-unicode",
    "xfce4-terminal",
    "mate-terminal",
    "lxterminal",
    "qterminal",
    "terminator",
    "tilix",
    "com.gexperts.tilix",
    "alacritty",
    "kitty",
    "wezterm",
    "org.wezfurlong.wezterm",
    "wezterm-gui",
    "foot",
    "footclient",
    "st",
    "st-256color",
    "sakura",
    "terminology",
    "guake",
    "tilda",
    "yakuake",
    "org.kde.yakuake",
    "cool-retro-term",
    "com.raggesilver.blackbox",
    "ptyxis",
    "org.gnome.ptyxis",
    "eterm",
    "io.elementary.terminal",
};

std::string asciiLower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// The digit row by position: a layout whose digit row types other
// characters unshifted (French AZERTY types "&é\"'(" there) still reaches
// the rows with Ctrl and the key that is labelled with the digit.
int digitAtPosition(std::uint32_t keyCode) {
    constexpr std::pair<std::uint32_t, int> row[] = {{18, 1}, {19, 2}, {20, 3}, {21, 4}, {23, 5},
                                                     {22, 6}, {26, 7}, {28, 8}, {25, 9}};
    for (const auto& [code, digit] : row)
        if (code == keyCode)
            return digit;
    return 0;
}

// The shortcut letter a key press stands for. Layouts that type no Latin
// letters (Cyrillic, Greek, Hebrew) fall back to the key's position on a US
// keyboard, the way desktop shortcuts work for their users.
char shortcutCharacter(const KeyPress& key) {
    std::string typed = unicode::lowercased(key.characters);
    if (typed.size() == 1 && static_cast<unsigned char>(typed[0]) < 0x80)
        return typed[0];
    constexpr std::pair<std::uint32_t, char> positions[] = {
        {keycode::e, 'e'}, {keycode::n, 'n'}, {keycode::k, 'k'},
        {keycode::q, 'q'}, {keycode::y, 'y'}, {keycode::comma, ','},
    };
    if (!typed.empty() && static_cast<unsigned char>(typed[0]) >= 0x80)
        for (const auto& [code, c] : positions)
            if (code == key.keyCode)
                return c;
    return 0;
}

// Sets the controller's modal flag for the life of a dialog.
class ModalScope {
public:
    explicit ModalScope(bool& flag) : flag_(flag) { flag_ = true; }
    ~ModalScope() { flag_ = false; }
    ModalScope(const ModalScope&) = delete;
    ModalScope& operator=(const ModalScope&) = delete;

private:
    bool& flag_;
};

}  // namespace

PopupController::PopupController(Dependencies dependencies, PopupModel::TitleFunction chipTitle)
    : deps_(std::move(dependencies)),
      chipOrder_(deps_.defaults, deps_.texts),
      model_(deps_.texts, deps_.images, chipOrder_, std::move(chipTitle)),
      self_(std::make_shared<PopupController*>(this)) {}

PopupController::~PopupController() {
    *self_ = nullptr;
    if (keyMonitor_)
        SyncPace::shared().menuOpen = false;
}

// ---- window ---------------------------------------------------------------

void PopupController::open(const std::optional<popupgeometry::Anchor>& anchor) {
    // Opening over our own Settings window must still paste into the last
    // other application.
    std::optional<AppWindow> front = deps_.desktop.frontmostWindow();
    if (front && front->appId != deps_.ownAppId)
        previousApp_ = front;

    std::weak_ptr<PopupController*> weak = self_;
    model_.onSelectionChanged = [weak] {
        if (auto self = weak.lock(); self && *self)
            (*self)->selectionChanged();
    };
    model_.reset();

    ClipPrefs prefs(deps_.defaults);
    ClipPrefs::PopupSize size = prefs.popupSize();
    popupgeometry::Placement placement;
    placement.anchor = anchor;
    if (!anchor) {
        placement.screens = deps_.desktop.screens();
        placement.mouse = deps_.desktop.mouseLocation();
    }
    placement.position = prefs.popupPosition();
    placement.preferred = Size{size.width, size.height};
    deps_.view.showPanel(popupgeometry::popupFrame(placement));

    SyncPace::shared().menuOpen = true;
    if (onOpened)
        onOpened();
    keyMonitor_ = true;
}

void PopupController::close() {
    ++previewGeneration_;
    deps_.view.hidePreview();
    if (!deps_.view.isPanelVisible())
        return;
    deps_.view.hidePanel();
    SyncPace::shared().menuOpen = false;
    keyMonitor_ = false;
}

void PopupController::toggle(const std::optional<popupgeometry::Anchor>& anchor) {
    if (isOpen())
        close();
    else
        open(anchor);
}

bool PopupController::isOpen() const {
    return deps_.view.isPanelVisible();
}

// ---- keys -----------------------------------------------------------------

bool PopupController::handle(const KeyPress& key) {
    if (!keyMonitorActive() || !deps_.view.isPanelVisible())
        return false;
    const std::uint32_t mods = key.modifiers & modifier::all;
    const bool optionHeld = (mods & modifier::option) != 0;
    std::optional<Entry> selected = model_.selectedEntry();

    switch (key.keyCode) {
        case keycode::downArrow:
            model_.move(1);
            return true;
        case keycode::upArrow:
            model_.move(-1);
            return true;
        case keycode::returnKey:
        case keycode::keypadEnter:
            if (selected)
                pick(*selected, optionHeld);
            return true;
        case keycode::tab:
            if (!model_.filters().empty())
                model_.cycleFilter((mods & modifier::shift) ? -1 : 1);
            return true;
        case keycode::escape:
            if (deps_.view.isPreviewVisible()) {
                ++previewGeneration_;
                deps_.view.hidePreview();
            } else {
                close();
            }
            return true;
        case keycode::p:
            if (mods != modifier::option)
                return false;  // typed into the search field
            if (selected)
                togglePin(*selected);
            return true;
        case keycode::deleteKey:
            if (mods != modifier::option)
                return false;  // edits the search text
            if (selected)
                deleteEntry(*selected);
            return true;
        case keycode::space:
            if (mods != modifier::control)
                return false;
            togglePreview();
            return true;
        default:
            break;
    }

    if (mods != modifier::command)
        return false;
    char command = shortcutCharacter(key);
    int digit = command >= '1' && command <= '9' ? command - '0' : 0;
    if (!digit && !std::isalpha(static_cast<unsigned char>(command)) && command != ',')
        digit = digitAtPosition(key.keyCode);
    if (digit) {
        // Consumed even when the row does not exist, so Ctrl+digit never
        // reaches the search field.
        if (std::optional<Entry> row = model_.entry(digit - 1))
            pick(*row, false);
        return true;
    }
    switch (command) {
        case 'e':
            if (!selected)
                return false;
            editText(*selected);
            return true;
        case 'n':
            if (!selected)
                return false;
            editLabel(*selected);
            return true;
        case 'k':
            if (!selected)
                return false;
            showCategoryMenu(*selected);
            return true;
        case 'y':
            // Desktops commonly take Super+Space for switching input
            // sources; Ctrl+Y is the second way to the preview.
            togglePreview();
            return true;
        case ',':
            close();
            if (onOpenSettings)
                onOpenSettings();
            return true;
        case 'q':
            if (onQuit)
                onQuit();
            return true;
        default:
            return false;
    }
}

// ---- pick -----------------------------------------------------------------

void PopupController::pick(const Entry& chosen, bool invert) {
    const Entry entry = chosen;  // the model reloads under a reference into it
    if (const ClipboardStore::Item* text = entry.text()) {
        deps_.monitor.copyTextFromHistory(text->text);
    } else if (const ImageClipStore::Item* image = entry.image()) {
        // A file removed behind our back leaves the clipboard as it was.
        if (std::optional<ImageClipStore::Bytes> data = deps_.images.fileData(image->id))
            deps_.monitor.copyImageFromHistory(*data);
    }
    close();

    // Hiding our window may already have handed the keyboard back; only when
    // it is still ours (or nobody's) is the earlier window raised.
    std::optional<AppWindow> front = deps_.desktop.frontmostWindow();
    if ((!front || front->appId == deps_.ownAppId) && previousApp_)
        deps_.desktop.activate(*previousApp_);

    if (ClipPrefs(deps_.defaults).pasteAutomatically() == invert)
        return;
    pasteIntoFront();
}

void PopupController::pasteIntoFront() {
    if (!deps_.desktop.canSendKeys())
        return;
    bool withShift = isTerminal(previousApp_ ? previousApp_->appId : std::nullopt);
    std::weak_ptr<PopupController*> weak = self_;
    // The window being raised needs a moment to take the keyboard first.
    deps_.mainQueue.postAfter(pasteDelay, [weak, withShift] {
        if (auto self = weak.lock(); self && *self)
            (*self)->deps_.desktop.sendPasteKeystroke(withShift);
    });
}

bool PopupController::isTerminal(const std::optional<std::string>& appId) {
    if (!appId)
        return false;
    std::string id = asciiLower(*appId);
    return std::find(std::begin(terminals), std::end(terminals), id) != std::end(terminals);
}

// ---- selection and preview --------------------------------------------------

void PopupController::selectionChanged() {
    std::uint64_t generation = ++previewGeneration_;
    std::optional<Entry> entry = model_.selectedEntry();
    if (!entry) {
        deps_.view.hidePreview();
        return;
    }
    if (deps_.view.isPreviewVisible())
        showPreview(*entry);

    // A delay of 0 means the preview comes only when asked for.
    double delay = ClipPrefs(deps_.defaults).previewDelay();
    if (!(delay > 0))
        return;
    std::weak_ptr<PopupController*> weak = self_;
    deps_.mainQueue.postAfter(delay, [weak, generation, id = entry->id()] {
        auto self = weak.lock();
        if (!self || !*self)
            return;
        PopupController& controller = **self;
        if (controller.previewGeneration_ != generation || !controller.deps_.view.isPanelVisible())
            return;
        std::optional<Entry> now = controller.model_.selectedEntry();
        if (now && now->id() == id)
            controller.showPreview(*now);
    });
}

void PopupController::showPreview(const Entry& entry) {
    Size size = popupgeometry::previewSize(false);
    if (const ImageClipStore::Item* image = entry.image())
        size = popupgeometry::previewSize(true, static_cast<double>(image->width),
                                          static_cast<double>(image->height));
    Rect frame =
        popupgeometry::previewFrame(size, deps_.view.panelFrame(), deps_.desktop.screens());
    deps_.view.showPreview(entry, frame);
}

void PopupController::togglePreview() {
    // Either way the user decided: a delayed preview must not overrule it.
    ++previewGeneration_;
    if (deps_.view.isPreviewVisible()) {
        deps_.view.hidePreview();
        return;
    }
    if (std::optional<Entry> entry = model_.selectedEntry())
        showPreview(*entry);
}

// ---- window events ----------------------------------------------------------

void PopupController::panelDidResignKey() {
    if (!modalActive_)
        close();
}

void PopupController::panelDidEndResize(Size size) {
    ClipPrefs(deps_.defaults).setPopupSize(ClipPrefs::PopupSize{size.width, size.height});
}

void PopupController::cloudDidChange() {
    if (deps_.view.isPanelVisible())
        reloadKeepingSelection();
}

void PopupController::reloadKeepingSelection() {
    std::optional<Entry> selected = model_.selectedEntry();
    model_.reload(selected ? std::optional<std::string>(selected->id()) : std::nullopt);
}

// ---- row actions ------------------------------------------------------------

void PopupController::togglePin(const Entry& entry) {
    std::string id = entry.id();
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setPinned(text->id, !text->pinned);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setPinned(image->id, !image->pinned);
    model_.reload(id);
}

void PopupController::deleteEntry(const Entry& entry) {
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.deleteItem(text->id);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.deleteItem(image->id);
    model_.reload();
}

void PopupController::editText(const Entry& chosen) {
    const Entry entry = chosen;
    const ClipboardStore::Item* text = entry.text();
    if (!text)
        return;
    std::optional<std::string> edited = ask(texts.editTextTitle, std::nullopt, text->text, true);
    if (!edited || *edited == text->text)
        return;
    if (!deps_.texts.updateText(text->id, *edited))
        inform(texts.duplicateText);
    model_.reload();
}

void PopupController::editLabel(const Entry& chosen) {
    const Entry entry = chosen;
    std::optional<std::string> label =
        ask(texts.nameTitle, texts.nameMessage, entry.label().value_or(""), false);
    if (!label)
        return;
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setLabel(text->id, label);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setLabel(image->id, label);
    model_.reload(entry.id());
}

void PopupController::setCategory(const Entry& entry, const std::optional<std::string>& category) {
    std::string id = entry.id();
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setCategory(text->id, category);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setCategory(image->id, category);
    model_.reload(id);
}

void PopupController::newCategory(const Entry& chosen) {
    const Entry entry = chosen;
    std::optional<std::string> name = ask(texts.newCategoryTitle, std::nullopt, "", false);
    if (!name || name->empty())
        return;
    if (std::optional<ClipboardStore::Category> made = deps_.texts.createCategory(*name))
        setCategory(entry, made->id);
}

void PopupController::showCategoryMenu(const Entry& chosen) {
    const Entry entry = chosen;
    const std::vector<ClipboardStore::Category> categories = model_.categories();
    std::optional<PopupView::CategoryChoice> choice;
    {
        // A menu grabs the keyboard on X11; the window must not close for it.
        ModalScope modal(modalActive_);
        choice = deps_.view.chooseCategory(entry, categories);
    }
    if (!choice)
        return;
    switch (choice->kind) {
        case PopupView::CategoryChoice::Kind::none:
            setCategory(entry, std::nullopt);
            break;
        case PopupView::CategoryChoice::Kind::category:
            setCategory(entry, choice->categoryId);
            break;
        case PopupView::CategoryChoice::Kind::newCategory:
            newCategory(entry);
            break;
    }
}

// ---- chips and footer -------------------------------------------------------

void PopupController::createCategory() {
    std::optional<std::string> name = ask(texts.newCategoryTitle, std::nullopt, "", false);
    if (!name || name->empty())
        return;
    std::optional<ClipboardStore::Category> made = deps_.texts.createCategory(*name);
    if (!made)
        return;
    model_.reload();
    model_.setFilter(PopupModel::Filter::category(made->id));
}

void PopupController::renameCategory(const std::string& id) {
    std::string current;
    for (const auto& category : model_.categories())
        if (category.id == id)
            current = category.name;
    std::optional<std::string> name = ask(texts.renameCategoryTitle, std::nullopt, current, false);
    if (!name)
        return;
    deps_.texts.renameCategory(id, *name);
    model_.reload();
}

void PopupController::deleteCategory(const std::string& id) {
    std::string name;
    for (const auto& category : model_.categories())
        if (category.id == id)
            name = category.name;
    std::string title = texts.deleteCategoryTitle;
    for (std::size_t at = title.find("%1"); at != std::string::npos;
         at = title.find("%1", at + name.size()))
        title.replace(at, 2, name);
    if (!confirm(title, texts.deleteCategoryDetail, texts.deleteButton))
        return;
    deps_.texts.deleteCategory(id);
    // Images filed there leave it too; the confirmation promised that the
    // category's items stay, just without it.
    deps_.images.detachCategory(id);
    model_.reload();
}

void PopupController::clearHistory() {
    close();
    if (!confirm(texts.clearTitle, texts.clearDetail, texts.clearButton))
        return;
    // "Pinned items stay" is promised for the whole history, images included.
    deps_.texts.clear(true);
    deps_.images.clear(true);
}

// ---- dialogs ----------------------------------------------------------------

std::optional<std::string> PopupController::ask(const std::string& title,
                                                const std::optional<std::string>& message,
                                                const std::string& value, bool multiline) {
    std::optional<std::string> answer;
    {
        ModalScope modal(modalActive_);
        ++previewGeneration_;
        deps_.view.hidePreview();
        answer = deps_.view.ask(title, message, value, multiline);
    }
    if (deps_.view.isPanelVisible())
        deps_.view.makePanelKey();
    if (!answer)
        return std::nullopt;
    return std::string(unicode::trimmed(*answer));
}

void PopupController::inform(const std::string& message) {
    {
        ModalScope modal(modalActive_);
        ++previewGeneration_;
        deps_.view.hidePreview();
        deps_.view.inform(message);
    }
    if (deps_.view.isPanelVisible())
        deps_.view.makePanelKey();
}

bool PopupController::confirm(const std::string& title, const std::string& detail,
                              const std::string& button) {
    bool yes = false;
    {
        ModalScope modal(modalActive_);
        ++previewGeneration_;
        deps_.view.hidePreview();
        yes = deps_.view.confirm(title, detail, button);
    }
    if (deps_.view.isPanelVisible())
        deps_.view.makePanelKey();
    return yes;
}

}  // namespace zettly
