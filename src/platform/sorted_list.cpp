#include "platform/sorted_list.h"

#include <algorithm>

#include "platform/vb_runtime.h"

namespace halqvantor::platform {

std::string SortKey(std::string_view text) { return vb::UCase(text); }

void SortedList::Clear() {
  items_.clear();
  sorted_ = true;
}

void SortedList::AddItem(std::string text, int32_t item_data) {
  std::string key = SortKey(text);
  items_.push_back({std::move(key), std::move(text), item_data});
  sorted_ = false;
}

void SortedList::SortIfNeeded() {
  if (sorted_) return;
  // UTF-8 byte order is code point order, so comparing the capitalised bytes compares characters.
  std::stable_sort(items_.begin(), items_.end(), [](const Item& a, const Item& b) { return a.key < b.key; });
  sorted_ = true;
}

const SortedList::Item& SortedList::At(int32_t index) {
  if (index < 0 || index >= ListCount()) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  SortIfNeeded();
  return items_[static_cast<size_t>(index)];
}

const std::string& SortedList::List(int32_t index) { return At(index).text; }
int32_t SortedList::ItemData(int32_t index) { return At(index).item_data; }

}  // namespace halqvantor::platform
