#include "archive.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "text.h"

namespace halqvantor::gateway {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Account, user, password, name)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Field, id, code, name, type, size, state, weight, select_list)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SegmentKind, id, code, title, type, ext, layout)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Layout, id, name, fields)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(QueryFormat, name, columns)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(MaskField, field, tab, width, align, name, mandatory, init, list_only,
                                                list)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Mask, name, fields)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Note, author, date, time, text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Segment, id, file, references)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Version, version, changed, title, index, segments)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Document, id, created, notes, versions)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Archive, name, access, fields, segments, layouts, query_formats, masks,
                                                documents)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Channel, name, description, archives)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(ArchiveData, accounts, channels)

namespace {

// Every text of the tree, keys included, through `convert`.
template <typename F>
nlohmann::json ConvertTexts(const nlohmann::json& node, F convert) {
  if (node.is_string()) return convert(node.get<std::string>());
  if (node.is_array()) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& item : node) out.push_back(ConvertTexts(item, convert));
    return out;
  }
  if (node.is_object()) {
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [key, value] : node.items()) out[convert(key)] = ConvertTexts(value, convert);
    return out;
  }
  return node;
}

// A name as one safe file name component: letters, digits, "-" and "_" stay, every other byte is %XX.
std::string FileNamePart(std::string_view name) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_') {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
  }
  return out.empty() ? "%" : out;
}

// One note as one line of its notes file (UTF-8 JSON, no line break inside).
std::string NoteLine(const Note& note) {
  const nlohmann::json line = {{"author", FromWire(note.author)},
                               {"date", FromWire(note.date)},
                               {"time", FromWire(note.time)},
                               {"text", FromWire(note.text)}};
  return line.dump() + "\n";
}

// Writes a file anew through a temporary file and a rename, so a crash leaves the old one.
void ReplaceFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  const std::string temporary = path + ".new";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.flush();
    if (!out) throw std::runtime_error("cannot write " + temporary);
  }
  std::filesystem::rename(temporary, path);
}

[[noreturn]] void Invalid(const std::string& what) { throw std::runtime_error("archive.json: " + what); }

template <typename T, typename Key>
void RequireUnique(const std::vector<T>& items, Key key, const std::string& what) {
  std::set<std::string> seen;
  for (const T& item : items) {
    std::ostringstream text;
    text << key(item);
    if (!seen.insert(Upper(text.str())).second) Invalid("duplicate " + what + " '" + FromWire(text.str()) + "'");
  }
}

}  // namespace

const Field* Archive::FindField(std::string_view id_or_code) const {
  for (const Field& f : fields) {
    if (std::to_string(f.id) == id_or_code || (!f.code.empty() && EqualsNoCase(f.code, id_or_code))) return &f;
  }
  return nullptr;
}

const Field* Archive::FieldById(int id) const {
  for (const Field& f : fields) {
    if (f.id == id) return &f;
  }
  return nullptr;
}

const SegmentKind* Archive::FindSegmentKind(std::string_view id_or_code) const {
  for (const SegmentKind& s : segments) {
    if (std::to_string(s.id) == id_or_code || (!s.code.empty() && EqualsNoCase(s.code, id_or_code))) return &s;
  }
  return nullptr;
}

const SegmentKind* Archive::SegmentKindById(int id) const {
  for (const SegmentKind& s : segments) {
    if (s.id == id) return &s;
  }
  return nullptr;
}

const Layout* Archive::FindLayout(std::string_view id) const {
  for (const Layout& l : layouts) {
    if (l.id == id) return &l;
  }
  return nullptr;
}

Document* Archive::FindDocument(std::string_view id) {
  for (Document& d : documents) {
    if (d.id == id) return &d;
  }
  return nullptr;
}

std::string Archive::RightsOf(std::string_view user) const {
  for (const auto& [name, rights] : access) {
    if (name != "*" && EqualsNoCase(name, user)) return rights;
  }
  const auto any = access.find("*");
  return any == access.end() ? std::string() : any->second;
}

Archive* Channel::FindArchive(std::string_view wanted) {
  for (Archive& a : archives) {
    if (EqualsNoCase(a.name, wanted)) return &a;
  }
  return nullptr;
}

Channel* ArchiveData::FindChannel(std::string_view wanted) {
  for (Channel& c : channels) {
    if (EqualsNoCase(c.name, wanted)) return &c;
  }
  return nullptr;
}

const Account* ArchiveData::FindAccount(std::string_view user) const {
  for (const Account& a : accounts) {
    if (EqualsNoCase(a.user, user)) return &a;
  }
  return nullptr;
}

namespace {

// Refuses a key of `given` that the archive does not know: one that `known` (the same tree written back
// from what was read) lacks. A misspelt key would otherwise be dropped without a word.
void RequireKnownKeys(const nlohmann::json& given, const nlohmann::json& known, const std::string& where) {
  if (given.is_object() && known.is_object()) {
    for (const auto& [key, value] : given.items()) {
      const std::string place = where.empty() ? key : where + "." + key;
      if (!known.contains(key)) Invalid("unknown key \"" + FromWire(place) + "\"");
      RequireKnownKeys(value, known.at(key), place);
    }
  } else if (given.is_array() && known.is_array()) {
    for (size_t i = 0; i < given.size() && i < known.size(); ++i) {
      RequireKnownKeys(given[i], known[i], where + "[" + std::to_string(i) + "]");
    }
  }
}

}  // namespace

ArchiveData ParseArchiveJson(const std::string& utf8_json) {
  try {
    const nlohmann::json tree =
        ConvertTexts(nlohmann::json::parse(utf8_json), [](const std::string& s) { return ToWire(s); });
    ArchiveData data = tree.get<ArchiveData>();
    RequireKnownKeys(tree, nlohmann::json(data), "");
    return data;
  } catch (const nlohmann::json::exception& e) {
    Invalid(e.what());
  }
}

std::string PrintArchiveJson(const ArchiveData& data) {
  const nlohmann::json tree = data;
  return ConvertTexts(tree, [](const std::string& s) { return FromWire(s); }).dump(1, '\t') + "\n";
}

Store::Store(std::string data_dir) : data_dir_(std::move(data_dir)) {
  const std::string path = data_dir_ + "/archive.json";
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << in.rdbuf();
  data_ = ParseArchiveJson(text.str());
  Validate();
  LoadNotes();
}

std::string Store::NotesPath(const Channel& channel, const Archive& archive, const Document& document) const {
  return data_dir_ + "/notes/" + FileNamePart(channel.name) + "/" + FileNamePart(archive.name) + "/" +
         FileNamePart(document.id) + ".jsonl";
}

void Store::LoadNotes() {
  if (!std::filesystem::is_directory(data_dir_ + "/notes")) return;
  for (Channel& c : data_.channels) {
    for (Archive& a : c.archives) {
      for (Document& d : a.documents) {
        std::ifstream in(NotesPath(c, a, d), std::ios::binary);
        if (!in) continue;
        std::vector<Note> notes;
        std::string line;
        while (std::getline(in, line)) {
          // A line cut short by a crash while it was appended is let go.
          const nlohmann::json parsed = nlohmann::json::parse(line, nullptr, false);
          if (!parsed.is_object()) continue;
          Note note;
          note.author = ToWire(parsed.value("author", ""));
          note.date = ToWire(parsed.value("date", ""));
          note.time = ToWire(parsed.value("time", ""));
          note.text = ToWire(parsed.value("text", ""));
          notes.push_back(std::move(note));
        }
        d.notes = std::move(notes);
      }
    }
  }
}

void Store::AppendNote(const Channel& channel, const Archive& archive, Document& document, Note note) {
  const std::string path = NotesPath(channel, archive, document);
  const std::string line = NoteLine(note);
  if (!std::filesystem::exists(path)) {
    std::string all;
    for (const Note& n : document.notes) all += NoteLine(n);
    ReplaceFile(path, all + line);
  } else {
    const int fd = ::open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot write " + path);
    // A last line left without its end by a crash gets one, so that it does not swallow the new note.
    std::string bytes = line;
    char last = '\n';
    const off_t size = ::lseek(fd, 0, SEEK_END);
    if (size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n') bytes.insert(0, "\n");
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::close(fd);
    if (done < bytes.size()) throw std::runtime_error("cannot write " + path);
  }
  document.notes.push_back(std::move(note));
}

void Store::ClearNotes(const Channel& channel, const Archive& archive, Document& document) {
  ReplaceFile(NotesPath(channel, archive, document), "");
  document.notes.clear();
}

void Store::RemoveNotes(const Channel& channel, const Archive& archive, const Document& document) {
  std::error_code ignored;
  std::filesystem::remove(NotesPath(channel, archive, document), ignored);
}

void Store::Validate() const {
  RequireUnique(
      data_.accounts, [](const Account& a) { return a.user; }, "account");
  RequireUnique(
      data_.channels, [](const Channel& c) { return c.name; }, "channel");
  for (const Channel& channel : data_.channels) {
    if (channel.name.empty() || channel.name.find_first_of(",#^\r\n") != std::string::npos) {
      Invalid("channel name '" + FromWire(channel.name) + "' is empty or holds , # ^ or a line break");
    }
    RequireUnique(
        channel.archives, [](const Archive& a) { return a.name; }, "archive in " + channel.name);
    for (const Archive& archive : channel.archives) {
      const std::string where = FromWire(channel.name + "\\" + archive.name);
      RequireUnique(
          archive.fields, [](const Field& f) { return f.id; }, "field id in " + where);
      RequireUnique(
          archive.segments, [](const SegmentKind& s) { return s.id; }, "segment id in " + where);
      RequireUnique(
          archive.documents, [](const Document& d) { return d.id; }, "document id in " + where);
      for (const Field& f : archive.fields) {
        if (f.type < kTextField || f.type > kDateField) Invalid("field type of " + FromWire(f.name) + " in " + where);
      }
      for (const Layout& l : archive.layouts) {
        for (int id : l.fields) {
          if (!archive.FieldById(id)) Invalid("layout " + l.id + " names unknown field in " + where);
        }
      }
      for (const QueryFormat& q : archive.query_formats) {
        for (int id : q.columns) {
          if (!archive.FieldById(id)) Invalid("query format " + FromWire(q.name) + " names unknown field in " + where);
        }
      }
      for (const Mask& m : archive.masks) {
        for (const MaskField& mf : m.fields) {
          if (!archive.FieldById(mf.field)) Invalid("mask " + FromWire(m.name) + " names unknown field in " + where);
        }
      }
      for (const Document& doc : archive.documents) {
        if (doc.versions.empty()) Invalid("document " + doc.id + " without versions in " + where);
        for (const Version& v : doc.versions) {
          for (const auto& [key, value] : v.index) {
            const auto id = ParseInteger(key);
            if (!id || !archive.FieldById(static_cast<int>(*id))) {
              Invalid("document " + doc.id + " has a value for unknown field " + key + " in " + where);
            }
          }
          for (const Segment& s : v.segments) {
            const SegmentKind* kind = archive.SegmentKindById(s.id);
            if (!kind) Invalid("document " + doc.id + " has unknown segment in " + where);
            if (kind->type != kReferenceSegment && !std::filesystem::is_regular_file(ContentPath(s.file))) {
              Invalid("document " + doc.id + ": missing file " + FromWire(s.file));
            }
          }
        }
      }
    }
  }
}

std::string Store::ContentPath(const std::string& relative) const { return data_dir_ + "/" + FromWire(relative); }

void Store::Save() const {
  const std::string path = data_dir_ + "/archive.json";
  const std::string temporary = path + ".new";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << PrintArchiveJson(data_);
    out.flush();
    if (!out) throw std::runtime_error("cannot write " + temporary);
  }
  std::filesystem::rename(temporary, path);
}

std::string Store::NewDocumentId() const {
  int64_t highest = 1000000;
  for (const Channel& c : data_.channels) {
    for (const Archive& a : c.archives) {
      for (const Document& d : a.documents) {
        if (const auto id = ParseInteger(d.id)) highest = std::max(highest, *id);
      }
    }
  }
  return std::to_string(highest + 1);
}

}  // namespace halqvantor::gateway
