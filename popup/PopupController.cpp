#include "popup/PopupController.h"

#include "capture/PasteboardMonitor.h"
#include "platform/Unicode.h"
#include "popup/PopupModal.h"
#include "store/ClipPrefs.h"
#include "sync/SyncPace.h"

namespace zettly {

using Entry = PopupModel::Entry;

PopupController::PopupController(Dependencies dependencies, PopupModel::TitleFunction chipTitle)
    : deps_(std::move(dependencies)),
      chipOrder_(deps_.defaults, deps_.texts),
      model_(deps_.texts, deps_.images, chipOrder_, deps_.searchExecutor, deps_.mainQueue,
             std::move(chipTitle)),
      self_(std::make_shared<PopupController*>(this)) {}

PopupController::~PopupController() {
    *self_ = nullptr;
    if (keyMonitor_)
        deps_.pace.menuOpen = false;
}

// ---- window ---------------------------------------------------------------

void PopupController::rememberFrontWindow() {
    // Opening over our own Settings window must still paste into the last
    // other application.
    std::optional<AppWindow> front = deps_.desktop.frontmostWindow();
    if (front && front->appId != deps_.ownAppId)
        previousApp_ = front;
}

void PopupController::open(const std::optional<popupgeometry::Anchor>& anchor) {
    rememberFrontWindow();

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

    deps_.pace.menuOpen = true;
    if (onOpened)
        onOpened();
    keyMonitor_ = true;
}

void PopupController::close() {
    ++previewGeneration_;
    model_.stopSearching();
    deps_.view.hidePreview();
    if (!deps_.view.isPanelVisible())
        return;
    deps_.view.hidePanel();
    deps_.pace.menuOpen = false;
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

// ---- pick -----------------------------------------------------------------

void PopupController::pick(const Entry& chosen, bool invert) {
    const Entry entry = chosen;  // the model reloads under a reference into it
    if (const ClipboardStore::Item* text = entry.text()) {
        deps_.monitor.copyTextFromHistory(text->text);
    } else if (const ImageClipStore::Item* image = entry.image()) {
        // The picture as it was copied when one was kept and the clipboard
        // takes it (a format this desktop cannot read is refused), else the
        // reduced JPEG; a file removed behind our back leaves the clipboard
        // as it was.
        auto original = deps_.images.originalData(image->id);
        if (!original || !deps_.monitor.copyImageFromHistory(original->bytes, original->type))
            if (std::optional<ImageClipStore::Bytes> data = deps_.images.fileData(image->id))
                deps_.monitor.copyImageFromHistory(*data, pbtype::jpeg);
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
    if (!deps_.desktop.canPaste())
        return;
    // The desktop picks the keys for the application; an unknown one gets
    // the common Ctrl+V.
    AppWindow target = previousApp_.value_or(AppWindow{});
    std::weak_ptr<PopupController*> weak = self_;
    // The window being raised needs a moment to take the keyboard first.
    deps_.mainQueue.postAfter(pasteDelay, [weak, target] {
        if (auto self = weak.lock(); self && *self) {
            PopupController& controller = **self;
            controller.deps_.desktop.paste(target,
                                           ClipPrefs(controller.deps_.defaults).pasteChords());
        }
    });
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
