#include "support/FtpServers.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cstdlib>
#include <stdexcept>

namespace {

constexpr std::chrono::seconds kPatience{10};

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (std::string &text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

bool becomesReadable(int descriptor, std::chrono::milliseconds limit) {
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
}

/// The number behind the mark; 0 if there is none.
std::uint16_t portBehind(const std::string &mark, const std::string &line) {
    const std::size_t found = line.rfind(mark);
    if (found == std::string::npos) return 0;
    return static_cast<std::uint16_t>(std::atoi(line.c_str() + found + mark.size()));
}

}  // namespace

int connectTo(std::uint16_t port, int flags) {
    const sockaddr_in address = loopback(port);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return client;
}

Listener::Listener(int backlog) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    socklen_t size = sizeof address;
    if (bind(descriptor_, generic, size) != 0 || listen(descriptor_, backlog) != 0 ||
        getsockname(descriptor_, generic, &size) != 0)
        throw std::runtime_error("no listening socket on loopback");
    port_ = ntohs(address.sin_port);
}

ChildProcess::ChildProcess(std::vector<std::string> command, std::vector<std::string> environment) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    output_ = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    for (char **inherited = environ; *inherited; ++inherited)
        environment.emplace_back(*inherited);  // the first of a name counts
    const int error = posix_spawn(&id_, command.front().c_str(), &actions, nullptr,
                                  pointersTo(command).data(), pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) throw std::runtime_error("cannot start " + command.front());
}

ChildProcess::~ChildProcess() {
    if (!status_) {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    close(output_);
}

std::string ChildProcess::readLine() {
    while (unread_.find('\n') == std::string::npos) {
        char piece[512];
        if (!becomesReadable(output_, kPatience)) return {};
        const ssize_t count = read(output_, piece, sizeof piece);
        if (count <= 0) return {};
        unread_.append(piece, static_cast<std::size_t>(count));
    }
    const std::size_t end = unread_.find('\n');
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
}

void ChildProcess::sendSignal(int number) const {
    if (!status_) kill(id_, number);
}

std::optional<int> ChildProcess::waitForEnd(std::chrono::milliseconds limit) {
    if (status_) return status_;
    const int process = static_cast<int>(syscall(SYS_pidfd_open, id_, 0));
    const bool hasEnded = process >= 0 && becomesReadable(process, limit);
    close(process);
    int status = 0;
    if (hasEnded && waitpid(id_, &status, 0) == id_)
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
}

StorageProcess::StorageProcess(const std::vector<std::string> &options,
                               const std::vector<std::string> &environment) {
    mkdir((folder_.path() / "run").c_str(), 0700);
    process_ = startAnother(options, environment);
    port_ = portBehind("127.0.0.1:", process_->readLine());
}

std::unique_ptr<ChildProcess> StorageProcess::startAnother(const std::vector<std::string> &options,
                                                           std::vector<std::string> environment) const {
    std::vector<std::string> command{QUILLERY_STORAGE_SCRIPT};
    command.insert(command.end(), options.begin(), options.end());
    environment.push_back("XDG_DATA_HOME=" + (folder_.path() / "data").string());
    environment.push_back("XDG_RUNTIME_DIR=" + (folder_.path() / "run").string());
    return std::make_unique<ChildProcess>(command, environment);
}

RealFtpServer::RealFtpServer(const std::string &kind, bool demandsTls) {
    std::filesystem::create_directory(folder());
    std::vector<std::string> command = {QUILLERY_FTP_SERVER_SCRIPT, kind, folder()};
    if (demandsTls) command.insert(command.end(), {"--tls", certificateFile()});
    process_ = std::make_unique<ChildProcess>(command);
    const std::string line = process_->readLine();
    if (line.starts_with("skip ")) skipReason_ = line;
    port_ = portBehind("port ", line);
}
