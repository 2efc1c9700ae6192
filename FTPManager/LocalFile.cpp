#include "FTPManager/LocalFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace fm {

namespace {

constexpr mode_t kNewFileMode = 0666;  // less the user's mask

}  // namespace

std::uint64_t sizeOfFile(const std::filesystem::path &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::optional<std::size_t> DataReader::read(std::span<char> room) {
    const std::size_t count = std::min(room.size(), rest_.size());
    std::copy_n(rest_.begin(), count, room.begin());
    rest_.remove_prefix(count);
    return count;
}

Descriptor::~Descriptor() {
    closeNow();
}

bool Descriptor::closeNow() {
    const int closing = std::exchange(number_, -1);
    return closing < 0 || ::close(closing) == 0;
}

std::unique_ptr<FileReader> FileReader::open(const std::filesystem::path &file) {
    // A pipe without a writer would hold up an ordinary opening.
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return nullptr;
    std::unique_ptr<FileReader> reader(new FileReader(descriptor));
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    return reader;
}

std::optional<std::size_t> FileReader::read(std::span<char> room) {
    ssize_t count = 0;
    do {
        count = ::read(descriptor_.number(), room.data(), room.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) return std::nullopt;
    return static_cast<std::size_t>(count);
}

std::unique_ptr<FileWriter> FileWriter::open(const std::filesystem::path &file) {
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, kNewFileMode);
    if (descriptor < 0) return nullptr;
    return std::unique_ptr<FileWriter>(new FileWriter(descriptor));
}

std::ptrdiff_t FileWriter::write(std::string_view bytes) {
    ssize_t count = 0;
    do {
        count = ::write(descriptor_.number(), bytes.data(), bytes.size());
    } while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace fm
