#pragma once

#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>
#include <chrono>
#include <memory>

class QMenu;

// The desktop's status bar: a StatusNotifierItem host, or an X11 system tray. Asks without waiting for the
// answer. UI thread only.
class StatusBar : public QObject {
    Q_OBJECT

  public:
    explicit StatusBar(QObject *parent = nullptr);

    // Whether there is one to show items in, as far as it is known by now. A host that does not answer stays
    // what it was; only one that goes is gone. Once there was a status bar, only one of the same kind counts:
    // the toolkit stays with that kind.
    bool isAvailable() const;

  Q_SIGNALS:
    // A host has come or gone. An X11 tray comes and goes without a word.
    void changed();

  private Q_SLOTS:
    void askForHost();

  private:
    enum class Host { kUnknown, kNone, kThere };
    void setHost(Host host);
    Host host_ = Host::kUnknown;
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
    // Not owned; to outlive the item. A left click opens it, too. The item appears from now on; lost() tells
    // if it could not within `patience`: at a login the status bar may come later than this program.
    void setMenu(QMenu *menu, std::chrono::milliseconds patience);
    void setToolTip(const QString &text);
    QString toolTip() const { return toolTip_; }

    bool isShown() const { return icon_ != nullptr; }

  Q_SIGNALS:
    void imageChanged(const QIcon &image);
    // The item has just become visible in a status bar.
    void shown();
    // The status bar has gone, and the item with it, or there was none from the beginning.
    void lost();

  private:
    void look();
    void showIfPossible();

    StatusBar statusBar_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    QTimer lookAgain_;
    QString image_;
    QString toolTip_;
    QMenu *menu_ = nullptr;
};
