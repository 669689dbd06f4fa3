#include "import_file.h"

#include "platform/vb_runtime.h"
#include "status.h"
#include "text.h"

namespace halqvantor::gateway {
namespace {

[[noreturn]] void Bad(const std::string& why) {
  throw GatewayError(kBadImportFile, StandardMessage(kBadImportFile) + (": " + why));
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

// A ",type:id" group piece: digits, ":", a non-empty id.
bool IsGroup(std::string_view piece) {
  const size_t colon = piece.find(':');
  if (colon == 0 || colon == std::string_view::npos || colon + 1 == piece.size()) return false;
  return piece.substr(0, colon).find_first_not_of("0123456789") == std::string_view::npos;
}

ImportDescription ParseOne(const std::vector<std::string>& lines) {
  ImportDescription d;
  const std::string& db = lines[0];
  const size_t close = db.find(")\\");
  if (!StartsWithNoCase(db, "@DB,$(#") || close == std::string::npos) Bad("@DB-Zeile");
  d.channel = db.substr(7, close - 7);
  d.archive = db.substr(close + 2);

  size_t i = 1;
  bool utf8 = false;
  if (i < lines.size() && StartsWithNoCase(lines[i], "@CHARSET,")) {
    const std::string name = Upper(Trim(lines[i].substr(9)));
    utf8 = name == "UTF-8" || name == "UTF8";
    ++i;
  }
  if (i >= lines.size() || !StartsWithNoCase(lines[i], "@FOLDER,FT:")) Bad("@FOLDER-Zeile fehlt");
  std::string folder = lines[i].substr(11);
  std::string contents;
  for (size_t k = i + 1; k < lines.size(); ++k) {
    if (k > i + 1) contents += kCrLf;
    contents += lines[k];
  }
  if (utf8) {
    folder = ToWire(folder);
    contents = ToWire(contents);
  }

  // Groups are read from the end, so a title may hold commas.
  std::vector<std::string> pieces;
  for (size_t start = 0;;) {
    const size_t comma = folder.find(',', start);
    pieces.push_back(folder.substr(start, comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  size_t first_group = pieces.size();
  while (first_group > 1 && IsGroup(pieces[first_group - 1])) --first_group;
  d.title = vb::Join(std::vector<std::string>(pieces.begin(), pieces.begin() + static_cast<long>(first_group)), ",");
  for (size_t k = first_group; k < pieces.size(); ++k) {
    const size_t colon = pieces[k].find(':');
    d.groups.push_back(
        {static_cast<int>(*ParseInteger(pieces[k].substr(0, colon).substr(0, 6))), pieces[k].substr(colon + 1), {}});
  }
  if (d.groups.empty()) return d;
  const std::vector<std::string> values = SplitColumns(contents);
  if (values.size() != d.groups.size()) {
    Bad(std::to_string(d.groups.size()) + " Felder, aber " + std::to_string(values.size()) + " Werte");
  }
  for (size_t k = 0; k < values.size(); ++k) d.groups[k].value = values[k];
  return d;
}

}  // namespace

std::vector<ImportDescription> ParseImportFile(std::string_view bytes) {
  std::vector<ImportDescription> out;
  std::vector<std::string> block;
  for (std::string& line : SplitLines(bytes)) {
    if (StartsWithNoCase(line, "@DB,")) {
      if (!block.empty()) out.push_back(ParseOne(block));
      block.clear();
    } else if (block.empty()) {
      if (Trim(line).empty()) continue;
      Bad("erste Zeile ist keine @DB-Zeile");
    }
    block.push_back(std::move(line));
  }
  if (!block.empty()) out.push_back(ParseOne(block));
  if (out.empty()) Bad("leer");
  return out;
}

}  // namespace halqvantor::gateway
