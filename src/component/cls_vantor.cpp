#include <exception>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/debug_log.h"
#include "link/frm_comm.h"
#include "link/general_failure.h"

namespace halqvantor {

LinkSession& SessionOf(clsVantor& object) { return clsVantor::Impl::Of(object); }
archive::ArchiveState& archive::StateOf(clsVantor& object) { return clsVantor::Impl::Of(object).archive_state; }
documents::DocumentState& documents::StateOf(clsVantor& object) { return clsVantor::Impl::Of(object).document_state; }
users::UserState& users::StateOf(clsVantor& object) { return clsVantor::Impl::Of(object).user_state; }

clsVantor::clsVantor() : impl_(std::make_unique<Impl>(*this)) {}

clsVantor::~clsVantor() { impl_->Terminate(); }

ObjectOptions& Options(clsVantor& object) { return VantorAccess::Of(object).options; }
const ObjectOptions& Options(const clsVantor& object) {
  return VantorAccess::Of(const_cast<clsVantor&>(object)).options;
}

std::string LastStatusLine(const clsVantor& object) {
  return VantorAccess::Of(const_cast<clsVantor&>(object)).LastStatusLine;
}

void SetEnvironment(clsVantor& object, platform::Env* env) {
  clsVantor::Impl& d = VantorAccess::Of(object);
  d.env = env != nullptr ? env : platform::Env::Default();
  // A slot already taken follows its owner: its log and its connections from the next request on.
  if (d.SlotIndex < 1) return;
  d.form.State(d.SlotIndex).Environment = d.env;
  d.form.ctlWinsock(d.SlotIndex).SetNetwork(d.env);
}

void clsVantor::Impl::Terminate() {
  // An object that never took a slot has nothing to give back.
  if (SlotIndex < 1) return;
  try {
    platform::Socket& socket = form.ctlWinsock(SlotIndex);
    if (socket.State() != platform::kSckClosed) socket.Close();
    std::unique_ptr<platform::Connection>& connection = user_state.DBConnection;
    if (connection && connection->State() == platform::kAdStateOpen) connection->Close();
    form.SetBusy(SlotIndex, false);
    WriteLog("Winsock-Instanz " + std::to_string(SlotIndex) + " wieder freigegeben.");
    WriteLog("Sitzung beendet.");
  } catch (const std::exception&) {
    // The end of an object reports nothing to anybody.
  }
}

void clsVantor::OnStartPage(std::shared_ptr<ScriptingContext> PassedScriptingContext) {
  documents::DocumentState& page = impl_->document_state;
  page.context = std::move(PassedScriptingContext);
  page.request = page.context ? page.context->Request() : nullptr;
}

void clsVantor::OnEndPage() {
  impl_->document_state.request.reset();
  impl_->document_state.context.reset();
}

void clsVantor::Init(const Variant& blnDBInit) {
  Impl& d = *impl_;
  try {
    bool db_init = false;
    if (!blnDBInit.IsMissing()) db_init = blnDBInit.ToBoolean();
    d.SlotIndex = d.form.GetFreeWinsockInstance();
    d.WriteLog("Neue Sitzung initiiert mit SessionID " + strSessionID + ".");
    d.WriteLog("Freie/neue Winsock-Instanz " + std::to_string(d.SlotIndex) + " ermittelt.");
    platform::Socket& socket = d.form.ctlWinsock(d.SlotIndex);
    socket.Protocol = 0;
    socket.RemoteHost = strREMOTEHOST;
    socket.RemotePort = lngREMOTEPORT;
    socket.LocalPort = 0;
    socket.SetNetwork(d.env);
    d.form.State(d.SlotIndex).Environment = d.env;
    d.form.SetDebugLogPath(d.SlotIndex, strDebugLogPath);
    d.form.SetSessionID(d.SlotIndex, strSessionID);
    d.user_state.DBConnection = d.env->NewConnection();
    if (db_init) d.user_state.DBConnection->Open(strDBConnect);
  } catch (const std::exception& e) {
    d.WriteLog(GeneralFailureLine("Init", e));
  }
}

}  // namespace halqvantor
