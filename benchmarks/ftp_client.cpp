// What benchmarks/ftp.py times: the FTP library as a program.
//
//     ftp_client HOST PORT FOLDER upload FILE           each of these prints the seconds that it took
//     ftp_client HOST PORT FOLDER download NAME TO
//     ftp_client HOST PORT FOLDER save                  a read and an upload of 10 kB over fresh connections,
//     and once more ftp_client HOST PORT FOLDER sign-up               a read and four uploads over a warm
//     connection ftp_client HOST PORT FOLDER small COUNT           uploads and reads of 10 kB, over a warm
//     connection
//
// The user is u with the password p. With QUILLERY_CA_FILE set, connections are encrypted. Failing ends it
// with status 1.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

#include "FTPManager/FTPManager.h"

namespace {

using Clock = std::chrono::steady_clock;

class Client {
  public:
    Client(const std::string &host, std::int32_t port, const std::string &folder)
        : location_{.user = "u",
                    .password = "p",
                    .host = host,
                    .port = port,
                    .directory = folder,
                    .fileName = ""},
          server_(FMServer::serverWithDestination(host + "/" + folder, "u", "p")) {
        server_.port = port;
    }

    void upload(const std::string &name, const std::string &text) {
        require(manager_.uploadData(text, name, &server_));
    }
    void uploadFile(const std::string &file) { require(manager_.uploadFile(file, &server_)); }
    void download(const std::string &name, const std::string &folder) {
        require(manager_.downloadFile(name, folder, &server_));
    }
    void read(const std::string &name) {
        FTPFileLocation location = location_;
        location.fileName = name;
        require(stringWithContentsOfURL(ftpURLForFile(location).value(), *transport_).has_value());
    }

  private:
    static void require(bool success) {
        if (success) return;
        std::cerr << "the operation failed\n";
        std::exit(1);
    }
    static TransportOptions options() {
        const char *const caFile = std::getenv("QUILLERY_CA_FILE");
        if (!caFile) return {};
        return {.limits = {}, .tls = TlsMode::kRequired, .caFile = caFile};
    }

    const FTPFileLocation location_;
    FMServer server_;
    const std::shared_ptr<FTPTransport> transport_ = std::make_shared<FTPTransport>(options());
    FTPManager manager_{transport_};
};

void time(const char *what, const std::function<void()> &task) {
    const Clock::time_point start = Clock::now();
    task();
    std::printf("%s %.6f\n", what, std::chrono::duration<double>(Clock::now() - start).count());
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 5) return 2;
    Client client(argv[1], std::atoi(argv[2]), argv[3]);
    const std::string task = argv[4];
    const std::string text(10'000, 'x');
    const auto save = [&] {
        client.read("small");
        client.upload("small", text);
    };
    if (task == "upload" && argc > 5) {
        time("upload", [&] { client.uploadFile(argv[5]); });
    } else if (task == "download" && argc > 6) {
        time("download", [&] { client.download(argv[5], argv[6]); });
    } else if (task == "save") {
        time("fresh-save", save);
        time("warm-save", save);
    } else if (task == "sign-up") {
        client.read("small");
        time("warm-sign-up", [&] {
            client.read("small");
            for (const char *name : {"one", "two", "three", "four"}) client.upload(name, text);
        });
    } else if (task == "small" && argc > 5) {
        client.upload("small", text);
        for (int i = std::atoi(argv[5]); i > 0; --i) {
            time("upload", [&] { client.upload("small", text); });
            time("read", [&] { client.read("small"); });
        }
    } else {
        return 2;
    }
    return 0;
}
