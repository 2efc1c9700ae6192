#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QPalette>

// Follows the desktop's wish for dark or light colours, which it tells through the settings portal, where the
// toolkit's own theme does not. Where there is no portal nothing changes. UI thread.
class ColorScheme : public QObject {
    Q_OBJECT

  public:
    // Asks the portal, and applies its answer when it comes, now and after every change.
    explicit ColorScheme(QObject *parent = nullptr);

    // Whether its windows are dark.
    static bool isDark(const QPalette &palette);
    // A dark palette in which every pair of text and background can be read.
    static QPalette darkPalette();

  public Q_SLOTS:
    // The portal's signal.
    void settingChanged(const QDBusMessage &change);

  private:
    void ask(const QDBusConnection &bus);
    void apply(const QVariant &value);
    const QPalette usual_;  // the one of the toolkit's theme
};
