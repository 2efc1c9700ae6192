#include "FTPManager/FTPTransport.h"

#include <curl/curl.h>

#include <utility>

#include "FTPManager/Connection.h"

FTPTransport::FTPTransport(TransportOptions options)
    : options_(std::move(options)), pool_(std::make_unique<fm::ConnectionPool>(options_.limits)) {
    // For the life of the process: libcurl's global set-up cannot be undone while other code may use it.
    [[maybe_unused]] static const CURLcode once = curl_global_init(CURL_GLOBAL_DEFAULT);
}

FTPTransport::~FTPTransport() = default;
