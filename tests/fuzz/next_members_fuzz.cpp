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
#include "fuzz/fuzz_check.h"
#include "halqvantor/RuntimeError.h"
#include "halqvantor/clsVantor.h"

namespace {

using halqvantor::clsVantor;
using halqvantor::Variant;

// The members a program may call, by half byte modulo their number.
void (*const kMembers[])(clsVantor&, Variant*) = {
    [](clsVantor& v, Variant* o) { v.EASYGetChannelsNext(&o[0]); },
    [](clsVantor& v, Variant*) { v.EASYGetArchivesNext(); },
    [](clsVantor& v, Variant*) { v.EASYGetAllArchivesNext(); },
    [](clsVantor& v, Variant*) { v.EASYGetSegmentSelectListNext(); },
    [](clsVantor& v, Variant*) { v.EASYGetQueryFormatListNext(); },
    [](clsVantor& v, Variant* o) {
      v.EASYGetSegmentDescriptionNext(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5], &o[6], &o[7], &o[8], &o[9], &o[10]);
    },
    [](clsVantor& v, Variant* o) { v.EASYGetMasksNext(&o[0]); },
    [](clsVantor& v, Variant* o) { v.EASYGetMasksNextField(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5], &o[6], &o[7]); },
    [](clsVantor& v, Variant*) { v.EASYGetMasksFirst(); },
    [](clsVantor& v, Variant* o) { v.EASYGetAllArchivesExtNext(&o[0], &o[1]); },
    [](clsVantor& v, Variant*) { v.EASYGetAllArchivesExtNextArchive(); },
    [](clsVantor& v, Variant*) { v.EASYGetAllArchivesExtFirst(); },
    [](clsVantor& v, Variant* o) { v.EASYGetSegmentERFNext(&o[0], &o[1], &o[2], &o[3]); },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  static halqvantor::clsVantor v;
  halqvantor::clsVantor::Impl& d = halqvantor::VantorAccess::Of(v);
  // The rows of a reply whose payload is the input after a status line.
  d.ResultRows = halqvantor::platform::RowList::LinesAfterFirst(
      "Status: OK\r\n" + std::string(reinterpret_cast<const char*>(data) + 4, size - 4));
  d.ResultCount = static_cast<int32_t>(d.ResultRows.size());
  d.ResultCursor = 0;
  for (int step = 0; step < 8; ++step) {
    const int member = (step % 2 == 0 ? data[step / 2] : data[step / 2] >> 4) & 0x0F;
    try {
      Variant o[11];
      kMembers[member % 13](v, o);
    } catch (const halqvantor::RuntimeError&) {
      // A malformed row, or a walk past the answer's end.
    }
    if (d.ResultCursor < 0 || d.ResultCursor > d.ResultCount) std::abort();
  }
  return 0;
}
