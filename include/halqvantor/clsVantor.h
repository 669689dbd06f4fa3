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
  std::string strREMOTEHOST;       // host name or address of the Vantor-Server
  int32_t lngREMOTEPORT = 0;       // its TCP port
  int32_t lngREQUESTTIMEOUT = 0;   // seconds for each wait of a request and for the busy-retry period
  std::string strSessionID;        // gateway session id; names the debug log file
  std::string strEASYPwd;          // archive password, sent encoded
  std::string strEASYUser;         // archive user
  std::string strBlobPathLocal;    // local blob folder (as the web server sees it)
  std::string strBlobPathRemote;   // the same folder as the gateway sees it
  std::string strDBConnect;        // user database connection string
  std::string strDebugLogPath;     // debug log folder; "" turns logging off
  std::string strChangeFileExt;    // extension mappings such as "TIF-PDF"

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

  // ---- Channel and archive lists
  // Each Init sends one request and keeps the answer's rows, sorted by their capitals (rows equal in capitals
  // keep the server's order), for the Next calls; the next Init of any list replaces them. Result: the row
  // count as a Long with strStatus "", or -1 as an Integer with the failure text in strStatus. Next returns
  // the next row, then "" after the last one (out-arguments untouched). EASYGetChannelsNext returns the
  // channel name before the row's first comma and puts the rest (or "") into strChannelDescription.
  Variant EASYGetChannelsInit(Variant* strStatus = nullptr);
  Variant EASYGetChannelsNext(Variant* strChannelDescription = nullptr);
  Variant EASYGetArchivesInit(const Variant& strChannel, Variant* strStatus = nullptr);
  Variant EASYGetArchivesNext();
  Variant EASYGetAllArchivesInit(Variant* strStatus = nullptr);
  Variant EASYGetAllArchivesNext();

  // ---- Archive description and select lists
  // DescriptionInit: on success the number of field lines (answer lines less the edit-rights line) as a
  // Long, strEditRights the first line as received, strStatus ""; the field records are sorted by weight.
  // On failure -1 as an Integer and the failure text in strStatus, strEditRights untouched. Next writes the
  // field's columns as Strings (id, type, size, state, weight, select-list indicator) and returns its second
  // column; "" after the last field. A field line with a missing separator raises 5, a weight that is not a
  // 32-bit number 13 or 6. The select list's entries come back whole, in the server's order.
  Variant EASYGetArchiveDescriptionInit(const Variant& strChannel, const Variant& strArchive,
                                        Variant* strEditRights = nullptr, Variant* strStatus = nullptr);
  Variant EASYGetArchiveDescriptionNext(Variant* intFieldID = nullptr, Variant* intType = nullptr,
                                        Variant* intSize = nullptr, Variant* intState = nullptr,
                                        Variant* intWeight = nullptr, Variant* intSelectList = nullptr);
  Variant EASYGetSegmentSelectListInit(const Variant& strChannel, const Variant& strArchive,
                                       const Variant& intFieldID, Variant* strStatus = nullptr);
  Variant EASYGetSegmentSelectListNext();

  // ---- Archive query and hit list
  // QueryInit: on success the count of title line plus hits (Long), lngTotalHits the server's total (String),
  // the layout outs (only when both are passed) the field ids joined by "," and the layouts by ";",
  // blnHitlistMultiTIFF a Boolean, strStatus "". On failure -1 (Integer) and strStatus the failure text, the
  // rest untouched. Next and SortHitlistNext return the display columns of the title line, then of each hit
  // (server's / sorted order), then "" with the outs untouched. SortHitlistInit returns the hit count; each
  // sort reverses the one before, the first after a query goes against the server's order.
  // DeleteFromHitlist removes hit lngLine (from 1, as last seen) and returns Empty; sort again after it.
  // The query format list is a plain list: its rows whole, in the server's order.
  Variant EASYQueryArchiveInit(const Variant& strChannel, const Variant& strArchive, const Variant& strQuery,
                               const Variant& lngMaxLines, const Variant& lngQueryMax,
                               const Variant& strQueryFormat = Variant::missing(),
                               const Variant& strFolderRights = Variant::missing(),
                               Variant* strLayoutFieldID = nullptr, Variant* strLayoutID = nullptr,
                               Variant* lngTotalHits = nullptr, Variant* blnHitlistMultiTIFF = nullptr,
                               Variant* strStatus = nullptr);
  Variant EASYQueryArchiveNext(Variant* strChannel = nullptr, Variant* strArchive = nullptr,
                               Variant* strDocID = nullptr, Variant* strVer = nullptr);
  Variant EASYGetQueryFormatListInit(const Variant& strChannel, const Variant& strArchive,
                                     Variant* strStatus = nullptr);
  Variant EASYGetQueryFormatListNext();
  int32_t EASYSortHitlistInit(const Variant& lngCol);
  Variant EASYSortHitlistNext(Variant* strChannel = nullptr, Variant* strArchive = nullptr,
                              Variant* strDocID = nullptr, Variant* strVer = nullptr);
  Variant EASYDeleteFromHitlist(const Variant& lngLine);

  // The object's private side: slot, request state, result rows and the state of each operation family.
  struct Impl;

 private:
  friend struct VantorAccess;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor
