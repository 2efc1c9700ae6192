#pragma once

#include <filesystem>

// Folders of the running user, as the XDG base directories name them. They need not exist. Any thread.

// For what lasts as long as the session: sockets, locks, the port of the personal storage server.
std::filesystem::path runtimeFolder();

// For settings, of whatever program.
std::filesystem::path configurationFolder();

// For what programs keep for the user.
std::filesystem::path dataFolder();
