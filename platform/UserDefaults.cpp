#include "platform/UserDefaults.h"

#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QStringList>
#include <cstdio>

#include "platform/UserFolders.h"

namespace {

QString storeFile() {
    return QFile::decodeName((configurationFolder() / "TovanixDev" / "Quillery.ini").c_str());
}

// Says what it did, or nothing if the file is fine or cannot be read at all.
QString setAsideIfDamaged() {
    QFile file(storeFile());
    // To open a pipe would block.
    if (!QFileInfo::exists(storeFile()) || QFileInfo(storeFile()).isFile()) {
        if (!file.open(QIODevice::ReadOnly) || !UserDefaults::isDamaged(file.readAll())) return {};
        file.close();
    }
    QString aside;
    int number = 1;
    do {
        aside = storeFile() + QStringLiteral(".damaged-%1").arg(number++);
    } while (QFile::exists(aside));
    const bool isAside = file.rename(aside);
    if (isAside) file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    const QString problem =
        isAside ? QObject::tr(
                      "The settings were damaged. They are kept in %1, and Quillery starts with new "
                      "ones.")
                      .arg(aside)
                : QObject::tr("The settings in %1 are damaged and could not be set aside.").arg(storeFile());
    std::fprintf(stderr, "Quillery: %s\n", qUtf8Printable(problem));
    return problem;
}

}  // namespace

bool UserDefaults::isDamaged(const QByteArray &bytes) {
    if (bytes.contains('\0')) return true;
    for (const QByteArray &wholeLine : bytes.split('\n')) {
        const QByteArray line = wholeLine.trimmed();
        const bool isSection = line.startsWith('[') && line.endsWith(']');
        if (!line.isEmpty() && !line.startsWith(';') && !line.startsWith('#') && !isSection &&
            line.indexOf('=') < 1)
            return true;
    }
    return false;
}

UserDefaults::UserDefaults()
    : problem_(setAsideIfDamaged()),
      settings_(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("TovanixDev"),
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
