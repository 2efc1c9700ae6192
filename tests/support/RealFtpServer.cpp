#include "support/RealFtpServer.h"

#include <cstdlib>
#include <vector>

RealFtpServer::RealFtpServer(const std::string &kind, Tls tls) {
    std::vector<std::string> command = {QUILLERY_FTP_SERVER_SCRIPT, kind, folder_.path()};
    if (tls == Tls::kOffered) command.emplace_back("--tls-optional");
    if (tls == Tls::kDemanded) command.emplace_back("--tls");
    process_ = std::make_unique<ChildProcess>(command, std::vector<std::string>{});
    const std::string line = process_->readLine().value_or("");
    if (line.starts_with("skip ")) skipReason_ = line;
    if (!line.starts_with("port ")) return;
    if (tls != Tls::kOff) {
        const std::string certificate = process_->readLine().value_or("");
        certificateFile_ = certificate.substr(std::min(certificate.size(), certificate.find(' ') + 1));
    }
    port_ = static_cast<std::uint16_t>(std::strtol(line.c_str() + line.find(' '), nullptr, 10));
}
