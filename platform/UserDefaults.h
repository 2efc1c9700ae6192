#pragma once

#include <QSettings>
#include <optional>

// The per-user settings store: text values under text keys, in an ini file that only its owner can read (mode
// 0600). UI thread only.
class UserDefaults {
  public:
    // The store of the running user: organisation TovanixDev, application Quillery. A damaged file is set
    // aside beside it, and the store is empty then.
    UserDefaults();

    // What has been set aside, in words for the user; empty if nothing was.
    const QString &problem() const { return problem_; }

    // Whether these bytes are no ini file: something wrote over it, or it was cut off in the middle.
    static bool isDamaged(const QByteArray &bytes);

    // The stored text, or nothing.
    std::optional<QString> objectForKey(const QString &key) const;

    // Stores `value` under `key`, or removes the key (no value). Not on the disk before synchronize().
    void setObject(const std::optional<QString> &value, const QString &key);

    // Writes to the disk. False, with a line on standard error, if that failed; the values stay in force for
    // this run.
    bool synchronize();

    QString fileName() const { return settings_.fileName(); }

  private:
    QString problem_;  // before the settings: it is found out before they are read
    QSettings settings_;
};
