// The Next members that read the result rows themselves, fed arbitrary rows and call orders. Input: four
// bytes of program (each half byte picks the next member to call), then the answer rows split at CR LF.
// A run-time error is the expected answer to a malformed row; the walk never leaves the rows.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "component/vantor_impl.h"
#include "halqvantor/RuntimeError.h"
#include "halqvantor/clsVantor.h"

namespace {

using halqvantor::Variant;

void Call(halqvantor::clsVantor& v, int member) {
  Variant o[11];
  switch (member % 13) {
    case 0:
      v.EASYGetChannelsNext(&o[0]);
      break;
    case 1:
      v.EASYGetArchivesNext();
      break;
    case 2:
      v.EASYGetAllArchivesNext();
      break;
    case 3:
      v.EASYGetSegmentSelectListNext();
      break;
    case 4:
      v.EASYGetQueryFormatListNext();
      break;
    case 5:
      v.EASYGetSegmentDescriptionNext(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5], &o[6], &o[7], &o[8], &o[9], &o[10]);
      break;
    case 6:
      v.EASYGetMasksNext(&o[0]);
      break;
    case 7:
      v.EASYGetMasksNextField(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5], &o[6], &o[7]);
      break;
    case 8:
      v.EASYGetMasksFirst();
      break;
    case 9:
      v.EASYGetAllArchivesExtNext(&o[0], &o[1]);
      break;
    case 10:
      v.EASYGetAllArchivesExtNextArchive();
      break;
    case 11:
      v.EASYGetAllArchivesExtFirst();
      break;
    case 12:
      v.EASYGetSegmentERFNext(&o[0], &o[1], &o[2], &o[3]);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  static halqvantor::clsVantor v;
  halqvantor::clsVantor::Impl& d = halqvantor::VantorAccess::Of(v);
  d.ResultRows.clear();
  const std::string_view text(reinterpret_cast<const char*>(data) + 4, size - 4);
  for (size_t start = 0;;) {
    const size_t end = text.find("\r\n", start);
    d.ResultRows.emplace_back(text.substr(start, end == std::string_view::npos ? end : end - start));
    if (end == std::string_view::npos) break;
    start = end + 2;
  }
  d.ResultCount = static_cast<int32_t>(d.ResultRows.size());
  d.ResultCursor = 0;
  for (int step = 0; step < 8; ++step) {
    const int member = (step % 2 == 0 ? data[step / 2] : data[step / 2] >> 4) & 0x0F;
    try {
      Call(v, member);
    } catch (const halqvantor::RuntimeError&) {
      // A malformed row, or a walk past the answer's end.
    }
    if (d.ResultCursor < 0 || d.ResultCursor > d.ResultCount) std::abort();
  }
  return 0;
}
