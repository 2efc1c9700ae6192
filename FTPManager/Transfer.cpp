#include "FTPManager/Transfer.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace fm {

namespace {

using std::chrono::milliseconds;

/// libcurl's own wait often sleeps through the end of a small transfer, so it is kept short while things
/// happen.
constexpr milliseconds kShortestWait{1};
constexpr milliseconds kLongestWait{100};
/// How often the sockets are asked whether they have moved anything.
constexpr milliseconds kCheckInterval{50};
/// The most that libcurl takes; a large transfer is twice as fast as with its defaults.
constexpr long kReceiveBufferBytes = 512 * 1024;
constexpr long kSendBufferBytes = 2 * 1024 * 1024;
/// Once the server has accepted the connection, only silence counts.
constexpr long kNoLimitMs = 24L * 60 * 60 * 1000;

long wholeSecondsUp(milliseconds duration) {
    return static_cast<long>(std::chrono::ceil<std::chrono::seconds>(duration).count());
}

std::string poolKey(const FTPAddress &address) {
    // Everything but the path; a NUL stands in none of the parts.
    const std::size_t pathStart = address.url.find('/', std::string_view("ftp://").size());
    std::string key = address.url.substr(0, pathStart);
    for (const auto &part : {address.user, address.password}) {
        key += '\0';
        if (part) key += "=" + *part;
    }
    return key;
}

/// The reply "service not available, closing control connection".
constexpr long kServerClosesDown = 421;

/// Whether the server has answered this very request with a refusal: the connection is fine then.
bool isRefusal(CURLcode result, long reply) {
    switch (result) {
        case CURLE_LOGIN_DENIED:
        case CURLE_REMOTE_ACCESS_DENIED:
        case CURLE_REMOTE_FILE_NOT_FOUND:
        case CURLE_FTP_COULDNT_RETR_FILE:
        case CURLE_UPLOAD_FAILED:
            return reply >= 400 && reply < 600 && reply != kServerClosesDown;
        default:
            return false;
    }
}

}  // namespace

Transfer::Transfer(const FTPTransport &transport, FTPAddress address, TransferEnds ends)
    : transport_(transport), address_(std::move(address)), ends_(std::move(ends)) {}

Transfer::~Transfer() {
    releaseConnection(false);
}

bool Transfer::begin() {
    std::unique_ptr<Connection> connection = transport_.pool().checkOut(poolKey(address_), address_.port);
    if (!connection) return false;
    setOptions(connection->freshEasy());
    connection->setDataIsWhole(ends_.direction == TransferEnds::Direction::kDownload);
    controlConnectionsBefore_ = connection->controlConnectionsOpened();
    const SocketActivity activity = connection->activity();
    isEstablished_ = activity.established;
    bytesMovedAtLastCheck_ = activity.bytesMoved;
    lastCheck_ = lastActivity_ = Clock::now();
    wait_ = kShortestWait;
    {
        const std::scoped_lock lock(connectionMutex_);
        if (isInterrupted_) {
            transport_.pool().giveBack(std::move(connection));
            return false;
        }
        connection_ = std::move(connection);
    }
    isAttached_ = curl_multi_add_handle(connection_->multi(), connection_->easy()) == CURLM_OK;
    return isAttached_;
}

void Transfer::setOptions(CURL *easy) {
    const TransportOptions &options = transport_.options();
    const auto set = [easy](CURLoption option, auto value) { curl_easy_setopt(easy, option, value); };

    set(CURLOPT_URL, address_.url.c_str());
    if (address_.user) set(CURLOPT_USERNAME, address_.user->c_str());
    if (address_.password) set(CURLOPT_PASSWORD, address_.password->c_str());
    set(CURLOPT_PROTOCOLS_STR, "ftp");
    set(CURLOPT_PROXY, "");
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
    set(CURLOPT_BUFFERSIZE, kReceiveBufferBytes);
    set(CURLOPT_UPLOAD_BUFFERSIZE, kSendBufferBytes);

    set(CURLOPT_NOSIGNAL, 1L);
    // A look-up of a name that hangs is left to itself when the transfer is given up.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.limits.connectTimeout.count()));
    set(CURLOPT_SERVER_RESPONSE_TIMEOUT, wholeSecondsUp(options.limits.idleTimeout));
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);

    if (options.tls != TlsMode::kOff) {
        set(CURLOPT_USE_SSL,
            static_cast<long>(options.tls == TlsMode::kTry ? CURLUSESSL_TRY : CURLUSESSL_ALL));
        // Resuming a session on the data connection, which servers may demand, works up to this version.
        set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_2);
        if (!options.caFile.empty()) set(CURLOPT_CAINFO, options.caFile.c_str());
    }

    if (ends_.direction == TransferEnds::Direction::kUpload) {
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_READDATA, this);
        set(CURLOPT_READFUNCTION, &Transfer::onRead);
    } else {
        // Without asking for a size, which some servers get wrong: the file ends where its connection ends.
        set(CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_WRITEFUNCTION, &Transfer::onWrite);
    }
}

Transfer::Status Transfer::step() {
    if (status_ != Status::kRunning) return status_;
    const SigpipeGuard guard;
    if (!isAttached_ && !begin()) {
        releaseConnection(false);
        return status_ = Status::kFailed;
    }
    int running = 0;
    if (curl_multi_perform(connection_->multi(), &running) != CURLM_OK)
        return attemptEnded(CURLE_FAILED_INIT);
    int messagesLeft = 0;
    while (const CURLMsg *message = curl_multi_info_read(connection_->multi(), &messagesLeft)) {
        if (message->msg == CURLMSG_DONE) return attemptEnded(message->data.result);
    }
    if (isInterrupted()) return attemptEnded(CURLE_ABORTED_BY_CALLBACK);
    if (isDead()) return attemptEnded(CURLE_OPERATION_TIMEDOUT);
    waitForEvents();
    return status_;
}

void Transfer::waitForEvents() {
    int events = 0;
    curl_multi_poll(connection_->multi(), nullptr, 0, static_cast<int>(wait_.count()), &events);
    wait_ = events > 0 ? kShortestWait : std::min(wait_ * 2, kLongestWait);
}

bool Transfer::isDead() {
    const Clock::time_point now = Clock::now();
    if (now - lastCheck_ < kCheckInterval) return false;
    lastCheck_ = now;
    const SocketActivity activity = connection_->activity();
    if (activity.bytesMoved != bytesMovedAtLastCheck_ || (activity.established && !isEstablished_)) {
        bytesMovedAtLastCheck_ = activity.bytesMoved;
        lastActivity_ = now;
    }
    if (activity.established && !isEstablished_) {
        isEstablished_ = true;
        curl_easy_setopt(connection_->easy(), CURLOPT_CONNECTTIMEOUT_MS, kNoLimitMs);
    }
    return isEstablished_ && now - lastActivity_ > transport_.options().limits.idleTimeout;
}

Transfer::Status Transfer::attemptEnded(CURLcode result) {
    long reply = 0;
    curl_easy_getinfo(connection_->easy(), CURLINFO_RESPONSE_CODE, &reply);
    if (isInterrupted()) result = CURLE_ABORTED_BY_CALLBACK;
    const bool retry = shouldRetry(result, reply);
    releaseConnection(result == CURLE_OK || (isRefusal(result, reply) && !isInterrupted()));
    if (retry) {
        hadRetry_ = true;
        return status_;
    }
    return status_ = result == CURLE_OK ? Status::kCompleted : Status::kFailed;
}

/// A server may close a connection that was idle, and may say so only when the next command arrives.
bool Transfer::shouldRetry(CURLcode result, long reply) const {
    const bool wasReused =
        controlConnectionsBefore_ > 0 && connection_->controlConnectionsOpened() == controlConnectionsBefore_;
    if (result == CURLE_OK || !wasReused || movedAnyByte_ || hadRetry_ || isInterrupted()) return false;
    // libcurl reports a server's closing down as a time-out, too.
    if (result == CURLE_OPERATION_TIMEDOUT) return reply == kServerClosesDown;
    return !isRefusal(result, reply);
}

void Transfer::releaseConnection(bool keepWarm) {
    if (!connection_) return;
    const SigpipeGuard guard;
    if (isAttached_) curl_multi_remove_handle(connection_->multi(), connection_->easy());
    isAttached_ = false;
    std::unique_ptr<Connection> released;
    {
        const std::scoped_lock lock(connectionMutex_);
        released = std::move(connection_);
        keepWarm = keepWarm && !isInterrupted_;
    }
    if (keepWarm && !released->hasUnexpectedInput()) transport_.pool().giveBack(std::move(released));
}

void Transfer::interrupt() noexcept {
    const std::scoped_lock lock(connectionMutex_);
    isInterrupted_ = true;
    if (connection_) connection_->interrupt();
}

bool Transfer::isInterrupted() const {
    const std::scoped_lock lock(connectionMutex_);
    return isInterrupted_;
}

std::size_t Transfer::onRead(char *room, std::size_t size, std::size_t count, void *self) {
    auto &transfer = *static_cast<Transfer *>(self);
    try {
        if (transfer.isInterrupted()) return CURL_READFUNC_ABORT;
        transfer.movedAnyByte_ = true;
        const std::optional<std::size_t> filled = transfer.ends_.source({room, size * count});
        if (!filled || transfer.isInterrupted()) return CURL_READFUNC_ABORT;
        transfer.connection_->setDataIsWhole(*filled == 0);
        return *filled;
    } catch (const std::exception &) {
        return CURL_READFUNC_ABORT;
    }
}

std::size_t Transfer::onWrite(char *bytes, std::size_t size, std::size_t count, void *self) {
    auto &transfer = *static_cast<Transfer *>(self);
    try {
        transfer.movedAnyByte_ = true;
        return transfer.ends_.sink({bytes, size * count}) ? size * count : 0;
    } catch (const std::exception &) {
        return 0;
    }
}

int Transfer::onProgress(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Transfer *>(self)->isInterrupted() ? 1 : 0;
}

}  // namespace fm
