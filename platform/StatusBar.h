#pragma once

#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>
#include <memory>

class QMenu;

// The desktop's status bar and this program's items in it. UI thread only.
class StatusBar {
  public:
    // Whether there is a status bar to show items in now: a StatusNotifierItem host, or an X11 system tray.
    // Once there was one, only one of the same kind counts: the toolkit stays with that kind.
    static bool isAvailable();
};

// One item of the status bar: an image and a menu. Where there is no status bar, it appears as soon as there
// is one.
class StatusItem : public QObject {
    Q_OBJECT

  public:
    explicit StatusItem(QObject *parent = nullptr);
    ~StatusItem() override;

    // The name of an image, "online.png": the resources hold it in each size that status bars ask for.
    void setImage(const QString &name);
    QString image() const { return image_; }
    // Not owned; to outlive the item. A left click opens it, too.
    void setMenu(QMenu *menu);
    void setToolTip(const QString &text);
    QString toolTip() const { return toolTip_; }

    bool isShown() const { return icon_ != nullptr; }

  Q_SIGNALS:
    void imageChanged(const QIcon &image);
    // The item has just become visible in a status bar.
    void shown();
    // The status bar has gone, and the item with it.
    void lost();

  private:
    void look();
    void showIfPossible();

    std::unique_ptr<QSystemTrayIcon> icon_;
    QTimer lookAgain_;
    QString image_;
    QString toolTip_;
    QMenu *menu_ = nullptr;
};
