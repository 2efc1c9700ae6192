// What benchmarks/ftp.py times: the FTP library as a program, ftp_client HOST PORT FOLDER TASK..., for the
// user u with the password p. It prints the seconds of each thing that it times; failing ends it with
// status 1.
//
// - upload FILE, download NAME TO: that file
// - save: a read and an upload of 10 kB over a fresh connection, then the same over the warm one
// - sign-up: a read and four uploads over a warm connection
// - small COUNT: as many uploads and reads of 10 kB over a warm connection

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
    const FTPFileLocation location_;
    FMServer server_;
    const std::shared_ptr<FTPTransport> transport_ = std::make_shared<FTPTransport>();
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
