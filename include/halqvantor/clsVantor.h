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

  // ---- User directory
  //
  // These run SQL on the user database that Init opened from strDBConnect. None raises: any failure (a
  // database error, a conversion, a closed connection) is written to the debug log as "Allgemeiner Fehler in
  // Funktion '<name>': <number> - <text>." and the result is -1 as an Integer. Values are spliced into the
  // statements as passed; a text holding an apostrophe, a user number that is not a whole number or a table
  // or field name that is not a plain name fails that way before anything reaches the database.

  // Adds a user numbered MAX(UserID) + 1 with the password encoded; the archive account (name plain,
  // password encoded) is stored only when both strEASYUser and strEASYPasswd are passed. Result: the new
  // UserID as a Long, or -1.
  Variant WriteUserToDB(const Variant& strUser, const Variant& strPasswd,
                        const Variant& strEASYUser = Variant::missing(),
                        const Variant& strEASYPasswd = Variant::missing());
  // MAX(strField) of strTable plus 1 (numeric addition on the value as the database delivers it); 1 as an
  // Integer for an empty table or all NULL.
  Variant GetNextDBObjectID(const Variant& strField, const Variant& strTable);
  // The user's UserID (as the column delivers it) when the name is found and, if strPasswd is passed, the
  // stored password matches it without regard to case; 0 (Integer) otherwise, also for a NULL password.
  Variant CheckLogon(const Variant& strUser, const Variant& strPasswd = Variant::missing());
  // CheckLogon with the old password as an Integer; when it is 1 or more, every row of that name gets the new
  // password.
  Variant ChangePasswd(const Variant& strUser, const Variant& strPasswdOld, const Variant& strPasswdNew);
  // The rights of a user and of his direct groups, each as "^" + RightID + "^", joined by ",". Result: the
  // number of rows as a Long. strRights is "" from the start, and keeps what was built at a failure.
  Variant GetUserRights(const Variant& strUserID, Variant* strRights);
  // One line per archive of the user and his groups: the archive, then ",N", ",E", ",D" for each flag whose
  // sum is above 0, then CR LF. Result: the number of lines as a Long.
  Variant GetUserEditRights(const Variant& strUserID, Variant* strEditRights);
  // The user's direct groups as "[" + name + "]", joined by ",". Result: their number as a Long.
  Variant GetUserGroups(const Variant& strUserID, Variant* strGroups);
  // The document rights of the user and his groups for each channel/archive pair (comma-separated lists
  // paired by position) as bracketed blocks "[$(#channel)\archive;(field op"value",type,grade)...]" joined by
  // CR LF. Result: the number of blocks as a Long. strDocRights keeps the text built so far at a failure.
  Variant GetUserDocRights(const Variant& lngUserID, const Variant& strChannel, const Variant& strArchive,
                           Variant* strDocRights);
  // The search rights of the user and his groups over all archives: field values as conditions (with
  // $(DATE), $(DATE+n), $(DATE-n) replaced by dates from today), hidden fields and no-match-code fields.
  // Result: the number of archive blocks of strSearchRights as a Long. Each text is cleared when its own pass
  // begins.
  Variant GetUserSearchRights(const Variant& lngUserID, Variant* strSearchRights,
                              Variant* strSearchRightsHideField, Variant* strSearchRightsNoMatchcode);
  // The archives / channels of the user and his groups, each as "^" + name + "^", joined by ",".
  Variant GetUserArchives(const Variant& strUserID, Variant* strArchives);
  Variant GetUserChannels(const Variant& strUserID, Variant* strChannels);
  // The user's archive account: 1 (Integer) when the user is found, with the name as stored and the decoded
  // password, or "" and "" when either is NULL; 0 when not found (the outputs are left as they were).
  Variant GetUserEASYUser(const Variant& strUserID, Variant* strEASYUser, Variant* strEASYPasswd);

  // The object's private side: slot, request state, result rows and the state of each operation family.
  struct Impl;

 private:
  friend struct VantorAccess;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor
