// The gateway's query language fed arbitrary queries and document texts: ParseQuery answers with a query
// or a GatewayError, and matching and marking a text never fail. Input: the query, a zero byte, then the
// document's text (its first line also its index value of field 1).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "archive.h"
#include "query.h"
#include "status.h"

namespace {

using namespace halqvantor::gateway;

const Archive& SampleArchive() {
  static const Archive archive = [] {
    Archive a;
    a.name = "Rechnungen";
    a.fields.push_back({1, "KUNDE", "Kunde", kTextField, 40, 0, 1, {}});
    a.fields.push_back({2, "BETRAG", "Betrag", kNumberField, 12, 0, 2, {}});
    a.fields.push_back({3, "DATUM", "Datum", kDateField, 10, 0, 3, {}});
    return a;
  }();
  return archive;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t zero = input.find('\0');
  const std::string_view query_text = input.substr(0, zero);
  const std::string_view text = zero == std::string_view::npos ? std::string_view() : input.substr(zero + 1);

  (void)FreeTextWords(query_text);
  Query query;
  try {
    query = ParseQuery(query_text, SampleArchive());
  } catch (const GatewayError&) {
    return 0;  // a malformed condition or an unknown field
  }
  for (const Condition& c : query.conditions) {
    if (SampleArchive().FieldById(c.field) == nullptr) std::abort();
  }

  Version version;
  version.title = "Rechnung 4711";
  version.index["1"] = std::string(text.substr(0, text.find('\n')));
  version.index["3"] = "15.11.2002";
  (void)Matches(query, version, {std::string(text)});

  int hits = 0;
  const std::string marked = MarkWords(text, query.words, "<", ">", &hits);
  if (marked.size() != text.size() + 2 * static_cast<size_t>(hits)) std::abort();
  return 0;
}
