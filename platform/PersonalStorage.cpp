#include "platform/PersonalStorage.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "platform/UserFolders.h"

namespace fs = std::filesystem;

namespace {

// The server holds this lock for as long as it lives. A port that was published by one that has been killed
// may be anybody's by now.
bool serverLives(const fs::path &folder) {
    const int fd = open((folder / "storage.lock").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool isFree = flock(fd, LOCK_SH | LOCK_NB) == 0;
    close(fd);
    return !isFree;
}

std::optional<std::int32_t> publishedPort(const fs::path &folder) {
    if (!serverLives(folder)) return std::nullopt;
    std::ifstream file(folder / "storage.port");
    std::int32_t port = 0;
    if (!(file >> port) || port < 1 || port > 65535) return std::nullopt;
    return port;
}

// Starts `program --while-used` detached from this process's session and terminal. False with errno set.
pid_t start(const fs::path &program) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string path = program.string();
    std::string whileUsed = "--while-used";
    std::array<char *, 3> arguments = {path.data(), whileUsed.data(), nullptr};
    pid_t child = -1;
    const int error = posix_spawn(&child, path.c_str(), &files, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error == 0) return child;
    errno = error;
    return -1;
}

}  // namespace

PersonalStorage::~PersonalStorage() {
    if (usersLock_ >= 0) close(usersLock_);
}

PersonalStorage::Result PersonalStorage::ensureRunning(const fs::path &program, const std::stop_token &stop) {
    const std::lock_guard lock(mutex_);
    const auto end = std::chrono::steady_clock::now() + kStartLimit;
    const auto isTimeLeft = [&] { return std::chrono::steady_clock::now() < end && !stop.stop_requested(); };
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(10)); };

    const auto folder = runtimeFolder();
    if (!folder)
        return {std::nullopt,
                "neither $XDG_RUNTIME_DIR nor the cache has a folder quillery that only this user can use"};
    const fs::path users = *folder / "storage.users";
    if (usersLock_ < 0) usersLock_ = open(users.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // A server without users that is just ending holds this lock for a moment.
    while (usersLock_ < 0 || flock(usersLock_, LOCK_SH | LOCK_NB) != 0) {
        if (usersLock_ < 0 || (errno != EWOULDBLOCK && errno != EINTR) || !isTimeLeft()) {
            return {std::nullopt, users.string() + ": " + std::strerror(errno)};
        }
        pause();
    }
    while (isTimeLeft()) {
        if (const auto port = publishedPort(*folder)) return {port, {}};
        const pid_t child = start(program);
        if (child < 0)
            return {std::nullopt, program.string() + " could not be started: " + std::strerror(errno)};
        int status = 0;
        bool hasEnded = false;
        while (!hasEnded && isTimeLeft()) {
            if (const auto port = publishedPort(*folder)) {
                // Its end, whenever it comes, is to leave no zombie behind.
                std::thread([child] { waitpid(child, nullptr, 0); }).detach();
                return {port, {}};
            }
            hasEnded = waitpid(child, &status, WNOHANG) == child;
            pause();
        }
        if (!hasEnded) {
            std::thread([child] { waitpid(child, nullptr, 0); }).detach();
        } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            return {std::nullopt, program.string() + " ended at once"};
        }
        // It ended in peace: it found another server, which will publish its port soon, or took this
        // program's look at the lock for one. So look again.
    }
    return {std::nullopt, program.string() + " did not begin to answer"};
}
