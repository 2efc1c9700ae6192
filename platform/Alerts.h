#pragma once

#include <QString>
#include <QStringList>

// Modal alerts. An interface, so that a test records every question and answers it.
class Alerts {
  public:
    virtual ~Alerts() = default;

    // Shows an alert with the window title `title` and the text `message` and returns the index of the button
    // pressed; the first is the default. Closing the alert or Escape counts as the last button. UI thread;
    // turns a nested event loop, so it is called from inside an action of the ActionGate only.
    virtual int run(const QString &title, const QString &message, const QStringList &buttons) = 0;
};

// The desktop's own alerts.
class MessageBoxAlerts : public Alerts {
  public:
    int run(const QString &title, const QString &message, const QStringList &buttons) override;
};
