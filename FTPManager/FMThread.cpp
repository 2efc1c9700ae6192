#include "FTPManager/FMThread.h"

#include <exception>
#include <string>
#include <thread>

#include "FTPManager/Log.h"

bool FMThread::runInSeparateThread(const std::function<void()> &block) {
    bool finished = false;
    try {
        std::thread worker([&block, &finished]() noexcept {
            try {
                block();
                finished = true;
            } catch (const std::exception &error) {
                fm::log(std::string("FTPManager: an operation ended early: ") + error.what());
            } catch (...) {
                fm::log("FTPManager: an operation ended early");
            }
        });
        // The end of the thread is the hand-over: nothing that the caller could miss.
        worker.join();
    } catch (const std::exception &error) {
        fm::log(std::string("FTPManager: no thread could be started: ") + error.what());
    }
    return finished;
}
