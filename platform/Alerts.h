#pragma once

#include <QString>
#include <QStringList>

// Modal alerts. An interface, so that a test records every question and answers it.
class Alerts {
  public:
    virtual ~Alerts() = default;

    // Shows an alert with the window title `title` and the text `message` and returns the index of the button
    // pressed; Enter presses `defaultButton`. Closing the alert or Escape counts as the last button. UI
    // thread; turns a nested event loop.
    virtual int run(const QString &title, const QString &message, const QStringList &buttons,
                    int defaultButton) = 0;
};

// The desktop's own alerts.
class MessageBoxAlerts : public Alerts {
  public:
    int run(const QString &title, const QString &message, const QStringList &buttons,
            int defaultButton) override;
};
