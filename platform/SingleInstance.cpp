#include "platform/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/UserFolders.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestRequest = 64;
constexpr int kWaitingCallers = 16;
constexpr std::size_t kMostCallers = 32;
// Until a caller that could not be taken, for lack of descriptors, is looked at again.
constexpr std::chrono::milliseconds kAcceptPause{200};
/// A program that is just starting has its lock before its socket.
constexpr std::chrono::seconds kStartLimit{10};
constexpr const char *kDoesNotAnswer = "the Quillery that runs does not answer";

// One file name for each display: ":0" and ":0.0" are the same one.
std::string displayName() {
    const auto variable = [](const char *name) {
        const char *value = std::getenv(name);
        return std::string(value ? value : "");
    };
    std::string name = variable("WAYLAND_DISPLAY");
    if (name.empty()) {
        name = variable("DISPLAY");
        const auto screen = name.find('.', name.rfind(':') == std::string::npos ? 0 : name.rfind(':'));
        if (screen != std::string::npos) name.resize(screen);
    }
    std::replace(name.begin(), name.end(), '/', '-');
    return name;
}

// Nothing if there is no folder that only this user can use.
std::optional<std::string> runtimeFile(const std::string &suffix) {
    const auto folder = runtimeFolder();
    if (!folder) return std::nullopt;
    return (*folder / ("instance" + displayName() + suffix)).string();
}

int openLock(int flags) {
    const auto path = runtimeFile(".lock");
    return path ? open(path->c_str(), flags | O_CLOEXEC, 0600) : -1;
}

std::optional<sockaddr_un> socketAddress() {
    const std::string path = runtimeFile("").value_or("");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return std::nullopt;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

bool sendAll(int descriptor, const std::string &text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t sent = ::send(descriptor, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

// Up to its end.
std::string readToEnd(int descriptor) {
    std::string text;
    char piece[256];
    for (;;) {
        const ssize_t count = ::read(descriptor, piece, sizeof piece);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(piece, static_cast<std::size_t>(count));
    }
}

// For reading (SO_RCVTIMEO), or for connecting and writing (SO_SNDTIMEO); none where it is zero.
void setLimit(int descriptor, int option, std::chrono::seconds limit) {
    const timeval time{.tv_sec = limit.count(), .tv_usec = 0};
    setsockopt(descriptor, SOL_SOCKET, option, &time, sizeof time);
}

// Whether the other end is a process of this user.
bool isOurs(int connection) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

bool isRunning() {
    const int descriptor = openLock(O_RDONLY);
    if (descriptor < 0) return false;
    const bool isFree = flock(descriptor, LOCK_SH | LOCK_NB) == 0;
    close(descriptor);
    return !isFree;
}

}  // namespace

// A process that has asked something; its connection.
struct SingleInstance::Caller {
    explicit Caller(int connection) : descriptor(connection), readable(connection, QSocketNotifier::Read) {}
    ~Caller() {
        if (descriptor >= 0) close(descriptor);
    }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    int descriptor;
    QSocketNotifier readable;
    QTimer silence;
    std::string request;
    bool isAnswered = false;  // and waits for this program's end, or does not care to go
};

SingleInstance::~SingleInstance() {
    // Whoever waits for the end waits for that of the process, which closes these.
    for (const auto &caller : callers_) caller->descriptor = -1;
    if (socket_ >= 0) {
        if (const auto address = socketAddress()) unlink(address->sun_path);
        close(socket_);
    }
    if (lock_ >= 0) close(lock_);
}

SingleInstance::Claim SingleInstance::claim() {
    lock_ = openLock(O_RDWR | O_CREAT);
    if (lock_ < 0) return Claim::kUnknown;
    if (flock(lock_, LOCK_EX | LOCK_NB) == 0) return Claim::kIsTheOne;
    const bool isHeld = errno == EWOULDBLOCK;
    close(lock_);
    lock_ = -1;
    return isHeld ? Claim::kIsSecond : Claim::kUnknown;
}

bool SingleInstance::listen(Handler handler, std::chrono::milliseconds silence) {
    silence_ = silence;
    handler_ = std::move(handler);
    const auto address = socketAddress();
    if (!address || lock_ < 0) return false;
    unlink(address->sun_path);  // of one that was killed
    socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket_ < 0) return false;
    if (bind(socket_, reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0 ||
        ::listen(socket_, kWaitingCallers) != 0) {
        close(socket_);
        socket_ = -1;
        return false;
    }
    newcomers_ = std::make_unique<QSocketNotifier>(socket_, QSocketNotifier::Read);
    connect(newcomers_.get(), &QSocketNotifier::activated, this, &SingleInstance::accept);
    return true;
}

void SingleInstance::accept() {
    const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection < 0) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
        // It stays readable all the while.
        newcomers_->setEnabled(false);
        QTimer::singleShot(kAcceptPause, this, &SingleInstance::acceptUnlessFull);
        return;
    }
    if (!isOurs(connection)) {
        close(connection);
        return;
    }
    const auto caller = std::make_shared<Caller>(connection);
    if (const auto answered = firstAnswered(); callers_.size() >= kMostCallers && answered != callers_.end())
        drop(**answered);
    callers_.push_back(caller);
    connect(&caller->readable, &QSocketNotifier::activated, this,
            [this, caller = caller.get()] { read(*caller); });
    caller->silence.setSingleShot(true);
    connect(&caller->silence, &QTimer::timeout, this, [this, caller = caller.get()] { drop(*caller); });
    caller->silence.start(silence_);
    acceptUnlessFull();
}

void SingleInstance::acceptUnlessFull() {
    newcomers_->setEnabled(callers_.size() < kMostCallers || firstAnswered() != callers_.end());
}

auto SingleInstance::firstAnswered() const -> std::vector<std::shared_ptr<Caller>>::const_iterator {
    return std::ranges::find_if(callers_, [](const auto &caller) { return caller->isAnswered; });
}

void SingleInstance::read(Caller &caller) {
    char piece[kLongestRequest];
    const ssize_t count = ::read(caller.descriptor, piece, sizeof piece);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count > 0) caller.request.append(piece, static_cast<std::size_t>(count));
    const std::size_t end = caller.request.find('\n');
    if (end == std::string::npos) {
        if (count <= 0 || caller.request.size() > kLongestRequest) drop(caller);
        return;
    }
    caller.readable.setEnabled(false);
    caller.silence.stop();
    caller.isAnswered = false;
    const auto found =
        std::find_if(callers_.begin(), callers_.end(), [&](const auto &one) { return one.get() == &caller; });
    const std::weak_ptr<Caller> asking = *found;
    handler_(caller.request.substr(0, end), [this, asking](const Answer &answer) {
        // The connection stays until this program ends, or the other one has had enough.
        const auto still = asking.lock();
        if (!still) return;
        sendAll(still->descriptor, std::to_string(answer.status) + answer.words + "\n");
        still->request.clear();
        still->isAnswered = true;
        still->readable.setEnabled(true);
        acceptUnlessFull();
    });
}

void SingleInstance::drop(const Caller &caller) {
    const auto found =
        std::find_if(callers_.begin(), callers_.end(), [&](const auto &one) { return one.get() == &caller; });
    if (found == callers_.end()) return;
    // Within a signal of its own notifier.
    const std::shared_ptr<Caller> leaving = *found;
    callers_.erase(found);
    leaving->readable.setEnabled(false);
    leaving->silence.stop();
    acceptUnlessFull();
    QMetaObject::invokeMethod(
        this, [leaving] {}, Qt::QueuedConnection);
}

std::optional<SingleInstance::Answer> SingleInstance::send(const std::string &request,
                                                           std::chrono::seconds limit, bool untilItEnds) {
    const auto address = socketAddress();
    if (!address) return std::nullopt;
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0) return std::nullopt;
    const auto end = std::chrono::steady_clock::now() + kStartLimit;
    setLimit(connection, SO_SNDTIMEO, kStartLimit);  // it may have too many callers already
    while (::connect(connection, reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0) {
        const bool isThere = isRunning();
        if (!isThere || std::chrono::steady_clock::now() > end) {
            close(connection);
            if (!isThere) return std::nullopt;
            return Answer{Answer::kFailed, kDoesNotAnswer};
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::string text;
    bool isInTime = true;
    if (isOurs(connection) && sendAll(connection, request + "\n")) {
        setLimit(connection, SO_RCVTIMEO, limit);
        char byte = 0;
        ssize_t count = 0;
        while ((count = ::read(connection, &byte, 1)) == 1 && byte != '\n') text += byte;
        isInTime = count >= 0 || errno != EAGAIN;
        setLimit(connection, SO_RCVTIMEO, std::chrono::seconds::zero());
        if (untilItEnds && isInTime) {
            readToEnd(connection);
            // It may have given this caller's place to another one.
            while (isRunning()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    close(connection);
    if (!isInTime) return Answer{Answer::kFailed, kDoesNotAnswer};
    std::size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
    if (digits == 0) return std::nullopt;
    return Answer{std::atoi(text.substr(0, digits).c_str()), text.substr(digits)};
}
