#include "FTPManager/FTPManager.h"

#include <system_error>
#include <utility>

#include "FTPManager/FTPOperations.h"
#include "FTPManager/LocalFile.h"
#include "FTPManager/Log.h"

FTPManager::FTPManager() : FTPManager(std::make_shared<FTPTransport>()) {}

FTPManager::FTPManager(std::shared_ptr<FTPTransport> transport)
    : operations_(std::make_unique<Operations>(std::move(transport), delegate)) {}

FTPManager::~FTPManager() = default;

bool FTPManager::_checkFMServer(const FMServer *server) const {
    if (!server) {
        fm::log("FMServer check failed: server cannot be nil");
        return false;
    }
    bool passed = true;
    const auto check = [&passed](bool rule, std::string_view failure) {
        if (!rule) fm::log(failure);
        passed = passed && rule;
    };
    check(server->destination.has_value(), "FMServer check failed: destination cannot be nil");
    check(server->username.has_value(), "FMServer check failed: username cannot be nil");
    check(server->password.has_value(), "FMServer check failed: password cannot be nil");
    check(server->port >= 1, "FMServer check failed: port cannot be negative");
    return passed;
}

bool FTPManager::uploadData(std::optional<std::string_view> data, std::string_view withFileName,
                            const FMServer *toServer, const std::stop_token &cancelled) {
    if (!_checkFMServer(toServer) || !data) return false;
    return operations_->run(
        cancelled, [&] { return operations_->_uploadData(*data, withFileName, *toServer, cancelled); });
}

bool FTPManager::uploadFile(const std::optional<std::filesystem::path> &file, const FMServer *toServer,
                            const std::stop_token &cancelled) {
    if (!_checkFMServer(toServer) || !file) return false;
    std::error_code error;
    if (!std::filesystem::exists(*file, error) || std::filesystem::is_directory(*file, error)) return false;
    return operations_->run(cancelled, [&] { return operations_->_uploadFile(*file, *toServer, cancelled); });
}

bool FTPManager::createNewFolder(std::optional<std::string_view> name, const FMServer *atServer,
                                 const std::stop_token &cancelled) {
    if (!_checkFMServer(atServer) || !name || name->empty()) return false;
    return operations_->run(cancelled,
                            [&] { return operations_->_createNewFolder(*name, *atServer, cancelled); });
}

std::optional<std::vector<FTPResource>> FTPManager::contentsOfServer(const FMServer *server,
                                                                     const std::stop_token &cancelled) {
    if (!_checkFMServer(server)) return std::nullopt;
    std::optional<std::vector<FTPResource>> contents;
    operations_->run(cancelled, [&] {
        contents = operations_->_contentsOfServer(*server, cancelled);
        return contents.has_value();
    });
    return contents;
}

bool FTPManager::downloadFile(std::optional<std::string_view> name,
                              const std::optional<std::filesystem::path> &toDirectory,
                              const FMServer *fromServer, const std::stop_token &cancelled) {
    if (!_checkFMServer(fromServer) || !name || name->empty() || !toDirectory) return false;
    std::error_code error;
    if (!std::filesystem::exists(*toDirectory, error)) return false;
    return operations_->run(
        cancelled, [&] { return operations_->_downloadFile(*name, *toDirectory, *fromServer, cancelled); });
}

bool FTPManager::deleteFileNamed(std::optional<std::string_view> name, const FMServer *fromServer,
                                 const std::stop_token &cancelled) {
    if (!_checkFMServer(fromServer) || !name) return false;
    const bool isTakenForAFile = name->find('.') != std::string_view::npos;
    const FTPCommand command{isTakenForAFile ? "DELE" : "RMD", std::string(*name)};
    return operations_->run(
        cancelled, [&] { return operations_->_ftpActionForServer(*fromServer, command, cancelled); });
}

bool FTPManager::deleteFile(std::optional<std::string_view> name, const FMServer *fromServer,
                            const std::stop_token &cancelled) {
    return operations_->runNested([&] { return deleteFileNamed(name, fromServer, cancelled); });
}

bool FTPManager::chmodFileNamed(std::optional<std::string_view> name, std::int32_t to,
                                const FMServer *atServer, const std::stop_token &cancelled) {
    constexpr std::int32_t kGreatestMode = 777;  // the octal digits, read as a decimal number
    if (!_checkFMServer(atServer) || !name || to < 0 || to > kGreatestMode) return false;
    const FTPCommand command{"SITE CHMOD " + std::to_string(to), std::string(*name)};
    return operations_->run(cancelled,
                            [&] { return operations_->_ftpActionForServer(*atServer, command, cancelled); });
}

bool FTPManager::checkLogin(const FMServer *server, const std::stop_token &cancelled) {
    if (!_checkFMServer(server)) return false;
    return operations_->run(
        cancelled, [&] { return operations_->_ftpActionForServer(*server, std::nullopt, cancelled); });
}

std::uint64_t FTPManager::fileSizeOf(const std::filesystem::path &file) const {
    return fm::sizeOfFile(file);
}

void FTPManager::abort() {
    operations_->abort();
}

std::optional<FTPProgress> FTPManager::progress() const {
    return operations_->progress();
}

FTPManagerAction FTPManager::action() const {
    return operations_->action();
}

bool FTPManager::streamSuccess() const {
    return operations_->streamSuccess();
}
