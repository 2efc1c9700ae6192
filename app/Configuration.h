#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FTPManager/FTPTransport.h"

// What the administrator of this machine or its user has configured: where the storage server is, and the
// vendor's addresses.
struct Configuration {
    // Nothing: the personal storage server of this machine. Empty: configured, but of no use.
    std::optional<std::string> storageHost;
    std::int32_t storagePort = 21;
    TransportOptions transport;
    // Before a read that failed for a reason that may pass is tried again, and then once more.
    std::vector<std::chrono::milliseconds> pausesBetweenReads{std::chrono::milliseconds(200),
                                                              std::chrono::milliseconds(1000)};
    // Addresses by name: tutorials, facebook, twitter, pinterest, google_plus, web, email. One that is not
    // configured is not in the map.
    QMap<QString, QString> links;

    // What could not be used and what is done instead, a sentence each.
    QStringList problems;

    // From the values of the configuration file, keyed "section/name", and those of the environment, which
    // win.
    static Configuration fromValues(const QMap<QString, QString> &file,
                                    const QMap<QString, QString> &environment);

    // From $QUILLERY_CONFIG, else quillery/quillery.conf in the first of the XDG configuration folders that
    // has it, and from the environment of this process.
    static Configuration load();
};

// The texts in the settings store that mean nothing to the program, a sentence each. `settings` holds the
// stored values by key; absent keys are no problem.
QStringList problemsOfSettings(const QMap<QString, QString> &settings);
