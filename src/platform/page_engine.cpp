#include <algorithm>

#include "halqvantor/PageEngine.h"

namespace halqvantor {

int32_t MemoryPageRequest::TotalBytes() { return static_cast<int32_t>(std::min<size_t>(body_.size(), INT32_MAX)); }

std::vector<uint8_t> MemoryPageRequest::BinaryRead(int32_t count) {
  if (count <= 0 || read_position_ >= body_.size()) return {};
  const size_t n = std::min(static_cast<size_t>(count), body_.size() - read_position_);
  std::vector<uint8_t> out(body_.begin() + static_cast<std::ptrdiff_t>(read_position_),
                           body_.begin() + static_cast<std::ptrdiff_t>(read_position_ + n));
  read_position_ += n;
  return out;
}

}  // namespace halqvantor
