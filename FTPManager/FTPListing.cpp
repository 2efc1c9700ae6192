#include "FTPManager/FTPListing.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

namespace fm {

namespace {

using std::chrono::sys_days;
using std::chrono::sys_seconds;

/// A listing's time is of another clock and perhaps of another zone: what is not further ahead is no last
/// year's.
constexpr std::chrono::hours kClockTolerance{24};

template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || text.front() == '-')
        return std::nullopt;
    return value;
}

/// Takes a line apart at its blanks.
class Fields {
  public:
    explicit Fields(std::string_view line) : rest_(line) {}

    std::string_view next() {
        skipBlanks();
        const std::string_view field = rest_.substr(0, rest_.find_first_of(" \t"));
        rest_.remove_prefix(field.size());
        return field;
    }
    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size())); }
    /// What stands behind the one blank that ends a field. A name may begin with blanks of its own.
    std::string_view behindOneBlank() const { return rest_.empty() ? rest_ : rest_.substr(1); }
    std::string_view rest() const { return rest_; }

  private:
    std::string_view rest_;
};

std::optional<unsigned> monthNumber(std::string_view name) {
    constexpr std::array<std::string_view, 12> kMonths = {"jan", "feb", "mar", "apr", "may", "jun",
                                                          "jul", "aug", "sep", "oct", "nov", "dec"};
    std::string lower(name);
    for (char &c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    const auto found = std::find(kMonths.begin(), kMonths.end(), lower);
    if (found == kMonths.end()) return std::nullopt;
    return static_cast<unsigned>(found - kMonths.begin()) + 1;
}

/// "12:34", "12:34:56.7" or, where it may, "01:34PM".
std::optional<std::chrono::seconds> timeOfDay(std::string_view text) {
    bool isAfternoon = false;
    bool hasHalves = false;
    if (text.size() > 2 && (text.ends_with('M') || text.ends_with('m'))) {
        const char half = text[text.size() - 2];
        isAfternoon = half == 'P' || half == 'p';
        hasHalves = isAfternoon || half == 'A' || half == 'a';
        if (!hasHalves) return std::nullopt;
        text.remove_suffix(2);
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const auto hours = number<unsigned>(text.substr(0, colon));
    const auto minutes = number<unsigned>(text.substr(colon + 1, 2));
    if (text.size() > colon + 3 && text[colon + 3] != ':') return std::nullopt;
    if (!hours || !minutes || *minutes > 59 || *hours > 23) return std::nullopt;
    if (hasHalves && (*hours == 0 || *hours > 12)) return std::nullopt;
    const unsigned hour = hasHalves ? *hours % 12 + (isAfternoon ? 12 : 0) : *hours;
    return std::chrono::hours(hour) + std::chrono::minutes(*minutes);
}

std::optional<sys_seconds> moment(int year, unsigned month, unsigned day, std::chrono::seconds time = {}) {
    if (year < 1 || year > 9999) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                           std::chrono::day(day)};
    if (!date.ok()) return std::nullopt;
    return sys_days(date) + time;
}

/// The last time that this date came, leap days included.
std::optional<sys_seconds> latestMoment(unsigned month, unsigned day, std::chrono::seconds time,
                                        sys_seconds now) {
    const std::chrono::year_month_day today(std::chrono::floor<std::chrono::days>(now + kClockTolerance));
    constexpr int kYearsBetweenLeapDays = 8;
    for (int back = 0; back <= kYearsBetweenLeapDays; ++back) {
        const std::optional<sys_seconds> candidate =
            moment(static_cast<int>(today.year()) - back, month, day, time);
        if (candidate && *candidate <= now + kClockTolerance) return candidate;
    }
    return std::nullopt;
}

/// "2026-11-23", or with another order or two digits of a year as DOS servers have it: "11-23-26".
std::optional<sys_seconds> dashedDate(std::string_view text, std::chrono::seconds time) {
    const std::size_t first = text.find_first_of("-/");
    const std::size_t second = text.find_first_of("-/", first == std::string_view::npos ? first : first + 1);
    if (second == std::string_view::npos) return std::nullopt;
    const std::string_view a = text.substr(0, first);
    const std::string_view b = text.substr(first + 1, second - first - 1);
    const std::string_view c = text.substr(second + 1);
    const bool yearIsFirst = a.size() == 4;
    const auto year = number<int>(yearIsFirst ? a : c);
    const auto month = number<unsigned>(yearIsFirst ? b : a);
    const auto day = number<unsigned>(yearIsFirst ? c : b);
    if (!year || !month || !day) return std::nullopt;
    constexpr int kFirstYearOfTwoDigits = 1970;
    int fullYear = *year;
    if (!yearIsFirst && c.size() == 2) fullYear += fullYear < kFirstYearOfTwoDigits % 100 ? 2000 : 1900;
    return moment(fullYear, *month, *day, time);
}

struct DatedRest {
    sys_seconds date;
    std::string_view name;
};

/// "Nov 23 12:34 name", "Nov 23  2026 name", "23 Nov ..." or "2026-11-23 12:34 name".
std::optional<DatedRest> datedRest(std::string_view text, sys_seconds now) {
    Fields fields(text);
    const std::string_view first = fields.next();
    const std::string_view second = fields.next();
    std::optional<sys_seconds> date;
    if (first.size() > 4 && first[4] == '-') {
        if (const auto time = timeOfDay(second)) date = dashedDate(first, *time);
        Fields zoned = fields;
        const std::string_view zone = zoned.next();
        const bool isZone = zone.size() == 5 && (zone[0] == '+' || zone[0] == '-') &&
                            number<unsigned>(zone.substr(1)).has_value();
        if (isZone) fields = zoned;
    } else {
        const bool monthIsFirst = monthNumber(first).has_value();
        const auto month = monthNumber(monthIsFirst ? first : second);
        const auto day = number<unsigned>(monthIsFirst ? second : first);
        const std::string_view yearOrTime = fields.next();
        if (!month || !day) return std::nullopt;
        if (const auto time = timeOfDay(yearOrTime)) {
            date = latestMoment(*month, *day, *time, now);
        } else if (const auto year = number<int>(yearOrTime); year && yearOrTime.size() == 4) {
            date = moment(*year, *month, *day);
        }
    }
    if (!date || fields.behindOneBlank().empty()) return std::nullopt;
    return DatedRest{*date, fields.behindOneBlank()};
}

std::optional<std::uint32_t> permissions(std::string_view letters) {
    constexpr std::string_view kPlain = "rwxrwxrwx";
    std::uint32_t mode = 0;
    for (std::size_t i = 0; i < kPlain.size(); ++i) {
        const std::uint32_t bit = 1u << (kPlain.size() - 1 - i);
        const std::uint32_t special = 01000u << (2 - i / 3);  // set-user-ID, set-group-ID, sticky
        const char letter = letters[i];
        const bool isExecute = i % 3 == 2;
        if (letter == kPlain[i]) {
            mode |= bit;
        } else if (isExecute && (letter == 's' || letter == 't')) {
            mode |= bit | special;
        } else if (isExecute && (letter == 'S' || letter == 'T' || letter == 'l' || letter == 'L')) {
            mode |= special;
        } else if (letter != '-') {
            return std::nullopt;
        }
    }
    return mode;
}

std::optional<FTPResourceType> typeOf(char letter) {
    switch (letter) {
        case '-':
            return FTPResourceType::kFile;
        case 'd':
            return FTPResourceType::kFolder;
        case 'l':
            return FTPResourceType::kSymbolicLink;
        case 'b':
        case 'c':
        case 'p':
        case 's':
        case 'D':
            return FTPResourceType::kOther;
        default:
            return std::nullopt;
    }
}

/// "name -> target"; the target is as long as the link is large, which tells where an arrow is part of a
/// name.
void splitLink(FTPResource &entry) {
    constexpr std::string_view kArrow = " -> ";
    std::size_t arrow = entry.name.find(kArrow, 1);  // a name is never empty
    if (arrow == std::string::npos) return;
    if (entry.size > 0 && entry.name.size() > entry.size + kArrow.size()) {
        const std::size_t bySize = entry.name.size() - entry.size - kArrow.size();
        if (entry.name.compare(bySize, kArrow.size(), kArrow) == 0) arrow = bySize;
    }
    entry.link = entry.name.substr(arrow + kArrow.size());
    entry.name.resize(arrow);
}

/// "drwxr-xr-x+ 2 owner group 4096 Nov 23 12:34 name"; count, owner or group may be missing, and a device has
/// two numbers for a size.
std::optional<FTPResource> unixEntry(std::string_view line, sys_seconds now) {
    constexpr std::size_t kModeLength = 10;
    Fields fields(line);
    const std::string_view mode = fields.next();
    if (mode.size() < kModeLength || mode.size() > kModeLength + 1) return std::nullopt;
    if (mode.size() > kModeLength && std::string_view("+.@").find(mode.back()) == std::string_view::npos)
        return std::nullopt;
    const auto type = typeOf(mode.front());
    const auto bits = permissions(mode.substr(1));
    if (!type || !bits) return std::nullopt;

    // The size is the first number that a date follows.
    std::vector<std::string_view> before;
    std::optional<DatedRest> rest;
    std::optional<std::uint64_t> size;
    constexpr std::size_t kMostFields = 8;
    while (!rest && before.size() < kMostFields) {
        const std::string_view field = fields.next();
        if (field.empty()) return std::nullopt;
        size = number<std::uint64_t>(field);
        if (size) rest = datedRest(fields.rest(), now);
        if (!rest) before.push_back(field);
    }
    if (!rest) return std::nullopt;
    if (!before.empty() && before.back().ends_with(',')) {
        before.pop_back();
        size = 0;
    }
    if (!before.empty() && number<std::uint64_t>(before.front())) before.erase(before.begin());

    FTPResource entry{.name = std::string(rest->name),
                      .type = *type,
                      .size = *size,
                      .modificationDate = rest->date,
                      .mode = *bits};
    if (!before.empty()) entry.owner = before[0];
    if (before.size() > 1) entry.group = before[1];
    if (entry.type == FTPResourceType::kSymbolicLink) splitLink(entry);
    return entry;
}

/// "11-23-26  12:34PM       <DIR>          name", or a size for the <DIR>.
std::optional<FTPResource> dosEntry(std::string_view line) {
    Fields fields(line);
    const std::string_view day = fields.next();
    const auto time = timeOfDay(fields.next());
    if (!time) return std::nullopt;
    const std::optional<sys_seconds> date = dashedDate(day, *time);
    const std::string_view kind = fields.next();
    const bool isFolder = kind == "<DIR>";
    const auto size = number<std::uint64_t>(kind);
    if (!date || (!isFolder && !size)) return std::nullopt;
    if (isFolder) fields.skipBlanks();
    const std::string_view name = isFolder ? fields.rest() : fields.behindOneBlank();
    if (name.empty()) return std::nullopt;
    return FTPResource{.name = std::string(name),
                       .type = isFolder ? FTPResourceType::kFolder : FTPResourceType::kFile,
                       .size = size.value_or(0),
                       .modificationDate = date};
}

bool isTotal(std::string_view line) {
    Fields fields(line);
    const std::string_view word = fields.next();
    return (word == "total" || word == "Total") && number<std::uint64_t>(fields.next()).has_value();
}

}  // namespace

ParsedListingLine parseListingLine(std::string_view bytes, sys_seconds now) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) return {};
    std::string_view line = bytes.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const auto consumed = static_cast<std::ptrdiff_t>(end + 1);
    if (line.find_first_not_of(" \t") == std::string_view::npos || isTotal(line)) return {consumed};
    std::optional<FTPResource> entry = unixEntry(line, now);
    if (!entry) entry = dosEntry(line);
    if (!entry) return {-1};
    if (entry->name == "." || entry->name == "..") return {consumed};
    return {consumed, std::move(entry)};
}

std::optional<std::vector<FTPResource>> parseListing(std::string_view bytes, sys_seconds now) {
    std::vector<FTPResource> entries;
    while (true) {
        ParsedListingLine line = parseListingLine(bytes, now);
        if (line.consumed < 0) return std::nullopt;
        if (line.consumed == 0) return entries;
        if (line.entry) entries.push_back(std::move(*line.entry));
        bytes.remove_prefix(static_cast<std::size_t>(line.consumed));
    }
}

}  // namespace fm
