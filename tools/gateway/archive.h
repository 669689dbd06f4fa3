#pragma once

// The gateway's archive: accounts, channels, archives with their fields, segment kinds, layouts, query
// formats, entry masks and documents, read from DIR/archive.json (UTF-8) and written back there after every
// change but a note: a document's notes, once changed, live in a file of their own below DIR/notes, which a
// new note is appended to and which takes precedence over the notes in archive.json. Segment contents are
// files below DIR, named relative to it. Inside the gateway every text is held in Windows-1252 (see text.h).

#include <map>
#include <string>
#include <vector>

namespace halqvantor::gateway {

struct Account {
  std::string user;
  std::string password;
  std::string name;
};

// Index field types.
enum FieldType : int { kTextField = 1, kNumberField = 2, kDateField = 3 };

struct Field {
  int id = 0;
  std::string code;  // short name, also accepted where a field id is expected
  std::string name;
  int type = kTextField;
  int size = 0;
  int state = 0;
  int weight = 0;
  std::vector<std::string> select_list;
};

// Segment kinds.
enum SegmentType : int { kTextSegment = 1, kImageSegment = 2, kBlobSegment = 3, kReferenceSegment = 4 };

struct SegmentKind {
  int id = 0;
  std::string code;
  std::string title;
  int type = kTextSegment;
  std::string ext;     // file extension of its content, upper case ("TXT", "TIF", "PDF", "ERF")
  std::string layout;  // layout id for printing, may be empty
};

struct Layout {
  std::string id;
  std::string name;
  std::vector<int> fields;  // index fields printed above the segment
};

struct QueryFormat {
  std::string name;
  std::vector<int> columns;  // index fields shown in the hit list
};

struct MaskField {
  int field = 0;
  int tab = 0;
  int width = 0;
  std::string align = "L";
  std::string name;  // empty: the field's name
  bool mandatory = false;
  std::string init;
  bool list_only = false;
  std::vector<std::string> list;  // empty: the field's select list
};

struct Mask {
  std::string name;
  std::vector<MaskField> fields;
};

struct Note {
  std::string author;
  std::string date;  // DD.MM.YYYY
  std::string time;  // hh:mm:ss
  std::string text;  // lines joined by CR LF
};

struct Segment {
  int id = 0;                           // a SegmentKind id of the archive
  std::string file;                     // content file, relative to the data folder
  std::vector<std::string> references;  // reference segments: "$(#channel)\archive,id,version" lines
};

struct Version {
  int version = 1;
  std::string changed;  // DD.MM.YYYY
  std::string title;
  std::map<std::string, std::string> index;  // field id (decimal) -> value
  std::vector<Segment> segments;
};

struct Document {
  std::string id;
  std::string created;  // DD.MM.YYYY
  std::vector<Note> notes;
  std::vector<Version> versions;  // ascending; the last one is current

  const Version& current() const { return versions.back(); }
};

struct Archive {
  std::string name;
  std::map<std::string, std::string> access;  // user ("*": any other user) -> rights letters RCEDI
  std::vector<Field> fields;
  std::vector<SegmentKind> segments;
  std::vector<Layout> layouts;
  std::vector<QueryFormat> query_formats;
  std::vector<Mask> masks;
  std::vector<Document> documents;

  const Field* FindField(std::string_view id_or_code) const;
  const Field* FieldById(int id) const;
  const SegmentKind* FindSegmentKind(std::string_view id_or_code) const;
  const SegmentKind* SegmentKindById(int id) const;
  const Layout* FindLayout(std::string_view id) const;
  Document* FindDocument(std::string_view id);
  // The rights letters of a user ("" = no access at all).
  std::string RightsOf(std::string_view user) const;
};

struct Channel {
  std::string name;
  std::string description;
  std::vector<Archive> archives;

  Archive* FindArchive(std::string_view name);
};

struct ArchiveData {
  std::vector<Account> accounts;
  std::vector<Channel> channels;

  Channel* FindChannel(std::string_view name);
  const Account* FindAccount(std::string_view user) const;
};

// The archive in its data folder.
class Store {
 public:
  // Reads DIR/archive.json; throws std::runtime_error naming the problem when it is missing or malformed
  // (bad JSON, duplicate names or ids, references to unknown fields or segment kinds, missing files).
  explicit Store(std::string data_dir);

  ArchiveData& data() { return data_; }
  const std::string& data_dir() const { return data_dir_; }
  // A content file's full path.
  std::string ContentPath(const std::string& relative) const;

  // Writes archive.json anew (through a temporary file and a rename, so a crash leaves the old one).
  void Save() const;

  // Notes of a document, written to its own notes file (not archive.json). The first change writes the
  // document's notes file whole; after that a note is appended, so a note costs its own size. Failures are
  // std::runtime_error; the notes in memory then stay as they were.
  void AppendNote(const Channel& channel, const Archive& archive, Document& document, Note note);
  void ClearNotes(const Channel& channel, const Archive& archive, Document& document);
  // Forgets a removed document's notes file, so that a new document with its id starts without notes.
  void RemoveNotes(const Channel& channel, const Archive& archive, const Document& document);
  // The notes file of a document (it may not exist).
  std::string NotesPath(const Channel& channel, const Archive& archive, const Document& document) const;

  // A document id not used in any archive: one above the highest numeric id.
  std::string NewDocumentId() const;

 private:
  void Validate() const;
  void LoadNotes();

  std::string data_dir_;
  ArchiveData data_;
};

// Parses and prints the archive file (UTF-8 JSON), converting texts from and to Windows-1252.
ArchiveData ParseArchiveJson(const std::string& utf8_json);
std::string PrintArchiveJson(const ArchiveData& data);

}  // namespace halqvantor::gateway
