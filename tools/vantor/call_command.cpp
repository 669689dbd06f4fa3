// `vantor call MEMBER [ARG...]`: any property or operation of the component by name, through the dispatch
// table, with the text arguments converted to the kinds the parameters announce.

#include <halqvantor/Dispatch.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "output.h"
#include "session.h"
#include "table.h"

namespace vantor {
namespace {

using halqvantor::Variant;
using halqvantor::VarType;
namespace dispatch = halqvantor::dispatch;

struct CallArgs {
  std::string member;
  std::vector<std::string> arguments;
  std::string post;
  bool list = false;
};

const char* TypeName(VarType type) {
  switch (type) {
    case VarType::Empty:
      return "Empty";
    case VarType::Null:
      return "Null";
    case VarType::Integer:
      return "Integer";
    case VarType::Long:
      return "Long";
    case VarType::Double:
      return "Double";
    case VarType::Date:
      return "Date";
    case VarType::String:
      return "String";
    case VarType::Boolean:
      return "Boolean";
    case VarType::Byte:
      return "Byte";
    case VarType::Missing:
      return "Missing";
  }
  return "?";
}

Json JsonOf(const Variant& value) {
  Json json = {{"type", TypeName(value.type())}};
  switch (value.type()) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      json["value"] = value.ToLong();
      break;
    case VarType::Double:
      json["value"] = value.ToDouble();
      break;
    case VarType::Boolean:
      json["value"] = value.ToBoolean();
      break;
    case VarType::String:
    case VarType::Date:
      json["value"] = value.ToString();
      break;
    default:
      json["value"] = nullptr;
      break;
  }
  return json;
}

// One argument from its text: "str:TEXT" is a String as it stands, ":missing", ":null" and ":empty" are
// those values, anything else converts to the kind of the parameter.
Variant ArgumentOf(const dispatch::Member& member, size_t index, const std::string& text) {
  if (text.rfind("str:", 0) == 0) return Variant(text.substr(4));
  if (text == ":missing") return Variant::missing();
  if (text == ":null") return Variant::null();
  if (text == ":empty") return Variant();
  if (member.kind == dispatch::MemberKind::Property || index >= member.parameters.size()) return Variant(text);
  return dispatch::ConvertArgument(member, index, Variant(text));
}

std::shared_ptr<halqvantor::ScriptingContext> PostedContext(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw UsageError("--post: cannot read " + file);
  std::vector<uint8_t> body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return std::make_shared<halqvantor::MemoryScriptingContext>(
      std::make_shared<halqvantor::MemoryPageRequest>(std::move(body)));
}

const char* ValueKindName(dispatch::ValueKind kind) {
  switch (kind) {
    case dispatch::ValueKind::String:
      return "String";
    case dispatch::ValueKind::Long:
      return "Long";
    case dispatch::ValueKind::Integer:
      return "Integer";
    case dispatch::ValueKind::Boolean:
      return "Boolean";
    case dispatch::ValueKind::Any:
      break;
  }
  return "Variant";
}

const char* ResultKindName(dispatch::ResultKind kind) {
  switch (kind) {
    case dispatch::ResultKind::None:
      return "none";
    case dispatch::ResultKind::Long:
      return "Long";
    case dispatch::ResultKind::Boolean:
      return "Boolean";
    case dispatch::ResultKind::Variant:
      break;
  }
  return "Variant";
}

// Every member of the dispatch table in interface order: properties with their kind, operations with their
// parameters ("out" before a by-reference one, brackets round an optional one) and their result.
int ListMembers(Session& session) {
  Listing listing({"member", "kind", "type", {"parameters", ColumnKind::kList}});
  Json members = Json::array();
  for (const dispatch::Member& member : dispatch::Members()) {
    const bool property = member.kind == dispatch::MemberKind::Property;
    std::vector<std::string> shown;
    Json parameters = Json::array();
    for (const dispatch::Parameter& parameter : member.parameters) {
      std::string text = (parameter.by_reference ? "out " : "") + std::string(parameter.name);
      shown.push_back(parameter.optional ? "[" + text + "]" : text);
      parameters.push_back({{"name", std::string(parameter.name)},
                            {"type", ValueKindName(parameter.kind)},
                            {"by_reference", parameter.by_reference},
                            {"optional", parameter.optional}});
    }
    const std::string type = property ? ValueKindName(member.value_kind) : ResultKindName(member.result);
    listing.Add({std::string(member.name), property ? "property" : "operation", type, shown});
    members.push_back({{"member", std::string(member.name)},
                       {"dispid", member.dispid},
                       {"kind", property ? "property" : "operation"},
                       {"type", type},
                       {"parameters", parameters}});
  }
  if (session.json()) {
    session.PrintJson(members);
  } else {
    session.Print(listing);
  }
  return 0;
}

int Call(Session& session, const CallArgs& args) {
  if (args.list) {
    if (!args.member.empty()) throw UsageError("call --list takes no MEMBER");
    return ListMembers(session);
  }
  if (args.member.empty()) throw UsageError("call: give the MEMBER to call (vantor call --list shows them all)");
  const dispatch::Member& member = dispatch::MemberNamed(args.member);
  std::vector<Variant> values;
  for (size_t i = 0; i < args.arguments.size(); ++i) values.push_back(ArgumentOf(member, i, args.arguments[i]));
  auto context = args.post.empty() ? nullptr : PostedContext(args.post);

  auto& vantor = session.Open(!session.options().db.empty());
  session.Calling(member.name);
  if (context) vantor.OnStartPage(context);

  std::vector<std::pair<std::string, Variant>> outputs;
  bool has_result = true;
  Variant result;
  if (member.kind == dispatch::MemberKind::Property) {
    if (values.size() > 1) throw UsageError("call: a property takes one value at most");
    if (values.size() == 1) dispatch::PutProperty(vantor, member, values[0]);
    result = dispatch::GetProperty(vantor, member);
  } else {
    // By-reference parameters not given are passed Empty so that their outputs show; optional inputs
    // between them are left out.
    for (size_t i = values.size(); i < member.parameters.size(); ++i) {
      const dispatch::Parameter& parameter = member.parameters[i];
      if (parameter.by_reference) {
        values.emplace_back();
      } else if (parameter.optional) {
        values.push_back(Variant::missing());
      } else {
        break;
      }
    }
    result = dispatch::Invoke(vantor, member, values, context);
    has_result = member.result != dispatch::ResultKind::None;
    for (size_t i = 0; i < values.size() && i < member.parameters.size(); ++i) {
      if (member.parameters[i].by_reference && !values[i].IsMissing()) {
        outputs.emplace_back(std::string(member.parameters[i].name), values[i]);
      }
    }
  }

  if (session.json()) {
    Json out = {{"member", std::string(member.name)}, {"result", nullptr}};
    if (has_result) out["result"] = JsonOf(result);
    // The by-reference outputs in parameter order, each named inside its object: keys stay fixed words.
    Json outs = Json::array();
    for (const auto& [name, value] : outputs) {
      Json output = JsonOf(value);
      output["name"] = name;
      outs.push_back(std::move(output));
    }
    out["outputs"] = outs;
    session.PrintJson(out);
  } else {
    if (has_result) session.out() << member.name << " = " << Text(result) << " (" << TypeName(result.type()) << ")\n";
    for (const auto& [name, value] : outputs) {
      session.out() << name << " = " << Text(value) << " (" << TypeName(value.type()) << ")\n";
    }
  }
  // A failed exchange: -1 with the reason in strStatus.
  for (const auto& [name, value] : outputs) {
    if (name == "strStatus" && result == Variant(int16_t{-1}) && !Text(value).empty()) {
      ReportError(session.err(), session.json(), std::string(member.name) + ": " + EscapeControls(Text(value)), 1);
      return 1;
    }
  }
  return 0;
}

int RunCall(Session& session, const CallArgs& args) {
  try {
    return Call(session, args);
  } catch (const dispatch::DispatchError& e) {
    ReportError(session.err(), session.json(),
                "vantor call: " + e.description() + " (error " + std::to_string(e.number()) + ")", 2);
    return 2;
  }
}

}  // namespace

void AddCallCommand(CLI::App& app, Action& action) {
  auto call = std::make_shared<CallArgs>();
  auto* command = app.add_subcommand(
      "call",
      "call any member of the component by name and print its result and by-reference outputs\n"
      "  ARG: converted to the parameter's kind; str:TEXT a String as it stands; :missing leaves an optional\n"
      "  argument out; :null and :empty pass Null and Empty. A property alone is read, with one ARG written.");
  command->add_option("MEMBER", call->member, "property or operation name (any case)");
  command->add_flag("--list", call->list, "list every member with its parameters (out: by reference, [optional])");
  command->add_option("ARG", call->arguments, "arguments in order");
  command->add_option("--post", call->post, "file whose bytes are the page's posted body (for UploadFile)");
  OnParsed(command, action, call, RunCall);
}

}  // namespace vantor
