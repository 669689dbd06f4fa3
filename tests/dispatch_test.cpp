#include "halqvantor/Dispatch.h"

#include <gtest/gtest.h>

#include <cctype>

#include "support/session_fixture.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

using namespace dispatch;

std::string WithCase(std::string_view name, int (*change)(int)) {
  std::string out(name);
  for (char& c : out) c = static_cast<char>(change(static_cast<unsigned char>(c)));
  return out;
}

// The DispatchError a call raises; fails the test when it raises none.
template <typename F>
DispatchError Refusal(F call) {
  try {
    call();
  } catch (const DispatchError& e) {
    return e;
  }
  ADD_FAILURE() << "no DispatchError";
  return DispatchError(0, "", 0, "");
}

// The number and text of the DispatchError a call raises: "438 clsVantor has no member named 'Foo'".
template <typename F>
std::string Refused(F call) {
  const DispatchError e = Refusal(call);
  return std::to_string(e.number()) + " " + e.description();
}

Variant Call(clsVantor& object, std::string_view name, std::vector<Variant> args = {}) {
  return Invoke(object, MemberNamed(name), args);
}

TEST(DispatchTable, MembersKeepInterfaceOrderWithDenseIdsAndAreFoundByAnyCase) {
  const auto members = Members();
  ASSERT_EQ(members.size(), 77u);
  for (const Member& m : members) {
    EXPECT_EQ(FindMember(m.dispid), &m);
    EXPECT_EQ(FindMember(WithCase(m.name, ::tolower)), &m);
    EXPECT_EQ(&MemberNamed(WithCase(m.name, ::toupper)), &m);
  }
  // A sample of the interface order, with the ids hosts have compiled in: both ends of the properties and
  // of the operations, and members on either side of the places where families meet.
  const MemberKind p = MemberKind::Property, o = MemberKind::Operation;
  const std::tuple<size_t, int32_t, std::string_view, MemberKind> anchors[] = {
      {0, 0x40030000, "strREMOTEHOST", p},        {10, 0x4003000A, "strChangeFileExt", p},
      {11, 0x60030000, "OnStartPage", o},         {28, 0x60030011, "DeleteFTPObjects", o},
      {29, 0x60030012, "EASYGetChannelsInit", o}, {56, 0x6003002D, "EASYSortHitlistInit", o},
      {60, 0x60030031, "CreateImportFile", o},    {74, 0x6003003F, "EASYGetAllArchivesExtFirst", o},
      {76, 0x60030041, "UploadFile", o}};
  for (const auto& [index, id, name, kind] : anchors) {
    const Member& m = members[index];
    EXPECT_EQ(std::tie(m.name, m.dispid, m.kind), std::tie(name, id, kind));
    EXPECT_EQ(&MemberWithId(id), &m) << name;
  }

  EXPECT_EQ(FindMember(0x4003000B), nullptr);
  EXPECT_EQ(FindMember("EASYGetChannelsInitX"), nullptr);
  EXPECT_EQ(Refused([] { MemberNamed("Foo"); }), "438 clsVantor has no member named 'Foo'");
  EXPECT_EQ(Refused([] { MemberWithId(0x60030042); }), "438 clsVantor has no member with dispatch id 0x60030042");
}

// Every operation against a gateway that refuses every request: the table passes what each entry declares
// and refuses one argument too many or a required one left out.
class DispatchCalls : public testing::SessionTest {
 protected:
  // A value for each parameter: by-reference ones start as "old", inputs name nothing that exists.
  std::vector<Variant> Arguments(const Member& m, size_t count) {
    std::vector<Variant> args;
    for (size_t i = 0; i < count; ++i) {
      const Parameter& p = m.parameters[i];
      args.push_back(p.by_reference                ? Variant("old")
                     : p.kind == ValueKind::String ? Variant(dir_.File("none"))
                     : p.kind == ValueKind::Any    ? Variant()
                                                   : Variant(int16_t{1}));
    }
    return args;
  }
  testing::TempDir dir_;
};

TEST_F(DispatchCalls, EveryOperationTakesWhatItsEntryDeclares) {
  Answer("Status: Error 9 abgelehnt\r\n");
  for (const Member& m : Members()) {
    if (m.kind != MemberKind::Operation) continue;
    for (const size_t count : {m.RequiredCount(), m.parameters.size()}) {
      std::vector<Variant> args = Arguments(m, count);
      try {
        Invoke(v(), m, args);
      } catch (const DispatchError& e) {
        ADD_FAILURE() << m.name << " with " << count << " arguments: " << e.what();
      } catch (const RuntimeError&) {
        // The object's own refusal of these values.
      }
    }
    std::vector<Variant> too_many = Arguments(m, m.parameters.size());
    too_many.emplace_back(int16_t{1});
    EXPECT_EQ(Refusal([&] { Invoke(v(), m, too_many); }).number(), 450) << m.name;
    for (size_t i = 0; i < m.RequiredCount(); ++i) {
      std::vector<Variant> args = Arguments(m, m.parameters.size());
      args[i] = Variant::missing();
      const DispatchError e = Refusal([&] { Invoke(v(), m, args); });
      EXPECT_EQ(std::make_pair(e.number(), e.argument()), std::make_pair(449, static_cast<int>(i) + 1)) << m.name;
    }
  }
}

TEST_F(DispatchCalls, RefusalsNameTheMemberAndTheArgument) {
  const Variant one(int32_t{1});
  const std::vector<std::tuple<std::string_view, std::vector<Variant>, int, std::string_view>> cases = {
      {"EASYTransferBLOB", {Variant::missing(), one}, 449, "EASYTransferBLOB: argument 1 (strFile) is not optional"},
      {"EASYGetChannelsInit", {one, one, one}, 450, "EASYGetChannelsInit takes at most 1 argument, 3 were passed"},
      {"Encode", {"a", "b"}, 450, "Encode takes 1 argument, 2 were passed"},
      {"OnEndPage", {one}, 450, "OnEndPage takes no arguments, 1 was passed"},
      {"strREMOTEHOST", {"a", "b"}, 450, "strREMOTEHOST takes at most 1 argument, 2 were passed"}};
  for (const auto& [name, args, number, text] : cases) {
    const DispatchError e = Refusal([&] { Call(v(), name, args); });
    EXPECT_EQ(std::make_tuple(e.number(), e.description(), e.member()), std::make_tuple(number, text, name));
  }
  EXPECT_EQ(Refusal([&] { Call(v(), "OnStartPage", {"page"}); }).number(), 13);
  EXPECT_TRUE(Requests().empty());  // nothing was sent for a refused call
}

TEST_F(DispatchCalls, TheObjectsOwnErrorsPassThroughAndOnStartPageTakesTheHostsContext) {
  // The table passes Decode's text as it is; the 13 is the object's own.
  EXPECT_EQ(testing::RuntimeErrorNumber([&] { Call(v(), "Decode", {"zz"}); }), 13);
  auto context = std::make_shared<MemoryScriptingContext>(std::make_shared<MemoryPageRequest>(std::vector<uint8_t>{}));
  std::vector<Variant> none;
  Invoke(v(), MemberNamed("OnStartPage"), none, context);
  EXPECT_EQ(impl().document_state.context, context);
  Call(v(), "OnEndPage");
  EXPECT_EQ(impl().document_state.context, nullptr);
}

TEST(DispatchProperties, PutConvertsTheValueAndGetReadsIt) {
  clsVantor object;
  // A property, the value put, the value read back.
  const std::tuple<std::string_view, Variant, Variant> cases[] = {{"lngREMOTEPORT", "8080", int32_t{8080}},
                                                                  {"LNGREQUESTTIMEOUT", 2.5, int32_t{2}},
                                                                  {"strSessionID", true, "True"},
                                                                  {"strDebugLogPath", Variant(), ""}};
  for (const auto& [property, value, read] : cases) {
    PutProperty(object, MemberNamed(property), value);
    EXPECT_EQ(GetProperty(object, MemberNamed(property)), read) << property;
  }
  EXPECT_EQ(object.lngREMOTEPORT, 8080);

  std::vector<Variant> put = {"h1"}, get;
  EXPECT_EQ(Invoke(object, MemberNamed("strREMOTEHOST"), put), Variant());
  EXPECT_EQ(Invoke(object, MemberWithId(0x40030000), get), Variant("h1"));

  const std::vector<std::pair<Variant, std::string>> refused = {
      {"abc", "13 lngREMOTEPORT: 'abc' cannot be assigned to a Long property (type mismatch)"},
      {3000000000.0, "6 lngREMOTEPORT: 3000000000 cannot be assigned to a Long property (overflow)"},
      {Variant::null(), "13 lngREMOTEPORT: Null cannot be assigned to a Long property (type mismatch)"}};
  for (const auto& [value, text] : refused) {
    EXPECT_EQ(Refused([&] { PutProperty(object, MemberNamed("lngREMOTEPORT"), value); }), text);
  }
  EXPECT_EQ(object.lngREMOTEPORT, 8080);
  EXPECT_EQ(Refusal([&] { GetProperty(object, MemberNamed("Init")); }).number(), 438);
}

TEST(DispatchConversions, ArgumentsConvertToTheKindTheirNameAnnounces) {
  const Member& print = MemberNamed("EASYGetSegmentPrintfile");
  const Member& blob = MemberNamed("EASYTransferBLOB");
  EXPECT_EQ(ConvertArgument(print, 6, "1"), Variant(int16_t{1}));
  EXPECT_EQ(ConvertArgument(print, 0, int32_t{7}), Variant("7"));
  EXPECT_EQ(ConvertArgument(blob, 1, " 123 "), Variant(int32_t{123}));
  EXPECT_EQ(ConvertArgument(MemberNamed("Init"), 0, "true"), Variant(true));
  EXPECT_EQ(ConvertArgument(MemberNamed("OnStartPage"), 0, "x"), Variant("x"));
  EXPECT_EQ(ConvertArgument(MemberNamed("lngREMOTEPORT"), 0, "80"), Variant(int32_t{80}));
  EXPECT_EQ(ConvertArgument(print, 6, Variant::null()), Variant::null());

  const auto bad_index = [] { ConvertArgument(MemberNamed("EASYGetSegmentData"), 4, "abc"); };
  EXPECT_EQ(Refusal(bad_index).argument(), 5);
  EXPECT_EQ(
      Refused(bad_index),
      "13 EASYGetSegmentData: argument 5 (intFieldIndex): 'abc' cannot be converted to an Integer (type mismatch)");
  EXPECT_EQ(Refusal([&] { ConvertArgument(print, 6, "40000"); }).number(), 6);
  EXPECT_EQ(Refusal([&] { ConvertArgument(blob, 3, "1"); }).number(), 450);
}

}  // namespace
}  // namespace halqvantor
