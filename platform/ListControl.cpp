#include "platform/ListControl.h"

#include <QAbstractListModel>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <numeric>
#include <utility>

#include "platform/ListView.h"
#include "platform/Text.h"
#include "platform/UiIds.h"

// The rows on show: all items, or those that match the filter.
class ListControl::Rows : public QAbstractListModel {
  public:
    explicit Rows(const ListItems &items) : items_(items) {}

    int rowCount(const QModelIndex &parent = {}) const override {
        return parent.isValid() ? 0 : static_cast<int>(shown_.size());
    }

    QVariant data(const QModelIndex &index, int role) const override {
        if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)) return {};
        const QString line = oneLine(items_.at(shown_[static_cast<std::size_t>(index.row())]));
        const bool isSaid = role == Qt::DisplayRole || !line.trimmed().isEmpty();
        return isSaid ? line : line.isEmpty() ? tr("(empty)") : tr("(blanks)");
    }

    const std::vector<std::size_t> &shown() const { return shown_; }

    bool isFiltered() const { return !words_.empty(); }

    // The row of an item, or -1.
    int rowOf(int item) const {
        const auto at = std::lower_bound(shown_.begin(), shown_.end(), static_cast<std::size_t>(item));
        return item >= 0 && at != shown_.end() && *at == static_cast<std::size_t>(item)
                   ? static_cast<int>(at - shown_.begin())
                   : -1;
    }

    // Shows the matching items. Longer words that begin with the old ones can only match among the rows there
    // are.
    void setFilter(const std::string &words) {
        beginResetModel();
        const bool narrower = !words_.empty() && words.compare(0, words_.size(), words_) == 0;
        shown_ = items_.matching(words, narrower ? &shown_ : nullptr);
        words_ = words;
        endResetModel();
    }

    void refill() {
        beginResetModel();
        shown_ = items_.matching(words_);
        endResetModel();
    }

    // Item `index` has just been inserted: those from there on have moved down.
    void inserted(std::size_t index) {
        const auto at = std::lower_bound(shown_.begin(), shown_.end(), index);
        const std::size_t row = static_cast<std::size_t>(at - shown_.begin());
        std::for_each(at, shown_.end(), [](std::size_t &item) { ++item; });
        const std::vector<std::size_t> candidate{index};
        if (items_.matching(words_, &candidate).empty()) return;
        beginInsertRows({}, static_cast<int>(row), static_cast<int>(row));
        shown_.insert(shown_.begin() + static_cast<std::ptrdiff_t>(row), index);
        endInsertRows();
    }

    // Item `index` is about to go; `takeOut` removes it from the items.
    template <class TakeOut>
    void remove(std::size_t index, TakeOut takeOut) {
        const auto at = std::lower_bound(shown_.begin(), shown_.end(), index);
        const int row = static_cast<int>(at - shown_.begin());
        const bool isShown = at != shown_.end() && *at == index;
        if (isShown) beginRemoveRows({}, row, row);
        takeOut();
        const auto behind = isShown ? shown_.erase(at) : at;
        std::for_each(behind, shown_.end(), [](std::size_t &item) { --item; });
        if (isShown) endRemoveRows();
    }

  private:
    const ListItems &items_;
    std::string words_;
    std::vector<std::size_t> shown_;
};

// One elided line, with room around it, and a sign for an item that is empty.
class ListControl::Delegate : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const override {
        return {40, option.fontMetrics.height() + 10};
    }

    void paint(QPainter *painter, const QStyleOptionViewItem &given,
               const QModelIndex &index) const override {
        QStyleOptionViewItem option = given;
        initStyleOption(&option, index);
        const QString text = index.data(Qt::AccessibleTextRole).toString();
        const bool isBlank = text != option.text;
        option.text.clear();
        const QStyle &style = *option.widget->style();
        style.drawControl(QStyle::CE_ItemViewItem, &option, painter, option.widget);

        const bool isSelected = option.state.testFlag(QStyle::State_Selected);
        const bool isActive = option.state.testFlag(QStyle::State_Active);
        const auto group = isActive ? QPalette::Active : QPalette::Inactive;
        const auto role = isSelected ? QPalette::HighlightedText
                          : isBlank  ? QPalette::PlaceholderText
                                     : QPalette::Text;
        const QRect room = option.rect.adjusted(kRowMargin, 0, -kRowMargin, 0);
        painter->save();
        painter->setPen(option.palette.color(group, role));
        painter->setLayoutDirection(Qt::LayoutDirectionAuto);
        painter->drawText(room, Qt::AlignVCenter | readingSide(text) | Qt::TextSingleLine,
                          option.fontMetrics.elidedText(text, Qt::ElideRight, room.width()));
        painter->restore();
    }

  private:
    static constexpr int kRowMargin = 8;  // pixels on either side of the text
};

ListControl::ListControl(QWidget *parent)
    : QWidget(parent),
      line_(new QLineEdit(this)),
      view_(new ListView(this)),
      rows_(std::make_unique<Rows>(items_)) {
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(line_);
    layout->addWidget(view_, 1);

    line_->setAccessibleName(tr("Filter the saved texts"));
    line_->setClearButtonEnabled(true);
    for (QToolButton *clear : line_->findChildren<QToolButton *>())
        clear->setAccessibleName(tr("Clear the filter"));
    line_->installEventFilter(this);
    view_->setAccessibleName(tr("Saved texts"));
    showMatching({});
    view_->setModel(rows_.get());
    view_->setItemDelegate(new Delegate(view_));
    view_->setUniformItemSizes(true);
    view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view_->setAlternatingRowColors(true);
    view_->installEventFilter(this);
    view_->viewport()->installEventFilter(this);
    setFocusProxy(line_);
    setTabOrder(line_, view_);

    // Not textEdited: an assistive program sets the text as a whole.
    connect(line_, &QLineEdit::textChanged, this, &ListControl::filter);
    connect(view_, &QListView::clicked, this, [this](const QModelIndex &index) { pickRow(index.row()); });
}

ListControl::~ListControl() {
    view_->setModel(nullptr);
}

void ListControl::removeAllItems() {
    items_.clear();
    selected_ = -1;
    rows_->refill();
}

void ListControl::addItems(std::shared_ptr<const std::string> whole,
                           const std::vector<std::string_view> &pieces) {
    items_.append(std::move(whole), pieces);
    rows_->refill();
}

void ListControl::insertItemWithObjectValue(std::string text, std::size_t index) {
    items_.insert(index, std::move(text));
    if (selected_ >= static_cast<int>(index)) ++selected_;
    rows_->inserted(index);
    if (index == 0 && !rows_->isFiltered()) view_->scrollToTop();
}

void ListControl::removeItemAtIndex(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= items_.count()) return;
    rows_->remove(static_cast<std::size_t>(index), [&] { items_.remove(static_cast<std::size_t>(index)); });
    if (selected_ == index) {
        selected_ = -1;
    } else if (selected_ > index) {
        --selected_;
    }
}

void ListControl::selectItemAtIndex(int index) {
    const bool isThere = index >= 0 && static_cast<std::size_t>(index) < items_.count();
    selected_ = isThere ? index : -1;
    text_ = isThere ? std::string(items_.at(static_cast<std::size_t>(index))) : std::string();
    showSelectionSoon();
}

int ListControl::indexOfItem(const std::string &text, int near) const {
    const int count = static_cast<int>(items_.count());
    const auto isAt = [&](int i) {
        return i >= 0 && i < count && items_.at(static_cast<std::size_t>(i)) == text;
    };
    for (int distance = 0; near - distance >= 0 || near + distance < count; ++distance) {
        if (isAt(near - distance)) return near - distance;
        if (isAt(near + distance)) return near + distance;
    }
    return -1;
}

void ListControl::selectPicked(int index, const std::string &text) {
    selected_ = indexOfItem(text, index);
    text_ = text;
    showSelectionSoon();
}

void ListControl::setPlaceholderString(const QString &text) {
    line_->setPlaceholderText(text);
    describe(*line_, text);
}

const std::vector<std::size_t> &ListControl::shownItems() const {
    return rows_->shown();
}

// A scan selects item after item; what is shown follows once, when it is over.
void ListControl::showSelectionSoon() {
    if (!std::exchange(selectionIsShown_, false)) return;
    QTimer::singleShot(0, this, &ListControl::showSelection);
}

void ListControl::showSelection() {
    selectionIsShown_ = true;
    // What the user has typed and the row that is marked in what it found stay where they are.
    if (rows_->isFiltered()) return;
    isShowingSelection_ = true;
    line_->setText(oneLine(text_));
    isShowingSelection_ = false;
    line_->setCursorPosition(0);
    if (line_->hasFocus()) selectLine();
    const int row = rows_->rowOf(selected_);
    // The empty item at the end is where most scans stop: going there would take the list out of sight.
    view_->setCurrentIndex(row < 0 || text_.empty() ? QModelIndex() : rows_->index(row));
}

// Typing replaces what the line shows; what shows is its beginning.
void ListControl::selectLine() {
    const int length = static_cast<int>(line_->text().size());
    line_->setSelection(length, -length);
}

void ListControl::filter(const QString &words) {
    if (isShowingSelection_) return;
    const int before =
        view_->currentIndex().isValid()
            ? static_cast<int>(rows_->shown()[static_cast<std::size_t>(view_->currentIndex().row())])
            : -1;
    showMatching(toUtf8(words));
    const int row = rows_->rowOf(before);
    if (rows_->rowCount() > 0 && !words.isEmpty()) view_->setCurrentIndex(rows_->index(std::max(row, 0)));
}

void ListControl::showMatching(const std::string &words) {
    rows_->setFilter(words);
    view_->setPlaceholder(words.empty() ? tr("Nothing to show.") : tr("Nothing matches."));
}

void ListControl::pickRow(int row) {
    if (row < 0 || row >= rows_->rowCount()) return;
    const std::size_t item = rows_->shown()[static_cast<std::size_t>(row)];
    Q_EMIT picked(static_cast<int>(item), std::string(items_.at(item)));
}

bool ListControl::handleKey(int key) {
    const int row = view_->currentIndex().row();
    switch (key) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            pickRow(row);
            return true;
        case Qt::Key_Escape:
            if (rows_->isFiltered()) {
                clearFilter();
            } else {
                Q_EMIT dismissed();
            }
            return true;
        case Qt::Key_Down:
        case Qt::Key_Up:
        case Qt::Key_PageDown:
        case Qt::Key_PageUp: {
            if (view_->hasFocus()) return false;  // the view moves by itself
            const bool isPage = key == Qt::Key_PageDown || key == Qt::Key_PageUp;
            const int rowHeight = std::max(view_->sizeHintForRow(0), 1);
            const int distance = isPage ? std::max(view_->viewport()->height() / rowHeight - 1, 1) : 1;
            const bool isDown = key == Qt::Key_Down || key == Qt::Key_PageDown;
            const int next =
                std::clamp(isDown ? row + distance : row - distance, 0, std::max(rows_->rowCount() - 1, 0));
            view_->setCurrentIndex(rows_->index(next));
            return true;
        }
        default:
            return false;
    }
}

bool ListControl::eventFilter(QObject *watched, QEvent *event) {
    if (watched == view_->viewport()) {
        // The second half of a double click is no second pick, least of all of the row that has moved up
        // meanwhile.
        if (event->type() == QEvent::MouseButtonDblClick) return ignoresRelease_ = true;
        if (event->type() == QEvent::MouseButtonPress) ignoresRelease_ = false;
        if (event->type() == QEvent::MouseButtonRelease) return std::exchange(ignoresRelease_, false);
        return false;
    }
    if (event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (handleKey(key->key())) return true;
        // Letters typed over the rows go to the filter.
        const QString typed = key->text();
        if (watched == view_ && !typed.isEmpty() && typed.at(0).isPrint() &&
            !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))) {
            line_->setFocus(Qt::OtherFocusReason);
            line_->setText(typed);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void ListControl::clearFilter() {
    showMatching({});
    showSelection();
}

// The next look at the list begins with all of it.
void ListControl::hideEvent(QHideEvent *event) {
    if (!event->spontaneous() && rows_->isFiltered()) clearFilter();
    QWidget::hideEvent(event);
}

void ListControl::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    selectLine();
}
