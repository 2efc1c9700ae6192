#pragma once

#include <filesystem>
#include <optional>

// Folders of the running user, as the XDG base directories name them; a variable that names no absolute path
// does not count. They need not exist, but for the first one. Any thread.

// For what lasts as long as the session: sockets, locks, the port of the personal storage server. Another
// user who could write there could answer in this program's name, so the folder is private: a real folder, no
// link, that is the user's own and gives no access to others. It is the first of these that is private or can
// be made so, and quillery-storage goes by the same rule:
//
//     $XDG_RUNTIME_DIR/quillery, if $XDG_RUNTIME_DIR is there and private, too
//     $XDG_CACHE_HOME/quillery (~/.cache/quillery)
//
// It is made if missing (mode 0700). Nothing if neither can be had.
std::optional<std::filesystem::path> runtimeFolder();

// For settings, of whatever program.
std::filesystem::path configurationFolder();

// For what programs keep for the user.
std::filesystem::path dataFolder();

// For what a program remembers between runs and the user can do without: logs, histories, rescued copies.
std::filesystem::path stateFolder();
