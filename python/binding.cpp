// The Python face of clsVantor: the extension module halqvantor._core. Every member of the dispatch table
// becomes a method or property of _core.clsVantor under its own name; arguments and results cross as plain
// Python values, by-reference outputs through Ref, a left-out optional argument through MISSING.
//
// Threads: an object belongs to the thread that created it (its connection slot lives in that thread's
// table), so every call checks the calling thread first. Members that may wait on the network, a file or the
// database run with the GIL released; the rest are quick and keep it.

#include <halqvantor/Extensions.h>
#include <halqvantor/clsVantor.h>
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

namespace py = pybind11;
using halqvantor::clsVantor;
using halqvantor::RuntimeError;
using halqvantor::Variant;
using halqvantor::VarType;
namespace dispatch = halqvantor::dispatch;

namespace {

// ---- Values

// Ref (a by-reference argument: the call reads .value and writes the output back into it) and MISSING (leaves
// an optional argument out; a Missing result turns into it) are small Python objects, defined with the
// exceptions in PYBIND11_MODULE and checked here by type and identity, which costs next to nothing.
PyTypeObject* ref_type = nullptr;
PyObject* missing = nullptr;
PyObject* value_name = nullptr;  // "value", interned

bool IsRef(py::handle h) { return PyObject_TypeCheck(h.ptr(), ref_type); }
py::object RefValue(py::handle ref) {
  return py::reinterpret_steal<py::object>(PyObject_GetAttr(ref.ptr(), value_name));
}
void SetRefValue(py::handle ref, const py::object& value) {
  if (PyObject_SetAttr(ref.ptr(), value_name, value.ptr()) != 0) throw py::error_already_set();
}

// Python objects the module keeps for the life of the process. They are handles, never released: a static
// py::object would drop its reference after the interpreter has finalized.
py::handle Kept(const char* module, const char* name) {
  return py::object(py::module_::import(module).attr(name)).release();
}

// Exceptions defined in Python (see PYBIND11_MODULE).
py::handle& VantorErrorType() {
  static py::handle type;
  return type;
}
py::handle& ThreadErrorType() {
  static py::handle type;
  return type;
}

// Automation dates count days from 30.12.1899; the fraction is the time of day.
py::object DateFromAutomation(double days) {
  static const py::handle datetime = Kept("datetime", "datetime");
  static const py::handle timedelta = Kept("datetime", "timedelta");
  const py::object base = datetime(1899, 12, 30);
  const double whole = std::floor(days);
  // A negative date's time of day counts forward from its day, as the automation date reads it.
  const double fraction = std::fabs(days - whole);
  const double day = days < 0 ? std::ceil(days) : whole;
  const auto seconds = static_cast<int64_t>(std::llround(fraction * 86400.0));
  return base + timedelta(py::arg("days") = static_cast<int64_t>(day), py::arg("seconds") = seconds);
}

double AutomationFromDate(const py::handle& value) {
  static const py::handle datetime = Kept("datetime", "datetime");
  static const py::handle time = Kept("datetime", "time");
  py::object moment = py::reinterpret_borrow<py::object>(value);
  if (!py::isinstance(moment, datetime)) moment = datetime.attr("combine")(moment, time());
  const py::object delta = moment - datetime(1899, 12, 30);
  const double days = delta.attr("days").cast<double>();
  const double fraction = delta.attr("seconds").cast<double>() / 86400.0;
  return days < 0 && fraction > 0 ? days + 1 - fraction : days + fraction;
}

py::object ToPython(const Variant& v) {
  switch (v.type()) {
    case VarType::Empty:
    case VarType::Null:
      return py::none();
    case VarType::Missing:
      return py::reinterpret_borrow<py::object>(missing);
    case VarType::Boolean:
      return py::bool_(v.ToBoolean());
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      return py::int_(v.ToLong());
    case VarType::Double:
      return py::float_(v.ToDouble());
    case VarType::Date:
      return DateFromAutomation(v.ToDouble());
    case VarType::String:
      return py::str(v.StringValue());
  }
  return py::none();
}

// Python values as a page's variants: None is Null, an int the smallest of Integer, Long and Double that
// holds it (as a literal in a script page), a float Double, a str String, a bool Boolean, a date Date.
Variant FromPython(const py::handle& value) {
  if (value.is_none()) return Variant::null();
  if (value.ptr() == missing) return Variant::missing();
  if (py::isinstance<py::bool_>(value)) return Variant(value.cast<bool>());
  if (py::isinstance<py::int_>(value)) {
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0 && n >= INT16_MIN && n <= INT16_MAX) return Variant(static_cast<int16_t>(n));
    if (overflow == 0 && n >= INT32_MIN && n <= INT32_MAX) return Variant(static_cast<int32_t>(n));
    return Variant(PyLong_AsDouble(value.ptr()));
  }
  if (py::isinstance<py::float_>(value)) return Variant(value.cast<double>());
  if (py::isinstance<py::str>(value)) return Variant(value.cast<std::string>());
  static const py::handle date_type = Kept("datetime", "date");
  if (py::isinstance(value, date_type)) return Variant::date(AutomationFromDate(value));
  throw py::type_error("a " + std::string(py::str(value.get_type().attr("__name__"))) +
                       " cannot be passed to clsVantor: use str, int, float, bool, a date, None or MISSING");
}

// ---- Page context from a WSGI environ

// The posted body of a WSGI request: CONTENT_LENGTH bytes from wsgi.input. Reads hold the GIL while they
// touch Python objects, since the member that reads runs with the GIL released.
class WsgiRequest final : public halqvantor::PageRequest, public halqvantor::ScriptingContext {
 public:
  explicit WsgiRequest(const py::dict& environ) {
    const py::object length = environ.attr("get")("CONTENT_LENGTH", "");
    try {
      const std::string text = py::str(length);
      const long long n = text.empty() ? 0 : std::stoll(text);
      total_ = static_cast<int32_t>(std::clamp<long long>(n, 0, INT32_MAX));
    } catch (const std::exception&) {
      total_ = 0;  // a length that is no number announces no body
    }
    input_ = environ.attr("get")("wsgi.input", py::none());
  }
  ~WsgiRequest() override {
    py::gil_scoped_acquire gil;
    input_ = py::object();
  }

  int32_t TotalBytes() override { return total_; }

  std::vector<uint8_t> BinaryRead(int32_t count) override {
    py::gil_scoped_acquire gil;
    std::vector<uint8_t> out;
    const int32_t wanted = std::min(count, total_ - read_);
    if (wanted <= 0 || input_.is_none()) return out;
    out.reserve(static_cast<size_t>(wanted));
    // wsgi.input may hand out less than asked; read on until the count or the end of the body.
    while (static_cast<int32_t>(out.size()) < wanted) {
      const py::bytes chunk = input_.attr("read")(wanted - static_cast<int32_t>(out.size()));
      const std::string_view bytes = chunk;
      if (bytes.empty()) break;
      out.insert(out.end(), bytes.begin(), bytes.end());
    }
    read_ += static_cast<int32_t>(out.size());
    return out;
  }

  std::shared_ptr<halqvantor::PageRequest> Request() override { return self_.lock(); }
  void SetSelf(const std::shared_ptr<WsgiRequest>& self) { self_ = self; }

 private:
  py::object input_;
  int32_t total_ = 0;
  int32_t read_ = 0;
  std::weak_ptr<WsgiRequest> self_;
};

// What Python holds for WsgiContext(environ): the request, shared with the object that reads it.
struct WsgiContext {
  std::shared_ptr<WsgiRequest> request;
};

WsgiContext MakeWsgiContext(const py::dict& environ) {
  auto request = std::make_shared<WsgiRequest>(environ);
  request->SetSelf(request);
  return {request};
}

// ---- The object

// Objects dropped on a thread other than their own are ended later on their own thread: their slot belongs to
// that thread's table, which only that thread may touch.
std::mutex orphans_mutex;
std::multimap<std::thread::id, std::unique_ptr<clsVantor>> orphans;

void EndOrphansOfThisThread() {
  std::vector<std::unique_ptr<clsVantor>> ending;
  {
    std::lock_guard<std::mutex> lock(orphans_mutex);
    auto [first, last] = orphans.equal_range(std::this_thread::get_id());
    for (auto it = first; it != last; ++it) ending.push_back(std::move(it->second));
    orphans.erase(first, last);
  }
  // Destructors close sockets and write log lines: no lock held, no GIL needed.
  py::gil_scoped_release release;
  ending.clear();
}

std::string ThreadName(std::thread::id id) {
  std::ostringstream out;
  out << id;
  return out.str();
}

struct WrongThread : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class PyVantor {
 public:
  PyVantor() : object_(std::make_unique<clsVantor>()), owner_(std::this_thread::get_id()) { EndOrphansOfThisThread(); }
  ~PyVantor() {
    if (std::this_thread::get_id() == owner_) {
      py::gil_scoped_release release;
      object_.reset();
    } else {
      std::lock_guard<std::mutex> lock(orphans_mutex);
      orphans.emplace(owner_, std::move(object_));
    }
  }
  PyVantor(const PyVantor&) = delete;
  PyVantor& operator=(const PyVantor&) = delete;

  clsVantor& Object() {
    if (std::this_thread::get_id() != owner_) {
      throw WrongThread("this clsVantor object belongs to thread " + ThreadName(owner_) +
                        " and cannot be used on thread " + ThreadName(std::this_thread::get_id()) +
                        ": create one object per page, on the thread that serves the page");
    }
    return *object_;
  }

 private:
  std::unique_ptr<clsVantor> object_;
  std::thread::id owner_;
};

// Members that never wait on the network, a file or the database: they keep the GIL (a release and
// re-acquire would cost more than they do).
bool KeepsTheGil(const dispatch::Member& member) {
  static const std::unordered_set<std::string_view> kQuick{"Encode",
                                                           "Decode",
                                                           "OnStartPage",
                                                           "OnEndPage",
                                                           "EASYSortHitlistInit",
                                                           "EASYDeleteFromHitlist",
                                                           "EASYGetMasksFirst",
                                                           "EASYGetAllArchivesExtFirst"};
  const std::string_view name = member.name;
  return kQuick.count(name) != 0 || name.ends_with("Next") || name.ends_with("NextField") ||
         name.ends_with("NextArchive");
}

// Finds a parameter by name, without regard to case; -1 when the member has none of that name.
int ParameterIndex(const dispatch::Member& member, std::string_view name) {
  for (size_t i = 0; i < member.parameters.size(); ++i) {
    const std::string_view p = member.parameters[i].name;
    if (p.size() == name.size() && std::equal(p.begin(), p.end(), name.begin(),
                                              [](char a, char b) { return std::tolower(a) == std::tolower(b); })) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

[[noreturn]] void RaiseRefusal(const dispatch::Member& member, int32_t number, int argument, const std::string& text) {
  throw dispatch::DispatchError(number, std::string(member.name), argument, text);
}

PyTypeObject* wsgi_type = nullptr;

// A Python callable as an object's progress hook: called with the GIL taken as fn(operation, bytes,
// expected, event), event one of "moved", "waiting", "closed_early", "done"; False cancels (None goes on).
// An exception in it cancels too and is kept to be raised from the member that was running.
struct PythonProgress {
  struct State {
    py::object fn;
    std::optional<py::error_already_set> error;
  };
  std::shared_ptr<State> state;

  static PythonProgress Make(py::object fn) {
    // The last copy may go on a thread without the GIL (the object's end runs with it released).
    return {std::shared_ptr<State>(new State{std::move(fn), std::nullopt}, [](State* s) {
      py::gil_scoped_acquire gil;
      delete s;
    })};
  }

  bool operator()(const halqvantor::ProgressInfo& info) const {
    static constexpr const char* kEvents[] = {"moved", "waiting", "closed_early", "done"};
    py::gil_scoped_acquire gil;
    if (state->error) return false;
    try {
      const py::object answer = state->fn(py::str(info.operation.data(), info.operation.size()), info.bytes,
                                          info.expected, kEvents[static_cast<int>(info.event)]);
      return answer.is_none() || PyObject_IsTrue(answer.ptr()) == 1;
    } catch (py::error_already_set& e) {
      state->error.emplace(std::move(e));
      return false;
    }
  }
};

// Raises, from the member that ran, what the object's Python progress hook raised during it.
void RaiseProgressError(clsVantor& object) {
  auto* hook = halqvantor::Options(object).progress.target<PythonProgress>();
  if (hook == nullptr || !hook->state->error) return;
  py::error_already_set error = std::move(*hook->state->error);
  hook->state->error.reset();
  throw error;
}

py::object Call(PyVantor& self, const dispatch::Member& member, bool keeps_gil, PyObject* const* args, Py_ssize_t nargs,
                PyObject* kwnames) {
  clsVantor& object = self.Object();
  std::shared_ptr<halqvantor::ScriptingContext> context;

  // Arguments in order; keywords name parameters (any case) and fill the gaps with MISSING.
  std::vector<py::handle> given(args, args + nargs);
  const Py_ssize_t nkw = kwnames == nullptr ? 0 : PyTuple_GET_SIZE(kwnames);
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    const std::string name = py::str(PyTuple_GET_ITEM(kwnames, k));
    const int index = ParameterIndex(member, name);
    if (index < 0) {
      RaiseRefusal(member, 450, 0, std::string(member.name) + " has no parameter named '" + name + "'");
    }
    if (static_cast<size_t>(index) < given.size() && given[index].ptr() != missing) {
      RaiseRefusal(member, 450, index + 1,
                   std::string(member.name) + ": argument " + std::to_string(index + 1) + " (" +
                       std::string(member.parameters[index].name) + ") is passed twice");
    }
    if (given.size() <= static_cast<size_t>(index)) given.resize(index + 1, py::handle(missing));
    given[index] = args[nargs + k];
  }

  std::vector<Variant> values;
  values.reserve(given.size());
  for (py::handle value : given) {
    if (PyObject_TypeCheck(value.ptr(), wsgi_type)) {
      context = value.cast<WsgiContext&>().request;
      values.emplace_back(Variant::missing());
    } else if (IsRef(value)) {
      values.push_back(FromPython(RefValue(value)));
    } else {
      values.push_back(FromPython(value));
    }
  }

  Variant result;
  if (keeps_gil) {
    result = dispatch::Invoke(object, member, values, context);
  } else {
    py::gil_scoped_release release;
    result = dispatch::Invoke(object, member, values, context);
  }
  // The WSGI request's Python objects are let go of with the GIL held; the object keeps only its C++ side.
  context.reset();
  RaiseProgressError(object);

  // Outputs back into the Refs that were passed for by-reference parameters.
  for (size_t i = 0; i < given.size() && i < member.parameters.size(); ++i) {
    if (member.parameters[i].by_reference && IsRef(given[i]) && !values[i].IsMissing()) {
      SetRefValue(given[i], ToPython(values[i]));
    }
  }
  return member.result == dispatch::ResultKind::None ? py::object(py::none()) : ToPython(result);
}

void RaiseVantorError(const RuntimeError& error, const dispatch::DispatchError* refusal) {
  py::object exc = VantorErrorType()(error.number(), error.description(),
                                     refusal ? py::object(py::str(refusal->member())) : py::object(py::none()),
                                     refusal ? refusal->argument() : 0);
  PyErr_SetObject(VantorErrorType().ptr(), exc.ptr());
}

// Sets the Python error for an exception of the component or of this module.
void RaiseOwnError(std::exception_ptr p) {
  try {
    std::rethrow_exception(p);
  } catch (py::error_already_set& e) {
    e.restore();
  } catch (const py::builtin_exception& e) {
    e.set_error();
  } catch (const dispatch::DispatchError& e) {
    RaiseVantorError(e, &e);
  } catch (const RuntimeError& e) {
    RaiseVantorError(e, nullptr);
  } catch (const WrongThread& e) {
    PyErr_SetString(ThreadErrorType().ptr(), e.what());
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  }
}

// Operation n of the table as a method with the interpreter's fast calling convention: no argument tuple or
// keyword dict is built for a call. One function per operation, made from its index.
struct Operation {
  const dispatch::Member* member = nullptr;
  bool keeps_gil = false;
};
std::vector<Operation> operations;

template <size_t N>
PyObject* CallOperation(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  try {
    const Operation& op = operations[N];
    return Call(py::cast<PyVantor&>(py::handle(self)), *op.member, op.keeps_gil, args, PyVectorcall_NARGS(nargs),
                kwnames)
        .release()
        .ptr();
  } catch (...) {
    RaiseOwnError(std::current_exception());
  }
  return nullptr;
}

using FastFunction = PyObject* (*)(PyObject*, PyObject* const*, Py_ssize_t, PyObject*);
template <size_t... N>
constexpr std::array<FastFunction, sizeof...(N)> FastFunctions(std::index_sequence<N...>) {
  return {&CallOperation<N>...};
}
constexpr size_t kMaxOperations = 80;

}  // namespace

PYBIND11_MODULE(_core, m) {
  m.doc() = "The clsVantor component for Python pages (low level; import halqvantor instead).";

  // The exceptions, defined in Python so that they read like any other.
  py::dict scope;
  py::exec(R"py(
class VantorError(Exception):
    """A run-time error of the component, or a call the dispatch table refuses.

    number: the VB error number (5, 6, 9, 13, 53, 438, 449, 450, ...); description: its text;
    member and argument (1-based, 0 for none): set for refusals of the call itself."""
    def __init__(self, number, description, member=None, argument=0):
        super().__init__(f"run-time error {number}: {description}")
        self.number = number
        self.description = description
        self.member = member
        self.argument = argument

class ThreadError(RuntimeError):
    """An object was used on a thread other than the one that created it."""

class Ref:
    """A by-reference argument: the call reads .value and writes its output into it."""
    __slots__ = ("value",)
    def __init__(self, value=None):
        self.value = value
    def __repr__(self):
        return f"Ref({self.value!r})"

class _Missing:
    """Leaves an optional argument out (halqvantor.MISSING)."""
    __slots__ = ()
    def __repr__(self):
        return "halqvantor.MISSING"
    def __bool__(self):
        return False
    def __reduce__(self):
        return "MISSING"

MISSING = _Missing()
)py",
           scope);
  VantorErrorType() = py::object(scope["VantorError"]).release();
  ThreadErrorType() = py::object(scope["ThreadError"]).release();
  VantorErrorType().attr("__module__") = "halqvantor";
  ThreadErrorType().attr("__module__") = "halqvantor";
  m.attr("VantorError") = VantorErrorType();
  m.attr("ThreadError") = ThreadErrorType();
  for (const char* name : {"Ref", "_Missing"}) {
    scope[name].attr("__module__") = "halqvantor";
    m.attr(name) = scope[name];
  }
  ref_type = reinterpret_cast<PyTypeObject*>(py::object(scope["Ref"]).release().ptr());
  missing = py::object(scope["MISSING"]).release().ptr();
  m.attr("MISSING") = py::handle(missing);
  value_name = PyUnicode_InternFromString("value");
  py::register_exception_translator([](std::exception_ptr p) {
    if (p) RaiseOwnError(p);
  });

  py::class_<WsgiContext>(m, "WsgiContext",
                          "The page context of a WSGI request for OnStartPage: TotalBytes is CONTENT_LENGTH, "
                          "BinaryRead reads wsgi.input.")
      .def(py::init(&MakeWsgiContext), py::arg("environ"));
  wsgi_type = reinterpret_cast<PyTypeObject*>(py::type::of<WsgiContext>().ptr());

  py::class_<halqvantor::ObjectOptions>(m, "Options", "Settings of one object outside the interface table.")
      .def_readwrite("max_reply_bytes", &halqvantor::ObjectOptions::max_reply_bytes,
                     "The largest reply a request accepts, in bytes (default 1 GiB).")
      .def_readwrite("strong_passwords", &halqvantor::ObjectOptions::strong_passwords,
                     "WriteUserToDB and ChangePasswd store Argon2id hashes (default False).")
      .def_property(
          "progress",
          [](const halqvantor::ObjectOptions& options) -> py::object {
            const auto* hook = options.progress.target<PythonProgress>();
            return hook != nullptr ? hook->state->fn : py::object(py::none());
          },
          [](halqvantor::ObjectOptions& options, const py::object& fn) {
            if (fn.is_none()) {
              options.progress = nullptr;
            } else if (!PyCallable_Check(fn.ptr())) {
              throw py::type_error("progress must be a callable or None");
            } else {
              options.progress = PythonProgress::Make(fn);
            }
          },
          "A callable fn(operation, bytes, expected, event) told how far a long operation (a list request, "
          "EASYTransferBLOB, EASYUploadFile, UploadFile) has got; expected is -1 while unknown, event one of "
          "'moved', 'waiting', 'closed_early', 'done'. Returning False cancels the operation (status "
          "'Cancelled by the caller.'); an exception in it cancels too and is raised from the member. None "
          "removes it.");

  py::class_<PyVantor> cls(m, "clsVantor", "The component object: one per page, used on the thread that created it.");
  cls.def(py::init<>());
  cls.def_property_readonly(
      "options", [](PyVantor& self) -> halqvantor::ObjectOptions& { return halqvantor::Options(self.Object()); },
      py::return_value_policy::reference_internal, "Settings outside the interface table.");

  static constexpr auto kFast = FastFunctions(std::make_index_sequence<kMaxOperations>{});
  static std::deque<std::string> method_names;
  static std::deque<PyMethodDef> method_defs;
  py::list names;
  for (const dispatch::Member& member : dispatch::Members()) {
    const dispatch::Member* mp = &member;
    const std::string name(member.name);
    names.append(name);
    if (member.kind == dispatch::MemberKind::Property) {
      cls.def_property(
          name.c_str(), [mp](PyVantor& self) { return ToPython(dispatch::GetProperty(self.Object(), *mp)); },
          [mp](PyVantor& self, const py::object& value) {
            dispatch::PutProperty(self.Object(), *mp, FromPython(value));
          });
    } else {
      if (operations.size() == kMaxOperations) throw std::logic_error("raise kMaxOperations");
      operations.push_back({mp, KeepsTheGil(member)});
      method_names.push_back(name);
      method_defs.push_back(
          PyMethodDef{method_names.back().c_str(),
                      reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(kFast[operations.size() - 1])),
                      METH_FASTCALL | METH_KEYWORDS, nullptr});
      py::object method = py::reinterpret_steal<py::object>(
          PyDescr_NewMethod(reinterpret_cast<PyTypeObject*>(cls.ptr()), &method_defs.back()));
      if (!method) throw py::error_already_set();
      py::setattr(cls, name.c_str(), method);
    }
  }
  m.attr("MEMBERS") = py::tuple(names);

  // The table's own description of each member, for stubs, help and tools.
  m.def("describe", [](const std::string& name) {
    const dispatch::Member* member = dispatch::FindMember(name);
    if (member == nullptr) return py::object(py::none());
    py::dict out;
    out["name"] = std::string(member->name);
    out["dispid"] = member->dispid;
    out["property"] = member->kind == dispatch::MemberKind::Property;
    static const char* const kKinds[] = {"any", "str", "long", "integer", "bool"};
    static const char* const kResults[] = {"none", "variant", "long", "bool"};
    out["kind"] = kKinds[static_cast<int>(member->value_kind)];
    out["result"] = kResults[static_cast<int>(member->result)];
    py::list parameters;
    for (const dispatch::Parameter& p : member->parameters) {
      parameters.append(
          py::make_tuple(std::string(p.name), p.by_reference, p.optional, kKinds[static_cast<int>(p.kind)]));
    }
    out["parameters"] = parameters;
    return py::object(out);
  });

  // The same calls looped in C++ through the dispatch table: the baseline of the Python calls' benchmark.
  // Each round calls `name` with `args` and then, when `walk` is given, `walk` until it hands back "".
  m.def(
      "_dispatch_loop",
      [](PyVantor& self, const std::string& name, const py::list& args, int count, const std::string& walk) {
        const dispatch::Member& member = dispatch::MemberNamed(name);
        const dispatch::Member* next = walk.empty() ? nullptr : &dispatch::MemberNamed(walk);
        std::vector<Variant> values;
        for (const py::handle& a : args) values.push_back(IsRef(a) ? FromPython(RefValue(a)) : FromPython(a));
        clsVantor& object = self.Object();
        py::gil_scoped_release release;
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < count; ++i) {
          std::vector<Variant> copy = values;
          dispatch::Invoke(object, member, copy);
          if (next == nullptr) continue;
          std::vector<Variant> none;
          while (!(dispatch::Invoke(object, *next, none) == Variant(""))) none.clear();
        }
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      },
      py::arg("object"), py::arg("name"), py::arg("args"), py::arg("count"), py::arg("walk") = "");

  // A page sequence's gateway calls looped in C++ through the dispatch table with the GIL released, for
  // `seconds`: the baseline of the portal's benchmark. Each step is (member, args, walk, result, walked): the
  // call must give `result` (as text) and its walk (`walk` until it hands back "") `walked` items, or the
  // loop stops there. Returns (rounds ended between `warmup` and `seconds`, rounds run, first difference).
  m.def(
      "_dispatch_rounds",
      [](PyVantor& self, const py::list& steps, double warmup, double seconds) {
        struct Step {
          const dispatch::Member* member = nullptr;
          std::vector<Variant> args;
          const dispatch::Member* walk = nullptr;
          std::string result;
          int64_t walked = 0;
        };
        std::vector<Step> plan;
        for (const py::handle& item : steps) {
          const auto step = item.cast<py::tuple>();
          if (step.size() != 5) throw py::value_error("a step is (member, args, walk, result, walked)");
          Step& s = plan.emplace_back();
          s.member = &dispatch::MemberNamed(step[0].cast<std::string>());
          for (const py::handle& a : step[1].cast<py::list>()) {
            s.args.push_back(IsRef(a) ? FromPython(RefValue(a)) : FromPython(a));
          }
          const auto walk = step[2].cast<std::string>();
          s.walk = walk.empty() ? nullptr : &dispatch::MemberNamed(walk);
          s.result = step[3].cast<std::string>();
          s.walked = step[4].cast<int64_t>();
        }
        clsVantor& object = self.Object();
        int64_t in_window = 0;
        int64_t rounds = 0;
        std::string failure;
        {
          py::gil_scoped_release release;
          using Clock = std::chrono::steady_clock;
          const auto start = Clock::now();
          const auto at = [start](double offset) {
            return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(offset));
          };
          const auto from = at(warmup);
          const auto until = at(seconds);
          while (failure.empty() && Clock::now() < until) {
            for (const Step& step : plan) {
              try {
                std::vector<Variant> args = step.args;
                const std::string result = dispatch::Invoke(object, *step.member, args).ToString();
                int64_t walked = 0;
                // One item more than expected is enough to tell a longer walk: the loop has a bound.
                while (step.walk != nullptr && walked <= step.walked) {
                  std::vector<Variant> none;
                  const Variant next = dispatch::Invoke(object, *step.walk, none);
                  if (next.IsEmpty() || next == Variant("")) break;
                  ++walked;
                }
                if (result != step.result || walked != step.walked) {
                  failure = std::string(step.member->name) + " gave " + result + " and " + std::to_string(walked) +
                            " items instead of " + step.result + " and " + std::to_string(step.walked);
                }
              } catch (const std::exception& e) {
                failure = std::string(step.member->name) + ": " + e.what();
              }
              if (!failure.empty()) break;
            }
            if (!failure.empty()) break;
            ++rounds;
            const auto now = Clock::now();
            if (now >= from && now <= until) ++in_window;
          }
        }
        return py::make_tuple(in_window, rounds, failure);
      },
      py::arg("object"), py::arg("steps"), py::arg("warmup"), py::arg("seconds"));
}
