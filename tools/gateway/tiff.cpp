#include "tiff.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace halqvantor::gateway {
namespace {

constexpr uint16_t kStripOffsets = 273, kStripByteCounts = 279, kTileOffsets = 324, kTileByteCounts = 325;
constexpr size_t kMaxPages = 10000;
constexpr uint16_t kIfdType = 13;

// Tags whose values are offsets into the file (beyond the strips and tiles, which are rewritten): copied
// as they are they would point at the wrong bytes of the new file, so a page that has one is refused.
constexpr uint16_t kOffsetTags[] = {
    288,    // FreeOffsets
    330,    // SubIFDs
    513,    // JPEGInterchangeFormat
    519,    // JPEGQTables
    520,    // JPEGDCTables
    521,    // JPEGACTables
    34665,  // Exif directory
    34853,  // GPS directory
    40965,  // Interoperability directory
};

bool IsOffsetEntry(uint16_t tag, uint16_t type) {
  return type == kIfdType || std::find(std::begin(kOffsetTags), std::end(kOffsetTags), tag) != std::end(kOffsetTags);
}

// Bytes per value of each field type, and the size of the unit that byte order applies to.
size_t TypeSize(uint16_t type) {
  switch (type) {
    case 1:
    case 2:
    case 6:
    case 7:
      return 1;
    case 3:
    case 8:
      return 2;
    case 4:
    case 9:
    case 11:
    case 13:
      return 4;
    case 5:
    case 10:
    case 12:
      return 8;
    default:
      return 0;
  }
}

size_t UnitSize(uint16_t type) { return (type == 5 || type == 10) ? 4 : TypeSize(type); }

class Reader {
 public:
  Reader(std::string_view bytes, bool big) : bytes_(bytes), big_(big) {}
  bool Has(uint64_t offset, uint64_t length) const {
    return offset <= bytes_.size() && length <= bytes_.size() - offset;
  }
  uint32_t Get(uint64_t offset, size_t size) const {
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
      const auto b = static_cast<uint8_t>(bytes_[offset + i]);
      value |= big_ ? (static_cast<uint32_t>(b) << (8 * (size - 1 - i))) : (static_cast<uint32_t>(b) << (8 * i));
    }
    return value;
  }
  // Raw value bytes turned little-endian, unit by unit.
  std::string Little(uint64_t offset, size_t length, size_t unit) const {
    std::string out(bytes_.substr(offset, length));
    if (big_ && unit > 1) {
      for (size_t i = 0; i + unit <= out.size(); i += unit) std::reverse(out.begin() + i, out.begin() + i + unit);
    }
    return out;
  }

 private:
  std::string_view bytes_;
  bool big_;
};

uint32_t ValueAt(const TiffEntry& e, size_t index) {
  const size_t size = TypeSize(e.type);
  uint32_t value = 0;
  for (size_t i = 0; i < size && i < 4; ++i)
    value |= static_cast<uint32_t>(static_cast<uint8_t>(e.value[index * size + i])) << (8 * i);
  return value;
}

void Put(std::string& out, uint32_t value, size_t size) {
  for (size_t i = 0; i < size; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

void PutAt(std::string& out, size_t offset, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) out[offset + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
}

}  // namespace

std::optional<std::vector<TiffPage>> ReadTiff(std::string_view bytes, std::string* refused) {
  if (bytes.size() < 8) return std::nullopt;
  bool big;
  if (bytes.substr(0, 4) == std::string_view("II*\0", 4)) {
    big = false;
  } else if (bytes.substr(0, 4) == std::string_view("MM\0*", 4)) {
    big = true;
  } else {
    return std::nullopt;
  }
  const Reader r(bytes, big);
  std::vector<TiffPage> pages;
  std::set<uint32_t> seen;
  for (uint32_t ifd = r.Get(4, 4); ifd != 0;) {
    if (!seen.insert(ifd).second || pages.size() >= kMaxPages || !r.Has(ifd, 2)) return std::nullopt;
    const uint32_t n = r.Get(ifd, 2);
    if (!r.Has(ifd + 2, uint64_t{n} * 12 + 4)) return std::nullopt;
    TiffPage page;
    TiffEntry offsets, counts;
    for (uint32_t i = 0; i < n; ++i) {
      const uint64_t at = ifd + 2 + uint64_t{i} * 12;
      TiffEntry e;
      e.tag = static_cast<uint16_t>(r.Get(at, 2));
      e.type = static_cast<uint16_t>(r.Get(at + 2, 2));
      e.count = r.Get(at + 4, 4);
      if (IsOffsetEntry(e.tag, e.type)) {
        if (refused != nullptr) *refused = "TIFF-Tag " + std::to_string(e.tag) + " verweist in die Datei";
        return std::nullopt;
      }
      const size_t size = TypeSize(e.type);
      if (size == 0) continue;  // unknown type: dropped
      const uint64_t length = uint64_t{e.count} * size;
      const uint64_t where = length <= 4 ? at + 8 : r.Get(at + 8, 4);
      if (!r.Has(where, length)) return std::nullopt;
      e.value = r.Little(where, static_cast<size_t>(length), UnitSize(e.type));
      if (e.tag == kStripOffsets || e.tag == kTileOffsets) {
        offsets = std::move(e);
        page.tiled = offsets.tag == kTileOffsets;
      } else if (e.tag == kStripByteCounts || e.tag == kTileByteCounts) {
        counts = std::move(e);
      } else {
        page.entries.push_back(std::move(e));
      }
    }
    if (offsets.count == 0 || offsets.count != counts.count) return std::nullopt;
    for (uint32_t i = 0; i < offsets.count; ++i) {
      const uint32_t at = ValueAt(offsets, i), length = ValueAt(counts, i);
      if (!r.Has(at, length)) return std::nullopt;
      page.chunks.emplace_back(bytes.substr(at, length));
    }
    pages.push_back(std::move(page));
    ifd = r.Get(ifd + 2 + uint64_t{n} * 12, 4);
  }
  if (pages.empty()) return std::nullopt;
  return pages;
}

std::string WriteTiff(const std::vector<TiffPage>& pages) {
  std::string out("II*\0\0\0\0\0", 8);
  size_t link = 4;  // where the offset of the next directory goes
  for (const TiffPage& page : pages) {
    std::vector<TiffEntry> entries = page.entries;
    TiffEntry offsets{static_cast<uint16_t>(page.tiled ? kTileOffsets : kStripOffsets), 4,
                      static_cast<uint32_t>(page.chunks.size()), std::string(page.chunks.size() * 4, '\0')};
    TiffEntry counts{static_cast<uint16_t>(page.tiled ? kTileByteCounts : kStripByteCounts),
                     4,
                     static_cast<uint32_t>(page.chunks.size()),
                     {}};
    for (const std::string& c : page.chunks) Put(counts.value, static_cast<uint32_t>(c.size()), 4);
    entries.push_back(offsets);
    entries.push_back(counts);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const TiffEntry& a, const TiffEntry& b) { return a.tag < b.tag; });

    // Chunks first, then the values that do not fit into an entry, then the directory itself.
    std::vector<uint32_t> chunk_at;
    for (const std::string& c : page.chunks) {
      if (out.size() % 2) out += '\0';
      chunk_at.push_back(static_cast<uint32_t>(out.size()));
      out += c;
    }
    for (TiffEntry& e : entries) {
      if (e.tag == offsets.tag) {
        e.value.clear();
        for (uint32_t at : chunk_at) Put(e.value, at, 4);
      }
    }
    std::vector<uint32_t> value_at(entries.size(), 0);
    for (size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].value.size() <= 4) continue;
      if (out.size() % 2) out += '\0';
      value_at[i] = static_cast<uint32_t>(out.size());
      out += entries[i].value;
    }
    if (out.size() % 2) out += '\0';
    PutAt(out, link, static_cast<uint32_t>(out.size()));
    Put(out, static_cast<uint32_t>(entries.size()), 2);
    for (size_t i = 0; i < entries.size(); ++i) {
      const TiffEntry& e = entries[i];
      Put(out, e.tag, 2);
      Put(out, e.type, 2);
      Put(out, e.count, 4);
      if (e.value.size() <= 4) {
        std::string inline_value = e.value;
        inline_value.resize(4, '\0');
        out += inline_value;
      } else {
        Put(out, value_at[i], 4);
      }
    }
    link = out.size();
    Put(out, 0, 4);
  }
  return out;
}

}  // namespace halqvantor::gateway
