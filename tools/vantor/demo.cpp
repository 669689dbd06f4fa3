#include "demo.h"

#include <halqvantor/clsVantor.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "demo_setup.h"
#include "output.h"
#include "platform/sorted_list.h"
#include "platform/vb_runtime.h"
#include "session.h"
#include "table.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::clsVantor;
using halqvantor::Variant;
using halqvantor::VarType;
using halqvantor::vb::Join;

const char* const kChannel = "FIBU";
const char* const kArchive = "Eingangsrechnungen";
const char* const kDocument = "1000001";
const char* const kSession = "DEMO";
// Hit-list sort columns count from the document id (0) and version (1); the display columns follow, so the
// supplier, second column of the "Standard" format, is 3.
const int32_t kSupplierSortColumn = 3;

// ---- small helpers for what the component hands back

// A value as a message shows it: texts in quotes, numbers plain.
std::string Show(const Variant& value) {
  switch (value.type()) {
    case VarType::Empty:
      return "Empty";
    case VarType::Null:
      return "Null";
    case VarType::Missing:
      return "Missing";
    case VarType::String:
      return "\"" + value.ToString() + "\"";
    default:
      return value.ToString();
  }
}

// The text of a String result, "" for anything else.
std::string Str(const Variant& value) { return value.type() == VarType::String ? value.ToString() : std::string(); }

bool IsLong(const Variant& value, int32_t expected) { return value == Variant(expected); }

// A note as the component hands it out: the header row (number, author, date, time: four columns, eight
// "^"), a comma, then the text.
struct Note {
  std::vector<std::string> header;
  std::string text;
};
std::optional<Note> ParseNote(const std::string& note) {
  size_t end = 0;
  for (int caret = 0; caret < 8; ++caret) {
    end = note.find('^', caret == 0 ? 0 : end + 1);
    if (end == std::string::npos) return std::nullopt;
  }
  Note parsed{DisplayColumns(note.substr(0, end + 1)), note.substr(std::min(note.size(), end + 2))};
  parsed.header.resize(4);
  return parsed;
}

// The names of a list as the CLI reads them, sorted: the user directory's statements have no order.
std::vector<std::string> Sorted(std::vector<std::string> items) {
  std::sort(items.begin(), items.end());
  return items;
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// A hit of a hit list: its display columns and where the document is.
struct Hit {
  std::vector<std::string> columns;
  std::string document;  // "id/version"
};

// ---- the session

struct Setting {
  std::string folder;  // the temporary folder: debug log, user database
  std::string blob;    // the blob folder, shared with the gateway
  std::string database;
  int port = 0;
};

// One portal session: each step is a page that makes its own component object (as a page request does),
// shows what the page would show and checks what came back.
class PortalSession {
 public:
  PortalSession(Setting setting, std::ostream& out) : setting_(std::move(setting)), out_(out) {}

  // Runs every step; returns the titles of the ones that failed.
  std::vector<std::string> Run();
  int steps() const { return steps_; }
  // True when Run stopped because the output no longer took what it wrote.
  bool output_closed() const { return output_closed_; }

 private:
  void Step(const std::string& title, void (PortalSession::*body)());
  // Records `why` as a failure of the current step unless `ok`; returns `ok`.
  bool Check(bool ok, const std::string& why);
  std::unique_ptr<clsVantor> OpenPage(bool with_database = false);
  std::vector<Hit> ReadHits(clsVantor& page, bool sorted);

  void LogOn();
  void UserRights();
  void Channels();
  void Archives();
  void Query();
  void SortHitList();
  void DocumentInfo();
  void SegmentDescription();
  void SegmentText();
  void SegmentDownload();
  void Notes();
  void NewDocument();
  void UploadAndTransfer();
  void DebugLog();

  Setting setting_;
  std::ostream& out_;
  int steps_ = 0;
  bool output_closed_ = false;
  std::vector<std::string> failures_;  // of the current step
  // What the log-on page found, used by every later page.
  Variant user_id_;
  std::string easy_user_;
  std::string easy_password_;
  // The hit list page, kept for its sorts.
  std::unique_ptr<clsVantor> hit_page_;
  std::vector<Hit> hits_;
};

std::vector<std::string> PortalSession::Run() {
  const std::vector<std::pair<std::string, void (PortalSession::*)()>> steps{
      {"Log-on", &PortalSession::LogOn},
      {"The user's rights", &PortalSession::UserRights},
      {"Channels", &PortalSession::Channels},
      {"Archives of FIBU", &PortalSession::Archives},
      {"Query: every incoming invoice", &PortalSession::Query},
      {"Hit list sorted by supplier, twice", &PortalSession::SortHitList},
      {"Document info of 1000001", &PortalSession::DocumentInfo},
      {"Segments of 1000001", &PortalSession::SegmentDescription},
      {"Text of 1000001 with the hits of \"meier\" marked", &PortalSession::SegmentText},
      {"Segment download with extension mapping TXT-DOC", &PortalSession::SegmentDownload},
      {"A note written and read back", &PortalSession::Notes},
      {"A document created from an import file", &PortalSession::NewDocument},
      {"A file uploaded and transferred back", &PortalSession::UploadAndTransfer},
      {"The debug log", &PortalSession::DebugLog},
  };
  std::vector<std::string> failed;
  for (const auto& [title, body] : steps) {
    Step(title, body);
    if (!failures_.empty()) failed.push_back(title);
    // A reader that went away (`vantor demo | head`) ends the session: nobody sees the rest.
    if (!out_.flush()) {
      output_closed_ = true;
      break;
    }
  }
  return failed;
}

void PortalSession::Step(const std::string& title, void (PortalSession::*body)()) {
  ++steps_;
  failures_.clear();
  out_ << "\n" << steps_ << ". " << title << "\n\n";
  try {
    (this->*body)();
  } catch (const halqvantor::RuntimeError& e) {
    Check(false, "run-time error " + std::to_string(e.number()) + ": " + e.description());
  } catch (const std::exception& e) {
    Check(false, e.what());
  }
  if (failures_.empty()) {
    out_ << CurrentGlyphs().check << " " << title << "\n";
  } else {
    for (const auto& why : failures_) out_ << "FAILED: " << why << "\n";
  }
}

bool PortalSession::Check(bool ok, const std::string& why) {
  if (!ok) failures_.push_back(why);
  return ok;
}

std::unique_ptr<clsVantor> PortalSession::OpenPage(bool with_database) {
  auto page = std::make_unique<clsVantor>();
  page->strREMOTEHOST = "127.0.0.1";
  page->lngREMOTEPORT = setting_.port;
  page->lngREQUESTTIMEOUT = 10;
  page->strSessionID = kSession;
  page->strEASYUser = easy_user_;
  page->strEASYPwd = easy_password_;
  page->strBlobPathLocal = setting_.blob;
  page->strBlobPathRemote = setting_.blob;
  page->strDBConnect = setting_.database;
  page->strDebugLogPath = setting_.folder;
  page->Init(Variant(with_database));
  return page;
}

std::vector<Hit> PortalSession::ReadHits(clsVantor& page, bool sorted) {
  std::vector<Hit> hits;
  for (;;) {
    Variant channel, archive, id, version;
    const Variant row = sorted ? page.EASYSortHitlistNext(&channel, &archive, &id, &version)
                               : page.EASYQueryArchiveNext(&channel, &archive, &id, &version);
    if (row == Variant("")) break;
    hits.push_back({DisplayColumns(Str(row)), Str(id) + "/" + Str(version)});
  }
  return hits;
}

// ---- the pages

void PortalSession::LogOn() {
  auto page = OpenPage(true);
  const Variant id = page->CheckLogon(demo::kPortalUser.name, demo::kPortalUser.password);
  Check(id.type() == VarType::Long && id.ToLong() > 0, "CheckLogon gave " + Show(id) + ", not the user's number");
  const Variant wrong = page->CheckLogon(demo::kPortalUser.name, "falsch");
  Check(wrong == Variant(int16_t{0}), "CheckLogon accepted a wrong password (" + Show(wrong) + ")");
  Variant user, password;
  const Variant found = page->GetUserEASYUser(id, &user, &password);
  Check(found == Variant(int16_t{1}), "GetUserEASYUser gave " + Show(found));
  Check(user == Variant(demo::kPortalUser.easy_user) && password == Variant(demo::kPortalUser.easy_password),
        "the archive account is " + Show(user) + " / " + Show(password));
  user_id_ = id;
  easy_user_ = Str(user);
  easy_password_ = Str(password);

  Table table({"Log-on", "Result"});
  table.AddRow({"portal user", demo::kPortalUser.name});
  table.AddRow({"user number", Show(id)});
  table.AddRow({"with a wrong password", Show(wrong) + " (refused)"});
  table.AddRow({"archive account", easy_user_ + " (password " + std::string(easy_password_.size(), '*') + ")"});
  table.Print(out_);
}

void PortalSession::UserRights() {
  auto page = OpenPage(true);
  Variant rights, groups, channels, archives, edit, documents, search, hidden, unmatched;
  const Variant counts[] = {
      page->GetUserRights(user_id_, &rights),
      page->GetUserGroups(user_id_, &groups),
      page->GetUserChannels(user_id_, &channels),
      page->GetUserArchives(user_id_, &archives),
      page->GetUserEditRights(user_id_, &edit),
      page->GetUserDocRights(user_id_, kChannel, kArchive, &documents),
      page->GetUserSearchRights(user_id_, &search, &hidden, &unmatched),
  };
  const char* names[] = {"GetUserRights",     "GetUserGroups",    "GetUserChannels",    "GetUserArchives",
                         "GetUserEditRights", "GetUserDocRights", "GetUserSearchRights"};
  const int32_t expected[] = {3, 2, 2, 3, 2, 1, 1};
  for (size_t i = 0; i < std::size(counts); ++i) {
    Check(IsLong(counts[i], expected[i]),
          std::string(names[i]) + " gave " + Show(counts[i]) + ", expected " + std::to_string(expected[i]));
  }

  const auto right_items = Sorted(EnclosedNames(Str(rights), '^', '^'));
  const auto group_items = Sorted(EnclosedNames(Str(groups), '[', ']'));
  const auto channel_items = Sorted(EnclosedNames(Str(channels), '^', '^'));
  const auto archive_items = Sorted(EnclosedNames(Str(archives), '^', '^'));
  const auto edit_items = Sorted(Lines(Str(edit)));
  Check(right_items == std::vector<std::string>{"NOTIZEN", "SUCHE", "UPLOAD"}, "rights: " + Show(rights));
  Check(group_items == std::vector<std::string>{"Buchhaltung", "Portal"}, "groups: " + Show(groups));
  Check(channel_items == std::vector<std::string>{"FIBU", "VERTRAG"}, "channels: " + Show(channels));
  Check(archive_items == std::vector<std::string>{"Ausgangsrechnungen", "Eingangsrechnungen", "Verträge"},
        "archives: " + Show(archives));
  Check(edit_items == std::vector<std::string>{"Eingangsrechnungen,N,E,D", "Verträge,E"}, "edit rights: " + Show(edit));
  Check(documents == Variant("[$(#FIBU)\\Eingangsrechnungen;(6<>\"offen\",1,0)]"),
        "document rights: " + Show(documents));
  const std::string search_text = Str(search);
  Check(
      search_text.starts_with("$(#FIBU)\\Eingangsrechnungen;.3=(>") && search_text.find("$(DATE") == std::string::npos,
      "search rights: " + Show(search));
  Check(hidden == Variant("$(#FIBU)\\Eingangsrechnungen;.4") && unmatched == Variant("$(#FIBU)\\Eingangsrechnungen;.2"),
        "hidden / unmatched fields: " + Show(hidden) + " / " + Show(unmatched));

  Table table({"Rights of " + std::string(demo::kPortalUser.name), "Count", "Granted"});
  table.AddRow({"rights", Show(counts[0]), Join(right_items, ", ")});
  table.AddRow({"groups", Show(counts[1]), Join(group_items, ", ")});
  table.AddRow({"channels", Show(counts[2]), Join(channel_items, ", ")});
  table.AddRow({"archives", Show(counts[3]), Join(archive_items, ", ")});
  table.AddRow({"edit rights (New, Edit, Delete)", Show(counts[4]), Join(edit_items, "; ")});
  table.AddRow({"document rights", Show(counts[5]), Str(documents)});
  table.AddRow({"search rights", Show(counts[6]), search_text});
  table.AddRow({"hidden fields", "", Str(hidden)});
  table.AddRow({"fields without match code", "", Str(unmatched)});
  table.Print(out_);
}

void PortalSession::Channels() {
  auto page = OpenPage(true);
  Variant portal_channels;
  page->GetUserChannels(user_id_, &portal_channels);
  const auto granted = Sorted(EnclosedNames(Str(portal_channels), '^', '^'));
  Variant status("unset");
  const Variant count = page->EASYGetChannelsInit(&status);
  Check(IsLong(count, 3) && status == Variant(""), "EASYGetChannelsInit gave " + Show(count) + ", " + Show(status));
  Table table({"Channel", "Description", "In the portal"});
  std::vector<std::string> names;
  for (;;) {
    Variant description;
    const std::string name = Str(page->EASYGetChannelsNext(&description));
    if (name.empty()) break;
    names.push_back(name);
    const bool listed = std::find(granted.begin(), granted.end(), name) != granted.end();
    table.AddRow({name, Str(description), listed ? "yes" : "-"});
  }
  table.Print(out_);
  Check(names == std::vector<std::string>{"FIBU", "PERSONAL", "VERTRAG"}, "channels: " + Join(names, ", "));
}

void PortalSession::Archives() {
  auto page = OpenPage();
  Variant status("unset");
  const Variant count = page->EASYGetArchivesInit(kChannel, &status);
  Check(IsLong(count, 2) && status == Variant(""), "EASYGetArchivesInit gave " + Show(count) + ", " + Show(status));
  std::vector<std::string> names;
  for (std::string name = Str(page->EASYGetArchivesNext()); !name.empty(); name = Str(page->EASYGetArchivesNext())) {
    names.push_back(name);
  }
  Check(names == std::vector<std::string>{"Ausgangsrechnungen", "Eingangsrechnungen"},
        "archives: " + Join(names, ", "));

  // The archive properties replace the list's rows, so they are asked for once the list is read.
  Table table({"Archive", "Documents", "Create", "Edit", "Delete", "Index"});
  auto yes = [](const Variant& flag) {
    return flag.type() == VarType::Boolean ? (flag.ToBoolean() ? "yes" : "no") : "?";
  };
  for (const auto& name : names) {
    Variant create, edit, remove, index;
    const Variant documents = page->EASYGetArchiveProperties(kChannel, name, &create, &edit, &remove, &index, &status);
    Check(documents.type() == VarType::Long, "EASYGetArchiveProperties(" + name + ") gave " + Show(status));
    if (name == kArchive) {
      Check(IsLong(documents, 14), kArchive + std::string(" holds ") + Show(documents) + " documents, not 14");
      Check(create == Variant(true) && remove == Variant(true), "easy may not create and delete in " + name);
    }
    table.AddRow({name, Show(documents), yes(create), yes(edit), yes(remove), yes(index)});
  }
  table.Print(out_);
}

void PortalSession::Query() {
  hit_page_ = OpenPage();
  Variant fields, layouts, total, multi, status("unset");
  const Variant count = hit_page_->EASYQueryArchiveInit(kChannel, kArchive, "", int32_t{0}, int32_t{0}, "Standard",
                                                        Variant::missing(), &fields, &layouts, &total, &multi, &status);
  Check(IsLong(count, 15) && status == Variant(""), "EASYQueryArchiveInit gave " + Show(count) + ", " + Show(status));
  Check(total == Variant("14"), "the total is " + Show(total) + ", not \"14\"");
  std::vector<Hit> rows = ReadHits(*hit_page_, false);
  if (!Check(!rows.empty(), "the hit list has no title line")) return;
  hits_.assign(rows.begin() + 1, rows.end());
  Check(rows[0].columns == std::vector<std::string>{"Rechnungsnummer", "Lieferant", "Rechnungsdatum", "Betrag"},
        "the title line is " + Join(rows[0].columns, ", "));
  Check(hits_.size() == 14, std::to_string(hits_.size()) + " hits, not 14");

  std::vector<std::string> headings = rows[0].columns;
  headings.push_back("Document");
  Table table(headings);
  for (const auto& hit : hits_) {
    std::vector<std::string> cells = hit.columns;
    cells.push_back(hit.document);
    table.AddRow(cells);
  }
  table.Print(out_);
  out_ << "total " << Str(total) << ", layouts " << Str(layouts) << " for the segments " << Str(fields)
       << ", every hit with a scan: " << (multi == Variant(true) ? "yes" : "no") << "\n";
}

void PortalSession::SortHitList() {
  if (!Check(hit_page_ != nullptr && !hits_.empty(), "there is no hit list to sort")) return;
  std::vector<std::vector<Hit>> sorts;
  for (int round = 0; round < 2; ++round) {
    const int32_t count = hit_page_->EASYSortHitlistInit(kSupplierSortColumn);
    Check(count == 14, "EASYSortHitlistInit gave " + std::to_string(count));
    std::vector<Hit> rows = ReadHits(*hit_page_, true);
    if (!Check(rows.size() == hits_.size() + 1, "a sort gave " + std::to_string(rows.size()) + " rows")) return;
    sorts.emplace_back(rows.begin() + 1, rows.end());
  }
  auto documents = [](const std::vector<Hit>& hits) {
    std::vector<std::string> ids;
    for (const auto& hit : hits) ids.push_back(hit.document);
    return ids;
  };
  std::vector<std::string> suppliers;
  for (const Hit& hit : sorts[0]) suppliers.push_back(hit.columns.size() > 1 ? hit.columns[1] : "");
  std::vector<std::string> first = documents(sorts[0]), second = documents(sorts[1]), found = documents(hits_);
  Check(InHitListOrder(suppliers), "the first sort is not ordered by supplier");
  std::vector<std::string> reversed(second.rbegin(), second.rend());
  Check(first == reversed, "the second sort is not the first one reversed");
  std::sort(first.begin(), first.end());
  std::sort(found.begin(), found.end());
  Check(first == found, "the sorted hits are not the hits of the query");

  Table table({"#", "First sort: supplier", "Document", "Second sort: supplier", "Document"});
  for (size_t i = 0; i < sorts[0].size(); ++i) {
    const Hit& a = sorts[0][i];
    const Hit& b = sorts[1][i];
    table.AddRow({std::to_string(i + 1), a.columns.size() > 1 ? a.columns[1] : "", a.document,
                  b.columns.size() > 1 ? b.columns[1] : "", b.document});
  }
  table.Print(out_);
}

void PortalSession::DocumentInfo() {
  auto page = OpenPage();
  Variant length, created, changed, title, segments, texts, images, blobs, status("unset");
  const Variant rows = page->EASYGetDocumentInfo(kChannel, kArchive, kDocument, "1", &length, &created, &changed,
                                                 &title, &segments, &texts, &images, &blobs, &status);
  Check(IsLong(rows, 1) && status == Variant(""), "EASYGetDocumentInfo gave " + Show(rows) + ", " + Show(status));
  Check(title == Variant("Rechnung 2002-0117 Meier GmbH"), "the title is " + Show(title));
  Check(created == Variant("01.01.2002") && segments == Variant("4") && texts == Variant("1"),
        "created " + Show(created) + " with " + Show(segments) + " segments, " + Show(texts) + " of them text");
  Table table({"Document " + std::string(kDocument) + " version 1", "Value"});
  table.AddRow({"title", Str(title)});
  table.AddRow({"created", Str(created)});
  table.AddRow({"changed", Str(changed)});
  table.AddRow({"length (bytes)", Str(length)});
  table.AddRow({"segments: all / text / image / blob",
                Str(segments) + " / " + Str(texts) + " / " + Str(images) + " / " + Str(blobs)});
  table.Print(out_);
}

void PortalSession::SegmentDescription() {
  auto page = OpenPage();
  Variant notes, status("unset");
  const Variant count =
      page->EASYGetSegmentDescriptionInit(kChannel, kArchive, kDocument, "1", Variant::missing(), &notes, &status);
  Check(IsLong(count, 4) && status == Variant(""),
        "EASYGetSegmentDescriptionInit gave " + Show(count) + ", " + Show(status));
  Check(notes == Variant("2"), "the document has " + Show(notes) + " notes, not 2");
  Table table({"Id", "Segment", "Title", "Type", "Ext", "Text length", "Image length", "File"});
  std::vector<std::string> names;
  for (;;) {
    Variant id, text_length, hits, image_length, ext, type, title, file, state, layout, thumbnail;
    const std::string name = Str(page->EASYGetSegmentDescriptionNext(
        &id, &text_length, &hits, &image_length, &ext, &type, &title, &file, &state, &layout, &thumbnail));
    if (name.empty()) break;
    names.push_back(name);
    table.AddRow({Str(id), name, Str(title), Str(type), Str(ext), Str(text_length), Str(image_length), Str(file)});
  }
  table.Print(out_);
  Check(names == std::vector<std::string>{"TEXT", "BELEG", "ORIGINAL", "VERWEISE"}, "segments: " + Join(names, ", "));
}

void PortalSession::SegmentText() {
  auto page = OpenPage();
  Variant status("unset");
  const Variant pieces = page->EASYGetSegmentTextInit(kChannel, kArchive, kDocument, "1", "meier", "\u00bb", "\u00ab",
                                                      "\n", Variant::missing(), &status);
  Check(IsLong(pieces, 1) && status == Variant(""),
        "EASYGetSegmentTextInit gave " + Show(pieces) + ", " + Show(status));
  const std::string text = Str(page->EASYGetSegmentTextNext());
  Check(page->EASYGetSegmentTextNext() == Variant(""), "the text has more than one piece");
  Check(text.find("Lieferant: \u00bbMeier\u00ab GmbH\n") != std::string::npos, "\"Meier\" is not marked in the text");
  Check(text.find("B\u00fcromaterial") != std::string::npos, "the text lost its umlauts");
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out_ << "  | " << line << "\n";
}

void PortalSession::SegmentDownload() {
  auto page = OpenPage();
  page->strChangeFileExt = "TXT-DOC";
  Variant name, length, status("unset");
  const Variant done = page->EASYGetSegmentData(kChannel, kArchive, kDocument, "1", "TEXT", &name, &length, &status);
  Check(done == Variant(int16_t{1}), "EASYGetSegmentData gave " + Show(done) + ", " + Show(status));
  Check(name == Variant("1000001_1_1.DOC"), "the file is named " + Show(name));
  const std::string renamed = setting_.blob + "/" + Str(name);
  std::error_code error;
  const auto size = fs::file_size(renamed, error);
  Check(!error && std::to_string(size) == Str(length),
        renamed + (error ? " is missing" : " holds " + std::to_string(size) + " bytes, not " + Str(length)));
  Check(!fs::exists(setting_.blob + "/1000001_1_1.TXT"), "the file under its old name is still there");
  Table table({"Segment", "File in the blob folder", "Bytes", "On disk"});
  table.AddRow({"TEXT", Str(name), Str(length), error ? "missing" : std::to_string(size) + " bytes"});
  table.Print(out_);
}

void PortalSession::Notes() {
  auto page = OpenPage();
  Variant status("unset");
  const Variant written =
      page->EASYWriteNote(kChannel, kArchive, kDocument, "1", "Demo: Rechnung geprüft|Freigabe erteilt", "|", &status);
  Check(written == Variant(int16_t{1}), "EASYWriteNote gave " + Show(written) + ", " + Show(status));
  const Variant count = page->EASYGetNotesInit(kChannel, kArchive, kDocument, "1", &status);
  Check(IsLong(count, 3), "EASYGetNotesInit gave " + Show(count) + ", " + Show(status));
  Table table({"#", "Author", "Date", "Time", "Note"});
  std::string last_author, last_text;
  for (std::string note = Str(page->EASYGetNotesNext()); !note.empty(); note = Str(page->EASYGetNotesNext())) {
    const std::optional<Note> parsed = ParseNote(note);
    if (!Check(parsed.has_value(), "a note without its header: " + note)) break;
    const auto& header = parsed->header;
    last_author = header[1];
    last_text = parsed->text;
    table.AddRow({header[0], header[1], header[2], header[3], last_text});
  }
  table.Print(out_);
  Check(last_author == easy_user_ && last_text == "Demo: Rechnung geprüft\r\nFreigabe erteilt",
        "the last note is by " + last_author + ": " + last_text);
}

void PortalSession::NewDocument() {
  auto page = OpenPage();
  const std::string import = setting_.blob + "/demo_import.txt";
  Variant status("unset");
  const Variant created = page->CreateImportFile(
      import, kChannel, kArchive, "Rechnung 2002-9001 Demo GmbH", "1,1,3,2,4", "NR,LIEFERANT,DATUM,BETRAG,TEXT",
      "^2002-9001^,^Demo GmbH^,^15.03.2002^,^99,50^,^Büromaterial für die Demo\r\nzweite Zeile^", Variant::missing(),
      &status);
  Check(created == Variant(int16_t{1}), "CreateImportFile gave " + Show(created) + ", " + Show(status));
  Variant reference, create_status("unset");
  const Variant rows = page->EASYCreateDocument(setting_.blob + "\\demo_import.txt", &reference, &create_status);
  Check(IsLong(rows, 1) && create_status == Variant(""),
        "EASYCreateDocument gave " + Show(rows) + ", " + Show(create_status));
  const std::string ref = Str(reference);
  const std::string id = ref.substr(0, ref.find(','));
  Check(!id.empty() && ref == id + ",1", "the new document is " + Show(reference));

  Variant total;
  const Variant count =
      page->EASYQueryArchiveInit(kChannel, kArchive, ".NR=(2002-9001)", int32_t{0}, int32_t{0}, "Standard",
                                 Variant::missing(), nullptr, nullptr, &total, nullptr, &status);
  Check(IsLong(count, 2), "the query for it gave " + Show(count) + ", " + Show(status));
  std::vector<Hit> rows_found = ReadHits(*page, false);
  if (!Check(rows_found.size() == 2, "the query found " + std::to_string(rows_found.size()) + " rows")) return;
  Check(rows_found[1].document == id + "/1", "the query found " + rows_found[1].document + ", not " + id + "/1");
  std::vector<std::string> headings = rows_found[0].columns;
  headings.push_back("Document");
  Table table(headings);
  std::vector<std::string> cells = rows_found[1].columns;
  cells.push_back(rows_found[1].document);
  table.AddRow(cells);
  table.Print(out_);
  out_ << "import file " << import << ", document " << ref << "\n";
}

void PortalSession::UploadAndTransfer() {
  auto page = OpenPage();
  std::string bytes(200000, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 7919) >> 5);
  const std::string name = "demo_upload.bin";
  const std::string local = setting_.blob + "/" + name;
  std::ofstream(local, std::ios::binary) << bytes;
  fs::create_directories(setting_.blob + "/eingang");
  // Uploads go to the folder the remote path names, transfers come from it.
  page->strBlobPathRemote = setting_.blob + "\\eingang";
  Variant status("");
  const Variant uploaded = page->EASYUploadFile(name, &status);
  Check(uploaded == Variant(int16_t{1}), "EASYUploadFile gave " + Show(uploaded) + ", " + Show(status));
  // The local copy goes, so that what comes back can only be the gateway's.
  fs::remove(local);
  const Variant transferred = page->EASYTransferBLOB(name, static_cast<int32_t>(bytes.size()), &status);
  Check(transferred == Variant(int16_t{1}), "EASYTransferBLOB gave " + Show(transferred) + ", " + Show(status));
  const std::string back = ReadBytes(local);
  Check(back == bytes, "the file came back with " + std::to_string(back.size()) + " bytes, different from the " +
                           std::to_string(bytes.size()) + " sent");
  Table table({"File", "Remote folder", "Bytes", "Same bytes"});
  table.AddRow({name, page->strBlobPathRemote, std::to_string(back.size()), back == bytes ? "yes" : "no"});
  table.Print(out_);
}

void PortalSession::DebugLog() {
  auto page = OpenPage();
  const std::string path = setting_.folder + "/" + kSession + ".LOG";
  page.reset();  // the end of the page is logged as well
  std::ifstream in(path);
  size_t lines = 0, failures = 0;
  for (std::string line; std::getline(in, line);) {
    ++lines;
    if (line.find("Allgemeiner Fehler") != std::string::npos) ++failures;
  }
  Check(fs::exists(path), path + " is missing");
  Check(lines > 0, "the debug log is empty");
  Check(failures == 0, "the debug log holds " + std::to_string(failures) + " general failures");
  Table table({"Debug log", "Lines", "General failures"});
  table.AddRow({path, std::to_string(lines), std::to_string(failures)});
  table.Print(out_);
}

}  // namespace

bool InHitListOrder(const std::vector<std::string>& texts) {
  // The component's own key (a text column's text in capitals, by code point), not the code page's order:
  // they differ for names that begin with a letter such as Š or Œ.
  std::vector<std::string> keys;
  for (const std::string& text : texts) keys.push_back(halqvantor::platform::SortKey(text));
  return std::is_sorted(keys.begin(), keys.end()) || std::is_sorted(keys.rbegin(), keys.rend());
}

int RunDemo(const DemoOptions& options, std::ostream& out, std::ostream& err) {
  demo::InterruptGuard interrupts;
  std::unique_ptr<demo::TempFolder> folder;
  std::unique_ptr<demo::GatewayProcess> gateway;
  Setting setting;
  try {
    const std::string own_folder = demo::OwnFolder();
    const std::string program = demo::FindGatewayProgram(options.gateway_program, own_folder);
    const std::string sample = demo::FindSample(options.sample_dir, own_folder);
    folder = std::make_unique<demo::TempFolder>();
    if (options.keep) folder->Keep();
    setting.folder = folder->path();
    setting.blob = folder->File("blob");
    setting.database = folder->File("users.db");
    const std::string removed_on_interrupt = options.keep ? std::string() : folder->path();
    interrupts.Watch(-1, removed_on_interrupt);
    fs::copy(sample, folder->File("data"), fs::copy_options::recursive);
    fs::create_directories(setting.blob);
    demo::CreateUserDatabase(setting.database);
    gateway =
        std::make_unique<demo::GatewayProcess>(program, folder->File("data"), setting.blob, std::chrono::seconds(10),
                                               [&](pid_t pid) { interrupts.Watch(pid, removed_on_interrupt); });
    setting.port = gateway->port();
    out << "vantor demo\n"
        << "  folder         " << folder->path()
        << (options.keep ? " (kept at the end)\n" : " (removed at the end; --keep keeps it)\n") << "  gateway        "
        << program << ", listening on " << gateway->address() << ":" << gateway->port() << "\n"
        << "  archive        " << folder->File("data") << " (a copy of " << sample << ")\n"
        << "  blob folder    " << setting.blob << "\n"
        << "  user database  " << setting.database << "\n";
    if (!out.flush()) return kOutputClosed;  // the gateway and the folder go with their owners
  } catch (const std::exception& e) {
    err << "vantor demo: " << e.what() << "\n";
    return 2;
  }

  PortalSession session(setting, out);
  const std::vector<std::string> failed = session.Run();
  gateway.reset();
  if (session.output_closed()) return kOutputClosed;

  const int steps = session.steps();
  out << "\n";
  if (options.keep) out << "kept " << setting.folder << "\n";
  out << "demo: " << steps - static_cast<int>(failed.size()) << " of " << steps << " steps passed\n";
  if (!failed.empty()) err << "vantor demo: failed: " << Join(failed, "; ") << "\n";
  return failed.empty() ? 0 : 1;
}

}  // namespace vantor
