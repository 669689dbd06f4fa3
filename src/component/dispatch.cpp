// The dispatch table of clsVantor: one entry per property and operation in interface order. An operation's
// entry is made from its member-function pointer and a parameter list written like the interface table
// ("strChannel, [*strStatus]": "*" by reference, brackets optional). The list is parsed and checked against
// the member's real signature while compiling: the number of parameters, which are pointers (by reference)
// and how many leading ones the member can be called without (its defaults).

#include "halqvantor/Dispatch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "halqvantor/clsVantor.h"

namespace halqvantor::dispatch {

DispatchError::DispatchError(int32_t number, std::string member, int argument, std::string description)
    : RuntimeError(number, std::move(description)), member_(std::move(member)), argument_(argument) {}

size_t Member::RequiredCount() const {
  size_t n = 0;
  while (n < parameters.size() && !parameters[n].optional) ++n;
  return n;
}

namespace {

constexpr int32_t kPropertyBase = 0x40030000;
constexpr int32_t kOperationBase = 0x60030000;
constexpr int32_t kNoSuchMember = 438;
constexpr int32_t kArgumentNotOptional = static_cast<int32_t>(ErrorNumber::kArgumentNotOptional);
constexpr int32_t kWrongArgumentCount = 450;
constexpr int32_t kTypeMismatch = static_cast<int32_t>(ErrorNumber::kTypeMismatch);

constexpr ValueKind KindOfName(std::string_view name) {
  if (name.starts_with("str")) return ValueKind::String;
  if (name.starts_with("lng")) return ValueKind::Long;
  if (name.starts_with("int")) return ValueKind::Integer;
  if (name.starts_with("bln")) return ValueKind::Boolean;
  return ValueKind::Any;
}

// ---- Adapting member functions

template <typename F>
struct Signature;
template <typename R, typename... P>
struct Signature<R (clsVantor::*)(P...)> {
  using Result = R;
  using Parameters = std::tuple<P...>;
  static constexpr size_t kArity = sizeof...(P);
  static constexpr std::array<bool, kArity> kByReference{std::is_pointer_v<P>...};
  static constexpr std::array<bool, kArity> kTakesContext{
      std::is_same_v<std::remove_cvref_t<P>, std::shared_ptr<ScriptingContext>>...};
};

template <typename R>
constexpr ResultKind ResultKindOf() {
  if constexpr (std::is_void_v<R>)
    return ResultKind::None;
  else if constexpr (std::is_same_v<R, bool>)
    return ResultKind::Boolean;
  else if constexpr (std::is_same_v<R, int32_t>)
    return ResultKind::Long;
  else {
    static_assert(std::is_same_v<R, Variant>, "an operation returns void, Variant, int32_t or bool");
    return ResultKind::Variant;
  }
}

// A string literal as a template argument, so that the parsed parameter list can be a static constant.
template <size_t N>
struct Text {
  char chars[N];
  consteval Text(const char (&s)[N]) { std::copy_n(s, N, chars); }
  constexpr std::string_view view() const { return {chars, N - 1}; }
};

// Not a constant expression: reaching it while compiling a table entry stops the build.
inline void TableEntryDoesNotMatchTheMember() {}

template <typename Sig>
consteval std::array<Parameter, Sig::kArity> ParseParameters(std::string_view list) {
  std::array<Parameter, Sig::kArity> out{};
  size_t count = 0;
  bool seen_optional = false;
  while (!list.empty()) {
    const size_t comma = list.find(',');
    std::string_view item = list.substr(0, comma);
    list = comma == std::string_view::npos ? std::string_view{} : list.substr(comma + 1);
    while (item.starts_with(' ')) item.remove_prefix(1);
    const bool optional = item.starts_with('[') && item.ends_with(']');
    if (optional) item = item.substr(1, item.size() - 2);
    const bool by_reference = item.starts_with('*');
    if (by_reference) item.remove_prefix(1);
    if (count == Sig::kArity || item.empty() || by_reference != Sig::kByReference[count] ||
        (seen_optional && !optional)) {
      TableEntryDoesNotMatchTheMember();
    }
    seen_optional = optional;
    out[count++] = Parameter{item, by_reference, optional, KindOfName(item)};
  }
  if (count != Sig::kArity) TableEntryDoesNotMatchTheMember();
  return out;
}

template <auto Fn, Text List>
inline constexpr auto kParameters = ParseParameters<Signature<decltype(Fn)>>(List.view());

// True when `probe` accepts the first K parameter types of the member, i.e. the rest have defaults.
template <typename Sig, typename Probe, size_t... I>
constexpr bool AcceptsLeading(std::index_sequence<I...>) {
  return std::is_invocable_v<Probe, std::tuple_element_t<I, typename Sig::Parameters>...>;
}
template <typename Sig, typename Probe, size_t... K>
constexpr size_t LeadingWithoutDefault(std::index_sequence<K...>) {
  const std::array<bool, sizeof...(K)> accepts{AcceptsLeading<Sig, Probe>(std::make_index_sequence<K>{})...};
  size_t k = 0;
  while (!accepts[k]) ++k;
  return k;
}

using Caller = Variant (*)(clsVantor&, const Member&, std::vector<Variant>&, std::shared_ptr<ScriptingContext>&);

template <typename P>
P Argument(const Member& member, std::vector<Variant>& args, size_t i, std::shared_ptr<ScriptingContext>& context) {
  const bool passed = i < args.size() && !args[i].IsMissing();
  if constexpr (std::is_pointer_v<P>) {
    return passed ? &args[i] : nullptr;
  } else if constexpr (std::is_same_v<P, const Variant&>) {
    static const Variant kMissing = Variant::missing();
    return passed ? args[i] : kMissing;
  } else {
    static_assert(std::is_same_v<std::remove_cvref_t<P>, std::shared_ptr<ScriptingContext>>);
    if (passed && !args[i].IsEmpty()) {
      throw DispatchError(kTypeMismatch, std::string(member.name), static_cast<int>(i) + 1,
                          std::string(member.name) + ": argument " + std::to_string(i + 1) + " (" +
                              std::string(member.parameters[i].name) +
                              ") cannot be passed as a value: the page context comes from the host");
    }
    return context;
  }
}

template <auto Fn, typename Sig, size_t... I>
Variant CallWith(clsVantor& object, const Member& member, std::vector<Variant>& args,
                 std::shared_ptr<ScriptingContext>& context, std::index_sequence<I...>) {
  // Arguments are evaluated before the call; none of them changes the size of args.
  if constexpr (std::is_void_v<typename Sig::Result>) {
    (object.*Fn)(Argument<std::tuple_element_t<I, typename Sig::Parameters>>(member, args, I, context)...);
    return Variant();
  } else {
    return Variant(
        (object.*Fn)(Argument<std::tuple_element_t<I, typename Sig::Parameters>>(member, args, I, context)...));
  }
}

template <auto Fn>
Variant Call(clsVantor& object, const Member& member, std::vector<Variant>& args,
             std::shared_ptr<ScriptingContext>& context) {
  using Sig = Signature<decltype(Fn)>;
  return CallWith<Fn, Sig>(object, member, args, context, std::make_index_sequence<Sig::kArity>{});
}

// ---- Table entries

struct Entry {
  Member member;
  Caller call = nullptr;
  std::string clsVantor::*text = nullptr;  // properties
  int32_t clsVantor::*number = nullptr;
};

constexpr Entry Property(std::string_view name, std::string clsVantor::*field) {
  return {{0, name, MemberKind::Property, ValueKind::String, ResultKind::Variant, {}}, nullptr, field, nullptr};
}
constexpr Entry Property(std::string_view name, int32_t clsVantor::*field) {
  return {{0, name, MemberKind::Property, ValueKind::Long, ResultKind::Variant, {}}, nullptr, nullptr, field};
}

template <auto Fn, Text List, typename Probe>
constexpr Entry Operation(std::string_view name, Probe) {
  using Sig = Signature<decltype(Fn)>;
  constexpr size_t required = [] {
    size_t n = 0;
    while (n < Sig::kArity && !kParameters<Fn, List>[n].optional) ++n;
    return n;
  }();
  // The page context comes from the host, so the list calls it optional though the member has no default.
  constexpr size_t without_default = LeadingWithoutDefault<Sig, Probe>(std::make_index_sequence<Sig::kArity + 1>{});
  static_assert(required == without_default || (required == 0 && without_default == 1 && Sig::kTakesContext[0]),
                "the optional parameters of a table entry must be the ones the member has defaults for");
  return {{0, name, MemberKind::Operation, ValueKind::Any, ResultKindOf<typename Sig::Result>(), kParameters<Fn, List>},
          &Call<Fn>};
}

// One operation: its name, its member function, and a probe that calls it by name so that its default
// arguments can be counted.
#define VANTOR_OPERATION(NAME, LIST)       \
  Operation<&clsVantor::NAME, LIST>(#NAME, \
                                    [](auto&&... a) -> decltype(std::declval<clsVantor&>().NAME(a...), void()) {})
#define DOCUMENT_KEY "strChannel, strArchive, strDocID, strVer, "

constexpr auto Numbered(auto entries) {
  int32_t properties = 0, operations = 0;
  for (Entry& e : entries) {
    e.member.dispid =
        e.member.kind == MemberKind::Property ? kPropertyBase + properties++ : kOperationBase + operations++;
  }
  return entries;
}

constexpr auto kEntries = Numbered(std::array{
    Property("strREMOTEHOST", &clsVantor::strREMOTEHOST),
    Property("lngREMOTEPORT", &clsVantor::lngREMOTEPORT),
    Property("lngREQUESTTIMEOUT", &clsVantor::lngREQUESTTIMEOUT),
    Property("strSessionID", &clsVantor::strSessionID),
    Property("strEASYPwd", &clsVantor::strEASYPwd),
    Property("strEASYUser", &clsVantor::strEASYUser),
    Property("strBlobPathLocal", &clsVantor::strBlobPathLocal),
    Property("strBlobPathRemote", &clsVantor::strBlobPathRemote),
    Property("strDBConnect", &clsVantor::strDBConnect),
    Property("strDebugLogPath", &clsVantor::strDebugLogPath),
    Property("strChangeFileExt", &clsVantor::strChangeFileExt),

    VANTOR_OPERATION(OnStartPage, "[PassedScriptingContext]"),
    VANTOR_OPERATION(OnEndPage, ""),
    VANTOR_OPERATION(Init, "[blnDBInit]"),
    VANTOR_OPERATION(Encode, "strText"),
    VANTOR_OPERATION(Decode, "strText"),
    VANTOR_OPERATION(WriteUserToDB, "strUser, strPasswd, [strEASYUser], [strEASYPasswd]"),
    VANTOR_OPERATION(GetNextDBObjectID, "strField, strTable"),
    VANTOR_OPERATION(CheckLogon, "strUser, [strPasswd]"),
    VANTOR_OPERATION(ChangePasswd, "strUser, strPasswdOld, strPasswdNew"),
    VANTOR_OPERATION(GetUserRights, "strUserID, *strRights"),
    VANTOR_OPERATION(GetUserEditRights, "strUserID, *strEditRights"),
    VANTOR_OPERATION(GetUserGroups, "strUserID, *strGroups"),
    VANTOR_OPERATION(GetUserDocRights, "lngUserID, strChannel, strArchive, *strDocRights"),
    VANTOR_OPERATION(GetUserSearchRights,
                     "lngUserID, *strSearchRights, *strSearchRightsHideField, *strSearchRightsNoMatchcode"),
    VANTOR_OPERATION(GetUserArchives, "strUserID, *strArchives"),
    VANTOR_OPERATION(GetUserChannels, "strUserID, *strChannels"),
    VANTOR_OPERATION(GetUserEASYUser, "strUserID, *strEASYUser, *strEASYPasswd"),
    VANTOR_OPERATION(DeleteFTPObjects, "strFile"),
    VANTOR_OPERATION(EASYGetChannelsInit, "[*strStatus]"),
    VANTOR_OPERATION(EASYGetChannelsNext, "[*strChannelDescription]"),
    VANTOR_OPERATION(EASYGetArchivesInit, "strChannel, [*strStatus]"),
    VANTOR_OPERATION(EASYGetArchivesNext, ""),
    VANTOR_OPERATION(EASYGetAllArchivesInit, "[*strStatus]"),
    VANTOR_OPERATION(EASYGetAllArchivesNext, ""),
    VANTOR_OPERATION(EASYGetArchiveDescriptionInit, "strChannel, strArchive, [*strEditRights], [*strStatus]"),
    VANTOR_OPERATION(EASYGetArchiveDescriptionNext,
                     "[*intFieldID], [*intType], [*intSize], [*intState], [*intWeight], [*intSelectList]"),
    VANTOR_OPERATION(EASYGetSegmentSelectListInit, "strChannel, strArchive, intFieldID, [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentSelectListNext, ""),
    VANTOR_OPERATION(EASYQueryArchiveInit,
                     "strChannel, strArchive, strQuery, lngMaxLines, lngQueryMax, [strQueryFormat], "
                     "[strFolderRights], [*strLayoutFieldID], [*strLayoutID], [*lngTotalHits], "
                     "[*blnHitlistMultiTIFF], [*strStatus]"),
    VANTOR_OPERATION(EASYQueryArchiveNext, "[*strChannel], [*strArchive], [*strDocID], [*strVer]"),
    VANTOR_OPERATION(EASYGetQueryFormatListInit, "strChannel, strArchive, [*strStatus]"),
    VANTOR_OPERATION(EASYGetQueryFormatListNext, ""),
    VANTOR_OPERATION(EASYGetDocumentInfo,
                     DOCUMENT_KEY "[*lngLaenge], [*strErstelldat], [*strAenderDat], [*strTitel], [*intFelderGes], "
                                  "[*intTextFelder], [*intBildFelder], [*intBlobFelder], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentDescriptionInit, DOCUMENT_KEY "[strThumbnailPath], [*lngNotes], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentDescriptionNext,
                     "[*intFeldID], [*lngTextLaenge], [*intTrefferZahl], [*lngNCILaenge], [*strExt], [*intFeldTyp], "
                     "[*strFeldtitel], [*strDateiname], [*intStatus], [*strLayoutID], [*lngThumbnailSize]"),
    VANTOR_OPERATION(EASYGetSegmentTextInit,
                     DOCUMENT_KEY "[strQuery], [strMarkOn], [strMarkOff], [strCRLF], [strBlank], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentTextNext, ""),
    VANTOR_OPERATION(EASYGetSegmentData, DOCUMENT_KEY "intFieldIndex, [*strFileName], [*lngFileLen], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentERFInit, DOCUMENT_KEY "intFieldIndex, [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentERFNext, "[*strChannel], [*strArchive], [*strDocID], [*strVer]"),
    VANTOR_OPERATION(EASYGetSegmentPDF,
                     DOCUMENT_KEY "intFieldIndex, intLayoutID, [*strFileName], [*lngFileLen], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentPrintfile,
                     DOCUMENT_KEY "strFieldID, strLayoutID, [intMode], [*strFileName], [*lngFileLen], [*strStatus]"),
    VANTOR_OPERATION(EASYGetSegmentMultiTIF, DOCUMENT_KEY "strPages, [*strFileName], [*lngFileLen], [*strStatus]"),
    VANTOR_OPERATION(EASYTransferBLOB, "strFile, lngFileLen, [*strStatus]"),
    VANTOR_OPERATION(EASYUploadFile, "strFileName, [*strStatus]"),
    VANTOR_OPERATION(EASYSortHitlistInit, "lngCol"),
    VANTOR_OPERATION(EASYSortHitlistNext, "[*strChannel], [*strArchive], [*strDocID], [*strVer]"),
    VANTOR_OPERATION(EASYDeleteFromHitlist, "lngLine"),
    VANTOR_OPERATION(EASYDeleteDocument, DOCUMENT_KEY "[*strStatus]"),
    VANTOR_OPERATION(CreateImportFile,
                     "strImportFile, strChannel, strArchive, strTitle, strFieldTypes, strFieldIDs, strFieldContents, "
                     "[strCharSet], [*strStatus]"),
    VANTOR_OPERATION(EASYCreateDocument, "strImportFile, [*strDocIDVer], [*strStatus]"),
    VANTOR_OPERATION(EASYEditDocument, "strImportFile, *strDocIDVer, [*strStatus]"),
    VANTOR_OPERATION(EASYGetNotesInit, DOCUMENT_KEY "[*strStatus]"),
    VANTOR_OPERATION(EASYGetNotesNext, ""),
    VANTOR_OPERATION(EASYWriteNote, DOCUMENT_KEY "strNote, [strCRLF], [*strStatus]"),
    VANTOR_OPERATION(EASYDeleteNotes, DOCUMENT_KEY "[*strStatus]"),
    VANTOR_OPERATION(EASYGetMasksInit, "strChannel, strArchive, [*strStatus]"),
    VANTOR_OPERATION(EASYGetMasksNext, "[*strMaskName]"),
    VANTOR_OPERATION(EASYGetMasksNextField,
                     "[*lngTabIndex], [*lngWidth], [*strAlign], [*strName], [*blnMandatory], "
                     "[*strInitText], [*blnListOnly], [*strList]"),
    VANTOR_OPERATION(EASYGetMasksFirst, ""),
    VANTOR_OPERATION(EASYGetAllArchivesExtInit, "[*strStatus]"),
    VANTOR_OPERATION(EASYGetAllArchivesExtNext, "[*strChannel], [*strDescription]"),
    VANTOR_OPERATION(EASYGetAllArchivesExtNextArchive, ""),
    VANTOR_OPERATION(EASYGetAllArchivesExtFirst, ""),
    VANTOR_OPERATION(EASYGetArchiveProperties,
                     "strChannel, strArchive, [*blnCreate], [*blnEdit], [*blnDelete], [*blnIndex], [*strStatus]"),
    VANTOR_OPERATION(UploadFile, "[strSubDir], [*strFileNameParam], [*lngFileSizeParam]"),
});

#undef VANTOR_OPERATION
#undef DOCUMENT_KEY

constexpr size_t kPropertyCount = 11;
static_assert(kEntries.size() == kPropertyCount + 66);

constexpr auto kMembers = [] {
  std::array<Member, kEntries.size()> members{};
  for (size_t i = 0; i < kEntries.size(); ++i) members[i] = kEntries[i].member;
  return members;
}();

// The entry of a member of the table, or of one with the same dispatch id.
const Entry& EntryOf(const Member& member) {
  const Member* found = &member;
  if (found < kMembers.data() || found >= kMembers.data() + kMembers.size()) found = &MemberWithId(member.dispid);
  return kEntries[static_cast<size_t>(found - kMembers.data())];
}

bool SameTextIgnoringCase(std::string_view a, std::string_view b) {
  const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return upper(x) == upper(y); });
}

std::string Counted(size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// How a value shows in a message: text quoted, numbers as they read.
std::string Shown(const Variant& value) {
  switch (value.type()) {
    case VarType::Null:
      return "Null";
    case VarType::Missing:
      return "a missing value";
    case VarType::Empty:
      return "Empty";
    case VarType::String:
      return "'" + value.StringValue() + "'";
    default:
      return value.ToString();
  }
}

std::string ProblemOf(const RuntimeError& e) {
  return e.number() == static_cast<int32_t>(ErrorNumber::kOverflow) ? "overflow" : "type mismatch";
}

const char* KindName(ValueKind kind) {
  switch (kind) {
    case ValueKind::String:
      return "a String";
    case ValueKind::Long:
      return "a Long";
    case ValueKind::Integer:
      return "an Integer";
    case ValueKind::Boolean:
      return "a Boolean";
    case ValueKind::Any:
      break;
  }
  return "a Variant";
}

// The value as the kind asks for; conversion failures raise the VB RuntimeError.
Variant Converted(ValueKind kind, const Variant& value) {
  switch (kind) {
    case ValueKind::String:
      return Variant(value.ToString());
    case ValueKind::Long:
      return Variant(value.ToLong());
    case ValueKind::Integer:
      return Variant(value.ToInteger());
    case ValueKind::Boolean:
      return Variant(value.ToBoolean());  // CBool: numbers, and the words True and False
    case ValueKind::Any:
      break;
  }
  return value;
}

void RequireProperty(const Member& property) {
  if (property.kind != MemberKind::Property) {
    throw DispatchError(kNoSuchMember, std::string(property.name), 0,
                        std::string(property.name) + " is not a property");
  }
}

void CheckArgumentCount(const Member& member, size_t passed) {
  const size_t most = member.kind == MemberKind::Property ? 1 : member.parameters.size();
  if (passed > most) {
    const std::string takes = most == 0 ? "no arguments"
                              : member.kind == MemberKind::Operation && member.RequiredCount() == most
                                  ? Counted(most, "argument", "arguments")
                                  : "at most " + Counted(most, "argument", "arguments");
    throw DispatchError(
        kWrongArgumentCount, std::string(member.name), 0,
        std::string(member.name) + " takes " + takes + ", " + Counted(passed, "was", "were") + " passed");
  }
}

}  // namespace

std::span<const Member> Members() { return kMembers; }

const Member* FindMember(std::string_view name) {
  for (const Member& m : kMembers) {
    if (SameTextIgnoringCase(m.name, name)) return &m;
  }
  return nullptr;
}

const Member* FindMember(int32_t dispid) {
  const int64_t property = int64_t{dispid} - kPropertyBase;
  if (property >= 0 && property < static_cast<int64_t>(kPropertyCount)) return &kMembers[property];
  const int64_t operation = int64_t{dispid} - kOperationBase;
  if (operation >= 0 && operation < static_cast<int64_t>(kMembers.size() - kPropertyCount)) {
    return &kMembers[kPropertyCount + operation];
  }
  return nullptr;
}

const Member& MemberNamed(std::string_view name) {
  if (const Member* m = FindMember(name)) return *m;
  throw DispatchError(kNoSuchMember, std::string(name), 0, "clsVantor has no member named '" + std::string(name) + "'");
}

const Member& MemberWithId(int32_t dispid) {
  if (const Member* m = FindMember(dispid)) return *m;
  char id[16];
  std::snprintf(id, sizeof id, "0x%08X", static_cast<uint32_t>(dispid));
  throw DispatchError(kNoSuchMember, id, 0, std::string("clsVantor has no member with dispatch id ") + id);
}

Variant GetProperty(const clsVantor& object, const Member& property) {
  RequireProperty(property);
  const Entry& e = EntryOf(property);
  return e.text != nullptr ? Variant(object.*e.text) : Variant(object.*e.number);
}

void PutProperty(clsVantor& object, const Member& property, const Variant& value) {
  RequireProperty(property);
  const Entry& e = EntryOf(property);
  try {
    if (e.text != nullptr) {
      object.*e.text = value.ToString();
    } else {
      object.*e.number = value.ToLong();
    }
  } catch (const RuntimeError& error) {
    throw DispatchError(error.number(), std::string(property.name), 1,
                        std::string(property.name) + ": " + Shown(value) + " cannot be assigned to " +
                            KindName(property.value_kind) + " property (" + ProblemOf(error) + ")");
  }
}

Variant Invoke(clsVantor& object, const Member& member, std::vector<Variant>& args,
               std::shared_ptr<ScriptingContext> context) {
  const Entry& e = EntryOf(member);
  const Member& m = e.member;
  CheckArgumentCount(m, args.size());
  if (m.kind == MemberKind::Property) {
    if (args.empty()) return GetProperty(object, m);
    PutProperty(object, m, args[0]);
    return Variant();
  }
  const size_t required = m.RequiredCount();
  for (size_t i = 0; i < required; ++i) {
    if (i >= args.size() || args[i].IsMissing()) {
      throw DispatchError(kArgumentNotOptional, std::string(m.name), static_cast<int>(i) + 1,
                          std::string(m.name) + ": argument " + std::to_string(i + 1) + " (" +
                              std::string(m.parameters[i].name) + ") is not optional");
    }
  }
  return e.call(object, m, args, context);
}

Variant ConvertArgument(const Member& member, size_t index, const Variant& value) {
  const Member& m = EntryOf(member).member;
  CheckArgumentCount(m, index + 1);
  if (value.IsMissing() || value.IsNull()) return value;
  const bool property = m.kind == MemberKind::Property;
  const ValueKind kind = property ? m.value_kind : m.parameters[index].kind;
  try {
    return Converted(kind, value);
  } catch (const RuntimeError& error) {
    const std::string argument = property ? std::string(m.name)
                                          : std::string(m.name) + ": argument " + std::to_string(index + 1) + " (" +
                                                std::string(m.parameters[index].name) + ")";
    throw DispatchError(
        error.number(), std::string(m.name), static_cast<int>(index) + 1,
        argument + ": " + Shown(value) + " cannot be converted to " + KindName(kind) + " (" + ProblemOf(error) + ")");
  }
}

}  // namespace halqvantor::dispatch
