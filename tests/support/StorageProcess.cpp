#include "support/StorageProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace {

constexpr std::chrono::seconds kPatience{10};

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

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &command,
                           const std::vector<std::string> &environment) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    output_ = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = environment;  // the first of a name counts
    for (char **inherited = environ; *inherited; ++inherited) variables.emplace_back(*inherited);
    const int error = posix_spawn(&id_, command.front().c_str(), &actions, nullptr,
                                  pointersTo(arguments).data(), pointersTo(variables).data());
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

std::optional<std::string> ChildProcess::readLine() {
    while (unread_.find('\n') == std::string::npos) {
        char piece[512];
        if (!becomesReadable(output_, kPatience)) return std::nullopt;
        const ssize_t count = read(output_, piece, sizeof piece);
        if (count <= 0) return std::nullopt;
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

StorageProcess::StorageProcess(const std::vector<std::string> &options) {
    mkdir((folder_.path() / "run").c_str(), 0700);
    process_ = startAnother(options);
    const std::string announcement = process_->readLine().value_or("");
    const std::size_t colon = announcement.rfind(':');
    if (announcement.starts_with("Serving ") && colon != std::string::npos)
        port_ = static_cast<std::uint16_t>(std::strtol(announcement.c_str() + colon + 1, nullptr, 10));
}

std::unique_ptr<ChildProcess> StorageProcess::startAnother(const std::vector<std::string> &options) const {
    std::vector<std::string> command{QUILLERY_STORAGE_SCRIPT};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(
        command, std::vector<std::string>{"XDG_DATA_HOME=" + (folder_.path() / "data").string(),
                                          "XDG_RUNTIME_DIR=" + (folder_.path() / "run").string()});
}
