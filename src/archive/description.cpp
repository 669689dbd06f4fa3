#include "archive/description.h"

#include <algorithm>

#include "archive/archive_state.h"
#include "archive/row_columns.h"
#include "link/result_values.h"
#include "link/session.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace archive {

FieldRecord ParseFieldLine(std::string_view line) {
  std::vector<std::string> columns = SplitColumns(line, static_cast<int>(std::tuple_size_v<FieldRecord>));
  FieldRecord record;
  std::move(columns.begin(), columns.end(), record.begin());
  return record;
}

void SortFieldRecords(std::vector<FieldRecord>& records) {
  if (records.size() < 2) return;
  std::vector<int32_t> weights;
  weights.reserve(records.size());
  for (size_t i = 0; i < records.size(); ++i) {
    try {
      weights.push_back(Variant(records[i][kWeightColumn]).ToLong());
    } catch (const RuntimeError&) {
      // One pass over the records before this one, then the error.
      for (size_t j = 0; j + 1 < i; ++j) {
        if (weights[j] > weights[j + 1]) {
          std::swap(weights[j], weights[j + 1]);
          std::swap(records[j], records[j + 1]);
        }
      }
      throw;
    }
  }
  std::vector<size_t> order(records.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return weights[a] < weights[b]; });
  std::vector<FieldRecord> sorted;
  sorted.reserve(records.size());
  for (size_t i : order) sorted.push_back(std::move(records[i]));
  records.swap(sorted);
}

}  // namespace archive
namespace {

// Rows 1 .. count-1 of the reply become records 0 .. count-2, sorted by weight; a line that does not split
// leaves the records after it empty.
void LoadFieldRecords(const LinkSession& d, archive::DescriptionState& description) {
  std::vector<archive::FieldRecord>& records = description.FieldRecords;
  records.assign(static_cast<size_t>(d.ResultCount - 1), archive::FieldRecord{});
  for (int32_t i = 1; i < d.ResultCount; ++i) {
    records[static_cast<size_t>(i - 1)] = archive::ParseFieldLine(d.ResultRowAt(i));
  }
  archive::SortFieldRecords(records);
}

}  // namespace

Variant clsVantor::EASYGetArchiveDescriptionInit(const Variant& strChannel, const Variant& strArchive,
                                                 Variant* strEditRights, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetArchiveDescription"), strChannel, strArchive}, strStatus)) {
    return FailureResult();
  }
  if (d.ResultCount > 1) LoadFieldRecords(d, archive::StateOf(*this).description);
  // An answer without any line counts -1 fields, as a Long, and has no edit rights.
  const Variant result(d.ResultCount - 1);
  SetOut(strEditRights, Variant(d.ResultCount > 0 ? std::string(d.ResultRowAt(0)) : std::string()));
  SetOut(strStatus, Variant(""));
  return result;
}

Variant clsVantor::EASYGetArchiveDescriptionNext(Variant* intFieldID, Variant* intType, Variant* intSize,
                                                 Variant* intState, Variant* intWeight, Variant* intSelectList) {
  LinkSession& d = SessionOf(*this);
  if (d.ResultCursor >= d.ResultCount - 1) return Variant("");
  const std::vector<archive::FieldRecord>& records = archive::StateOf(*this).description.FieldRecords;
  // The rows may belong to another list by now; the records are those of the last description.
  if (d.ResultCursor < 0 || static_cast<size_t>(d.ResultCursor) >= records.size()) {
    vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  }
  const archive::FieldRecord& record = records[static_cast<size_t>(d.ResultCursor)];
  SetOut(intFieldID, Variant(record[0]));
  SetOut(intType, Variant(record[2]));
  SetOut(intSize, Variant(record[3]));
  SetOut(intState, Variant(record[4]));
  SetOut(intWeight, Variant(record[5]));
  SetOut(intSelectList, Variant(record[6]));
  ++d.ResultCursor;
  return Variant(record[1]);
}

Variant clsVantor::EASYGetSegmentSelectListInit(const Variant& strChannel, const Variant& strArchive,
                                                const Variant& intFieldID, Variant* strStatus) {
  return SessionOf(*this).ListInit({Variant("GetSegmentSelectList"), strChannel, strArchive, intFieldID}, strStatus);
}

Variant clsVantor::EASYGetSegmentSelectListNext() { return SessionOf(*this).ListNext(); }

}  // namespace halqvantor
