#include "archive/row_columns.h"

#include "platform/vb_runtime.h"

namespace halqvantor::archive {
namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Byte length of the character that starts at `pos`.
size_t CharLength(std::string_view s, size_t pos) {
  size_t end = pos + 1;
  while (end < s.size() && IsContinuation(s[end])) ++end;
  return end - pos;
}

// Byte offset where the last character of a non-empty text starts.
size_t LastCharOffset(std::string_view s) {
  size_t pos = s.size() - 1;
  while (pos > 0 && IsContinuation(s[pos])) --pos;
  return pos;
}

[[noreturn]] void MissingSeparator() { vb::Raise(ErrorNumber::kInvalidProcedureCall); }

}  // namespace

int64_t FindSeparator(std::string_view row, int64_t start) {
  if (start < 1) vb::Raise(ErrorNumber::kInvalidProcedureCall);
  const auto from = static_cast<uint64_t>(start - 1);
  if (from > row.size()) return 0;
  const size_t at = row.find(kColumnSeparator, static_cast<size_t>(from));
  return at == std::string_view::npos ? 0 : static_cast<int64_t>(at) + 1;
}

std::string_view MidView(std::string_view row, int64_t start, int64_t length) {
  if (start < 1 || length < 0) vb::Raise(ErrorNumber::kInvalidProcedureCall);
  const auto from = static_cast<uint64_t>(start - 1);
  if (from >= row.size()) return {};
  return row.substr(static_cast<size_t>(from), static_cast<size_t>(length));
}

// Position of the second character: the row's first character is skipped whole, whatever its length.
int64_t SecondCharPosition(std::string_view row) {
  return row.empty() ? 2 : 1 + static_cast<int64_t>(CharLength(row, 0));
}

std::string_view ColumnAt(std::string_view row, int k) {
  int64_t start = SecondCharPosition(row);
  int64_t end = FindSeparator(row, start);
  for (int i = 0; i < k; ++i) {
    if (end == 0) vb::Raise(ErrorNumber::kInvalidProcedureCall);
    start = end + 3;
    end = FindSeparator(row, start);
  }
  return MidView(row, start, end - start);
}

std::vector<std::string> SplitColumns(std::string_view row, int count) {
  std::vector<std::string> columns;
  if (count < 1) return columns;
  columns.reserve(static_cast<size_t>(count));
  // `sep` is the separator before the current column; the row's opening character stands before column 0.
  int64_t sep = SecondCharPosition(row) - 3;
  for (int k = 0; k + 1 < count; ++k) {
    const int64_t next = FindSeparator(row, sep + 3);
    columns.emplace_back(MidView(row, sep + 3, next - sep - 3));
    sep = next;
  }
  // The last column ends before the row's last character (its closing "^").
  const auto length = row.empty() ? 0 : static_cast<int64_t>(LastCharOffset(row)) + 1;
  columns.emplace_back(MidView(row, sep + 3, length - sep - 3));
  return columns;
}

ColumnCursor::ColumnCursor(std::string_view row) : row_(row), start_(row.empty() ? 0 : CharLength(row, 0)) {}

std::string_view ColumnCursor::Next() {
  const size_t end = start_ > row_.size() ? std::string_view::npos : row_.find(kColumnSeparator, start_);
  if (end == std::string_view::npos) MissingSeparator();
  const std::string_view column = row_.substr(start_, end - start_);
  start_ = end + kColumnSeparator.size();
  closed_at_end_ = false;
  return column;
}

std::string_view ColumnCursor::NextToCaret() {
  const size_t end = start_ > row_.size() ? std::string_view::npos : row_.find('^', start_);
  if (end == std::string_view::npos) MissingSeparator();
  const std::string_view column = row_.substr(start_, end - start_);
  start_ = end + 1;
  closed_at_end_ = false;
  return column;
}

std::string_view ColumnCursor::NextOrRowEnd() {
  const size_t end = start_ > row_.size() ? std::string_view::npos : row_.find(kColumnSeparator, start_);
  if (end != std::string_view::npos) return Next();
  // In the row followed by ",^", a closing "^" at the row's very end is a separator too.
  if (row_.empty() || row_.back() != '^' || start_ > row_.size() - 1) MissingSeparator();
  const std::string_view column = row_.substr(start_, row_.size() - 1 - start_);
  start_ = row_.size() + 2;
  closed_at_end_ = true;
  return column;
}

std::string_view ColumnCursor::RestFromOpeningCaret() const {
  if (start_ == 0 || start_ > row_.size()) return {};
  return row_.substr(start_ - 1);
}

std::string_view WithoutFirst(std::string_view text) { return text.empty() ? text : text.substr(CharLength(text, 0)); }

std::string_view WithoutEnds(std::string_view text) {
  if (text.empty()) MissingSeparator();
  const size_t first = CharLength(text, 0);
  if (first >= text.size()) MissingSeparator();
  return text.substr(first, LastCharOffset(text) - first);
}

}  // namespace halqvantor::archive
