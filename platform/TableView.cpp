#include "platform/TableView.h"

#include <QAbstractListModel>
#include <QKeyEvent>
#include <QPainter>
#include <QStyle>

namespace {
constexpr int kRowPadding = 8;
}

class TableView::Rows : public QAbstractListModel {
  public:
    explicit Rows(const TableView &table) : table_(table) {}

    void setSource(const TableViewDataSource *source) {
        source_ = source;
        reload();
    }
    void reload() {
        beginResetModel();
        endResetModel();
    }
    int rowCount(const QModelIndex &parent) const override {
        return source_ && !parent.isValid() ? source_->numberOfRowsInTableView(table_) : 0;
    }
    QVariant data(const QModelIndex &index, int role) const override {
        if (!source_ || !index.isValid()) return {};
        if (role == Qt::SizeHintRole) return QSize(0, table_.fontMetrics().height() + kRowPadding);
        if (role != Qt::DisplayRole) return {};
        return source_->tableView(table_, index.column(), index.row());
    }

  private:
    const TableView &table_;
    const TableViewDataSource *source_ = nullptr;
};

TableView::TableView(QWidget *parent) : ListView(parent), rows_(std::make_unique<Rows>(*this)) {
    setModel(rows_.get());
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setUniformItemSizes(true);
    setAlternatingRowColors(true);
    connect(this, &QListView::clicked, this, &TableView::action);
    fade_.setStartValue(1.0);
    fade_.setEndValue(0.0);
    const auto repaint = qOverload<>(&QWidget::update);
    connect(&fade_, &QVariantAnimation::valueChanged, viewport(), repaint);
    connect(&fade_, &QVariantAnimation::finished, this, [this] { fading_ = QPixmap(); });
}

TableView::~TableView() {
    setModel(nullptr);
}

void TableView::setDataSource(const TableViewDataSource *source) {
    rows_->setSource(source);
}

void TableView::reloadData() {
    rows_->reload();
}

void TableView::fadeOutRow(int row) {
    const int duration = style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this);
    const QRect place = visualRect(model()->index(row, 0)).intersected(viewport()->rect());
    if (!isVisible() || place.isEmpty() || duration <= 0) return;
    fade_.stop();
    fading_ = QPixmap();
    fading_ = viewport()->grab(place);
    fadingPlace_ = place.topLeft();
    fade_.setDuration(duration);
    fade_.start();
}

void TableView::paintEvent(QPaintEvent *event) {
    ListView::paintEvent(event);
    if (fading_.isNull()) return;
    QPainter painter(viewport());
    painter.setOpacity(fade_.currentValue().toDouble());
    painter.drawPixmap(fadingPlace_, fading_);
}

bool TableView::isBare() const {
    if (ListView::isBare()) return true;
    return model()->rowCount() == 1 && model()->index(0, 0).data().toString().isEmpty();
}

int TableView::selectedRow() const {
    const QModelIndexList selected = selectionModel()->selectedIndexes();
    return selected.isEmpty() ? -1 : selected.first().row();
}

void TableView::focusInEvent(QFocusEvent *event) {
    QListView::focusInEvent(event);
    // It makes the first row the current one without selecting it; an arrow key would then go past it.
    if (selectedRow() < 0) selectionModel()->clearCurrentIndex();
}

void TableView::keyPressEvent(QKeyEvent *event) {
    const bool isPick = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!isPick) return QListView::keyPressEvent(event);
    if (selectedRow() >= 0) Q_EMIT action();
}
