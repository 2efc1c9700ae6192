#include "FTPManager/Transfer.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
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
/// The most that libcurl takes; a large download is twice as fast as with its default.
constexpr long kReceiveBufferBytes = 512 * 1024;
/// Still in the processor's cache when it is sent; more is slower.
constexpr long kSendBufferBytes = 48 * 1024;
/// Where so much has come since the last wait, more is about to. A pause lets it gather: waking up for every
/// piece costs this side time, and the server on the same machine as well.
constexpr std::uint64_t kStreamingBytes = 64 * 1024;
constexpr std::chrono::microseconds kGatheringPause{10};  // and what the system adds, some 50 µs
/// Once the server has accepted the connection, only silence counts.
constexpr long kNoLimitMs = 24L * 60 * 60 * 1000;

long wholeSecondsUp(milliseconds duration) {
    return static_cast<long>(std::chrono::ceil<std::chrono::seconds>(duration).count());
}

std::string urlOfServer(const FTPAddress &address) {
    return address.url.substr(0, address.url.find('/', std::string_view("ftp://").size()));
}

std::string poolKey(const FTPAddress &address) {
    std::string key = urlOfServer(address);  // a NUL stands in none of the parts
    for (const auto &part : {address.user, address.password}) {
        key += '\0';
        if (part) key += "=" + *part;
    }
    return key;
}

/// The reply "service not available, closing control connection".
constexpr long kServerClosesDown = 421;
/// Behind these replies to AUTH both sides encrypt.
constexpr long kAuthAccepted = 234;
constexpr long kAuthAcceptedByOldServers = 334;

std::optional<std::uint64_t> leadingNumber(std::string_view text) {
    std::uint64_t number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) return {};
    return number;
}

/// The code of a reply's last line; nothing for the lines before it.
std::optional<long> codeOfReply(std::string_view line) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (line.size() < 4 || line[3] != ' ' || !std::ranges::all_of(line.substr(0, 3), isDigit)) return {};
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

/// How many bytes the server is about to send, from "Opening BINARY mode data connection for NAME (N
/// bytes).". In any other words, and of a text that is converted on the way, a number means something else.
std::optional<std::uint64_t> sizeInOpening(std::string_view text) {
    constexpr std::string_view kEnd = " bytes)";
    while (!text.empty() && std::string_view("\r\n. ").find(text.back()) != std::string_view::npos)
        text.remove_suffix(1);
    const std::size_t open = text.rfind('(');
    if (!text.starts_with("Opening BINARY mode data connection for ") || !text.ends_with(kEnd) ||
        open == std::string_view::npos)
        return {};
    const std::string_view digits = text.substr(open + 1, text.size() - kEnd.size() - open - 1);
    if (digits.find_first_not_of("0123456789") != std::string_view::npos) return {};
    return leadingNumber(digits);
}

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

/// The same where the server resets the encrypted data connection along with its refusal: libcurl takes that
/// for a failed EPSV, asks for PASV, and the refusal for the answer. No server answers PASV so.
bool isRefusalTakenForPasv(CURLcode result, long reply) {
    constexpr long kNoSuchFile = 550;
    return result == CURLE_FTP_WEIRD_PASV_REPLY && reply == kNoSuchFile;
}

}  // namespace

Transfer::Transfer(const FTPTransport &transport, TransferTask task)
    : transport_(transport), task_(std::move(task)) {}

Transfer::~Transfer() {
    releaseConnection(false);
}

std::unique_ptr<Connection> Transfer::connect() {
    const bool provesLogin = task_.kind == TransferTask::Kind::kCommand && task_.commands.empty();
    ConnectionPool &pool = transport_.pool();
    const std::string key = poolKey(task_.address);
    if (std::exchange(needsNewConnection_, false)) {
        // What has cut one off or made it silent has done so to the others.
        pool.closeIdle(key);
        return pool.makeNew(key, task_.address.port);
    }
    return provesLogin ? pool.makeNew(key, task_.address.port) : pool.checkOut(key, task_.address.port);
}

bool Transfer::begin() {
    std::unique_ptr<Connection> connection = connect();
    if (!connection) return false;
    controlConnectionsBefore_ = connection->controlConnectionsOpened();
    controlBytesBefore_ = connection->controlBytesReceived();
    setOptions(connection->freshEasy());
    setTask(connection->easy());
    connection->setDataIsWhole(task_.kind != TransferTask::Kind::kStore);
    announcedSize_.reset();
    hasDataAddress_ = false;
    bytesReceived_ = bytesReceivedAtLastWait_ = 0;
    isAnswered_ = false;
    const SocketActivity activity = connection->activity();
    isEstablished_ = activity.established;
    bytesMovedAtLastCheck_ = activity.bytesMoved;
    begunAt_ = lastCheck_ = lastActivity_ = Clock::now();
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

    set(CURLOPT_URL, task_.address.url.c_str());
    if (task_.address.user) set(CURLOPT_USERNAME, task_.address.user->c_str());
    if (task_.address.password) set(CURLOPT_PASSWORD, task_.address.password->c_str());
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
}

void Transfer::setTask(CURL *easy) {
    const auto set = [easy](CURLoption option, auto value) { curl_easy_setopt(easy, option, value); };
    // Sent once a relative path means what it says; a refusal of the "*" costs no connection.
    const auto setCommands = [&](const std::vector<std::string> &commands) {
        commands_.reset();
        for (const std::string &command : commands)
            commands_.reset(curl_slist_append(commands_.release(), ("*" + command).c_str()));
        set(CURLOPT_PREQUOTE, commands_.get());
    };

    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_HEADERFUNCTION, &Transfer::onReply);
    switch (task_.kind) {
        case TransferTask::Kind::kStore:
            set(CURLOPT_UPLOAD, 1L);
            set(CURLOPT_READDATA, this);
            set(CURLOPT_READFUNCTION, &Transfer::onRead);
            return;
        case TransferTask::Kind::kCommand:
            set(CURLOPT_URL, urlOfServer(task_.address).c_str());
            set(CURLOPT_NOBODY, 1L);
            // A line that the server must not get twice is sent over a connection that is seen to live.
            if (!task_.mayRepeat && controlConnectionsBefore_ > 0) {
                std::vector<std::string> commands = task_.commands;
                commands.insert(commands.begin(), "NOOP");
                setCommands(commands);
            } else {
                setCommands(task_.commands);
            }
            return;
        case TransferTask::Kind::kList:
            // From within the folder: many servers take "LIST -a folder" for two names, and list a folder
            // that is not there as an empty one.
            set(CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_SINGLECWD));
            if (!listsPlainly_) set(CURLOPT_CUSTOMREQUEST, "LIST -a");
            break;
        case TransferTask::Kind::kRetrieve:
            // libcurl itself must not know the size: it would stop there, and servers may get it wrong.
            if (task_.asksSize) setCommands({"SIZE " + task_.address.path});
            break;
    }
    set(CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Transfer::onWrite);
}

Transfer::Status Transfer::step() {
    if (status_ != Status::kRunning) return status_;
    if (!guard_) guard_.emplace();
    if (!isAttached_ && !begin()) {
        releaseConnection(false);
        guard_.reset();
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

Transfer::Status Transfer::runToEnd() {
    while (step() == Status::kRunning) {
    }
    return status_;
}

void Transfer::waitForEvents() {
    const std::uint64_t came = bytesReceived_ - std::exchange(bytesReceivedAtLastWait_, bytesReceived_);
    if (came >= kStreamingBytes) {
        std::this_thread::sleep_for(kGatheringPause);
        return;
    }
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
    const TransportLimits &limits = transport_.options().limits;
    isAnswered_ |= connection_->controlBytesReceived() > controlBytesBefore_;
    if (isReused() && !isAnswered_ && now - begunAt_ > std::min(limits.reuseTimeout, limits.idleTimeout))
        return true;
    return isEstablished_ && now - lastActivity_ > limits.idleTimeout;
}

Transfer::Status Transfer::attemptEnded(CURLcode result) {
    long reply = 0;
    curl_easy_getinfo(connection_->easy(), CURLINFO_RESPONSE_CODE, &reply);
    if (isInterrupted()) result = CURLE_ABORTED_BY_CALLBACK;
    const bool retry = shouldRetry(result, reply);
    const bool listPlainly = shouldListPlainly(result, reply);
    const bool isFineLine = result == CURLE_OK || (isRefusal(result, reply) && !isInterrupted());
    const bool fulfilled = result == CURLE_OK && isFulfilled(reply);
    if (result == CURLE_OK) replyToCommand_ = reply;
    const bool isRefused = (isRefusal(result, reply) && reply >= 500) || isRefusalTakenForPasv(result, reply);
    isRefusedForGood_ = isRefused && !hasBegun_ && !isInterrupted();
    releaseConnection(isFineLine && mayStayOpen());
    if (!retry && !listPlainly) guard_.reset();
    if (retry || listPlainly) {
        hadRetry_ |= retry;
        needsNewConnection_ = retry;
        listsPlainly_ |= listPlainly;
        hasBegun_ = false;
        return status_;
    }
    return status_ = fulfilled ? Status::kCompleted : Status::kFailed;
}

bool Transfer::isFulfilled(long reply) const {
    const bool isConfirmed = reply >= 200 && reply < 300;
    switch (task_.kind) {
        case TransferTask::Kind::kCommand:
            return task_.commands.empty() || isConfirmed;
        case TransferTask::Kind::kRetrieve:
            return !announcedSize_ || bytesReceived_ >= *announcedSize_;
        case TransferTask::Kind::kList:
            return isConfirmed;  // libcurl takes a 450 for an empty folder
        case TransferTask::Kind::kStore:
            return true;
    }
    return false;
}

/// A server that knows no "-a" refuses it or looks for a file of that name. One that knows it lists the
/// folder itself at least.
bool Transfer::shouldListPlainly(CURLcode result, long reply) const {
    if (task_.kind != TransferTask::Kind::kList || listsPlainly_ || bytesReceived_ > 0) return false;
    return result == CURLE_OK || (result == CURLE_FTP_COULDNT_RETR_FILE && isRefusal(result, reply));
}

/// Whether libcurl will find its way back to the login folder, to which all other paths are relative.
bool Transfer::mayStayOpen() const {
    if (task_.kind != TransferTask::Kind::kList) return true;
    const char *loginFolder = nullptr;
    curl_easy_getinfo(connection_->easy(), CURLINFO_FTP_ENTRY_PATH, &loginFolder);
    return loginFolder != nullptr;
}

bool Transfer::isReused() const {
    return controlConnectionsBefore_ > 0 &&
           connection_->controlConnectionsOpened() == controlConnectionsBefore_;
}

/// A server may close a connection that was idle, and may say so only when the next command arrives; a router
/// may forget it, and never says so.
bool Transfer::shouldRetry(CURLcode result, long reply) const {
    if (result == CURLE_OK || !isReused() || hasBegun_ || hadRetry_ || isInterrupted()) return false;
    // libcurl reports a server's closing down as a time-out, too.
    if (result == CURLE_OPERATION_TIMEDOUT) return reply == kServerClosesDown || !isAnswered_;
    return !isRefusal(result, reply) && !isRefusalTakenForPasv(result, reply);
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
    if (keepWarm && !released->hasUnexpectedInput() && !released->hasUnreadReply())
        transport_.pool().giveBack(std::move(released));
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
        transfer.hasBegun_ = true;
        const std::optional<std::size_t> filled = transfer.task_.source({room, size * count});
        if (!filled || transfer.isInterrupted()) return CURL_READFUNC_ABORT;
        // A server that has already answered, before it has the whole file, means something else.
        if (*filled == 0 && transfer.connection_->hasUnreadReply()) return CURL_READFUNC_ABORT;
        transfer.connection_->setDataIsWhole(*filled == 0);
        return *filled;
    } catch (...) {
        return CURL_READFUNC_ABORT;
    }
}

std::size_t Transfer::onWrite(char *bytes, std::size_t size, std::size_t count, void *self) {
    auto &transfer = *static_cast<Transfer *>(self);
    try {
        if (transfer.isInterrupted()) return 0;
        transfer.hasBegun_ = true;
        transfer.bytesReceived_ += size * count;
        return transfer.task_.sink({bytes, size * count}) ? size * count : 0;
    } catch (...) {
        return 0;
    }
}

std::size_t Transfer::onReply(char *line, std::size_t size, std::size_t count, void *self) {
    try {
        auto &transfer = *static_cast<Transfer *>(self);
        transfer.connection_->countReply(size * count);
        return transfer.noteReply({line, size * count}) ? size * count : 0;
    } catch (...) {
        return 0;
    }
}

/// False if the connection is not to be used further.
bool Transfer::noteReply(std::string_view line) {
    isAnswered_ = true;
    const std::optional<long> code = codeOfReply(line);
    if (!code || *code < 200) connection_->acknowledgeReply();  // more is to come without being asked for
    if (code) {
        const bool isCommand = task_.kind == TransferTask::Kind::kCommand;
        // More than the answer: taken for the answer to what is sent next, it would be a false one.
        const bool isToBeFollowed = *code >= 200 && (isCommand || !hasBegun_);
        if (isToBeFollowed && connection_->hasUnreadReply()) return false;
        if (*code == kAuthAccepted || *code == kAuthAcceptedByOldServers) connection_->noteEncrypted();
        // The next line is one that the server must not get twice.
        if (isCommand && !task_.mayRepeat && *code != kServerClosesDown && isReused()) hasBegun_ = true;
    }
    noteOpening(line);
    return true;
}

void Transfer::noteOpening(std::string_view line) {
    // What a server says before that answers something else, if anything.
    hasDataAddress_ |= line.starts_with("229 ") || line.starts_with("227 ");
    if (!hasDataAddress_) return;
    if (task_.asksSize && line.starts_with("213 ")) announcedSize_ = leadingNumber(line.substr(4));
    if (hasBegun_ || !(line.starts_with("150 ") || line.starts_with("125 "))) return;
    hasBegun_ = true;
    if (task_.kind == TransferTask::Kind::kRetrieve)
        announcedSize_ = std::max(announcedSize_, sizeInOpening(line.substr(4)));
    if (task_.opened) task_.opened(announcedSize_);
}

int Transfer::onProgress(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Transfer *>(self)->isInterrupted() ? 1 : 0;
}

}  // namespace fm
