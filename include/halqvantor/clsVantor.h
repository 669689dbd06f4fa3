#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "halqvantor/PageEngine.h"
#include "halqvantor/RuntimeError.h"
#include "halqvantor/Variant.h"

namespace halqvantor {

// Print file formats of EASYGetSegmentPrintfile.
enum intPrintfileMode : int16_t { intPrintPDF = 0, intPrintTIF = 1 };

// The component object a portal page creates for one page request: set the properties, call Init, call
// operations, release the object. An object is used on the thread that created it; each thread has its own
// table of connection slots.
//
// Argument conventions: an input is `const Variant&` (optional ones default to Variant::missing()); an out or
// in-out argument is `Variant*` and is written only when it is not null. Failures of a gateway exchange come
// back through the result (-1 as a 16-bit Integer) and strStatus; RuntimeError is thrown only where the
// operation raises a run-time error to the page (malformed answers, Encode/Decode, CreateImportFile).
class clsVantor {
 public:
  clsVantor();
  // The end of the object: closes its socket and database connection, frees its slot, logs the end.
  ~clsVantor();
  clsVantor(const clsVantor&) = delete;
  clsVantor& operator=(const clsVantor&) = delete;

  // ---- Properties, in interface order; set before Init. All start "" or 0.
  std::string strREMOTEHOST;      // host name or address of the Vantor-Server
  int32_t lngREMOTEPORT = 0;      // its TCP port
  int32_t lngREQUESTTIMEOUT = 0;  // seconds for each wait of a request and for the busy-retry period
  std::string strSessionID;       // gateway session id; names the debug log file
  std::string strEASYPwd;         // archive password, sent encoded
  std::string strEASYUser;        // archive user
  std::string strBlobPathLocal;   // local blob folder (as the web server sees it)
  std::string strBlobPathRemote;  // the same folder as the gateway sees it
  std::string strDBConnect;       // user database connection string
  std::string strDebugLogPath;    // debug log folder; "" turns logging off
  std::string strChangeFileExt;   // extension mappings such as "TIF-PDF"

  // ---- Component frame

  // Keeps the page context and its Request object (read by UploadFile).
  void OnStartPage(std::shared_ptr<ScriptingContext> PassedScriptingContext);
  // Releases both.
  void OnEndPage();
  // Takes the lowest free connection slot, prepares its socket with strREMOTEHOST/lngREMOTEPORT and copies
  // the log settings into the slot; opens the user database when blnDBInit is true. Never fails to its
  // caller: a failure is written to the debug log.
  void Init(const Variant& blnDBInit = Variant::missing());

  // ---- Text encoding

  // Two hexadecimal digits per character, in reverse order. Raises 6 (overflow) for texts the 16-bit
  // arithmetic cannot take, e.g. over 32767 characters. Result: a String Variant.
  Variant Encode(const Variant& strText);
  // The inverse for texts whose characters satisfy code + position <= 173. Raises 5 for an impossible
  // position or character code and 13 for a pair that is not hexadecimal.
  Variant Decode(const Variant& strText);

  // The object's private side: slot, request state, result rows and the state of each operation family.
  struct Impl;

 private:
  friend struct VantorAccess;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor
