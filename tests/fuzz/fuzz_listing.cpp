#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>

#include "FTPManager/FTPListing.h"

constexpr std::chrono::sys_seconds kNow = std::chrono::sys_days(std::chrono::year(2026) / 11 / 23);

/// A listing of these bytes, whole and cut where the first byte says.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string_view cut = bytes.substr(0, bytes.size() * data[0] / 255);
    const auto whole = fm::parseListing(bytes, kNow);
    const auto part = fm::parseListing(cut, kNow);
    if (whole) {
        // The line that was cut is not there yet; all before it are.
        for (const FTPResource &entry : *whole) {
            assert(!entry.name.empty() && entry.name != "." && entry.name != "..");
            assert(entry.link.empty() || entry.type == FTPResourceType::kSymbolicLink);
        }
        assert(part && part->size() <= whole->size());
        assert(std::equal(part->begin(), part->end(), whole->begin()));
    }
    const fm::ParsedListingLine line = fm::parseListingLine(bytes, kNow);
    assert(line.consumed >= -1 && line.consumed <= static_cast<std::ptrdiff_t>(bytes.size()));
    assert(line.consumed <= 0 || bytes[static_cast<std::size_t>(line.consumed) - 1] == '\n');
    return 0;
}
