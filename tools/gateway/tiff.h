#pragma once

// Pages of TIFF files, for multi-page TIFF downloads and thumbnails. A page is taken over as it is: its
// directory entries and its strip (or tile) data, whatever the compression, are copied into a new file in
// little-endian order with the strip (tile) offsets rewritten. Those are the only offsets rewritten: a page
// with another entry that points into the file (sub-directories, Exif and GPS directories, old-style JPEG
// tables, free lists, any entry of the directory type) is refused rather than copied with a dangling
// offset. Entries of a type this reader does not know are dropped.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::gateway {

struct TiffEntry {
  uint16_t tag = 0;
  uint16_t type = 0;
  uint32_t count = 0;
  std::string value;  // count values, little-endian
};

struct TiffPage {
  std::vector<TiffEntry> entries;  // without the data offset and byte count entries
  bool tiled = false;
  std::vector<std::string> chunks;  // strip or tile data in order
};

// The pages of a TIFF file, or nothing when the bytes are not a TIFF file this reader understands
// (classic TIFF, either byte order). A page refused for an offset entry also sets `refused` to the reason
// (Windows-1252), when given.
std::optional<std::vector<TiffPage>> ReadTiff(std::string_view bytes, std::string* refused = nullptr);
// A little-endian TIFF file of the pages in the given order.
std::string WriteTiff(const std::vector<TiffPage>& pages);

}  // namespace halqvantor::gateway
