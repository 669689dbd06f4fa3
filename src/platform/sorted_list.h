#pragma once

// The sorted list of a connection slot: items of text and item data, kept in the order of their texts
// compared without regard to case (capitals of the Windows-1252 letters). Items whose texts compare equal
// keep the order in which they were added. Adding is O(1); the list is sorted once, stably, when it is read
// after adds, so filling and reading n items costs O(n log n). Texts and keys lie in one block (a key that
// equals its text is kept once), an item costing 20 bytes beside them; together they hold less than 4 GiB.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::platform {

// The key an item's text sorts by: its capitals in UTF-8, whose byte order is code point order. The list
// puts a before b when SortKey(a) < SortKey(b).
std::string SortKey(std::string_view text);

class SortedList {
 public:
  void Clear();
  // Raises 6 (overflow) when the texts and keys would pass 4 GiB.
  void AddItem(std::string_view text, int32_t item_data);
  int32_t ListCount() const { return static_cast<int32_t>(items_.size()); }
  // Text and item data of the item at a 0-based index of the sorted order; an index outside the list
  // raises 9 (subscript out of range).
  std::string List(int32_t index);
  int32_t ItemData(int32_t index);

 private:
  struct Item {
    uint32_t text_offset;  // in block_
    uint32_t text_length;
    uint32_t key_offset;  // the text in capitals, compared by code points
    uint32_t key_length;
    int32_t item_data;
  };
  std::string_view Text(const Item& item) const { return {block_.data() + item.text_offset, item.text_length}; }
  std::string_view Key(const Item& item) const { return {block_.data() + item.key_offset, item.key_length}; }
  uint32_t Append(std::string_view bytes);
  void SortIfNeeded();
  const Item& At(int32_t index);

  std::vector<Item> items_;
  std::string block_;
  bool sorted_ = true;
};

}  // namespace halqvantor::platform
