#include "app/RescuedLists.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>
#include <vector>

#include "app/ClipList.h"
#include "platform/Descriptor.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kMeanwhile = ".unsaved";
constexpr std::size_t kLongestName = 120;  // bytes of a list's name that a copy's name shows

}  // namespace

RescuedLists::RescuedLists(fs::path folder, Tell tell) : folder_(std::move(folder)), tell_(std::move(tell)) {}

RescuedLists::~RescuedLists() {
    for (const auto &[path, descriptor] : meanwhile_) close(descriptor);
}

void RescuedLists::remember(const std::string &name, std::shared_ptr<const std::string> text,
                            bool isWritten) {
    const std::scoped_lock lock(mutex_);
    List &list = lists_[name];
    // From here on a copy would no longer hold all that the one before does.
    const bool isAnother = isWritten || !list.known || *list.known != *text;
    if (isAnother) list = {};
    list.known = std::move(text);
}

void RescuedLists::letGo(const std::string &name) {
    const std::scoped_lock lock(mutex_);
    lists_.erase(name);
}

bool RescuedLists::keep(const std::string &name, Reason reason) {
    const std::scoped_lock lock(mutex_);
    List &list = lists_[name];
    if (list.unsaved.empty() && (!list.known || list.known->empty())) return list.known != nullptr;
    if (!list.isKept || !files_.fileExistsAtPath(list.copy)) write(name, list, reason);
    return list.isKept;
}

bool RescuedLists::keepEntry(const std::string &name, std::string_view entry) {
    const std::scoped_lock lock(mutex_);
    List &list = lists_[name];
    list.unsaved = ClipList::withEntryInFront(entry, list.unsaved);
    write(name, list, Reason::kNotWritten);
    return list.isKept;
}

bool RescuedLists::keepBytes(const std::string &name, std::string_view bytes) {
    const std::scoped_lock lock(mutex_);
    List unread;
    unread.known = std::make_shared<const std::string>(bytes);
    write(name, unread, Reason::kNotRead);
    return unread.isKept;
}

void RescuedLists::write(const std::string &name, List &list, Reason reason) {
    try {
        list.isKept = false;
        makeFolder();
        const bool isNew = list.copy.empty();
        if (isNew) list.copy = newName(name);
        const std::string problem =
            files_.createFileAtPath(list.copy, list.unsaved + (list.known ? *list.known : std::string()));
        list.isKept = problem.empty();
        if (list.isKept) {
            removeOldest(list.copy);
            tell_(list.copy, reason);
        } else {
            std::fprintf(stderr, "Quillery: a copy could not be kept as %s: %s\n", list.copy.c_str(),
                         problem.c_str());
            std::error_code ignored;
            if (isNew) fs::remove(std::exchange(list.copy, {}), ignored);
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "Quillery: a copy of %s could not be kept: %s\n", name.c_str(), error.what());
    }
}

void RescuedLists::makeFolder() const {
    std::error_code ignored;
    fs::create_directories(folder_, ignored);
    chmod(folder_.c_str(), S_IRWXU);
}

fs::path RescuedLists::keepMeanwhile(const std::string &name, std::string_view text) {
    fs::path file = newName(name, kMeanwhile);
    int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        makeFolder();
        file = newName(name, kMeanwhile);
        descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    }
    if (descriptor < 0) return {};
    flock(descriptor, LOCK_EX | LOCK_NB);  // best effort: not every file system has locks
    // Not flushed to the disk: that would take longer than most ways to a server.
    if (!writeAll(descriptor, text)) {
        std::error_code ignored;
        fs::remove(file, ignored);
        close(descriptor);
        return {};
    }
    const std::scoped_lock lock(mutex_);
    meanwhile_[file] = descriptor;
    return file;
}

void RescuedLists::forget(const fs::path &meanwhile) {
    if (meanwhile.empty()) return;
    const std::scoped_lock lock(mutex_);
    std::error_code ignored;
    fs::remove(meanwhile, ignored);
    if (const auto held = meanwhile_.extract(meanwhile)) close(held.mapped());
}

void RescuedLists::stay(const fs::path &meanwhile, Reason reason) {
    if (meanwhile.empty()) return;
    const fs::path copy = renamedForGood(meanwhile);
    const std::scoped_lock lock(mutex_);
    if (const auto held = meanwhile_.extract(meanwhile)) close(held.mapped());
    if (!copy.empty()) removeOldest(copy);
    tell_(copy.empty() ? meanwhile : copy, reason);
}

void RescuedLists::settle(const fs::path &meanwhile, bool isSafe) {
    isSafe ? forget(meanwhile) : stay(meanwhile, Reason::kNotWritten);
}

bool RescuedLists::adoptLeftovers() {
    std::error_code error;
    std::vector<fs::path> leftovers;
    for (fs::directory_iterator it(folder_, error), end; !error && it != end; it.increment(error)) {
        if (it->path().extension() == kMeanwhile) leftovers.push_back(it->path());
    }
    fs::path latest;
    for (const fs::path &left : leftovers) {
        const int descriptor = open(left.c_str(), O_RDWR | O_CLOEXEC);
        if (descriptor < 0) continue;
        const bool isUsed = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        close(descriptor);
        if (isUsed) continue;  // its program runs
        if (fs::is_empty(left, error)) {
            fs::remove(left, error);
        } else if (const fs::path copy = renamedForGood(left); !copy.empty()) {
            latest = copy;
        }
    }
    if (!latest.empty()) removeOldest(latest);
    return !latest.empty();
}

// Under a name that stays; empty if that could not be.
fs::path RescuedLists::renamedForGood(const fs::path &meanwhile) const {
    fs::path name = fs::path(meanwhile).replace_extension();
    for (int number = 2;; ++number) {
        // Where the file system cannot rename so, nobody else is expected to take the name.
        if (renameat2(AT_FDCWD, meanwhile.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0 ||
            (errno == EINVAL && rename(meanwhile.c_str(), name.c_str()) == 0))
            return name;
        if (errno != EEXIST) return {};
        name = fs::path(meanwhile).replace_extension("." + std::to_string(number));
    }
}

// Dated; an empty file takes the name, so that no other program does.
fs::path RescuedLists::newName(const std::string &list, const char *ending) const {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%d-%H%M%S", &local);
    std::string what =
        list.substr(list.find_first_not_of('.') == std::string::npos ? 0 : list.find_first_not_of('.'));
    std::ranges::replace_if(
        what, [](unsigned char c) { return c < 0x20 || c == '/' || c == 0x7F; }, '_');
    if (what.size() > kLongestName) what.erase(0, what.size() - kLongestName);
    what += ending;
    for (int number = 1;; ++number) {
        std::string name = date.data();
        if (number > 1) (name += '-') += std::to_string(number);
        (name += '-') += what;
        const int taken =
            open((folder_ / name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (taken >= 0) close(taken);
        if (taken >= 0 || errno != EEXIST) return folder_ / name;
    }
}

void RescuedLists::removeOldest(const fs::path &latest) const {
    struct Copy {
        fs::file_time_type time;
        fs::path path;
        std::uintmax_t bytes;
    };
    std::vector<Copy> copies;
    std::error_code error;
    std::uintmax_t bytes = 0;
    for (fs::directory_iterator it(folder_, error), end; !error && it != end; it.increment(error)) {
        std::error_code gone;
        if (!it->is_regular_file(gone) || it->path().extension() == kMeanwhile) continue;
        copies.push_back({it->last_write_time(gone), it->path(), it->file_size(gone)});
        bytes += gone ? 0 : copies.back().bytes;
    }
    std::ranges::sort(copies, std::ranges::greater(), &Copy::time);
    while (copies.size() > 1 && (copies.size() > kMostFiles || bytes > kMostBytes)) {
        const Copy oldest = std::move(copies.back());
        copies.pop_back();
        if (oldest.path == latest) continue;
        bytes -= std::min(bytes, oldest.bytes);
        fs::remove(oldest.path, error);
    }
}
