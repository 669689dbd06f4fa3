#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/Export.h"
#include "halqvantor/PageEngine.h"
#include "halqvantor/RuntimeError.h"
#include "halqvantor/Variant.h"

namespace halqvantor {

class clsVantor;

// Late-bound access to clsVantor: every property and operation of the interface `_clsVantor` found by name
// (without regard to case) or by dispatch id, with arguments and results as Variants. Hosts, the `vantor`
// command line and language bindings call the object through this table.
//
// Dispatch ids are fixed and follow the interface order: the 11 properties are 0x40030000 + n, the 66
// operations 0x60030000 + n (n counting from 0 in each group).
namespace dispatch {

enum class MemberKind { Property, Operation };

// What an operation hands back. Most results are Variants; EASYSortHitlistInit returns a Long,
// UploadFile a Boolean, and six operations nothing (an Empty Variant through Invoke).
enum class ResultKind { None, Variant, Long, Boolean };

// The kind of value a parameter or property carries, read from its name's prefix (str, lng, int, bln);
// Any for the rest (for example PassedScriptingContext, or a property read as text).
enum class ValueKind { Any, String, Long, Integer, Boolean };

struct Parameter {
  std::string_view name;
  bool by_reference;  // written back into the caller's argument
  bool optional;      // may be passed as a Missing Variant (or left off the end of the list)
  ValueKind kind;
};

struct HALQVANTOR_API Member {
  int32_t dispid;
  std::string_view name;  // as the interface spells it
  MemberKind kind;
  ValueKind value_kind;                   // properties: String or Long
  ResultKind result;                      // operations
  std::span<const Parameter> parameters;  // operations, in order

  // The number of leading parameters that must be passed.
  size_t RequiredCount() const;
};

// A call the table refuses before the object sees it: an unknown member, a wrong number of arguments, an
// argument that is not optional, a value that does not convert. The description names the member and, where
// there is one, the argument ("EASYTransferBLOB: argument 2 (lngFileLen) is not optional"). Numbers follow
// the automation host: 438 no such member, 450 wrong number of arguments, 449 argument not optional, 13
// type mismatch (6 overflow).
class HALQVANTOR_API DispatchError : public RuntimeError {
 public:
  DispatchError(int32_t number, std::string member, int argument, std::string description);
  const std::string& member() const { return member_; }
  int argument() const { return argument_; }  // 1-based; 0 when the error concerns no single argument

 private:
  std::string member_;
  int argument_;
};

// All 77 members in interface order: the properties first, then the operations.
HALQVANTOR_API std::span<const Member> Members();

// nullptr when there is no such member.
HALQVANTOR_API const Member* FindMember(std::string_view name);
HALQVANTOR_API const Member* FindMember(int32_t dispid);

// FindMember that raises DispatchError 438 naming what was asked for.
HALQVANTOR_API const Member& MemberNamed(std::string_view name);
HALQVANTOR_API const Member& MemberWithId(int32_t dispid);

// Property access. GetProperty hands back a String or Long Variant. PutProperty converts the value the way
// an assignment to a String or Long property does (CStr, CLng: "8080" is a port, 2.5 rounds to 2, "abc"
// raises 13, 3000000000 raises 6) and raises DispatchError naming the property when it cannot.
HALQVANTOR_API Variant GetProperty(const clsVantor& object, const Member& property);
HALQVANTOR_API void PutProperty(clsVantor& object, const Member& property, const Variant& value);

// Calls an operation. args holds the arguments in order; the list may stop before the optional ones, and a
// Missing Variant leaves an optional argument out (an out-argument left out is not written). By-reference
// arguments are written back into args in place. Values go to the operation as they are, as an automation
// host passes variants; the operation converts them itself. OnStartPage takes its page context from
// `context` (its one argument, if given, must be Missing or Empty). The object's own run-time errors pass
// through as RuntimeError; refusals of the table are DispatchError.
// A property may be called too: no argument reads it, one argument writes it.
HALQVANTOR_API Variant Invoke(clsVantor& object, const Member& member, std::vector<Variant>& args,
                              std::shared_ptr<ScriptingContext> context = nullptr);

// Converts a value to the kind a parameter's name announces (Integer for int..., Long for lng..., Boolean for
// bln..., String for str...) by the checked conversions of Variant; Missing and Null pass unchanged. Used by
// callers that hold text, such as a command line. Raises DispatchError naming the member and the argument
// when it cannot.
HALQVANTOR_API Variant ConvertArgument(const Member& member, size_t index, const Variant& value);

}  // namespace dispatch
}  // namespace halqvantor
