#include "platform/sorted_list.h"

#include <algorithm>
#include <limits>

#include "platform/vb_runtime.h"

namespace halqvantor::platform {

std::string SortKey(std::string_view text) { return vb::UCase(text); }

namespace {

// True when the text is its own key: no small ASCII letters and nothing beyond ASCII.
bool IsOwnKey(std::string_view text) {
  for (const char c : text) {
    const auto b = static_cast<unsigned char>(c);
    if (b >= 0x80 || (b >= 'a' && b <= 'z')) return false;
  }
  return true;
}

}  // namespace

void SortedList::Clear() {
  items_.clear();
  block_.clear();
  sorted_ = true;
}

uint32_t SortedList::Append(std::string_view bytes) {
  if (block_.size() + bytes.size() > std::numeric_limits<uint32_t>::max()) vb::Raise(ErrorNumber::kOverflow);
  const auto offset = static_cast<uint32_t>(block_.size());
  block_.append(bytes);
  return offset;
}

void SortedList::AddItem(std::string_view text, int32_t item_data) {
  const auto length = static_cast<uint32_t>(text.size());
  Item item{0, length, 0, length, item_data};
  if (IsOwnKey(text)) {
    item.text_offset = item.key_offset = Append(text);
  } else {
    const std::string key = SortKey(text);
    if (block_.size() + text.size() + key.size() > std::numeric_limits<uint32_t>::max()) {
      vb::Raise(ErrorNumber::kOverflow);
    }
    item.text_offset = Append(text);
    item.key_offset = key == text ? item.text_offset : Append(key);
    item.key_length = static_cast<uint32_t>(key.size());
  }
  items_.push_back(item);
  sorted_ = false;
}

void SortedList::SortIfNeeded() {
  if (sorted_) return;
  // UTF-8 byte order is code point order, so comparing the capitalised bytes compares characters.
  std::stable_sort(items_.begin(), items_.end(), [this](const Item& a, const Item& b) { return Key(a) < Key(b); });
  sorted_ = true;
}

const SortedList::Item& SortedList::At(int32_t index) {
  if (index < 0 || index >= ListCount()) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  SortIfNeeded();
  return items_[static_cast<size_t>(index)];
}

std::string SortedList::List(int32_t index) { return std::string(Text(At(index))); }
int32_t SortedList::ItemData(int32_t index) { return At(index).item_data; }

}  // namespace halqvantor::platform
