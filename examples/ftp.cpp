// ftp HOST/FOLDER PORT USER PASSWORD [FILE]: stores a local file in a folder of an FTP server, showing how
// far it has come, and lists what lies there.
#include <cstdio>
#include <cstdlib>

#include "FTPManager/FTPManager.h"

class ProgressLine : public FTPManagerDelegate {
    void ftpManagerUploadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        if (progress) std::printf("%.0f %%\n", 100 * progress->progress);
    }
};

int main(int argc, char **argv) {
    if (argc < 5) return 2;
    FMServer server = FMServer::serverWithDestination(argv[1], argv[3], argv[4]);
    server.port = std::atoi(argv[2]);

    FTPManager manager;
    ProgressLine progressLine;
    manager.delegate = &progressLine;
    // What went wrong is written to standard error; setFTPManagerLogSink sends it elsewhere.
    if (argc > 5 && !manager.uploadFile(argv[5], &server)) return 1;

    const auto contents = manager.contentsOfServer(&server);
    if (!contents) return 1;
    for (const FTPResource &entry : *contents) {
        const bool isFolder = entry.type == FTPResourceType::kFolder;
        std::printf("%10llu  %s%s\n", static_cast<unsigned long long>(entry.size), entry.name.c_str(),
                    isFolder ? "/" : "");
    }
    return 0;
}
