#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The items of a list control: texts of any size and content, by index.
//
// Texts that came in one piece (a file and its entries) are not copied: the items are views into it, and the
// whole is kept until the last of them has gone. No widget, no thread of its own.
class ListItems {
  public:
    std::size_t count() const { return items_.size(); }
    std::string_view at(std::size_t index) const { return items_[index]; }

    void clear();

    // Adds `pieces`, views into `*whole`, behind the items there are.
    void append(std::shared_ptr<const std::string> whole, const std::vector<std::string_view> &pieces);

    void insert(std::size_t index, std::string text);
    void remove(std::size_t index);

    // The indices of the items that contain `words` (whatever the case), in order. Among `candidates` only,
    // if given.
    std::vector<std::size_t> matching(const std::string &words,
                                      const std::vector<std::size_t> *candidates = nullptr) const;

  private:
    std::vector<std::string_view> items_;
    std::vector<std::shared_ptr<const std::string>> wholes_;
    std::deque<std::string> own_;
};
