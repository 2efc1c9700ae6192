#include "platform/FileManager.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "platform/Descriptor.h"
#include "platform/Text.h"

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kTemporaryMark = ".new-";
constexpr std::string_view kTemporaryTail = "XXXXXX";
// As many as the kernel follows.
constexpr int kMostLinks = 40;
// Short, so that one program that writes again and again does not keep out the others.
constexpr std::chrono::microseconds kLockPause{200};
// A list is held as it was, as it will be and as it is shown.
constexpr std::uint64_t kCopiesInMemory = 4;
constexpr const char *kTooBig = "it is too big for the memory";

std::string reason() {
    return std::strerror(errno);
}

// Until no signal comes in between.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

bool flush(int fd) {
    // Some file systems have nothing to flush.
    return uninterrupted([&] { return fsync(fd); }) == 0 || errno == EINVAL || errno == ENOSYS;
}

// The entry of a renamed file is safe only once its folder is on the disk, too.
void flushFolder(const fs::path &folder) {
    const Descriptor dir(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.isOpen()) fsync(dir.get());
}

// Where a path leads through symbolic links, whether something is there or not.
struct Target {
    fs::path path;
    bool isLinked = false;
    std::string problem;

    fs::path folder() const { return path.has_parent_path() ? path.parent_path() : fs::path("."); }

    // Returns why there is no folder for it, in words; nothing if there is one.
    std::string makeFolder() const {
        std::error_code error;
        if (fs::is_directory(folder(), error)) return {};
        if (isLinked)
            return "it is a link to " + path.string() + ", and the folder " + folder().string() +
                   " is not there";
        fs::create_directories(folder(), error);
        if (error) return "the folder " + folder().string() + " could not be made: " + error.message();
        return {};
    }
};

Target follow(const fs::path &path) {
    Target target;
    target.path = path;
    for (int links = 0; links < kMostLinks; ++links) {
        std::error_code error;
        const fs::path next = fs::read_symlink(target.path, error);
        if (error) return target;  // no link, or nothing at all; anything else shows when it is used
        target.path = target.path.parent_path() / next;
        target.isLinked = true;
    }
    target.problem = std::generic_category().message(ELOOP);
    return target;
}

// What something is that is no file, a clause; empty for a file.
std::string notAFile(mode_t mode) {
    if (S_ISREG(mode)) return {};
    const char *what = S_ISDIR(mode)    ? "folder"
                       : S_ISFIFO(mode) ? "pipe"
                       : S_ISSOCK(mode) ? "socket"
                                        : "device";
    return std::string("it is a ") + what + ", not a file";
}

FileText unreadable(std::string problem) {
    return {FileText::State::kUnreadable, std::nullopt, std::move(problem)};
}

// To its end. Throws where the memory does not suffice; false with errno set where reading fails.
bool readAll(int fd, std::size_t expected, std::string &bytes) {
    bytes.reserve(expected + 1);
    std::size_t used = 0;
    for (;;) {
        if (bytes.capacity() - used < 1) bytes.reserve(bytes.capacity() * 2);
        bytes.resize(bytes.capacity());
        const ssize_t n = uninterrupted([&] { return read(fd, bytes.data() + used, bytes.size() - used); });
        if (n < 0) return false;
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    bytes.resize(used);
    return true;
}

FileText readText(const fs::path &path) {
    struct stat status = {};
    // Looked at first: to open a device can do something.
    if (uninterrupted([&] { return stat(path.c_str(), &status); }) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return {};
        return unreadable(reason());
    }
    if (std::string what = notAFile(status.st_mode); !what.empty()) return unreadable(std::move(what));
    const Descriptor file(
        uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    if (!file.isOpen()) {
        if (errno == ENOENT || errno == ENOTDIR) return {};
        return unreadable(reason());
    }
    if (fstat(file.get(), &status) != 0) return unreadable(reason());
    if (std::string what = notAFile(status.st_mode); !what.empty()) return unreadable(std::move(what));
    // The system promises more memory than it has, and ends the programs that take it at its word.
    const std::uint64_t memory = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                 static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    if (static_cast<std::uint64_t>(status.st_size) > memory / kCopiesInMemory) return unreadable(kTooBig);
    std::string bytes;
    if (!readAll(file.get(), static_cast<std::size_t>(status.st_size), bytes)) return unreadable(reason());
    if (!isValidUtf8(bytes)) return {FileText::State::kNotText, std::nullopt, "it is not UTF-8 text"};
    return {FileText::State::kText, std::move(bytes), {}};
}

}  // namespace

FileText FileManager::textAtPath(const fs::path &path) const {
    try {
        return readText(path);
    } catch (const std::bad_alloc &) {
    } catch (const std::length_error &) {
    }
    return unreadable(kTooBig);
}

bool FileManager::fileExistsAtPath(const fs::path &path) const {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

std::string FileManager::createFileAtPath(const fs::path &path, std::string_view contents) const {
    const Target target = follow(path);
    if (!target.problem.empty()) return target.problem;
    if (std::string problem = target.makeFolder(); !problem.empty()) return problem;

    std::string temporary = target.path.string();
    temporary.append(kTemporaryMark).append(kTemporaryTail);
    Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen()) return reason();
    const auto failed = [&temporary] {
        std::string why = reason();
        unlink(temporary.c_str());
        return why;
    };
    if (!writeAll(file.get(), contents) || !flush(file.get()) || !file.reset()) return failed();
    if (rename(temporary.c_str(), target.path.c_str()) != 0) return failed();
    flushFolder(target.folder());
    return {};
}

std::string FileManager::createFileIfMissing(const fs::path &path) const {
    const Target target = follow(path);
    if (!target.problem.empty()) return target.problem;
    if (std::string problem = target.makeFolder(); !problem.empty()) return problem;
    Descriptor file(uninterrupted(
        [&] { return open(target.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); }));
    if (!file.isOpen()) return errno == EEXIST ? "" : reason();
    if (!flush(file.get()) || !file.reset()) return reason();
    flushFolder(target.folder());
    return {};
}

std::optional<fs::path> FileManager::setAside(const fs::path &path) const {
    const Target target = follow(path);
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%d-%H%M%S", &local);
    const std::string stem = target.path.string() + ".unreadable-" + date.data();
    for (int i = 1; i < 1000; ++i) {
        const std::string name = i == 1 ? stem : stem + "-" + std::to_string(i);
        // A plain rename would replace what has that name, and not every file system can refuse to: so the
        // name is taken first.
        const Descriptor taken(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!taken.isOpen() && errno == EEXIST) continue;
        if (!taken.isOpen()) return std::nullopt;
        if (rename(target.path.c_str(), name.c_str()) != 0) {
            unlink(name.c_str());
            return std::nullopt;
        }
        flushFolder(target.folder());
        return name;
    }
    return std::nullopt;
}

void FileManager::removeLeftovers(const fs::path &path, std::chrono::seconds age) const {
    const Target target = follow(path);
    const std::string beginning = target.path.filename().string().append(kTemporaryMark);
    std::error_code error;
    for (fs::directory_iterator entry(target.folder(), error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        struct stat status = {};
        if (name.starts_with(beginning) && name.size() == beginning.size() + kTemporaryTail.size() &&
            lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            status.st_mtim.tv_sec <= std::time(nullptr) - age.count()) {
            unlink(entry->path().c_str());
        }
    }
}

FileLock::FileLock(const fs::path &path, std::chrono::milliseconds limit) {
    const Target target = follow(path);
    problem_ = target.problem.empty() ? target.makeFolder() : target.problem;
    if (!problem_.empty()) return;
    const std::string name = target.path.string() + ".lock";
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    descriptor_ = uninterrupted([&] { return open(name.c_str(), flags, 0600); });
    if (descriptor_ < 0) {
        problem_ = "its lock " + name + " could not be opened: " + reason();
        return;
    }
    const auto end = std::chrono::steady_clock::now() + limit;
    while (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        // These mean that the file system has no locks: the change goes on without.
        if (errno == ENOLCK || errno == ENOSYS || errno == EOPNOTSUPP || errno == EPERM || errno == EINVAL)
            return;
        if (errno != EWOULDBLOCK) {
            problem_ = "its lock " + name + " could not be taken: " + reason();
            return;
        }
        if (std::chrono::steady_clock::now() >= end) {
            problem_ = "another program is changing it and does not come to an end";
            return;
        }
        std::this_thread::sleep_for(kLockPause);
    }
    isHeld_ = true;
}

FileLock::~FileLock() {
    if (descriptor_ >= 0) close(descriptor_);
}
