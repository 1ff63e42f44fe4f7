#include "popup/ui/Panel.h"

#include <QPainter>
#include <cstdint>

#include "platform/WindowHints.h"
#include "ui/Look.h"

namespace zettly {

QAction* ActionMenu::add(QMenu& into, const QString& text, std::function<void()> work) {
    QAction* action = into.addAction(text);
    work_.emplace_back(action, std::move(work));
    return action;
}

bool ActionMenu::exec(const QPoint& at, BusyCounter& busy) {
    QAction* chosen = nullptr;
    {
        BusyScope scope(busy);
        chosen = menu_.exec(at);
    }
    for (auto& [action, work] : work_)
        if (action == chosen && work) {
            work();
            return true;
        }
    return false;
}

PanelWidget::PanelWidget(Qt::WindowFlags flags, QWidget* parent, WindowHints* hints)
    : QWidget(parent, flags), hints_(hints) {
    rounded_ = hints_ && hints_->translucentWindows();
    if (rounded_)
        setAttribute(Qt::WA_TranslucentBackground);
}

void PanelWidget::prepareDesktopHints() {
    if (hints_)
        hints_->preparePanel(static_cast<std::uint64_t>(winId()));
}

void PanelWidget::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const QPalette& pal = palette();
    if (rounded_) {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(look::border(pal), 1));
        p.setBrush(pal.window());
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
    } else {
        p.fillRect(rect(), pal.window());
        p.setPen(look::border(pal));
        p.drawRect(rect().adjusted(0, 0, -1, -1));
    }
}

}  // namespace zettly
