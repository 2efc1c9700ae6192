#include "platform/UserFolders.h"

#include <cstdlib>

namespace fs = std::filesystem;

namespace {

fs::path fromEnvironment(const char *name) {
    const char *value = std::getenv(name);
    return value ? value : "";
}

// The folder that the variable names, else this one of the home folder.
fs::path folder(const char *variable, const char *inHome) {
    const fs::path named = fromEnvironment(variable);
    if (!named.empty()) return named;
    const fs::path home = fromEnvironment("HOME");
    return (home.empty() ? fs::path("/") : home) / inHome;
}

}  // namespace

fs::path runtimeFolder() {
    const fs::path runtime = fromEnvironment("XDG_RUNTIME_DIR");
    return (runtime.empty() ? folder("XDG_CACHE_HOME", ".cache") : runtime) / "quillery";
}

fs::path configurationFolder() {
    return folder("XDG_CONFIG_HOME", ".config");
}

fs::path dataFolder() {
    return folder("XDG_DATA_HOME", ".local/share");
}
