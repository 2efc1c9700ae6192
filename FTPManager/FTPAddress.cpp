#include "FTPManager/FTPAddress.h"

#include <curl/curl.h>

#include <charconv>
#include <memory>

#include "FTPManager/Text.h"

namespace fm {

namespace {

using UrlHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::optional<std::string> part(CURLU *url, CURLUPart which, unsigned flags) {
    char *text = nullptr;
    if (curl_url_get(url, which, &text, flags) != CURLUE_OK) return std::nullopt;
    std::string copy(text);
    curl_free(text);
    return copy;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape =
            text[i] == '%' && text.size() - i > 2 && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0;
        if (isEscape) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// libcurl would take ";type=" at the end of a path for a transfer mode.
std::string withMarksEscaped(std::string_view path) {
    std::string escaped;
    for (const char c : path) {
        if (c == ';') {
            escaped += "%3B";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace

std::optional<FTPAddress> parseFTPURL(std::string_view text) {
    if (hasUnsendableByte(text) || hasUnsendableByte(percentDecoded(text))) return std::nullopt;
    if (text.starts_with("ftp:///")) return std::nullopt;  // libcurl would take the folder for the host
    const UrlHandle url(curl_url(), curl_url_cleanup);
    constexpr unsigned kFlags = CURLU_PATH_AS_IS;
    if (!url || curl_url_set(url.get(), CURLUPART_URL, std::string(text).c_str(), kFlags) != CURLUE_OK)
        return std::nullopt;
    if (part(url.get(), CURLUPART_SCHEME, 0) != "ftp") return std::nullopt;

    FTPAddress address;
    if (const auto user = part(url.get(), CURLUPART_USER, 0)) address.user = percentDecoded(*user);
    if (const auto password = part(url.get(), CURLUPART_PASSWORD, 0))
        address.password = percentDecoded(*password);
    const std::string port = part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("");
    std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (address.port == 0) return std::nullopt;

    std::string path = part(url.get(), CURLUPART_PATH, 0).value_or("/");
    if (const auto query = part(url.get(), CURLUPART_QUERY, 0)) path += "%3F" + *query;
    path = withMarksEscaped(path);
    address.path = percentDecoded(path.substr(1));
    address.fileName = percentDecoded(path.substr(path.rfind('/') + 1));

    for (const CURLUPart unwanted :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_QUERY, CURLUPART_FRAGMENT})
        curl_url_set(url.get(), unwanted, nullptr, 0);
    if (curl_url_set(url.get(), CURLUPART_PATH, path.c_str(), 0) != CURLUE_OK) return std::nullopt;
    const auto bare = part(url.get(), CURLUPART_URL, kFlags);
    if (!bare) return std::nullopt;
    address.url = *bare;
    return address;
}

bool isSendableFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           !hasUnsendableByte(name);
}

}  // namespace fm
