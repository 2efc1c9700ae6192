#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "FTPManager/FTPResource.h"

namespace fm {

/// What stands at the start of a listing's bytes.
struct ParsedListingLine {
    /// How many bytes the line has, its end included; 0 if there is no whole line; -1 if it is no line of a
    /// listing.
    std::ptrdiff_t consumed = 0;
    /// Nothing for a line without an entry: a total, a blank one, the folder itself and its parent.
    std::optional<FTPResource> entry = {};
};

/// Understands the listings of Unix servers (ls -l, also with ISO dates) and of DOS servers. `now` gives a
/// year to dates that have none.
ParsedListingLine parseListingLine(std::string_view bytes, std::chrono::sys_seconds now);

/// The entries of all whole lines; nothing if one of them is no line of a listing.
std::optional<std::vector<FTPResource>> parseListing(std::string_view bytes, std::chrono::sys_seconds now);

}  // namespace fm
