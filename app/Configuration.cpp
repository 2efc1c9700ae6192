#include "app/Configuration.h"

#include <QFile>
#include <QSettings>

#include "platform/UserFolders.h"

namespace {

const char *const kLinkNames[] = {"tutorials",   "facebook", "twitter", "pinterest",
                                  "google_plus", "web",      "email"};

// The file to read, or an empty text.
QString configurationFile() {
    if (qEnvironmentVariableIsSet("QUILLERY_CONFIG")) return qEnvironmentVariable("QUILLERY_CONFIG");
    const QString home = QString::fromStdString(configurationFolder().string());
    QString others = qEnvironmentVariable("XDG_CONFIG_DIRS");
    if (others.isEmpty()) others = QStringLiteral("/etc/xdg");
    for (const QString &folder : QStringList{home} + others.split(u':', Qt::SkipEmptyParts)) {
        const QString file = folder + QStringLiteral("/quillery/quillery.conf");
        if (QFile::exists(file)) return file;
    }
    return {};
}

// A host name or address, and nothing else: no scheme, folder or port (an IPv6 address stands in brackets).
bool isPlainHost(const QString &host) {
    if (host.startsWith(u'[')) return host.endsWith(u']');
    for (const QChar c : host) {
        if (c == u'/' || c == u':' || c == u'@' || c.isSpace() || c.unicode() < 0x20) return false;
    }
    return true;
}

}  // namespace

Configuration Configuration::fromValues(const QMap<QString, QString> &file,
                                        const QMap<QString, QString> &environment) {
    Configuration result;
    const auto value = [&](const char *name, const char *variable) -> std::optional<QString> {
        const auto set = environment.find(QLatin1String(variable));
        if (set != environment.end()) return *set;
        const auto written = file.find(QLatin1String("storage/") + QLatin1String(name));
        return written == file.end() ? std::nullopt : std::optional(*written);
    };

    if (const auto host = value("host", "QUILLERY_STORAGE_HOST"); host && !host->trimmed().isEmpty()) {
        result.storageHost = host->trimmed().toStdString();
        if (!isPlainHost(host->trimmed())) {
            // Not used in part either: where writing succeeds but reading fails, a save would empty the list.
            result.storageHost = "";
            result.problems << QStringLiteral(
                                   "The storage host \"%1\" is not a host name or address and is not used.")
                                   .arg(*host);
        }
    }
    if (const auto port = value("port", "QUILLERY_STORAGE_PORT")) {
        bool isNumber = false;
        const int number = port->trimmed().toInt(&isNumber);
        if (isNumber && number >= 1 && number <= 65535) {
            result.storagePort = number;
        } else {
            result.problems
                << QStringLiteral("The storage port \"%1\" is not a number from 1 to 65535; port %2 is used.")
                       .arg(*port)
                       .arg(result.storagePort);
        }
    }
    if (const auto tls = value("tls", "QUILLERY_STORAGE_TLS")) {
        if (*tls == u"required") {
            result.transport.tls = TlsMode::kRequired;
        } else if (*tls == u"try") {
            result.transport.tls = TlsMode::kTry;
        } else if (*tls != u"off") {
            // Whoever writes something there wants encryption rather than none.
            result.transport.tls = TlsMode::kRequired;
            result.problems
                << QStringLiteral(
                       "The storage tls mode \"%1\" is none of off, try, required; it is required.")
                       .arg(*tls);
        }
    }
    if (const auto caFile = value("ca_file", "QUILLERY_STORAGE_CA_FILE"))
        result.transport.caFile = caFile->toStdString();
    if (const auto idle = value("idle_timeout_seconds", "QUILLERY_STORAGE_IDLE_TIMEOUT_SECONDS")) {
        bool isNumber = false;
        const int seconds = idle->trimmed().toInt(&isNumber);
        if (isNumber && seconds >= 1 && seconds <= 86'400) {
            result.transport.limits.idleTimeout = std::chrono::seconds(seconds);
        } else {
            result.problems
                << QStringLiteral(
                       "The idle_timeout_seconds \"%1\" is not a number from 1 to 86400; %2 is used.")
                       .arg(*idle)
                       .arg(result.transport.limits.idleTimeout.count() / 1000);
        }
    }
    for (const char *name : kLinkNames) {
        const QString address = file.value(QLatin1String("links/") + QLatin1String(name)).trimmed();
        if (!address.isEmpty()) result.links.insert(QLatin1String(name), address);
    }
    return result;
}

Configuration Configuration::load() {
    QMap<QString, QString> values;
    QStringList problems;
    const QString file = configurationFile();
    if (!file.isEmpty()) {
        if (!QFile(file).open(QIODevice::ReadOnly))
            problems << QStringLiteral("The configuration %1 cannot be read.").arg(file);
        const QSettings settings(file, QSettings::IniFormat);
        if (settings.status() == QSettings::FormatError) {
            problems << QStringLiteral("The configuration %1 is damaged; what could be read of it is used.")
                            .arg(file);
        }
        for (const QString &key : settings.allKeys()) {
            values.insert(key, settings.value(key).toStringList().join(u','));
        }
    }
    QMap<QString, QString> environment;
    for (const char *name : {"QUILLERY_STORAGE_HOST", "QUILLERY_STORAGE_PORT", "QUILLERY_STORAGE_TLS",
                             "QUILLERY_STORAGE_CA_FILE", "QUILLERY_STORAGE_IDLE_TIMEOUT_SECONDS"}) {
        if (qEnvironmentVariableIsSet(name))
            environment.insert(QLatin1String(name), qEnvironmentVariable(name));
    }
    Configuration result = fromValues(values, environment);
    result.problems = problems + result.problems;
    return result;
}

QStringList problemsOfSettings(const QMap<QString, QString> &settings) {
    const QMap<QString, QStringList> known{
        {QStringLiteral("kIsNotFirstUse"), {QStringLiteral("YES")}},
        {QStringLiteral("kHasPasscode"), {QStringLiteral("YES"), QString()}},
        {QStringLiteral("kAutoLogin"), {QStringLiteral("Yes"), QStringLiteral("No")}},
        {QStringLiteral("kOpenAtLaunch"), {QStringLiteral("Yes"), QStringLiteral("No")}},
    };
    QStringList problems;
    for (auto setting = settings.begin(); setting != settings.end(); ++setting) {
        const auto values = known.find(setting.key());
        if (values == known.end() || values->contains(*setting)) continue;
        problems << QStringLiteral("The setting %1 has the unknown value \"%2\" and counts as not set.")
                        .arg(setting.key(), *setting);
    }
    return problems;
}
