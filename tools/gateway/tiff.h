#pragma once

// Pages of TIFF files, for multi-page TIFF downloads and thumbnails. A page is taken over as it is: its
// directory entries and its strip (or tile) data, whatever the compression, are copied into a new file in
// little-endian order with the data offsets rewritten.

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
// (classic TIFF, either byte order).
std::optional<std::vector<TiffPage>> ReadTiff(std::string_view bytes);
// A little-endian TIFF file of the pages in the given order.
std::string WriteTiff(const std::vector<TiffPage>& pages);

}  // namespace halqvantor::gateway
