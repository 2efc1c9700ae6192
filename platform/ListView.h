#pragma once

#include <QListView>

// A list that says something in its own place while there is nothing in it. UI thread only.
class ListView : public QListView {
    Q_OBJECT

  public:
    using QListView::QListView;

    // Assistive programs get it as the description of the empty list.
    void setPlaceholder(const QString &text);

  protected:
    void paintEvent(QPaintEvent *event) override;
    // Whether there is nothing to be seen in it.
    virtual bool isBare() const;

  private:
    QString placeholder_;
};
