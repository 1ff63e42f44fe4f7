#include "popup/ui/HistoryList.h"

#include <QContextMenuEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <cctype>

#include "platform/TextSearch.h"
#include "popup/ui/RowDelegate.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int maxSnippetChars = 300;
constexpr int maxSnippetLines = 2;
constexpr int contextBeforeMatch = 30;  // characters shown before a match far down

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

TextRanges matchesIn(const QString& shown, std::string_view foldedQuery) {
    TextRanges out;
    if (foldedQuery.empty() || shown.isEmpty())
        return out;
    const QByteArray utf8 = shown.toUtf8();
    const auto ranges =
        search::matchRanges(std::string_view(utf8.constData(), utf8.size()), foldedQuery);
    if (ranges.empty())
        return out;
    // Byte offsets to UTF-16 offsets.
    std::vector<int> unit(std::size_t(utf8.size()) + 1, 0);
    int u16 = 0;
    for (qsizetype i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        for (int k = 0; k < length && i + k < utf8.size(); ++k)
            unit[std::size_t(i + k)] = u16;
        u16 += length == 4 ? 2 : 1;
        i += length;
    }
    unit.back() = u16;
    for (auto [begin, end] : ranges)
        out.emplace_back(unit[std::min(begin, unit.size() - 1)],
                         unit[std::min(end, unit.size() - 1)]);
    return out;
}

}  // namespace

QString snippetOf(std::string_view utf8) {
    // Four bytes per character at most; cut on a character boundary.
    std::size_t take = std::min<std::size_t>(utf8.size(), 4 * maxSnippetChars);
    while (take > 0 && take < utf8.size() && isContinuationByte(utf8[take]))
        --take;
    const QString source = QString::fromUtf8(utf8.data(), qsizetype(take));

    QString out;
    out.reserve(std::min<qsizetype>(source.size(), maxSnippetChars + 2));
    int lines = 0;
    bool lineHasText = false, pendingSpace = false;
    for (QChar c : source) {
        if (c == u'\n' || c == u'\r' || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator) {
            pendingSpace = false;
            if (lineHasText) {
                if (++lines == maxSnippetLines)
                    break;
                out += u'\n';
                lineHasText = false;
            }
            continue;
        }
        if (c.isSpace()) {
            pendingSpace = lineHasText;
            continue;
        }
        if (c.category() == QChar::Other_Control)
            continue;
        if (pendingSpace)
            out += u' ';
        pendingSpace = false;
        out += c;
        lineHasText = true;
        if (out.size() >= maxSnippetChars)
            break;
    }
    if (out.endsWith(u'\n'))
        out.chop(1);
    if (!out.isEmpty() && out.back().isHighSurrogate())
        out.chop(1);
    return out;
}

int nonBlankLines(std::string_view utf8) {
    int lines = 0;
    std::size_t pos = 0;
    while (pos < utf8.size()) {
        const std::size_t newline = utf8.find('\n', pos);
        const std::size_t end = newline == std::string_view::npos ? utf8.size() : newline;
        // Most lines start with text: the first non-blank byte ends the look.
        for (std::size_t i = pos; i < end; ++i)
            if (!std::isspace(static_cast<unsigned char>(utf8[i]))) {
                ++lines;
                break;
            }
        pos = end + 1;
    }
    return lines;
}

RowText rowTextOf(const PopupModel::Entry& entry, std::string_view foldedQuery,
                  std::optional<int> knownLines) {
    RowText row;
    if (entry.label()) {
        row.label = QString::fromStdString(*entry.label());
        row.labelMatches = matchesIn(row.label, foldedQuery);
    }
    const ClipboardStore::Item* item = entry.text();
    if (!item)
        return row;
    const std::string_view text = item->text;
    row.snippet = snippetOf(text);
    row.lineCount = knownLines ? *knownLines : nonBlankLines(text);
    row.matches = matchesIn(row.snippet, foldedQuery);
    if (!row.matches.empty() || foldedQuery.empty())
        return row;
    const auto first = search::matchRanges(text, foldedQuery, 1);
    if (first.empty() || first.front().first == 0)
        return row;
    std::size_t start = first.front().first;
    for (int characters = 0; start > 0 && characters < contextBeforeMatch;) {
        --start;
        if (text[start] == '\n') {
            ++start;
            break;
        }
        if (!isContinuationByte(text[start]))
            ++characters;
    }
    row.snippet = QChar(0x2026) + snippetOf(text.substr(start));
    row.matches = matchesIn(row.snippet, foldedQuery);
    return row;
}

EntryListModel::EntryListModel(PopupModel& model, QObject* parent)
    : QAbstractListModel(parent), model_(model) {}

int EntryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(texts_.size());
}

QVariant EntryListModel::data(const QModelIndex& index, int role) const {
    if (role != Qt::DisplayRole || !index.isValid() || index.row() >= rowCount())
        return {};
    const RowText& text = rowText(index.row());
    return text.snippet.isEmpty() ? text.label : text.snippet;
}

void EntryListModel::reload() {
    beginResetModel();
    foldedQuery_ = search::foldQuery(model_.query());
    texts_.assign(model_.entries().size(), std::nullopt);
    if (lineCountsOf_ != model_.loads()) {
        lineCounts_.clear();
        lineCountsOf_ = model_.loads();
    }
    endResetModel();
}

const RowText& EntryListModel::rowText(int row) const {
    auto& slot = texts_.at(std::size_t(row));
    if (!slot) {
        const PopupModel::Entry& entry = model_.entries()[std::size_t(row)];
        const ClipboardStore::Item* item = entry.text();
        slot = rowTextOf(entry, foldedQuery_, item ? std::optional(linesOf(*item)) : std::nullopt);
    }
    return *slot;
}

int EntryListModel::linesOf(const ClipboardStore::Item& item) const {
    const auto [known, added] = lineCounts_.try_emplace(item.id, 0);
    if (added)
        known->second = nonBlankLines(item.text);
    return known->second;
}

HistoryList::HistoryList(PopupModel& model, QWidget* parent)
    : QListView(parent), model_(model), rows_(model) {
    setModel(&rows_);
    setItemDelegate(new RowDelegate(rows_, thumbnails_, this));
    setFocusPolicy(Qt::NoFocus);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalScrollBar()->setSingleStep(24);
    setResizeMode(QListView::Adjust);
    setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_Hover);
    viewport()->setAutoFillBackground(false);
    setAttribute(Qt::WA_MacShowFocusRect, false);
    connect(&thumbnails_, &ThumbnailCache::loaded, viewport(), qOverload<>(&QWidget::update));
    // Scrolling towards the end of the finds asks the search for its next
    // page, as moving the highlight there does.
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, [this](int value) {
        if (value >= verticalScrollBar()->maximum() - viewport()->height())
            model_.showMore();
    });
}

void HistoryList::reload() {
    rows_.reload();
}

void HistoryList::followSelection() {
    const QModelIndex index = rows_.index(int(model_.selection()));
    if (index.isValid())
        scrollTo(index, QAbstractItemView::EnsureVisible);
    viewport()->update();
}

int HistoryList::rowsPerPage() const {
    const QRect area = viewport()->rect();
    int whole = 0;
    for (QModelIndex index = indexAt(area.topLeft()); index.isValid();
         index = rows_.index(index.row() + 1)) {
        const QRect row = visualRect(index);
        if (row.top() > area.bottom())
            break;
        if (area.contains(row))
            ++whole;
    }
    return std::max(1, whole);
}

QString HistoryList::emptyText() const {
    if (!model_.entries().empty())
        return {};
    if (model_.searching())
        //: History window: shown while a search still reads the older history and found nothing
        //: yet.
        return tr("Searching\u2026");
    if (model_.allCount() == 0)
        //: History window: shown when the history is still empty.
        return tr("Copy something and it shows up here.");
    //: History window: shown when the search or filter finds nothing.
    return tr("Nothing found.");
}

void HistoryList::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    const QString empty = emptyText();
    if (empty.isEmpty())
        return;
    QPainter p(viewport());
    p.setPen(look::secondaryText(palette()));
    p.setFont(look::scaledFont(font(), 1.05));
    p.drawText(viewport()->rect().adjusted(24, 0, -24, 0), Qt::AlignCenter | Qt::TextWordWrap,
               empty);
}

void HistoryList::mousePressEvent(QMouseEvent* event) {
    // No current index and no selection of the view's own: the model's
    // selection is the only highlight.
    pressedRow_ =
        event->button() == Qt::LeftButton ? indexAt(event->position().toPoint()).row() : -1;
    event->accept();
}

void HistoryList::mouseMoveEvent(QMouseEvent* event) {
    event->accept();
}

void HistoryList::mouseReleaseEvent(QMouseEvent* event) {
    const int row = indexAt(event->position().toPoint()).row();
    if (event->button() == Qt::LeftButton && row >= 0 && row == pressedRow_)
        Q_EMIT rowClicked(row, event->modifiers().testFlag(Qt::AltModifier));
    pressedRow_ = -1;
    event->accept();
}

void HistoryList::contextMenuEvent(QContextMenuEvent* event) {
    const int row = indexAt(event->pos()).row();
    if (row >= 0)
        Q_EMIT rowMenuRequested(row, event->globalPos());
    event->accept();
}

}  // namespace zettly
