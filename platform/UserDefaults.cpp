#include "platform/UserDefaults.h"

#include <QFile>
#include <QStringList>
#include <cstdio>

UserDefaults::UserDefaults()
    : settings_(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("TovanixDev"),
                QStringLiteral("Quillery")) {
    settings_.setFallbacksEnabled(false);
    if (settings_.status() != QSettings::NoError) {
        std::fprintf(stderr, "Quillery: the settings in %s could not be read.\n", qUtf8Printable(fileName()));
    }
    if (QFile::exists(fileName())) QFile::setPermissions(fileName(), QFile::ReadOwner | QFile::WriteOwner);
}

std::optional<QString> UserDefaults::objectForKey(const QString &key) const {
    const QVariant value = settings_.value(key);
    if (!value.isValid()) return std::nullopt;
    // A value typed by hand with a comma in it reads as a list.
    if (value.typeId() == QMetaType::QStringList) return value.toStringList().join(u',');
    return value.toString();
}

void UserDefaults::setObject(const std::optional<QString> &value, const QString &key) {
    if (value) {
        settings_.setValue(key, *value);
    } else {
        settings_.remove(key);
    }
}

bool UserDefaults::synchronize() {
    settings_.sync();
    QFile::setPermissions(fileName(), QFile::ReadOwner | QFile::WriteOwner);
    if (settings_.status() == QSettings::NoError) return true;
    std::fprintf(stderr, "Quillery: the settings could not be written to %s.\n", qUtf8Printable(fileName()));
    return false;
}
