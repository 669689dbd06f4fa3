#pragma once

// Field lines of the archive description.

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::archive {

// The seven columns of one field line, as the server sent them: field id, the column Next returns, type,
// size, state, weight (the sort key) and the select-list indicator.
using FieldRecord = std::array<std::string, 7>;
inline constexpr size_t kWeightColumn = 5;

// The field records of the last archive description with more than one line.
struct DescriptionState {
  std::vector<FieldRecord> FieldRecords;
};

// Splits "^c0^,^c1^,^ ... ^,^c6^". Raises 5 when one of the six separators is missing.
FieldRecord ParseFieldLine(std::string_view line);

// Sorts by weight (column 5 read as a 32-bit integer), ascending and stably. With two records or more,
// every weight must be a number that fits (13 type mismatch, 6 overflow otherwise); the error is raised
// after the records before the first bad weight have had one exchange pass, the state in which an exchange
// sort stops at that record.
void SortFieldRecords(std::vector<FieldRecord>& records);

}  // namespace halqvantor::archive
