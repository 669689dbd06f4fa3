#include "platform/row_list.h"

#include <limits>

#include "platform/vb_runtime.h"

namespace halqvantor::platform {
namespace {

constexpr std::string_view kCrLf = "\r\n";

}  // namespace

template <typename Texts>
void RowList::Fill(const Texts& texts) {
  std::string block;
  for (const std::string_view text : texts) {
    if (block.size() + text.size() > std::numeric_limits<uint32_t>::max()) vb::Raise(ErrorNumber::kOverflow);
    spans_.push_back({static_cast<uint32_t>(block.size()), static_cast<uint32_t>(text.size())});
    block += text;
  }
  block_ = std::make_shared<const std::string>(std::move(block));
}
template void RowList::Fill(const std::initializer_list<std::string_view>&);
template void RowList::Fill(const std::vector<std::string>&);

RowList RowList::LinesAfterFirst(std::string text) {
  RowList list;
  if (text.size() > std::numeric_limits<uint32_t>::max()) vb::Raise(ErrorNumber::kOverflow);
  const std::string_view all(text);
  const size_t first = all.find(kCrLf);
  if (first == std::string_view::npos) return list;
  const size_t body = first + kCrLf.size();

  // Counted first, so that the spans take one allocation of their exact size.
  size_t count = 0;
  for (size_t pos = all.find(kCrLf, body); pos != std::string_view::npos; pos = all.find(kCrLf, pos + 2)) ++count;
  const bool open_last_line = all.size() > body && !all.ends_with(kCrLf);
  count += open_last_line ? 1 : 0;
  if (count > static_cast<size_t>(std::numeric_limits<int32_t>::max())) vb::Raise(ErrorNumber::kOverflow);
  list.spans_.reserve(count);

  size_t start = body;
  for (size_t pos = all.find(kCrLf, start); pos != std::string_view::npos; pos = all.find(kCrLf, start)) {
    list.spans_.push_back({static_cast<uint32_t>(start), static_cast<uint32_t>(pos - start)});
    start = pos + kCrLf.size();
  }
  if (open_last_line) list.spans_.push_back({static_cast<uint32_t>(start), static_cast<uint32_t>(all.size() - start)});
  // The string's buffer moves into the block: the text is not copied.
  list.block_ = std::make_shared<const std::string>(std::move(text));
  return list;
}

std::string_view RowList::At(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= spans_.size()) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return (*this)[static_cast<size_t>(index)];
}

RowList RowList::From(size_t first) const {
  RowList tail;
  if (first >= spans_.size()) return tail;
  tail.block_ = block_;
  tail.spans_.assign(spans_.begin() + static_cast<std::ptrdiff_t>(first), spans_.end());
  return tail;
}

void RowList::Erase(size_t index) { spans_.erase(spans_.begin() + static_cast<std::ptrdiff_t>(index)); }

void RowList::Reorder(const std::vector<uint32_t>& order) {
  std::vector<Span> reordered;
  reordered.reserve(order.size());
  for (const uint32_t old : order) reordered.push_back(spans_[old]);
  spans_.swap(reordered);
}

void RowList::Clear() {
  std::vector<Span>().swap(spans_);
  block_.reset();
}

}  // namespace halqvantor::platform
