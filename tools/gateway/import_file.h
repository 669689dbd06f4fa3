#pragma once

// Import files for "CreateDocument" and "EditDocument". A file holds one or more descriptions, each:
//   @DB,$(#channel)\archive
//   @CHARSET,name                      optional; "UTF-8" for UTF-8 text, anything else is Windows-1252
//   @FOLDER,FT:title{,type:id}
//   contents                           up to the next "@DB," line; may span lines
// The contents hold one value per field group in the column layout ("^v1^,^v2^"). Types: 1 text, 2 number,
// 3 date (DD.MM.YYYY) for index fields named by id or short name; 4 a text segment whose value is the text;
// 5 a file segment whose value is a file name in the import file's folder.
// The component writes these files; this parser is the gateway's own so that it checks what the component
// writes rather than repeating it.

#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::gateway {

struct ImportGroup {
  int type = 0;
  std::string id;
  std::string value;
};

struct ImportDescription {
  std::string channel;
  std::string archive;
  std::string title;
  std::vector<ImportGroup> groups;
};

// Throws GatewayError kBadImportFile with the reason.
std::vector<ImportDescription> ParseImportFile(std::string_view bytes);

}  // namespace halqvantor::gateway
