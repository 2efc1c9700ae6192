#pragma once

#include <QPixmap>
#include <QVariantAnimation>
#include <memory>

#include "platform/ListView.h"

class TableView;

// Gives a table view its rows. Asked on the UI thread whenever the view needs them.
class TableViewDataSource {
  public:
    virtual ~TableViewDataSource() = default;
    virtual int numberOfRowsInTableView(const TableView &table) const = 0;
    // The text of the cell in a column (there is one) and row.
    virtual QString tableView(const TableView &table, int viewForTableColumn, int row) const = 0;
};

// A table of one column whose rows come from a data source and are picked one at a time: by a click, or with
// the arrow keys and Enter. UI thread only.
class TableView : public ListView {
    Q_OBJECT

  public:
    explicit TableView(QWidget *parent = nullptr);
    ~TableView() override;

    // Not owned; must outlive the view or be replaced.
    void setDataSource(const TableViewDataSource *source);
    // Asks the data source anew. No row is selected afterwards.
    void reloadData();
    // To be called before its rows change: what is in `row` now, if it is in sight and the desktop has
    // animations, fades from its place, whatever the table shows there.
    void fadeOutRow(int row);
    // The selected row, or -1.
    int selectedRow() const;

  Q_SIGNALS:
    // The user picked the selected row.
    void action();

  protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    bool isBare() const override;

  private:
    class Rows;
    std::unique_ptr<Rows> rows_;
    QPixmap fading_;  // null unless one is fading
    QPoint fadingPlace_;
    QVariantAnimation fade_;  // of its opacity
};
