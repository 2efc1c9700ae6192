#include <utility>

#include "app/AppDelegate.h"
#include "app/StorageNames.h"

// What the operations ask of the server, of the settings and of the user.

AppDelegate::Server AppDelegate::server() const {
    return {transport_, MyFTPManager.get(), Quillery_Server, storageHost_,
            shell_.configuration.storageHost ? nullptr : shell_.personalStorage};
}

// The personal server may have ended since, by whatever hand: then it is started again.
bool AppDelegate::Server::find(FMServer &found, const std::stop_token &stop) const {
    found = descriptor;
    if (!personalStorage) return true;
    const auto storage = personalStorage(stop);
    found.port = storage.port.value_or(descriptor.port);
    return storage.port.has_value();
}

std::optional<std::string> AppDelegate::Server::text(const std::string &name,
                                                     const std::stop_token &stop) const {
    FMServer found;
    if (!find(found, stop)) return std::nullopt;
    const auto url = ftpURLForFile({*found.username, *found.password, host, found.port,
                                    std::string(StorageNames::kRemoteDirectory), name});
    return url ? stringWithContentsOfURL(*url, *transport, stop) : std::nullopt;
}

bool AppDelegate::Server::upload(std::optional<std::string_view> data, const std::string &name,
                                 const std::stop_token &stop) const {
    FMServer found;
    return find(found, stop) && manager->uploadData(data, name, &found, stop);
}

std::optional<std::vector<FTPResource>> AppDelegate::Server::contents(const std::stop_token &stop) const {
    FMServer found;
    // By a manager of its own: a save must not wait for a listing.
    return find(found, stop) ? FTPManager(transport).contentsOfServer(&found, stop) : std::nullopt;
}

std::optional<std::string> AppDelegate::serverText(const std::string &name, const QString &whatFor) {
    return shell_.waiting.run(
        whatFor, [server = server(), name](const std::stop_token &stop) { return server.text(name, stop); });
}

int AppDelegate::alert(const QString &title, const QString &message, const QStringList &buttons) {
    // Nobody is to be kept from ending the session by a question.
    if (isEnding_) return static_cast<int>(buttons.size()) - 1;
    return shell_.alerts.run(title, message, buttons);
}

void AppDelegate::actFromBackground(const std::function<void()> &action) {
    std::promise<void> done;
    shell_.ui.post([&] {
        shell_.gate.enter([&] {
            action();
            done.set_value();
        });
    });
    done.get_future().wait();
}

void AppDelegate::alertFromBackground(const QString &title, const QString &message) {
    actFromBackground([&] { alert(title, message); });
}

std::optional<QString> AppDelegate::setting(const char *key) const {
    return shell_.standardUserDefaults.objectForKey(QLatin1String(key));
}

void AppDelegate::storeSetting(const char *key, const QString &value) {
    shell_.standardUserDefaults.setObject(value, QLatin1String(key));
    shell_.standardUserDefaults.synchronize();
}

bool AppDelegate::settingIs(const char *key, const char *value) const {
    return setting(key) == QLatin1String(value);
}
