#include "platform/FileManager.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <system_error>

#include "platform/Text.h"

namespace fs = std::filesystem;

namespace {

// A file descriptor that closes itself.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    // Closes; false if the file system reported a late error.
    bool reset() {
        if (fd_ < 0) return true;
        const bool ok = close(fd_) == 0;
        fd_ = -1;
        return ok;
    }

  private:
    int fd_;
};

std::string reason() {
    return std::strerror(errno);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

// The entry of a renamed file is safe only once its folder is on the disk, too.
void flushFolder(const fs::path &folder) {
    const Descriptor dir(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.isOpen()) fsync(dir.get());
}

// Opens `name` emptied and locked against other programs that are writing the same file, or -1 with errno
// set.
int openOwnTemporary(const std::string &name) {
    for (;;) {
        const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) return -1;
        struct stat mine = {};
        struct stat there = {};
        const bool locked = flock(fd, LOCK_EX) == 0 && fstat(fd, &mine) == 0;
        // Whoever held the lock before may have renamed the file into its place meanwhile: that one is not
        // ours.
        const bool moved =
            lstat(name.c_str(), &there) != 0 || there.st_ino != mine.st_ino || there.st_dev != mine.st_dev;
        if (locked && !moved && fchmod(fd, 0600) == 0 && ftruncate(fd, 0) == 0) return fd;
        const int why = errno;
        close(fd);
        errno = why;
        if (!locked || !moved) return -1;
    }
}

}  // namespace

FileText FileManager::textAtPath(const fs::path &path) const {
    FileText result;
    const auto unreadable = [&] {
        result.state = FileText::State::kUnreadable;
        result.problem = reason();
        return result;
    };
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) {
        if (errno == ENOENT || errno == ENOTDIR) return result;
        return unreadable();
    }
    struct stat status = {};
    if (fstat(file.get(), &status) != 0) return unreadable();
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
        if (bytes.capacity() - used < 1) bytes.reserve(bytes.capacity() * 2);
        bytes.resize(bytes.capacity());
        const ssize_t n = read(file.get(), bytes.data() + used, bytes.size() - used);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return unreadable();
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    bytes.resize(used);
    if (!isValidUtf8(bytes)) {
        result.state = FileText::State::kNotText;
        result.problem = "it is not UTF-8 text";
        return result;
    }
    result.state = FileText::State::kText;
    result.text = std::move(bytes);
    return result;
}

bool FileManager::fileExistsAtPath(const fs::path &path) const {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

std::string FileManager::createFileAtPath(const fs::path &path, std::string_view contents) const {
    std::error_code error;
    fs::path target = path;
    if (fs::is_symlink(path, error)) {
        const fs::path pointedTo = fs::weakly_canonical(path, error);
        if (error) return error.message();
        target = pointedTo;
    }
    const fs::path folder = target.parent_path();
    fs::create_directories(folder, error);
    if (error) return "the folder " + folder.string() + " could not be made: " + error.message();

    // One name for every attempt, so that a killed program leaves at most one such file and the next write
    // takes it over.
    const std::string temporary = (folder / (target.filename().string() + ".new")).string();
    Descriptor file(openOwnTemporary(temporary));
    if (!file.isOpen()) return reason();
    const auto failed = [&temporary] {
        const std::string why = reason();
        unlink(temporary.c_str());
        return why;
    };
    if (!writeAll(file.get(), contents) || fsync(file.get()) != 0 || !file.reset()) return failed();
    if (rename(temporary.c_str(), target.c_str()) != 0) return failed();
    flushFolder(folder);
    return {};
}

std::optional<fs::path> FileManager::setAside(const fs::path &path) const {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%d-%H%M%S", &local);
    const std::string stem = path.string() + ".unreadable-" + date.data();
    for (int i = 1; i < 1000; ++i) {
        const std::string name = i == 1 ? stem : stem + "-" + std::to_string(i);
        // A plain rename would replace whatever has that name.
        if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) {
            flushFolder(path.parent_path());
            return name;
        }
        if (errno != EEXIST) return std::nullopt;
    }
    return std::nullopt;
}
