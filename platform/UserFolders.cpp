#include "platform/UserFolders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace fs = std::filesystem;

namespace {

fs::path fromEnvironment(const char *name) {
    const char *value = std::getenv(name);
    return value ? value : "";
}

// The folder that the variable names, else this one of the home folder.
fs::path folder(const char *variable, const char *inHome) {
    const fs::path named = fromEnvironment(variable);
    if (named.is_absolute()) return named;
    const fs::path home = fromEnvironment("HOME");
    return (home.empty() ? fs::path("/") : home) / inHome;
}

bool isPrivate(const fs::path &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 077U) == 0;
}

bool isPrivateOnceMade(const fs::path &path) {
    std::error_code ignored;  // what is wrong shows in the look at it
    fs::create_directories(path.parent_path(), ignored);
    mkdir(path.c_str(), S_IRWXU);
    return isPrivate(path);
}

}  // namespace

std::optional<fs::path> runtimeFolder() {
    const fs::path inRuntime = fromEnvironment("XDG_RUNTIME_DIR") / "quillery";
    if (inRuntime.is_absolute() && isPrivate(inRuntime.parent_path()) && isPrivateOnceMade(inRuntime))
        return inRuntime;
    const fs::path inCache = folder("XDG_CACHE_HOME", ".cache") / "quillery";
    if (isPrivateOnceMade(inCache)) return inCache;
    return std::nullopt;
}

fs::path configurationFolder() {
    return folder("XDG_CONFIG_HOME", ".config");
}

fs::path dataFolder() {
    return folder("XDG_DATA_HOME", ".local/share");
}

fs::path stateFolder() {
    return folder("XDG_STATE_HOME", ".local/state");
}
