#pragma once

// Rows of text held as views into one block that the list owns: a row costs 8 bytes beside its text instead
// of a string (header and heap block) of its own, so a reply of a million short rows takes little more memory
// than its text. Lists made from one another (From) share the block, which lives until the last of them goes;
// reordering or erasing rows of one list leaves the others as they are. A block holds less than 4 GiB and at
// most 2^31 - 1 rows.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::platform {

class RowList {
 public:
  RowList() = default;
  // Rows that are copies of `texts`, in one block.
  RowList(std::initializer_list<std::string_view> texts) { Fill(texts); }
  RowList(const std::vector<std::string>& texts) { Fill(texts); }

  // The lines of `text` after its first one, taking the text without copying it: each text between two
  // CR LF is a row (an empty line an empty row), and a last line without CR LF is a row too. A text without
  // CR LF has no rows. Raises 6 (overflow) past the limits above, leaving no rows.
  static RowList LinesAfterFirst(std::string text);

  size_t size() const { return spans_.size(); }
  bool empty() const { return spans_.empty(); }
  // Row `index`, which must be below size(); At raises 9 (subscript out of range) outside the rows.
  std::string_view operator[](size_t index) const {
    return {block_->data() + spans_[index].offset, spans_[index].length};
  }
  std::string_view At(int64_t index) const;

  // The rows from `first` on (none when `first` is past the end), sharing this list's block.
  RowList From(size_t first) const;
  // Drops row `index`, which must be below size(); the rows after it move up.
  void Erase(size_t index);
  // Reorders the rows: new row i is old row order[i]. `order` must be a permutation of 0 .. size() - 1.
  void Reorder(const std::vector<uint32_t>& order);
  // Drops the rows and this list's share of the block.
  void Clear();

  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = std::string_view;
    const_iterator() = default;
    const_iterator(const RowList* list, size_t index) : list_(list), index_(index) {}
    std::string_view operator*() const { return (*list_)[index_]; }
    const_iterator& operator++() {
      ++index_;
      return *this;
    }
    const_iterator operator++(int) { return {list_, index_++}; }
    bool operator==(const const_iterator& other) const { return index_ == other.index_; }

   private:
    const RowList* list_ = nullptr;
    size_t index_ = 0;
  };
  using value_type = std::string_view;
  using iterator = const_iterator;
  const_iterator begin() const { return {this, 0}; }
  const_iterator end() const { return {this, size()}; }

 private:
  struct Span {
    uint32_t offset;
    uint32_t length;
  };
  template <typename Texts>
  void Fill(const Texts& texts);

  std::shared_ptr<const std::string> block_;
  std::vector<Span> spans_;
};

}  // namespace halqvantor::platform
