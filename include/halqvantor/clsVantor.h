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

  // ---- Segment downloads: the gateway writes a segment into the blob folder (strBlobPathRemote as it sees
  // it) and names the file. Result 1 (16-bit) whenever the request succeeded, -1 with strStatus set to the
  // failure text otherwise. With two or more reply rows strFileName gets row 1 and lngFileLen row 0 (as
  // text); with fewer they stay untouched (EASYGetSegmentMultiTIF sets "" and 0). Data, Printfile and
  // MultiTIF then apply strChangeFileExt: the file in strBlobPathLocal is renamed (never replacing one,
  // silently not at all when that fails) and strFileName carries the new extension either way; a call
  // without strFileName raises 13 while strChangeFileExt is set.
  Variant EASYGetSegmentData(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                             const Variant& strVer, const Variant& intFieldIndex, Variant* strFileName = nullptr,
                             Variant* lngFileLen = nullptr, Variant* strStatus = nullptr);
  // Never maps the extension.
  Variant EASYGetSegmentPDF(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                            const Variant& strVer, const Variant& intFieldIndex, const Variant& intLayoutID,
                            Variant* strFileName = nullptr, Variant* lngFileLen = nullptr,
                            Variant* strStatus = nullptr);
  // intMode: intPrintPDF (the default) or intPrintTIF.
  Variant EASYGetSegmentPrintfile(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                  const Variant& strVer, const Variant& strFieldID, const Variant& strLayoutID,
                                  const Variant& intMode = Variant::missing(), Variant* strFileName = nullptr,
                                  Variant* lngFileLen = nullptr, Variant* strStatus = nullptr);
  // strPages: pieces separated by ";", each a page or a range "from-to" (descending when from > to).
  Variant EASYGetSegmentMultiTIF(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                 const Variant& strVer, const Variant& strPages, Variant* strFileName = nullptr,
                                 Variant* lngFileLen = nullptr, Variant* strStatus = nullptr);
  // The references of a segment: the row count (32-bit) and strStatus "", or -1 and the failure text.
  Variant EASYGetSegmentERFInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                const Variant& strVer, const Variant& intFieldIndex, Variant* strStatus = nullptr);
  // The next reference line, its parts in the out-arguments ("$(#" channel ")\" archive "," id "," version);
  // "" with nothing written once the list is used up.
  Variant EASYGetSegmentERFNext(Variant* strChannel = nullptr, Variant* strArchive = nullptr,
                                Variant* strDocID = nullptr, Variant* strVer = nullptr);

  // ---- Blob transfer and server upload, each its own round trip on the object's slot. Result 1 (16-bit) or
  // -1; strStatus is written only on failure: the exchange's failure texts, or "File Error (" number " - "
  // text ")" for a local file that cannot be opened, sized, read or written.

  // Fetches strBlobPathRemote + "\" + strFile from the gateway into strBlobPathLocal under the name after
  // the last "\" of strFile, writing lngFileLen bytes as they arrive over the start of that file (a longer
  // old file keeps its tail).
  Variant EASYTransferBLOB(const Variant& strFile, const Variant& lngFileLen, Variant* strStatus = nullptr);
  // Sends the file strFileName of strBlobPathLocal: the "UploadFile" request line, CR LF, the file's bytes,
  // streamed from disk. The gateway's answer is logged, not read. An empty file is a file error.
  Variant EASYUploadFile(const Variant& strFileName, Variant* strStatus = nullptr);

  // ---- Import files and documents.

  // Appends to strImportFile (created when missing) the description of a document in Windows-1252 with
  // CR LF lines: "@DB,$(#" channel ")\" archive, "@CHARSET," strCharSet (only when passed), "@FOLDER,FT:"
  // title with "," type ":" id per pair of the two comma lists, then strFieldContents. Result 1 (16-bit) and
  // strStatus ""; raises the file's failure (strStatus untouched).
  Variant CreateImportFile(const Variant& strImportFile, const Variant& strChannel, const Variant& strArchive,
                           const Variant& strTitle, const Variant& strFieldTypes, const Variant& strFieldIDs,
                           const Variant& strFieldContents, const Variant& strCharSet = Variant::missing(),
                           Variant* strStatus = nullptr);
  // Imports the file (a path the gateway can read) as a new document: the row count (32-bit), strDocIDVer
  // = the first row; -1 and strStatus on failure. Raises 9 when a reply without rows must fill strDocIDVer.
  Variant EASYCreateDocument(const Variant& strImportFile, Variant* strDocIDVer = nullptr,
                             Variant* strStatus = nullptr);
  // The same as a new state of the document *strDocIDVer, which then holds the returned reference.
  Variant EASYEditDocument(const Variant& strImportFile, Variant* strDocIDVer, Variant* strStatus = nullptr);
  // Result 1 (16-bit) and strStatus "", or -1 and the failure text.
  Variant EASYDeleteDocument(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                             const Variant& strVer, Variant* strStatus = nullptr);

  // ---- Browser upload and local clean-up (no gateway).

  // Stores the file part of the posted multipart body in strBlobPathLocal (as strSubDir + "_" + name when a
  // prefix is given), replacing a file of that name. True with the client's bare file name and the size in
  // the out-arguments; false when the part names no file or anything fails (logged; outs untouched).
  bool UploadFile(const Variant& strSubDir = Variant::missing(), Variant* strFileNameParam = nullptr,
                  Variant* lngFileSizeParam = nullptr);
  // Deletes the files that match strFile (a path whose last part may hold "*" and "?"), then, for each
  // matching folder, the files in it and the folder itself when that leaves it empty. Reports nothing.
  void DeleteFTPObjects(const Variant& strFile);

  // The object's private side: slot, request state, result rows and the state of each operation family.
  struct Impl;

 private:
  friend struct VantorAccess;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor
