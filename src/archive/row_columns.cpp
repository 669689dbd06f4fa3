#include "archive/row_columns.h"

#include "platform/vb_runtime.h"

namespace halqvantor::archive {

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

std::string_view MidView(std::string_view row, int64_t start) {
  if (start < 1) vb::Raise(ErrorNumber::kInvalidProcedureCall);
  const auto from = static_cast<uint64_t>(start - 1);
  if (from >= row.size()) return {};
  return row.substr(static_cast<size_t>(from));
}

std::string_view ColumnAt(std::string_view row, int k) {
  int64_t start = 2;
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
  // `sep` is the separator before the current column; -1 stands for the row's opening "^".
  int64_t sep = -1;
  for (int k = 0; k + 1 < count; ++k) {
    const int64_t next = FindSeparator(row, sep + 3);
    columns.emplace_back(MidView(row, sep + 3, next - sep - 3));
    sep = next;
  }
  const auto length = static_cast<int64_t>(row.size());
  columns.emplace_back(MidView(row, sep + 3, length - sep - 3));
  return columns;
}

}  // namespace halqvantor::archive
