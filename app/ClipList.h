#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The one text format of every list that is kept: saved texts, contacts, shared texts.
//
// A list is a sequence of entries, newest first, each followed by kEntryTerminator. Entries are any text,
// line breaks included, and are not escaped. All texts are UTF-8. Nothing here trims, sorts or drops
// anything.
namespace ClipList {

inline constexpr std::string_view kEntryTerminator = "\n-CLIPBOARD'S END-\n";

// The pieces between the terminators, in order, as views into `text`. A well-formed list of n entries has n +
// 1 pieces, the last one empty; the empty text has one empty piece.
std::vector<std::string_view> componentsSeparatedByTerminator(std::string_view text);

// `entry`, the terminator and the old text: the form of every list that exists, and of a new one on the
// server (an absent old text).
std::string withEntryInFront(std::string_view entry, std::optional<std::string_view> oldText);

// The same for the list on this machine, which begins as the entry alone, without a terminator.
std::string withEntryInFrontOfLocal(std::string_view entry, std::optional<std::string_view> oldText);

// Whether `entry` followed by the terminator occurs in `text`, be it as the tail of a longer entry.
bool containsEntry(std::string_view text, std::string_view entry);

// `text` without any occurrence of `entry` followed by the terminator. Plain substrings, not whole entries:
// removing "bc" also cuts the tail of "abc".
std::string withoutEntry(std::string_view text, std::string_view entry);

}  // namespace ClipList
