#include "archive/channels.h"

#include <algorithm>
#include <cstdint>

#include "link/result_values.h"
#include "link/session.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace archive {
namespace {

enum class CapitalsKind { kOwn, kAscii, kOther };

// A row without small ASCII letters and non-ASCII characters is its own capital form; an ASCII row gets its
// capitals byte by byte; any other row through UCase.
CapitalsKind KindOf(std::string_view row) {
  bool small = false;
  for (char c : row) {
    const auto b = static_cast<unsigned char>(c);
    if (b >= 0x80) return CapitalsKind::kOther;
    small = small || (b >= 'a' && b <= 'z');
  }
  return small ? CapitalsKind::kAscii : CapitalsKind::kOwn;
}

void AppendAsciiCapitals(std::string& out, std::string_view row) {
  for (char c : row) out.push_back(c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c);
}

}  // namespace

ChannelRow SplitChannelRow(std::string_view row) {
  const size_t comma = row.find(',');
  if (comma == std::string_view::npos) return {row, {}};
  return {row.substr(0, comma), row.substr(comma + 1)};
}

void SortRowsByCapitals(platform::RowList& rows) {
  if (rows.size() < 2) return;
  // The capitals of the rows that need them go into one buffer; the other rows are compared where they lie.
  // UTF-8 byte order is code point order, so the keys compare as their characters do.
  struct Entry {
    const char* data;
    uint32_t size;
    uint32_t index;
  };
  std::vector<CapitalsKind> kinds(rows.size());
  size_t capital_bytes = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    kinds[i] = KindOf(rows[i]);
    if (kinds[i] != CapitalsKind::kOwn) capital_bytes += rows[i].size();
  }
  std::string capitals;
  capitals.reserve(capital_bytes);
  std::vector<size_t> offsets(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    offsets[i] = capitals.size();
    if (kinds[i] == CapitalsKind::kAscii) AppendAsciiCapitals(capitals, rows[i]);
    if (kinds[i] == CapitalsKind::kOther) capitals += vb::UCase(rows[i]);
  }
  std::vector<Entry> entries(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    entries[i].index = static_cast<uint32_t>(i);
    if (kinds[i] == CapitalsKind::kOwn) {
      entries[i].data = rows[i].data();
      entries[i].size = static_cast<uint32_t>(rows[i].size());
    } else {
      const size_t end = i + 1 < rows.size() ? offsets[i + 1] : capitals.size();
      entries[i].data = capitals.data() + offsets[i];
      entries[i].size = static_cast<uint32_t>(end - offsets[i]);
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return std::string_view(a.data, a.size) < std::string_view(b.data, b.size);
  });

  std::vector<uint32_t> order;
  order.reserve(entries.size());
  for (const Entry& e : entries) order.push_back(e.index);
  rows.Reorder(order);
}

}  // namespace archive

Variant clsVantor::EASYGetChannelsInit(Variant* strStatus) {
  return SessionOf(*this).ListInit({Variant("GetChannels")}, strStatus, archive::SortRowsByCapitals);
}

Variant clsVantor::EASYGetChannelsNext(Variant* strChannelDescription) {
  LinkSession& d = SessionOf(*this);
  if (d.ResultCursor >= d.ResultCount) return Variant("");
  const std::string_view row = d.ResultRowAt(d.ResultCursor);
  ++d.ResultCursor;
  const archive::ChannelRow channel = archive::SplitChannelRow(row);
  SetOut(strChannelDescription, Variant(std::string(channel.description)));
  return Variant(std::string(channel.name));
}

Variant clsVantor::EASYGetArchivesInit(const Variant& strChannel, Variant* strStatus) {
  return SessionOf(*this).ListInit({Variant("GetArchives"), strChannel}, strStatus, archive::SortRowsByCapitals);
}

Variant clsVantor::EASYGetArchivesNext() { return SessionOf(*this).ListNext(); }

Variant clsVantor::EASYGetAllArchivesInit(Variant* strStatus) {
  return SessionOf(*this).ListInit({Variant("GetAllArchives")}, strStatus, archive::SortRowsByCapitals);
}

Variant clsVantor::EASYGetAllArchivesNext() { return SessionOf(*this).ListNext(); }

}  // namespace halqvantor
