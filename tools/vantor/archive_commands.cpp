// Sub-commands that read the archive: channels, archives, fields, query, doc, text, notes, masks.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "output.h"
#include "platform/sorted_list.h"
#include "platform/vb_runtime.h"
#include "session.h"
#include "table.h"

namespace vantor {
namespace {

using halqvantor::Variant;

const Variant kMissing = Variant::missing();

Variant OrMissing(const std::string& text) { return text.empty() ? kMissing : Variant(text); }

// How many items an Init announced (0 for anything that is not a count).
int32_t CountOf(const Variant& result) { return result.IsNumeric() ? result.ToLong() : 0; }

// Label/value lines with the values aligned.
void PrintFacts(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& facts) {
  size_t width = 0;
  for (const auto& fact : facts) width = std::max(width, DisplayWidth(fact.first));
  for (const auto& [label, value] : facts) {
    out << label << ':' << std::string(width - DisplayWidth(label) + 1, ' ') << EscapeControls(value) << '\n';
  }
}

std::string FieldTypeName(const std::string& type) {
  if (type == "1") return "text";
  if (type == "2") return "number";
  if (type == "3") return "date";
  return type;
}

std::string SegmentTypeName(const std::string& type) {
  if (type == "1") return "text";
  if (type == "2") return "image";
  if (type == "3") return "file";
  if (type == "4") return "references";
  return type;
}

std::string YesNo(const Variant& flag) { return flag.IsEmpty() ? "" : (flag.ToBoolean() ? "yes" : "no"); }

// ---- channels, archives

int RunChannels(Session& session) {
  auto& vantor = session.Open();
  Variant status;
  session.Calling("EASYGetChannelsInit");
  Variant count = vantor.EASYGetChannelsInit(&status);
  session.Check(count, status);
  Listing listing({"channel", "description"});
  session.Calling("EASYGetChannelsNext");
  for (int32_t i = 0; i < CountOf(count); ++i) {
    Variant description;
    std::string name = Text(vantor.EASYGetChannelsNext(&description));
    listing.Add({name, Text(description)});
  }
  session.Print(listing);
  return 0;
}

int RunArchives(Session& session, const std::string& channel) {
  auto& vantor = session.Open();
  Variant status;
  Listing listing({"channel", "archive"});
  if (!channel.empty()) {
    session.Calling("EASYGetArchivesInit");
    Variant count = vantor.EASYGetArchivesInit(channel, &status);
    session.Check(count, status);
    session.Calling("EASYGetArchivesNext");
    for (int32_t i = 0; i < CountOf(count); ++i) listing.Add({channel, Text(vantor.EASYGetArchivesNext())});
  } else {
    // The extended list groups the archives under their channels.
    session.Calling("EASYGetAllArchivesExtInit");
    Variant count = vantor.EASYGetAllArchivesExtInit(&status);
    session.Check(count, status);
    for (int32_t c = 0; c < CountOf(count); ++c) {
      Variant name, description;
      session.Calling("EASYGetAllArchivesExtNext");
      int32_t archives = vantor.EASYGetAllArchivesExtNext(&name, &description).ToLong();
      session.Calling("EASYGetAllArchivesExtNextArchive");
      for (int32_t a = 0; a < archives; ++a) {
        listing.Add({Text(name), Text(vantor.EASYGetAllArchivesExtNextArchive())});
      }
    }
  }
  session.Print(listing);
  return 0;
}

// ---- fields: the archive description with the select lists

int RunFields(Session& session, const std::string& channel, const std::string& archive) {
  auto& vantor = session.Open();
  Variant rights, status;
  session.Calling("EASYGetArchiveDescriptionInit");
  Variant count = vantor.EASYGetArchiveDescriptionInit(channel, archive, &rights, &status);
  session.Check(count, status);
  struct Field {
    std::string id, name, type, size, state, weight, select;
  };
  std::vector<Field> fields;
  session.Calling("EASYGetArchiveDescriptionNext");
  for (int32_t i = 0; i < CountOf(count); ++i) {
    Variant id, type, size, state, weight, select;
    std::string name = Text(vantor.EASYGetArchiveDescriptionNext(&id, &type, &size, &state, &weight, &select));
    fields.push_back({Text(id), name, Text(type), Text(size), Text(state), Text(weight), Text(select)});
  }
  Listing listing({{"id", ColumnKind::kNumber},
                   "name",
                   "type",
                   {"size", ColumnKind::kNumber},
                   {"state", ColumnKind::kNumber},
                   {"weight", ColumnKind::kNumber},
                   {"select list", ColumnKind::kList}});
  for (const Field& field : fields) {
    std::vector<std::string> entries;
    if (field.select == "1") {
      Variant list_status;
      session.Calling("EASYGetSegmentSelectListInit");
      Variant entry_count = vantor.EASYGetSegmentSelectListInit(channel, archive, field.id, &list_status);
      session.Check(entry_count, list_status);
      session.Calling("EASYGetSegmentSelectListNext");
      for (int32_t i = 0; i < CountOf(entry_count); ++i) entries.push_back(Text(vantor.EASYGetSegmentSelectListNext()));
    }
    listing.Add({field.id, field.name, FieldTypeName(field.type), field.size, field.state, field.weight, entries});
  }
  if (session.json()) {
    session.PrintJson({{"rights", Text(rights)}, {"fields", listing.ToJson()}});
  } else {
    if (!session.csv()) session.out() << "rights: " << EscapeControls(Text(rights)) << '\n';
    session.Print(listing);
  }
  return 0;
}

// ---- query, formats

struct QueryArgs {
  std::string channel, archive, query, format;
  int32_t max = 0;
  std::vector<std::string> sorts;
  bool ascending = false, descending = false;
};

// The hit list as Next or SortHitlistNext hand it out: the title line first, then the hits.
template <typename NextFn>
void ReadHitList(NextFn next, std::vector<std::string>& titles, std::vector<std::vector<std::string>>& hits) {
  Variant channel, archive, id, version;
  titles = DisplayColumns(Text(next(&channel, &archive, &id, &version)));
  hits.clear();
  for (;;) {
    Variant columns = next(&channel, &archive, &id, &version);
    std::string row = Text(columns);
    if (row.empty()) break;
    std::vector<std::string> cells = {Text(id), Text(version)};
    for (auto& cell : DisplayColumns(row)) cells.push_back(std::move(cell));
    hits.push_back(std::move(cells));
  }
}

// The component's column number of a sort column: a number as it is, else a title of the hit list
// ("id" and "version" included) without regard to case.
int32_t SortColumn(const std::string& column, const std::vector<std::string>& titles) {
  bool numeric =
      !column.empty() && std::all_of(column.begin(), column.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (numeric) {
    const std::optional<int64_t> number = column.size() <= 9 ? WholeNumber(column) : std::nullopt;
    if (!number || *number >= static_cast<int64_t>(titles.size()) + 2) {
      throw UsageError("no column " + column + " in the hit list (0 id, 1 version, 2 to " +
                       std::to_string(titles.size() + 1) + " the columns shown)");
    }
    return static_cast<int32_t>(*number);
  }
  std::string wanted = halqvantor::vb::UCase(column);
  if (wanted == "ID") return 0;
  if (wanted == "VERSION") return 1;
  std::string known = "id, version";
  for (size_t j = 0; j < titles.size(); ++j) {
    if (halqvantor::vb::UCase(titles[j]) == wanted) return static_cast<int32_t>(j) + 2;
    known += ", " + titles[j];
  }
  throw UsageError("no column \"" + column + "\" in the hit list (columns: " + known + ")");
}

// Whether every value of hit column `column` that is not empty is a date (and one at least is).
bool IsDateColumn(const std::vector<std::vector<std::string>>& hits, size_t column) {
  bool any = false;
  for (const auto& hit : hits) {
    if (column >= hit.size() || hit[column].empty()) continue;
    if (!IsoDate(hit[column])) return false;
    any = true;
  }
  return any;
}

// How two values of a sorted column compare as the sort sees them: dates by date, whole numbers by value,
// anything else by the component's text key. Negative, zero or positive.
int CompareSortValues(const std::string& a, const std::string& b) {
  const auto date_a = IsoDate(a), date_b = IsoDate(b);
  if (date_a && date_b) return date_a->compare(*date_b);
  const auto number_a = WholeNumber(a), number_b = WholeNumber(b);
  if (number_a && number_b) return *number_a < *number_b ? -1 : (*number_a > *number_b ? 1 : 0);
  return halqvantor::platform::SortKey(a).compare(halqvantor::platform::SortKey(b));
}

// The direction a sorted hit list shows in `column`: +1 ascending, -1 descending, 0 when its first and last
// hits do not tell (one hit, or equal values).
int SortDirection(const std::vector<std::vector<std::string>>& hits, size_t column) {
  if (hits.size() < 2 || column >= hits.front().size() || column >= hits.back().size()) return 0;
  const int order = CompareSortValues(hits.front()[column], hits.back()[column]);
  return order < 0 ? 1 : (order > 0 ? -1 : 0);
}

// The words for a direction: dates and document ids (which grow with every new document) run from the
// oldest or from the newest, other columns ascend or descend.
std::string DirectionText(int direction, bool by_age) {
  if (by_age) return direction > 0 ? "oldest first" : "newest first";
  return direction > 0 ? "ascending" : "descending";
}

// A JSON key for each title: snake_case, made unique against "id", "version" and one another.
std::vector<std::string> HitKeys(const std::vector<std::string>& titles) {
  std::vector<std::string> keys;
  std::vector<std::string> taken = {"id", "version"};
  for (size_t j = 0; j < titles.size(); ++j) {
    std::string key = SnakeCase(titles[j]);
    if (key.empty()) key = "column";
    const std::string base = key;
    for (int n = 2; std::find(taken.begin(), taken.end(), key) != taken.end() ||
                    std::find(taken.begin(), taken.end(), key + "_iso") != taken.end();
         ++n) {
      key = base + "_" + std::to_string(n);
    }
    taken.push_back(key);
    taken.push_back(key + "_iso");
    keys.push_back(key);
  }
  return keys;
}

int RunQuery(Session& session, const QueryArgs& args) {
  auto& vantor = session.Open();
  Variant total, status;
  session.Calling("EASYQueryArchiveInit");
  Variant count =
      vantor.EASYQueryArchiveInit(args.channel, args.archive, args.query, Variant(args.max), Variant(int32_t{0}),
                                  OrMissing(args.format), kMissing, nullptr, nullptr, &total, nullptr, &status);
  session.Check(count, status);

  std::vector<std::string> titles;
  std::vector<std::vector<std::string>> hits;
  session.Calling("EASYQueryArchiveNext");
  ReadHitList([&](Variant* c, Variant* a, Variant* d, Variant* v) { return vantor.EASYQueryArchiveNext(c, a, d, v); },
              titles, hits);
  auto sort = [&](int32_t column) {
    session.Calling("EASYSortHitlistInit");
    vantor.EASYSortHitlistInit(Variant(column));
    session.Calling("EASYSortHitlistNext");
    ReadHitList([&](Variant* c, Variant* a, Variant* d, Variant* v) { return vantor.EASYSortHitlistNext(c, a, d, v); },
                titles, hits);
  };
  // --asc / --desc alone sort by document id; each --sort reverses the one before, and a wanted direction
  // the last sort did not give takes one more.
  const int wanted = args.ascending ? 1 : (args.descending ? -1 : 0);
  std::vector<std::string> sorts = args.sorts;
  if (wanted != 0 && sorts.empty()) sorts.push_back("id");
  int32_t column = -1;
  for (const std::string& name : sorts) {
    column = SortColumn(name, titles);
    sort(column);
  }
  int direction = 0;
  if (column >= 0) {
    direction = SortDirection(hits, static_cast<size_t>(column));
    if (wanted != 0 && direction == -wanted) {
      sort(column);
      direction = SortDirection(hits, static_cast<size_t>(column));
    }
    if (direction == 0) direction = wanted != 0 ? wanted : 1;
  }

  const size_t columns = titles.size() + 2;
  std::vector<bool> dates(columns, false);
  for (size_t c = 2; c < columns; ++c) dates[c] = IsDateColumn(hits, c);
  const std::string sorted_by = column < 0 ? "" : (column == 0 ? "id" : column == 1 ? "version" : titles[column - 2]);
  const std::string order =
      column < 0 ? "" : DirectionText(direction, column == 0 || dates[static_cast<size_t>(column)]);

  if (session.json()) {
    const std::vector<std::string> keys = HitKeys(titles);
    Json column_list = Json::array();
    for (size_t j = 0; j < titles.size(); ++j) {
      column_list.push_back({{"key", keys[j]}, {"title", titles[j]}, {"date", static_cast<bool>(dates[j + 2])}});
    }
    Json hit_list = Json::array();
    for (const auto& hit : hits) {
      Json object = {{"id", hit[0]}, {"version", TypedValue(hit[1], ColumnKind::kNumber)}};
      for (size_t j = 0; j < titles.size(); ++j) {
        const std::string value = j + 2 < hit.size() ? hit[j + 2] : std::string();
        object[keys[j]] = value;
        if (dates[j + 2]) {
          const std::optional<std::string> iso = IsoDate(value);
          object[keys[j] + "_iso"] = iso ? Json(*iso) : Json(nullptr);
        }
      }
      hit_list.push_back(std::move(object));
    }
    const std::optional<int64_t> total_hits = WholeNumber(Text(total));
    Json sorted = nullptr;
    if (column >= 0) sorted = {{"column", sorted_by}, {"direction", order}};
    session.PrintJson({{"channel", args.channel},
                       {"archive", args.archive},
                       {"total_hits", total_hits ? Json(*total_hits) : Json(nullptr)},
                       {"shown", hits.size()},
                       {"sorted", sorted},
                       {"columns", column_list},
                       {"hits", hit_list}});
    return 0;
  }

  std::vector<Column> headings = {"id", {"version", ColumnKind::kNumber}};
  for (size_t j = 0; j < titles.size(); ++j) {
    headings.emplace_back(titles[j], dates[j + 2] ? ColumnKind::kDate : ColumnKind::kText);
  }
  Listing listing(headings);
  for (const auto& hit : hits) listing.AddTexts(hit);
  const std::string footer = std::to_string(listing.size()) + " of " + Text(total) + " hits" +
                             (column < 0 ? ", in the gateway's order" : ", sorted by " + sorted_by + ", " + order);
  session.Print(listing, footer);
  return 0;
}

int RunFormats(Session& session, const std::string& channel, const std::string& archive) {
  auto& vantor = session.Open();
  Variant status;
  session.Calling("EASYGetQueryFormatListInit");
  Variant count = vantor.EASYGetQueryFormatListInit(channel, archive, &status);
  session.Check(count, status);
  Listing listing({"format"});
  session.Calling("EASYGetQueryFormatListNext");
  for (int32_t i = 0; i < CountOf(count); ++i) listing.Add({Text(vantor.EASYGetQueryFormatListNext())});
  session.Print(listing);
  return 0;
}

// ---- doc, text, notes

int RunDoc(Session& session, const DocumentRef& doc) {
  auto& vantor = session.Open();
  Variant length, created, changed, title, fields, text_fields, image_fields, blob_fields, status;
  session.Calling("EASYGetDocumentInfo");
  Variant rows = vantor.EASYGetDocumentInfo(doc.channel, doc.archive, doc.id, doc.version, &length, &created, &changed,
                                            &title, &fields, &text_fields, &image_fields, &blob_fields, &status);
  session.Check(rows, status);

  Variant notes;
  session.Calling("EASYGetSegmentDescriptionInit");
  Variant count =
      vantor.EASYGetSegmentDescriptionInit(doc.channel, doc.archive, doc.id, doc.version, kMissing, &notes, &status);
  session.Check(count, status);
  Listing segments({{"id", ColumnKind::kNumber},
                    "name",
                    "title",
                    "type",
                    "ext",
                    {"text length", ColumnKind::kNumber},
                    {"image length", ColumnKind::kNumber},
                    {"hits", ColumnKind::kNumber},
                    "file",
                    "layout"});
  session.Calling("EASYGetSegmentDescriptionNext");
  for (int32_t i = 0; i < CountOf(count); ++i) {
    Variant id, text_length, hits, image_length, ext, type, segment_title, file, segment_status, layout, thumbnail;
    std::string name =
        Text(vantor.EASYGetSegmentDescriptionNext(&id, &text_length, &hits, &image_length, &ext, &type, &segment_title,
                                                  &file, &segment_status, &layout, &thumbnail));
    segments.Add({Text(id), name, Text(segment_title), SegmentTypeName(Text(type)), Text(ext), Text(text_length),
                  Text(image_length), Text(hits), Text(file), Text(layout)});
  }

  struct Fact {
    std::string label, value;
    ColumnKind kind;
  };
  const std::vector<Fact> typed_facts = {{"title", Text(title), ColumnKind::kText},
                                         {"length", Text(length), ColumnKind::kNumber},
                                         {"created", Text(created), ColumnKind::kDate},
                                         {"changed", Text(changed), ColumnKind::kDate},
                                         {"fields", Text(fields), ColumnKind::kNumber},
                                         {"text fields", Text(text_fields), ColumnKind::kNumber},
                                         {"image fields", Text(image_fields), ColumnKind::kNumber},
                                         {"file fields", Text(blob_fields), ColumnKind::kNumber},
                                         {"notes", Text(notes), ColumnKind::kNumber}};
  std::vector<std::pair<std::string, std::string>> facts;
  for (const Fact& fact : typed_facts) facts.emplace_back(fact.label, fact.value);
  if (session.json()) {
    Json info = Json::object();
    for (const Fact& fact : typed_facts) {
      info[SnakeCase(fact.label)] = TypedValue(fact.value, fact.kind);
      if (fact.kind == ColumnKind::kDate) {
        const std::optional<std::string> iso = IsoDate(fact.value);
        info[SnakeCase(fact.label) + "_iso"] = iso ? Json(*iso) : Json(nullptr);
      }
    }
    session.PrintJson({{"channel", doc.channel},
                       {"archive", doc.archive},
                       {"id", doc.id},
                       {"version", TypedValue(doc.version, ColumnKind::kNumber)},
                       {"info", info},
                       {"segments", segments.ToJson()}});
  } else if (session.csv()) {
    session.Print(segments);
  } else {
    PrintFacts(session.out(), facts);
    session.out() << '\n';
    session.Print(segments);
  }
  return 0;
}

struct TextArgs {
  DocumentRef doc;
  std::string query, mark_on, mark_off;
};

int RunText(Session& session, const TextArgs& args) {
  auto& vantor = session.Open();
  const DocumentRef& doc = args.doc;
  Variant status;
  session.Calling("EASYGetSegmentTextInit");
  Variant count = vantor.EASYGetSegmentTextInit(doc.channel, doc.archive, doc.id, doc.version, OrMissing(args.query),
                                                OrMissing(args.mark_on), OrMissing(args.mark_off), Variant("\n"),
                                                kMissing, &status);
  session.Check(count, status);
  std::vector<std::string> pieces;
  session.Calling("EASYGetSegmentTextNext");
  for (int32_t i = 0; i < CountOf(count); ++i) pieces.push_back(UnixLines(Text(vantor.EASYGetSegmentTextNext())));
  if (session.json()) {
    session.PrintJson(ToJson(pieces));
  } else {
    for (size_t i = 0; i < pieces.size(); ++i) {
      session.out() << (i > 0 ? "\n" : "") << EscapeControls(pieces[i], kKeepLineBreaks) << '\n';
    }
  }
  return 0;
}

struct NotesArgs {
  DocumentRef doc;
  std::string add;
  bool remove = false;
};

// A note as the component hands it out: its header row (number, author, date, time), ",", then its text.
std::vector<std::string> SplitNote(const std::string& note) {
  size_t at = 0;
  for (int separators = 0; separators < 3 && at != std::string::npos; ++separators) {
    at = note.find("^,^", at + 1);
  }
  size_t end = at == std::string::npos ? at : note.find('^', at + 3);
  if (note.empty() || note[0] != '^' || end == std::string::npos) return {"", "", "", "", UnixLines(note)};
  std::vector<std::string> cells = DisplayColumns(note.substr(0, end + 1));
  size_t text_start = std::min(note.size(), end + 2);  // past "^,"
  cells.push_back(UnixLines(note.substr(text_start)));
  return cells;
}

int RunNotes(Session& session, const NotesArgs& args) {
  auto& vantor = session.Open();
  const DocumentRef& doc = args.doc;
  Variant status;
  if (args.remove) {
    session.Calling("EASYDeleteNotes");
    session.Check(vantor.EASYDeleteNotes(doc.channel, doc.archive, doc.id, doc.version, &status), status);
  }
  if (!args.add.empty()) {
    session.Calling("EASYWriteNote");
    session.Check(vantor.EASYWriteNote(doc.channel, doc.archive, doc.id, doc.version, args.add, Variant("\n"), &status),
                  status);
  }
  session.Calling("EASYGetNotesInit");
  Variant count = vantor.EASYGetNotesInit(doc.channel, doc.archive, doc.id, doc.version, &status);
  session.Check(count, status);
  Listing listing({{"number", ColumnKind::kNumber}, "author", {"date", ColumnKind::kDate}, "time", "text"});
  session.Calling("EASYGetNotesNext");
  for (int32_t i = 0; i < CountOf(count); ++i) listing.AddTexts(SplitNote(Text(vantor.EASYGetNotesNext())));
  session.Print(listing);
  return 0;
}

// ---- masks

int RunMasks(Session& session, const std::string& channel, const std::string& archive) {
  auto& vantor = session.Open();
  Variant status;
  session.Calling("EASYGetMasksInit");
  Variant count = vantor.EASYGetMasksInit(channel, archive, &status);
  session.Check(count, status);
  Listing listing({"mask",
                   {"field", ColumnKind::kNumber},
                   {"tab", ColumnKind::kNumber},
                   {"width", ColumnKind::kNumber},
                   "align",
                   "name",
                   {"mandatory", ColumnKind::kFlag},
                   "initial",
                   {"list only", ColumnKind::kFlag},
                   {"list", ColumnKind::kList}});
  for (int32_t m = 0; m < CountOf(count); ++m) {
    Variant mask;
    session.Calling("EASYGetMasksNext");
    int32_t fields = vantor.EASYGetMasksNext(&mask).ToLong();
    session.Calling("EASYGetMasksNextField");
    for (int32_t f = 0; f < fields; ++f) {
      Variant tab, width, align, name, mandatory, initial, list_only, list;
      Variant id = vantor.EASYGetMasksNextField(&tab, &width, &align, &name, &mandatory, &initial, &list_only, &list);
      listing.Add({Text(mask), Text(id), Text(tab), Text(width), Text(align), Text(name), YesNo(mandatory),
                   Text(initial), YesNo(list_only), DisplayColumns(Text(list))});
    }
  }
  session.Print(listing);
  return 0;
}

// The CHANNEL and ARCHIVE positionals of a command that works on one archive.
std::shared_ptr<std::pair<std::string, std::string>> ArchiveArguments(CLI::App* command) {
  auto pair = std::make_shared<std::pair<std::string, std::string>>();
  command->add_option("CHANNEL", pair->first, "channel name")->required();
  command->add_option("ARCHIVE", pair->second, "archive name")->required();
  return pair;
}

}  // namespace

void AddArchiveCommands(CLI::App& app, Action& action) {
  auto* channels = app.add_subcommand("channels", "list the gateway's channels with their descriptions");
  channels->callback([&action] { action = RunChannels; });

  auto channel = std::make_shared<std::string>();
  auto* archives = app.add_subcommand("archives", "list the archives of one channel, or of all channels");
  archives->add_option("CHANNEL", *channel, "channel name (all channels when left out)");
  OnParsed(archives, action, channel, RunArchives);

  auto* fields = app.add_subcommand("fields", "describe an archive: your rights, its index fields and select lists");
  OnParsed(fields, action, ArchiveArguments(fields),
           [](Session& s, const auto& p) { return RunFields(s, p.first, p.second); });

  auto query = std::make_shared<QueryArgs>();
  auto* query_command = app.add_subcommand(
      "query", "search an archive and show the hit list (QUERY: .FIELD=(pattern) conditions joined by &, or words)");
  query_command->add_option("CHANNEL", query->channel, "channel name")->required();
  query_command->add_option("ARCHIVE", query->archive, "archive name")->required();
  query_command->add_option("QUERY", query->query, "the query (\"\" finds every document)")->required();
  query_command
      ->add_option_function<std::string>(
          "--max",
          [query](const std::string& text) {
            const std::optional<int64_t> max = WholeNumber(text);
            if (!max || *max < 0 || *max > INT32_MAX) {
              throw CLI::ValidationError("--max", "'" + text +
                                                      "' is no hit count: give a whole number from 0 (all hits) "
                                                      "to 2147483647");
            }
            query->max = static_cast<int32_t>(*max);
          },
          "show at most N hits (0: all)")
      ->type_name("N");
  query_command->add_option("--format", query->format, "query format naming the columns shown (see: vantor formats)");
  query_command
      ->add_option("--sort", query->sorts,
                   "sort by a column title (or number: 0 id, 1 version, 2 the first shown column); "
                   "each further --sort reverses the direction of the one before")
      ->allow_extra_args(false);
  auto* ascending = query_command->add_flag(
      "--asc", query->ascending, "the last --sort column ascending (dates and ids: oldest first; alone: by id)");
  query_command
      ->add_flag("--desc", query->descending,
                 "the last --sort column descending (dates and ids: newest first; alone: by id)")
      ->excludes(ascending);
  OnParsed(query_command, action, query, RunQuery);

  auto* formats = app.add_subcommand("formats", "list an archive's query formats (for query --format)");
  OnParsed(formats, action, ArchiveArguments(formats),
           [](Session& s, const auto& p) { return RunFormats(s, p.first, p.second); });

  auto doc = std::make_shared<DocumentRef>();
  auto* doc_command = app.add_subcommand("doc", "show a document's information and its segments");
  doc->AddTo(doc_command);
  OnParsed(doc_command, action, doc, RunDoc);

  auto text = std::make_shared<TextArgs>();
  auto* text_command = app.add_subcommand("text", "print a document's text segments, query words marked");
  text->doc.AddTo(text_command);
  text_command->add_option("--query", text->query, "query whose words are marked in the text");
  text_command->add_option("--mark-on", text->mark_on, "text put before each marked word");
  text_command->add_option("--mark-off", text->mark_off, "text put after each marked word");
  OnParsed(text_command, action, text, RunText);

  auto notes = std::make_shared<NotesArgs>();
  auto* notes_command = app.add_subcommand("notes", "list a document's notes; add one or delete all first");
  notes->doc.AddTo(notes_command);
  notes_command->add_option("--add", notes->add, "write this note (line breaks kept) before listing");
  notes_command->add_flag("--delete", notes->remove, "delete all notes of the document before listing");
  OnParsed(notes_command, action, notes, RunNotes);

  auto* masks = app.add_subcommand("masks", "list an archive's entry masks and their fields");
  OnParsed(masks, action, ArchiveArguments(masks),
           [](Session& s, const auto& p) { return RunMasks(s, p.first, p.second); });
}

}  // namespace vantor
