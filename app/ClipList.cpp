#include "app/ClipList.h"

#include <cstring>

namespace {

// Where `wanted` begins in `text` from `start` on, or npos. memmem is several times faster than
// string_view::find.
std::size_t find(std::string_view text, std::string_view wanted, std::size_t start) {
    const void *at = memmem(text.data() + start, text.size() - start, wanted.data(), wanted.size());
    return at ? static_cast<std::size_t>(static_cast<const char *>(at) - text.data())
              : std::string_view::npos;
}

std::string terminated(std::string_view entry) {
    std::string text(entry);
    text += ClipList::kEntryTerminator;
    return text;
}

}  // namespace

std::vector<std::string_view> ClipList::componentsSeparatedByTerminator(std::string_view text) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = find(text, kEntryTerminator, start);
        if (end == std::string_view::npos) break;
        pieces.push_back(text.substr(start, end - start));
        start = end + kEntryTerminator.size();
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string ClipList::withEntryInFront(std::string_view entry, std::optional<std::string_view> oldText) {
    std::string text;
    text.reserve(entry.size() + kEntryTerminator.size() + (oldText ? oldText->size() : 0));
    text += entry;
    text += kEntryTerminator;
    if (oldText) text += *oldText;
    return text;
}

std::string ClipList::withEntryInFrontOfLocal(std::string_view entry,
                                              std::optional<std::string_view> oldText) {
    return oldText ? withEntryInFront(entry, oldText) : std::string(entry);
}

bool ClipList::containsEntry(std::string_view text, std::string_view entry) {
    return find(text, terminated(entry), 0) != std::string_view::npos;
}

std::string ClipList::withoutEntry(std::string_view text, std::string_view entry) {
    const std::string wanted = terminated(entry);
    std::string rest;
    rest.reserve(text.size());
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = find(text, wanted, start);
        if (at == std::string_view::npos) break;
        rest += text.substr(start, at - start);
        start = at + wanted.size();
    }
    rest += text.substr(start);
    return rest;
}
