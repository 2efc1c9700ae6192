#include "support/FtpServers.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

Listener::Listener(int backlog) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    socklen_t size = sizeof address;
    if (bind(descriptor_, generic, size) != 0 || listen(descriptor_, backlog) != 0 ||
        getsockname(descriptor_, generic, &size) != 0)
        throw std::runtime_error("no listening socket on loopback");
    port_ = ntohs(address.sin_port);
}

RealFtpServer::RealFtpServer(const std::string &kind, bool demandsTls) {
    std::filesystem::create_directory(folder());
    std::vector<std::string> command = {QUILLERY_FTP_SERVER_SCRIPT, kind, folder()};
    if (demandsTls) command.insert(command.end(), {"--tls", certificateFile()});
    std::vector<char *> arguments;
    for (std::string &argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execv(arguments[0], arguments.data());
        _exit(1);
    }
    close(ends[1]);
    std::string line;  // it comes within the script's own limit, or the script ends
    for (char c = 0; read(ends[0], &c, 1) == 1 && c != '\n';) line += c;
    close(ends[0]);
    if (line.starts_with("skip ")) skipReason_ = line;
    if (line.starts_with("port ")) port_ = static_cast<std::uint16_t>(std::atoi(line.c_str() + 5));
}

RealFtpServer::~RealFtpServer() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}
