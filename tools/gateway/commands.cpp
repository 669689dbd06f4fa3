#include "commands.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <exception>
#include <set>
#include <utility>

#include "import_file.h"
#include "link/text_encoding.h"
#include "pdf_writer.h"
#include "platform/vb_runtime.h"
#include "query.h"
#include "status.h"
#include "text.h"
#include "tiff.h"

namespace halqvantor::gateway {
namespace {

[[noreturn]] void Fail(int code, const std::string& detail = {}) {
  throw GatewayError(code,
                     detail.empty() ? std::string(StandardMessage(code)) : StandardMessage(code) + (": " + detail));
}

// The one place a text answer is framed: "TotalBytes:" + payload length + CR LF, then the payload, which is
// the status line and the rows, each ended by CR LF.
std::string FrameAnswer(std::string_view status, const std::vector<std::string>& rows) {
  size_t length = status.size() + kCrLf.size();
  for (const std::string& row : rows) length += row.size() + kCrLf.size();
  std::string frame = "TotalBytes:" + std::to_string(length);
  frame.reserve(frame.size() + kCrLf.size() + length);
  frame += kCrLf;
  frame += status;
  frame += kCrLf;
  for (const std::string& row : rows) {
    frame += row;
    frame += kCrLf;
  }
  return frame;
}

// The local date ("DD.MM.YYYY") and time ("hh:mm:ss").
std::string LocalNow(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, format, &parts);
  return text;
}

std::string Today() { return LocalNow("%d.%m.%Y"); }

std::string Reference(const std::string& channel, const std::string& archive) {
  return "$(#" + channel + ")\\" + archive;
}

bool HasRight(const std::string& rights, char right) { return rights.find(right) != std::string::npos; }

// A 32-bit count argument; "" counts as 0.
int64_t CountArgument(const std::string& text, const char* name) {
  if (Trim(text).empty()) return 0;
  const auto value = ParseInteger(Trim(text));
  if (!value) Fail(kBadArgument, name);
  return *value;
}

// Page numbers "1,2,5" (empty: all), at most `max_pages` of them.
std::vector<int64_t> PageList(const std::string& text, size_t max_pages) {
  std::vector<int64_t> pages;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    if (comma == std::string::npos) comma = text.size();
    const std::string piece = Trim(text.substr(start, comma - start));
    if (!piece.empty()) {
      const auto page = ParseInteger(piece);
      if (!page || *page < 1) Fail(kBadArgument, "Seitenliste");
      if (pages.size() == max_pages) Fail(kBadArgument, "mehr als " + std::to_string(max_pages) + " Seiten");
      pages.push_back(*page);
    }
    start = comma + 1;
  }
  return pages;
}

}  // namespace

const char* StandardMessage(int code) {
  switch (code) {
    case kBusy:
      return "Server ausgelastet, bitte sp\xE4ter erneut versuchen";
    case kLogonFailed:
      return "Anmeldung fehlgeschlagen";
    case kNoPermission:
      return "Keine Berechtigung";
    case kUnknownChannel:
      return "Kanal unbekannt";
    case kUnknownArchive:
      return "Archiv unbekannt";
    case kUnknownDocument:
      return "Dokument nicht gefunden";
    case kUnknownField:
      return "Feld unbekannt";
    case kUnknownLayout:
      return "Layout unbekannt";
    case kUnknownQueryFormat:
      return "Abfrageformat unbekannt";
    case kNoSuchPage:
      return "Seite nicht vorhanden";
    case kBadQuery:
      return "Ung\xFCltige Abfrage";
    case kBadArgument:
      return "Ung\xFCltiger Parameter";
    case kBadPath:
      return "Pfad au\xDF"
             "erhalb des Blob-Verzeichnisses";
    case kFileNotFound:
      return "Datei nicht gefunden";
    case kFileNotWritten:
      return "Datei kann nicht geschrieben werden";
    case kBadImportFile:
      return "Importdatei fehlerhaft";
    case kBadFraming:
      return "Ung\xFCltiges Anfrageformat";
    case kUnknownCommand:
      return "Unbekanntes Kommando";
    case kWrongArgumentCount:
      return "Falsche Anzahl von Argumenten";
    case kIncompleteRequest:
      return "Anfrage unvollst\xE4ndig";
    case kRequestTooLarge:
      return "Anfrage zu gro\xDF";
    case kAnswerTooLarge:
      return "Antwort zu gro\xDF";
    default:
      return "Interner Fehler";
  }
}

Answer OkAnswer(const std::vector<std::string>& rows) { return {FrameAnswer("Status: OK", rows), false}; }

Answer ErrorAnswer(int code, const std::string& message) {
  return {FrameAnswer("Status: Error " + std::to_string(code) + " " + OneLine(message), {}), false};
}

struct Commands::Target {
  Channel* channel;
  Archive* archive;
  Document* document;
  Version* version;
};

Commands::Commands(Store& store, BlobFolder blob, int busy_answers, CommandLimits limits)
    : store_(store),
      blob_(std::move(blob)),
      limits_(std::move(limits)),
      busy_left_(busy_answers),
      sessions_(limits_.max_session_bytes, limits_.session_idle, limits_.now) {
  for (const Account& account : store_.data().accounts) {
    try {
      encoded_passwords_[Upper(account.user)] = EncodeText(FromWire(account.password));
    } catch (const std::exception&) {
      // A password the encoding cannot carry can never be sent: the account cannot log on.
    }
  }
}

namespace {

bool ChangesArchive(const std::string& command) {
  return command == "WriteNote" || command == "DeleteNotes" || command == "CreateDocument" ||
         command == "EditDocument" || command == "DeleteDocument";
}

}  // namespace

Answer Commands::Handle(const Request& request) {
  const bool unrepeated = request.command == "TransferBLOB" || request.command == "UploadFile";
  if (!unrepeated) {
    const std::lock_guard lock(busy_mutex_);
    if (busy_left_ > 0) {
      --busy_left_;
      return ErrorAnswer(kBusy, StandardMessage(kBusy));
    }
  }
  if (request.command == "TransferBLOB") {
    if (!LogOn(request)) return {{}, true};
    return TransferBlob(request);
  }
  try {
    if (!LogOn(request)) Fail(kLogonFailed);
    Rows rows;
    if (ChangesArchive(request.command)) {
      const std::unique_lock lock(store_mutex_);
      rows = Dispatch(request);
    } else {
      const std::shared_lock lock(store_mutex_);
      rows = Dispatch(request);
    }
    size_t size = 0;
    for (const std::string& row : rows) size += row.size() + kCrLf.size();
    if (size > limits_.max_answer_bytes) Fail(kAnswerTooLarge, std::to_string(size) + " Bytes");
    return OkAnswer(rows);
  } catch (const GatewayError& e) {
    return ErrorAnswer(e.code(), e.what());
  } catch (const std::exception& e) {
    return ErrorAnswer(kInternalError, StandardMessage(kInternalError) + (": " + ToWire(e.what())));
  }
}

bool Commands::LogOn(const Request& request) {
  const auto it = encoded_passwords_.find(Upper(request.user));
  return it != encoded_passwords_.end() && EqualsNoCase(it->second, request.password);
}

Commands::Rows Commands::Dispatch(const Request& r) {
  const std::string& c = r.command;
  if (c == "GetChannels") return GetChannels();
  if (c == "GetArchives") return GetArchives(r);
  if (c == "GetAllArchives") return GetAllArchives(r);
  if (c == "GetArchiveDescription") return GetArchiveDescription(r);
  if (c == "GetSegmentSelectList") return GetSegmentSelectList(r);
  if (c == "QueryArchive") return QueryArchive(r);
  if (c == "GetQueryFormatList") return GetQueryFormatList(r);
  if (c == "GetDocumentInfo") return GetDocumentInfo(r);
  if (c == "GetSegmentDescription") return GetSegmentDescription(r);
  if (c == "GetSegmentText") return GetSegmentText(r);
  if (c == "GetNotes") return GetNotes(r);
  if (c == "WriteNote") return WriteNote(r);
  if (c == "DeleteNotes") return DeleteNotes(r);
  if (c == "GetMasks") return GetMasks(r);
  if (c == "GetAllArchivesExt") return GetAllArchivesExt(r);
  if (c == "GetArchiveProperties") return GetArchiveProperties(r);
  if (c == "GetSegmentData") return GetSegmentData(r);
  if (c == "GetSegmentPDF") return GetSegmentPdf(r, r.args[4], r.args[5], r.args[6], "");
  if (c == "GetSegmentPrintfile") return GetSegmentPrintfile(r);
  if (c == "GetSegmentMultiTIF") return GetSegmentMultiTif(r);
  if (c == "GetSegmentERF") return GetSegmentErf(r);
  if (c == "UploadFile") return UploadFile(r);
  if (c == "CreateDocument") return ImportDocuments(r, false);
  if (c == "EditDocument") return ImportDocuments(r, true);
  if (c == "DeleteDocument") return DeleteDocument(r);
  Fail(kUnknownCommand, c);
}

// ---- lookups ---------------------------------------------------------------------------------------------

Archive& Commands::ArchiveFor(const std::string& channel, const std::string& archive, const std::string& user,
                              char right) {
  Channel* c = store_.data().FindChannel(channel);
  if (c == nullptr) Fail(kUnknownChannel, channel);
  Archive* a = c->FindArchive(archive);
  if (a == nullptr) Fail(kUnknownArchive, archive);
  if (!HasRight(a->RightsOf(user), right)) Fail(kNoPermission, Reference(c->name, a->name));
  return *a;
}

Commands::Target Commands::DocumentFor(const Request& r, char right) {
  Archive& archive = ArchiveFor(r.args[0], r.args[1], r.user, right);
  Document* doc = archive.FindDocument(Trim(r.args[2]));
  if (doc == nullptr) Fail(kUnknownDocument, r.args[2]);
  const std::string ver = Trim(r.args[3]);
  Version* version = &doc->versions.back();
  if (!ver.empty()) {
    version = nullptr;
    for (Version& v : doc->versions) {
      if (std::to_string(v.version) == ver) version = &v;
    }
    if (version == nullptr) Fail(kUnknownDocument, r.args[2] + " Version " + ver);
  }
  return {store_.data().FindChannel(r.args[0]), &archive, doc, version};
}

static const Segment& SegmentOf(const Archive& archive, const Version& version, const std::string& id_or_code) {
  const SegmentKind* kind = archive.FindSegmentKind(Trim(id_or_code));
  if (kind != nullptr) {
    for (const Segment& s : version.segments) {
      if (s.id == kind->id) return s;
    }
  }
  Fail(kUnknownField, "Segment " + id_or_code);
}

std::string Commands::SegmentBytes(const Archive& archive, const Segment& segment) {
  const SegmentKind& kind = *archive.SegmentKindById(segment.id);
  if (kind.type == kReferenceSegment) return vb::Join(segment.references, kCrLf) + std::string(kCrLf);
  if (kind.type == kTextSegment) {
    {
      const std::lock_guard lock(text_cache_mutex_);
      const auto cached = text_cache_.find(segment.file);
      if (cached != text_cache_.end()) return cached->second;
    }
    const std::string text = vb::Join(SplitLines(ToWire(ReadWholeFile(store_.ContentPath(segment.file)))), kCrLf);
    const std::lock_guard lock(text_cache_mutex_);
    return text_cache_.emplace(segment.file, text).first->second;
  }
  return ReadWholeFile(store_.ContentPath(segment.file));
}

std::vector<std::string> Commands::TextsOf(const Archive& archive, const Version& version) {
  std::vector<std::string> texts;
  for (const Segment& s : version.segments) {
    if (archive.SegmentKindById(s.id)->type == kTextSegment) texts.push_back(SegmentBytes(archive, s));
  }
  return texts;
}

std::string Commands::WriteDownload(const std::string& remote_folder, const std::string& name, const std::string& bytes,
                                    Rows& rows) {
  WriteWholeFile(blob_.ResolveFile(remote_folder, name), bytes);
  rows = {std::to_string(bytes.size()), name};
  return name;
}

// ---- channel and archive lists ---------------------------------------------------------------------------

Commands::Rows Commands::GetChannels() {
  Rows rows;
  for (const Channel& c : store_.data().channels) rows.push_back(c.name + "," + OneLine(c.description));
  return rows;
}

Commands::Rows Commands::GetArchives(const Request& r) {
  Channel* c = store_.data().FindChannel(r.args[0]);
  if (c == nullptr) Fail(kUnknownChannel, r.args[0]);
  Rows rows;
  for (const Archive& a : c->archives) {
    if (HasRight(a.RightsOf(r.user), 'R')) rows.push_back(a.name);
  }
  return rows;
}

Commands::Rows Commands::GetAllArchives(const Request& r) {
  Rows rows;
  for (const Channel& c : store_.data().channels) {
    for (const Archive& a : c.archives) {
      if (HasRight(a.RightsOf(r.user), 'R')) rows.push_back(Reference(c.name, a.name));
    }
  }
  return rows;
}

Commands::Rows Commands::GetAllArchivesExt(const Request& r) {
  Rows rows;
  for (const Channel& c : store_.data().channels) {
    rows.push_back("#" + c.name + "," + OneLine(c.description));
    for (const Archive& a : c.archives) {
      if (HasRight(a.RightsOf(r.user), 'R')) rows.push_back(a.name);
    }
  }
  return rows;
}

// ---- archive description ---------------------------------------------------------------------------------

Commands::Rows Commands::GetArchiveDescription(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  Rows rows = {a.RightsOf(r.user)};
  for (const Field& f : a.fields) {
    rows.push_back(Row({std::to_string(f.id), f.name, std::to_string(f.type), std::to_string(f.size),
                        std::to_string(f.state), std::to_string(f.weight), f.select_list.empty() ? "0" : "1"}));
  }
  return rows;
}

Commands::Rows Commands::GetSegmentSelectList(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  const Field* f = a.FindField(Trim(r.args[2]));
  if (f == nullptr) Fail(kUnknownField, r.args[2]);
  return f->select_list;
}

Commands::Rows Commands::GetArchiveProperties(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  const std::string rights = a.RightsOf(r.user);
  std::string line;
  for (char right : {'C', 'E', 'D', 'I'}) line += HasRight(rights, right) ? "1," : "0,";
  return {line + std::to_string(a.documents.size())};
}

Commands::Rows Commands::GetMasks(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  Rows rows;
  for (const Mask& m : a.masks) {
    rows.push_back("@" + m.name);
    for (const MaskField& mf : m.fields) {
      const Field& f = *a.FieldById(mf.field);
      std::vector<std::string> columns = {std::to_string(mf.field),
                                          std::to_string(mf.tab),
                                          std::to_string(mf.width),
                                          mf.align,
                                          mf.name.empty() ? f.name : mf.name,
                                          mf.mandatory ? "1" : "0",
                                          mf.init,
                                          mf.list_only ? "1" : "0"};
      const std::vector<std::string>& list = mf.list.empty() ? f.select_list : mf.list;
      columns.insert(columns.end(), list.begin(), list.end());
      rows.push_back(Row(columns));
    }
  }
  return rows;
}

// ---- query -----------------------------------------------------------------------------------------------

Commands::Rows Commands::GetQueryFormatList(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  Rows rows;
  for (const QueryFormat& q : a.query_formats) rows.push_back(q.name);
  return rows;
}

namespace {

// The fields a hit list shows: those of the query format named (any case), else of the archive's first
// format, else every field.
std::vector<int> HitListFields(const Archive& a, const std::string& format) {
  if (!format.empty()) {
    const QueryFormat* chosen = nullptr;
    for (const QueryFormat& q : a.query_formats) {
      if (EqualsNoCase(q.name, format)) chosen = &q;
    }
    if (chosen == nullptr) Fail(kUnknownQueryFormat, format);
    return chosen->columns;
  }
  if (!a.query_formats.empty()) return a.query_formats.front().columns;
  std::vector<int> columns;
  for (const Field& f : a.fields) columns.push_back(f.id);
  return columns;
}

// "id=layout" of each segment kind with a layout, separated by ";".
std::string LayoutList(const Archive& a) {
  std::string layouts;
  for (const SegmentKind& s : a.segments) {
    if (s.layout.empty()) continue;
    if (!layouts.empty()) layouts += ';';
    layouts += std::to_string(s.id) + "=" + s.layout;
  }
  return layouts;
}

// Whether each of the hits shown (at least one) has a TIFF image segment.
bool EveryHitHasTiff(const Archive& a, const std::vector<const Document*>& hits, size_t shown) {
  if (shown == 0) return false;
  for (size_t i = 0; i < shown; ++i) {
    bool image = false;
    for (const Segment& s : hits[i]->current().segments) {
      const SegmentKind& kind = *a.SegmentKindById(s.id);
      image = image || (kind.type == kImageSegment && EqualsNoCase(kind.ext, "TIF"));
    }
    if (!image) return false;
  }
  return true;
}

// The hit list's two head rows: the column types, then the titles.
std::pair<std::string, std::string> HitListHead(const Archive& a, const std::vector<int>& columns) {
  std::vector<std::string> types = {"0", "512", "512"};
  std::vector<std::string> titles = {"Ablage", "Dokument", "Version"};
  for (int id : columns) {
    const Field& f = *a.FieldById(id);
    types.push_back(f.type == kDateField ? "1024" : f.type == kNumberField ? "512" : "0");
    titles.push_back(f.name);
  }
  return {Row(types), Row(titles)};
}

std::string HitRow(const std::string& reference, const Document& hit, const std::vector<int>& columns) {
  const Version& v = hit.current();
  std::vector<std::string> line = {reference, hit.id, std::to_string(v.version)};
  for (int id : columns) {
    const auto value = v.index.find(std::to_string(id));
    line.push_back(value == v.index.end() ? std::string() : OneLine(value->second));
  }
  return Row(line);
}

}  // namespace

std::vector<const Document*> Commands::FindHits(const Archive& a, const Query& query, const Query& restriction,
                                                int64_t query_max) {
  std::vector<const Document*> hits;
  for (const Document& doc : a.documents) {
    const std::vector<std::string> texts = TextsOf(a, doc.current());
    if (Matches(query, doc.current(), texts) && Matches(restriction, doc.current(), texts)) hits.push_back(&doc);
    if (query_max > 0 && static_cast<int64_t>(hits.size()) >= query_max) break;
  }
  return hits;
}

// Rows: the hit count, the layout list, the TIFF flag, the two head rows, then one row per hit shown.
Commands::Rows Commands::QueryArchive(const Request& r) {
  const Archive& a = ArchiveFor(r.args[0], r.args[1], r.user, 'R');
  const Channel& channel = *store_.data().FindChannel(r.args[0]);
  const Query query = ParseQuery(r.args[2], a);
  const Query restriction = ParseQuery(r.args[6], a);
  const int64_t max_lines = CountArgument(r.args[4], "lngMaxLines");
  const int64_t query_max = CountArgument(r.args[5], "lngQueryMax");
  const std::vector<int> columns = HitListFields(a, Trim(r.args[3]));
  sessions_.Put(r.session, query.words);

  const std::vector<const Document*> hits = FindHits(a, query, restriction, query_max);
  const size_t shown = max_lines > 0 ? std::min(hits.size(), static_cast<size_t>(max_lines)) : hits.size();
  const auto [types, titles] = HitListHead(a, columns);
  Rows rows = {std::to_string(hits.size()), LayoutList(a), EveryHitHasTiff(a, hits, shown) ? "1" : "0", types, titles};
  const std::string reference = Reference(channel.name, a.name);
  for (size_t i = 0; i < shown; ++i) rows.push_back(HitRow(reference, *hits[i], columns));
  return rows;
}

// ---- documents -------------------------------------------------------------------------------------------

// Clients read the blob segment count up to the separator after it, so the version count follows it.
Commands::Rows Commands::GetDocumentInfo(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  size_t length = 0;
  int counts[4] = {0, 0, 0, 0};  // all, text, image, blob
  for (const Segment& s : t.version->segments) {
    length += SegmentBytes(*t.archive, s).size();
    const int type = t.archive->SegmentKindById(s.id)->type;
    ++counts[0];
    ++counts[type == kTextSegment ? 1 : type == kImageSegment ? 2 : 3];
  }
  return {Row({t.channel->name, t.archive->name, t.document->id, std::to_string(t.version->version),
               std::to_string(length), t.document->created, t.version->changed, OneLine(t.version->title),
               std::to_string(counts[0]), std::to_string(counts[1]), std::to_string(counts[2]),
               std::to_string(counts[3]), std::to_string(t.document->versions.size())})};
}

Commands::Rows Commands::GetSegmentDescription(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  const std::string thumbnails = r.args[4];
  const auto words = sessions_.Get(r.session);
  Rows rows = {std::to_string(t.document->notes.size())};
  for (const Segment& s : t.version->segments) {
    const SegmentKind& kind = *t.archive->SegmentKindById(s.id);
    const std::string bytes = SegmentBytes(*t.archive, s);
    int hits = 0;
    if (kind.type == kTextSegment && words) MarkWords(bytes, *words, "", "", &hits);
    size_t thumbnail = 0;
    if (kind.type == kImageSegment && !Trim(thumbnails).empty()) {
      if (const auto pages = ReadTiff(bytes)) {
        const std::string small = WriteTiff({pages->front()});
        const std::string name =
            "TN_" + t.document->id + "_" + std::to_string(t.version->version) + "_" + std::to_string(s.id) + ".TIF";
        WriteWholeFile(blob_.ResolveFile(thumbnails, name), small);
        thumbnail = small.size();
      }
    }
    const size_t slash = s.file.find_last_of("/\\");
    const std::string file_name = kind.type == kReferenceSegment
                                      ? t.document->id + "." + kind.ext
                                      : (slash == std::string::npos ? s.file : s.file.substr(slash + 1));
    rows.push_back(
        Row({std::to_string(s.id), kind.code, std::to_string(kind.type == kTextSegment ? bytes.size() : 0),
             std::to_string(hits), std::to_string(kind.type == kImageSegment ? bytes.size() : 0), kind.ext,
             std::to_string(kind.type), kind.title, file_name, "0", kind.layout, std::to_string(thumbnail)}));
  }
  return rows;
}

Commands::Rows Commands::GetSegmentText(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  const std::vector<std::string> words = FreeTextWords(r.args[4]);
  const std::string& blank = r.args[7];
  Rows rows;
  size_t answer = 0;
  for (const Segment& s : t.version->segments) {
    if (t.archive->SegmentKindById(s.id)->type != kTextSegment) continue;
    std::string text = MarkWords(SegmentBytes(*t.archive, s), words, r.args[5], r.args[6], nullptr);
    if (!blank.empty()) {
      // The size is known before the text is built, so a long replacement is refused before it costs.
      const size_t blanks = static_cast<size_t>(std::count(text.begin(), text.end(), ' '));
      const size_t grown = blanks > 0 && blank.size() > 1 ? blanks * (blank.size() - 1) : 0;
      if (blanks > 0 && blank.size() > 1 && grown / blanks != blank.size() - 1) Fail(kAnswerTooLarge);
      answer += text.size() + grown;
      if (answer > limits_.max_answer_bytes) Fail(kAnswerTooLarge, std::to_string(answer) + " Bytes");
      std::string replaced;
      replaced.reserve(text.size() + grown);
      for (const char c : text) {
        if (c == ' ') {
          replaced += blank;
        } else {
          replaced += c;
        }
      }
      text = std::move(replaced);
    }
    std::vector<std::string> lines = SplitLines(text);
    if (lines.empty()) lines.emplace_back();
    lines.front().insert(0, "^");
    lines.back() += '^';
    rows.insert(rows.end(), lines.begin(), lines.end());
  }
  return rows;
}

Commands::Rows Commands::GetNotes(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  Rows rows;
  int number = 0;
  for (const Note& n : t.document->notes) {
    rows.push_back(Row({std::to_string(++number), n.author, n.date, n.time}));
    std::vector<std::string> lines = SplitLines(n.text);
    if (lines.empty()) lines.emplace_back();
    lines.front().insert(0, "^");
    lines.back() += '^';
    rows.insert(rows.end(), lines.begin(), lines.end());
  }
  return rows;
}

// Writing a note changes the document: it needs the edit right, as deleting notes does.
Commands::Rows Commands::WriteNote(const Request& r) {
  const Target t = DocumentFor(r, 'E');
  std::string text = r.args[4];
  if (text.size() > limits_.max_note_bytes) {
    Fail(kRequestTooLarge, "Notiz l\xE4nger als " + std::to_string(limits_.max_note_bytes) + " Bytes");
  }
  const std::string& line_break = r.args[5];
  if (!line_break.empty() && line_break != kCrLf) ReplaceAll(text, line_break, kCrLf);
  store_.AppendNote(*t.channel, *t.archive, *t.document,
                    {r.user, Today(), LocalNow("%H:%M:%S"), vb::Join(SplitLines(text), kCrLf)});
  return {};
}

Commands::Rows Commands::DeleteNotes(const Request& r) {
  const Target t = DocumentFor(r, 'E');
  store_.ClearNotes(*t.channel, *t.archive, *t.document);
  return {};
}

// ---- downloads -------------------------------------------------------------------------------------------

namespace {

std::string DownloadName(const Document& d, const Version& v, const std::string& rest) {
  return d.id + "_" + std::to_string(v.version) + "_" + rest;
}

// The pages of an image segment to re-pack; error 41 names the segment and says why it cannot be used.
std::vector<TiffPage> TiffPagesOf(int segment_id, std::string_view bytes) {
  std::string refused;
  std::optional<std::vector<TiffPage>> pages = ReadTiff(bytes, &refused);
  if (!pages) {
    Fail(kBadArgument, "Segment " + std::to_string(segment_id) +
                           (refused.empty() ? std::string(" ist kein TIFF-Bild") : ": " + refused));
  }
  return std::move(*pages);
}

}  // namespace

Commands::Rows Commands::GetSegmentData(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  const Segment& s = SegmentOf(*t.archive, *t.version, r.args[4]);
  const SegmentKind& kind = *t.archive->SegmentKindById(s.id);
  Rows rows;
  WriteDownload(r.args[5], DownloadName(*t.document, *t.version, std::to_string(s.id) + "." + kind.ext),
                SegmentBytes(*t.archive, s), rows);
  return rows;
}

Commands::Rows Commands::GetSegmentPdf(const Request& r, const std::string& segment, const std::string& layout_id,
                                       const std::string& folder, const std::string& suffix) {
  const Target t = DocumentFor(r, 'R');
  const Segment& s = SegmentOf(*t.archive, *t.version, segment);
  const SegmentKind& kind = *t.archive->SegmentKindById(s.id);
  const std::string wanted = Trim(layout_id);
  const Layout* layout = nullptr;
  if (!wanted.empty() && wanted != "0") {
    layout = t.archive->FindLayout(wanted);
    if (layout == nullptr) Fail(kUnknownLayout, wanted);
  } else if (!kind.layout.empty()) {
    layout = t.archive->FindLayout(kind.layout);
  }
  const std::string bytes = SegmentBytes(*t.archive, s);
  const std::string name = DownloadName(*t.document, *t.version,
                                        std::to_string(s.id) + "_L" + (layout ? layout->id : "0") + suffix + ".PDF");
  Rows rows;
  if (EqualsNoCase(kind.ext, "PDF")) {
    WriteDownload(folder, name, bytes, rows);  // already a PDF
    return rows;
  }
  std::vector<std::string> lines = {
      "Archiv: " + Reference(t.channel->name, t.archive->name),
      "Dokument: " + t.document->id + "  Version " + std::to_string(t.version->version) + "  vom " + t.version->changed,
      "Titel: " + OneLine(t.version->title)};
  if (layout != nullptr) {
    for (int id : layout->fields) {
      const auto value = t.version->index.find(std::to_string(id));
      lines.push_back(t.archive->FieldById(id)->name + ": " +
                      (value == t.version->index.end() ? std::string() : OneLine(value->second)));
    }
  }
  lines.push_back("");
  lines.push_back(kind.title + ":");
  if (kind.type == kTextSegment || kind.type == kReferenceSegment) {
    for (std::string& line : SplitLines(bytes)) lines.push_back(std::move(line));
  } else if (const auto pages = kind.type == kImageSegment ? ReadTiff(bytes) : std::nullopt) {
    lines.push_back("Bild, " + std::to_string(pages->size()) + " Seite(n), " + std::to_string(bytes.size()) + " Bytes");
  } else {
    lines.push_back("Datei (" + kind.ext + "), " + std::to_string(bytes.size()) + " Bytes");
  }
  WriteDownload(folder, name, RenderTextPdf(layout ? layout->name : kind.title, lines), rows);
  return rows;
}

Commands::Rows Commands::GetSegmentPrintfile(const Request& r) {
  const std::string mode = Trim(r.args[7]);
  if (mode.empty() || mode == "0") return GetSegmentPdf(r, r.args[4], r.args[5], r.args[6], "_P");
  if (mode != "1") Fail(kBadArgument, "intMode");
  const Target t = DocumentFor(r, 'R');
  const Segment& s = SegmentOf(*t.archive, *t.version, r.args[4]);
  const SegmentKind& kind = *t.archive->SegmentKindById(s.id);
  const std::string wanted = Trim(r.args[5]);
  if (!wanted.empty() && wanted != "0" && t.archive->FindLayout(wanted) == nullptr) Fail(kUnknownLayout, wanted);
  const std::vector<TiffPage> pages =
      TiffPagesOf(s.id, kind.type == kImageSegment ? SegmentBytes(*t.archive, s) : std::string());
  Rows rows;
  WriteDownload(r.args[6], DownloadName(*t.document, *t.version, std::to_string(s.id) + "_P.TIF"), WriteTiff(pages),
                rows);
  return rows;
}

Commands::Rows Commands::GetSegmentMultiTif(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  std::vector<TiffPage> all;
  for (const Segment& s : t.version->segments) {
    if (t.archive->SegmentKindById(s.id)->type != kImageSegment) continue;
    for (TiffPage& p : TiffPagesOf(s.id, SegmentBytes(*t.archive, s))) all.push_back(std::move(p));
  }
  if (all.empty()) Fail(kNoSuchPage, "Dokument ohne Bildseiten");
  std::vector<TiffPage> chosen;
  const std::vector<int64_t> wanted = PageList(r.args[4], limits_.max_pages);
  std::vector<size_t> indexes;
  for (int64_t page : wanted) {
    if (page > static_cast<int64_t>(all.size())) Fail(kNoSuchPage, std::to_string(page));
    indexes.push_back(static_cast<size_t>(page - 1));
  }
  if (wanted.empty()) {
    for (size_t i = 0; i < all.size(); ++i) indexes.push_back(i);
  }
  if (indexes.size() > limits_.max_pages) {
    Fail(kBadArgument, "mehr als " + std::to_string(limits_.max_pages) + " Seiten");
  }
  // The file's size is known from its pages before any is copied.
  size_t size = 0;
  for (size_t i : indexes) {
    for (const std::string& chunk : all[i].chunks) size += chunk.size();
  }
  if (size > limits_.max_answer_bytes) Fail(kAnswerTooLarge, std::to_string(size) + " Bytes");
  for (size_t i : indexes) chosen.push_back(all[i]);
  Rows rows;
  WriteDownload(r.args[5], DownloadName(*t.document, *t.version, "MULTI.TIF"), WriteTiff(chosen), rows);
  return rows;
}

Commands::Rows Commands::GetSegmentErf(const Request& r) {
  const Target t = DocumentFor(r, 'R');
  const Segment& s = SegmentOf(*t.archive, *t.version, r.args[4]);
  if (t.archive->SegmentKindById(s.id)->type != kReferenceSegment) {
    Fail(kBadArgument, "Segment " + std::to_string(s.id) + " ist kein Verweissegment");
  }
  return s.references;
}

// ---- blob transfer and upload ----------------------------------------------------------------------------

Answer Commands::TransferBlob(const Request& r) {
  try {
    return {ReadWholeFile(blob_.Resolve(r.args[0])), true};
  } catch (const GatewayError&) {
    return {{}, true};  // no header to carry an error: the connection just ends
  }
}

Commands::Rows Commands::UploadFile(const Request& r) {
  WriteWholeFile(blob_.ResolveFile(r.args[0], r.args[1]), r.body);
  return {std::to_string(r.body.size())};
}

namespace {

// The bytes of a streamed upload: a temporary file beside the target, or only the error to answer.
class UploadSink : public UploadBody {
 public:
  UploadSink(int code, std::string message) : code_(code), message_(std::move(message)) {}
  UploadSink(std::filesystem::path target, std::filesystem::path temporary, std::FILE* file)
      : target_(std::move(target)), temporary_(std::move(temporary)), file_(file) {}
  ~UploadSink() override { Discard(); }

  void Append(std::string_view bytes) override {
    if (file_ == nullptr) return;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) FailWrite();
    size_ += bytes.size();
  }

  // Puts the file in place; the answer's rows, or throws the error.
  Answer Finish() {
    if (file_ != nullptr && std::fclose(std::exchange(file_, nullptr)) != 0) FailWrite();
    if (code_ != 0) return ErrorAnswer(code_, message_);
    std::error_code ec;
    std::filesystem::rename(temporary_, target_, ec);
    if (ec) {
      FailWrite();
      return ErrorAnswer(code_, message_);
    }
    temporary_.clear();
    return OkAnswer({std::to_string(size_)});
  }

 private:
  void FailWrite() {
    code_ = kFileNotWritten;
    message_ = StandardMessage(kFileNotWritten) + (": " + ToWire(target_.filename().string()));
    Discard();
  }
  void Discard() {
    if (file_ != nullptr) std::fclose(std::exchange(file_, nullptr));
    if (!temporary_.empty()) {
      std::error_code ignored;
      std::filesystem::remove(temporary_, ignored);
      temporary_.clear();
    }
  }

  int code_ = 0;
  std::string message_;
  std::filesystem::path target_, temporary_;
  std::FILE* file_ = nullptr;
  size_t size_ = 0;
};

std::atomic<uint64_t> upload_counter{0};

}  // namespace

std::unique_ptr<UploadBody> Commands::OpenUpload(const Request& head) {
  if (!LogOn(head)) return std::make_unique<UploadSink>(kLogonFailed, StandardMessage(kLogonFailed));
  std::filesystem::path target;
  try {
    target = blob_.ResolveFile(head.args[0], head.args[1]);
  } catch (const GatewayError& e) {
    return std::make_unique<UploadSink>(e.code(), e.what());
  }
  std::error_code ignored;
  std::filesystem::create_directories(target.parent_path(), ignored);
  const std::filesystem::path temporary =
      target.parent_path() / ("." + target.filename().string() + ".upload-" + std::to_string(++upload_counter));
  std::FILE* file = std::fopen(temporary.c_str(), "wbx");
  if (file == nullptr) {
    return std::make_unique<UploadSink>(kFileNotWritten,
                                        StandardMessage(kFileNotWritten) + (": " + ToWire(target.filename().string())));
  }
  return std::make_unique<UploadSink>(target, temporary, file);
}

Answer Commands::FinishUpload(const Request& request, UploadBody* body) {
  auto* sink = dynamic_cast<UploadSink*>(body);
  if (sink == nullptr) return Handle(request);  // not streamed: the body is in the request
  return sink->Finish();
}

// ---- create, edit, delete --------------------------------------------------------------------------------

// A new version made from one import description, checked in full before the archive changes.
struct Commands::Plan {
  Archive* archive = nullptr;
  Document* existing = nullptr;  // edit: the document that gets the version
  Document fresh;                // create: the new document
  Version version;
  std::vector<std::pair<std::string, std::string>> files;  // content file, bytes (UTF-8 for text)

  const std::string& DocumentId() const { return existing != nullptr ? existing->id : fresh.id; }
};

namespace {

// The folder of an import file's remote path ("" when it names none).
std::string RemoteFolderOf(const std::string& path) {
  const size_t cut = path.find_last_of('\\');
  return cut == std::string::npos ? std::string() : path.substr(0, cut);
}

// The version an edit starts from: the one named after a comma in `id_argument` ("17,2"), else the current.
const Version& EditBase(Archive& archive, const std::string& id_argument, Document** document) {
  std::string id = Trim(id_argument);
  std::string wanted;
  if (const size_t comma = id.find(','); comma != std::string::npos) {
    wanted = Trim(id.substr(comma + 1));
    id = Trim(id.substr(0, comma));
  }
  Document* doc = archive.FindDocument(id);
  if (doc == nullptr) Fail(kUnknownDocument, id);
  *document = doc;
  if (wanted.empty()) return doc->current();
  for (const Version& v : doc->versions) {
    if (std::to_string(v.version) == wanted) return v;
  }
  Fail(kUnknownDocument, id + " Version " + wanted);
}

// An index value of types 1 to 3, checked against its field.
void SetIndexValue(const Archive& archive, const ImportGroup& g, Version& version) {
  const Field* f = archive.FindField(g.id);
  if (f == nullptr) Fail(kUnknownField, g.id);
  const std::string value = OneLine(g.value);
  if (f->type != g.type) Fail(kBadImportFile, "Feldtyp von " + f->name);
  if (f->type == kNumberField && !value.empty() && !IsDecimalNumber(value)) Fail(kBadImportFile, f->name);
  if (f->type == kDateField && !value.empty() && !IsDate(value)) Fail(kBadImportFile, f->name);
  if (f->size > 0 && value.size() > static_cast<size_t>(f->size)) Fail(kBadImportFile, f->name + " zu lang");
  version.index[std::to_string(f->id)] = value;
}

}  // namespace

// A segment of types 4 (text given in the import file) and 5 (a file beside the import file); it replaces
// the base version's segment of that kind.
void Commands::AddImportedSegment(Plan& p, const ImportGroup& g, const std::string& import_folder) {
  if (g.type != 4 && g.type != 5) Fail(kBadImportFile, "Feldtyp " + std::to_string(g.type));
  const SegmentKind* kind = p.archive->FindSegmentKind(g.id);
  if (kind == nullptr) Fail(kUnknownField, "Segment " + g.id);
  const bool text = g.type == 4;
  if (text != (kind->type == kTextSegment) || kind->type == kReferenceSegment) {
    Fail(kBadImportFile, "Feldtyp von Segment " + g.id);
  }
  std::string bytes = text ? FromWire(g.value) : ReadWholeFile(blob_.ResolveFile(import_folder, g.value));
  const std::string file = "files/" + p.DocumentId() + "_" + std::to_string(p.version.version) + "_" +
                           std::to_string(kind->id) + "." + (text ? std::string("txt") : kind->ext);
  std::erase_if(p.version.segments, [&](const Segment& s) { return s.id == kind->id; });
  p.version.segments.push_back({kind->id, file, {}});
  p.files.emplace_back(file, std::move(bytes));
}

Commands::Plan Commands::PlanImport(const Request& r, const ImportDescription& d, bool edit,
                                    const std::string& import_folder, int64_t& next_id) {
  Plan p;
  p.archive = &ArchiveFor(d.channel, d.archive, r.user, edit ? 'E' : 'C');
  if (edit) {
    p.version = EditBase(*p.archive, r.args[1], &p.existing);
    p.version.version = p.existing->current().version + 1;
    if (!d.title.empty()) p.version.title = d.title;
  } else {
    p.fresh.id = std::to_string(next_id++);
    p.fresh.created = Today();
    p.version.title = d.title;
  }
  p.version.changed = Today();
  for (const ImportGroup& g : d.groups) {
    if (g.type >= kTextField && g.type <= kDateField) {
      SetIndexValue(*p.archive, g, p.version);
    } else {
      AddImportedSegment(p, g, import_folder);
    }
  }
  std::sort(p.version.segments.begin(), p.version.segments.end(),
            [](const Segment& a, const Segment& b) { return a.id < b.id; });
  return p;
}

// Writes the planned content files and versions, then saves the archive; a row "id,version" per plan.
Commands::Rows Commands::CommitImport(std::vector<Plan>& plans) {
  Rows rows;
  for (Plan& p : plans) {
    for (const auto& [file, bytes] : p.files) {
      WriteWholeFile(store_.ContentPath(file), bytes);
      const std::lock_guard lock(text_cache_mutex_);
      text_cache_.erase(file);
    }
    rows.push_back(p.DocumentId() + "," + std::to_string(p.version.version));
    if (p.existing != nullptr) {
      p.existing->versions.push_back(p.version);
    } else {
      p.fresh.versions.push_back(p.version);
      p.archive->documents.push_back(std::move(p.fresh));
    }
  }
  store_.Save();
  return rows;
}

// Everything is checked and the new versions made before the archive changes.
Commands::Rows Commands::ImportDocuments(const Request& r, bool edit) {
  const std::string& import_path = r.args[0];
  const std::vector<ImportDescription> descriptions = ParseImportFile(ReadWholeFile(blob_.Resolve(import_path)));
  if (edit && descriptions.size() != 1) Fail(kBadImportFile, "genau eine Beschreibung erwartet");
  const std::string import_folder = RemoteFolderOf(import_path);
  int64_t next_id = *ParseInteger(store_.NewDocumentId());
  std::vector<Plan> plans;
  for (const ImportDescription& d : descriptions) plans.push_back(PlanImport(r, d, edit, import_folder, next_id));
  return CommitImport(plans);
}

Commands::Rows Commands::DeleteDocument(const Request& r) {
  const Target t = DocumentFor(r, 'D');
  std::vector<Version>& versions = t.document->versions;
  if (!Trim(r.args[3]).empty() && versions.size() > 1) {
    std::erase_if(versions, [&](const Version& v) { return &v == t.version; });
  } else {
    store_.RemoveNotes(*t.channel, *t.archive, *t.document);
    std::erase_if(t.archive->documents, [&](const Document& d) { return &d == t.document; });
  }
  store_.Save();
  return {};
}

}  // namespace halqvantor::gateway
