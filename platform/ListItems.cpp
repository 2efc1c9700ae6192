#include "platform/ListItems.h"

#include <QStringMatcher>
#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/Text.h"

namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// Looks for plain ASCII words byte by byte: no byte of a longer character is ASCII, so this is exact.
class AsciiMatcher {
  public:
    explicit AsciiMatcher(std::string_view words) : words_(words) {
        std::transform(words_.begin(), words_.end(), words_.begin(), lower);
        first_[0] = words_.front();
        first_[1] = upper(words_.front());
    }

    bool isIn(std::string_view text) const {
        return isIn(text, first_[0]) || (first_[0] != first_[1] && isIn(text, first_[1]));
    }

  private:
    bool isIn(std::string_view text, char first) const {
        while (text.size() >= words_.size()) {
            const void *found = std::memchr(text.data(), first, text.size() - words_.size() + 1);
            if (!found) return false;
            text.remove_prefix(static_cast<std::size_t>(static_cast<const char *>(found) - text.data()));
            const auto same = [](char word, char c) { return word == lower(c); };
            if (std::equal(words_.begin(), words_.end(), text.begin(), same)) return true;
            text.remove_prefix(1);
        }
        return false;
    }

    std::string words_;
    char first_[2];
};

}  // namespace

void ListItems::clear() {
    items_.clear();
    wholes_.clear();
    own_.clear();
}

void ListItems::append(std::shared_ptr<const std::string> whole,
                       const std::vector<std::string_view> &pieces) {
    items_.insert(items_.end(), pieces.begin(), pieces.end());
    wholes_.push_back(std::move(whole));
}

void ListItems::insert(std::size_t index, std::string text) {
    own_.push_back(std::move(text));
    items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index), own_.back());
}

void ListItems::remove(std::size_t index) {
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

std::vector<std::size_t> ListItems::matching(const std::string &words,
                                             const std::vector<std::size_t> *candidates) const {
    std::vector<std::size_t> found;
    const auto search = [&](const auto &isMatch) {
        const std::size_t n = candidates ? candidates->size() : items_.size();
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t index = candidates ? (*candidates)[i] : i;
            if (isMatch(items_[index])) found.push_back(index);
        }
    };
    if (words.empty()) {
        search([](std::string_view) { return true; });
    } else if (isAscii(words)) {
        const AsciiMatcher matcher(words);
        search([&](std::string_view text) { return matcher.isIn(text); });
    } else {
        const QStringMatcher matcher(toQString(words), Qt::CaseInsensitive);
        search([&](std::string_view text) { return matcher.indexIn(toQString(text)) >= 0; });
    }
    return found;
}
