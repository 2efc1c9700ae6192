#pragma once

#include <QWidget>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ListItems.h"

class QLineEdit;
class ListView;

// A list of texts to pick from, with a line above it that shows the current text and filters as one types.
//
// The control's text (stringValue()) is the whole text of the item selected last, byte for byte, whatever it
// holds and however long it is; what the rows and the line show is one elided line of it. Typing hides the
// rows that do not match and never changes the control's text, nor what a pick means; the filter stays until
// the user empties it or the list is hidden. Arrow keys move through the rows, Enter or a click picks, Escape
// empties the filter and then asks to be closed.
//
// Indices are those of all items, in order, whether the filter shows them or not. UI thread only.
class ListControl : public QWidget {
    Q_OBJECT

  public:
    explicit ListControl(QWidget *parent = nullptr);
    ~ListControl() override;

    std::size_t numberOfItems() const { return items_.count(); }
    std::string_view itemAtIndex(std::size_t index) const { return items_.at(index); }

    // The control's text keeps what it is; no item is selected afterwards.
    void removeAllItems();

    // Adds `pieces`, which are views into `*whole`, behind the items there are. They are not copied.
    void addItems(std::shared_ptr<const std::string> whole, const std::vector<std::string_view> &pieces);

    // `index` is at most numberOfItems(). A selected item stays selected.
    void insertItemWithObjectValue(std::string text, std::size_t index);

    // Nothing happens where there is no such item. The control's text keeps what it is.
    void removeItemAtIndex(int index);

    // Selects the item and makes its text the control's text. Where there is no such item nothing is selected
    // and the text is empty. Sends no action.
    void selectItemAtIndex(int index);

    // The selected item, or -1.
    int indexOfSelectedItem() const { return selected_; }

    // The item with that text that is nearest to `near`, or -1.
    int indexOfItem(const std::string &text, int near) const;

    const std::string &stringValue() const { return text_; }

    // Shown in the line while the control's text is empty.
    void setPlaceholderString(const QString &text);

    // The shown items' indices, top to bottom.
    const std::vector<std::size_t> &shownItems() const;

  Q_SIGNALS:
    // The user picked item `index`, whose text is `text`. The receiver selects it (selectPicked()) when the
    // pick's turn comes.
    void picked(int index, const std::string &text);
    // Escape, with nothing left to undo.
    void dismissed();

  public Q_SLOTS:
    // Makes `text` the control's text and selects item `index`, or another one with that text if the list has
    // changed since the pick; none if there is none.
    void selectPicked(int index, const std::string &text);

  protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void showEvent(QShowEvent *event) override;

  private:
    class Rows;
    class Delegate;

    void filter(const QString &words);
    void showMatching(const std::string &words);
    void clearFilter();
    void pickRow(int row);
    void showSelection();
    void showSelectionSoon();
    void selectLine();
    bool handleKey(int key);

    ListItems items_;
    int selected_ = -1;
    std::string text_;
    bool selectionIsShown_ = true;
    bool ignoresRelease_ = false;
    bool isShowingSelection_ = false;
    QLineEdit *line_;
    ListView *view_;
    std::unique_ptr<Rows> rows_;
};
