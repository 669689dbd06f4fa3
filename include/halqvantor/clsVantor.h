#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "halqvantor/Dispatch.h"
#include "halqvantor/Export.h"
#include "halqvantor/Extensions.h"
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
class HALQVANTOR_API clsVantor {
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
  // Funktion '<name>': <number> - <text>." and the result is -1 as an Integer. Texts (names, passwords,
  // channels, archives) are bound to the statements as values, so any text, apostrophes included, is only
  // ever compared or stored, never read as SQL. A user number that is not a whole number or a table or field
  // name that is not a plain name fails that way before anything reaches the database.

  // Adds a user numbered MAX(UserID) + 1 with the password encoded (hashed when the object's
  // strong_passwords option is set); the archive account (name plain, password encoded) is stored only when
  // both strEASYUser and strEASYPasswd are passed. Result: the new UserID as a Long, or -1.
  Variant WriteUserToDB(const Variant& strUser, const Variant& strPasswd,
                        const Variant& strEASYUser = Variant::missing(),
                        const Variant& strEASYPasswd = Variant::missing());
  // MAX(strField) of strTable plus 1 (numeric addition on the value as the database delivers it); 1 as an
  // Integer for an empty table or all NULL.
  Variant GetNextDBObjectID(const Variant& strField, const Variant& strTable);
  // The user's UserID (as the column delivers it) when the name is found and, if strPasswd is passed, the
  // stored password matches it: an encoded one without regard to case, a hashed one exactly; 0 (Integer)
  // otherwise, also for a NULL password. With strong_passwords set, a good log-on replaces an encoded
  // password that it gave exactly by its hash.
  Variant CheckLogon(const Variant& strUser, const Variant& strPasswd = Variant::missing());
  // CheckLogon with the old password as an Integer; when it is 1 or more, every row of that name gets the new
  // password (encoded, or hashed when strong_passwords is set).
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
  Variant GetUserSearchRights(const Variant& lngUserID, Variant* strSearchRights, Variant* strSearchRightsHideField,
                              Variant* strSearchRightsNoMatchcode);
  // The archives / channels of the user and his groups, each as "^" + name + "^", joined by ",".
  Variant GetUserArchives(const Variant& strUserID, Variant* strArchives);
  Variant GetUserChannels(const Variant& strUserID, Variant* strChannels);
  // The user's archive account: 1 (Integer) when the user is found, with the name as stored and the decoded
  // password, or "" and "" when either is NULL; 0 when not found (the outputs are left as they were).
  Variant GetUserEASYUser(const Variant& strUserID, Variant* strEASYUser, Variant* strEASYPasswd);

  // ---- Documents: info, segment description, segment text (a document is named by channel, archive,
  // document id and version, as the hit list hands them out)

  // One request. Success: the number of answer rows (Long), strStatus ""; when there is a row, columns 4 to
  // 11 of row 0 go to the eight outs as Strings. Failure: -1 (Integer), strStatus the failure text, the other
  // outs untouched. A row with too few columns raises 5.
  Variant EASYGetDocumentInfo(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                              const Variant& strVer, Variant* lngLaenge = nullptr, Variant* strErstelldat = nullptr,
                              Variant* strAenderDat = nullptr, Variant* strTitel = nullptr,
                              Variant* intFelderGes = nullptr, Variant* intTextFelder = nullptr,
                              Variant* intBildFelder = nullptr, Variant* intBlobFelder = nullptr,
                              Variant* strStatus = nullptr);
  // Success: the number of segments (Long; answer rows less the notes row), lngNotes the notes row (String),
  // strStatus "". Failure: -1 (Integer) and the failure text. The thumbnails land where the server is told.
  Variant EASYGetSegmentDescriptionInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                        const Variant& strVer, const Variant& strThumbnailPath = Variant::missing(),
                                        Variant* lngNotes = nullptr, Variant* strStatus = nullptr);
  // Column 1 of the next segment (String) with the other columns in the outs, all as Strings; "" after the
  // last segment, outs untouched. A row with too few columns raises 5.
  Variant EASYGetSegmentDescriptionNext(Variant* intFeldID = nullptr, Variant* lngTextLaenge = nullptr,
                                        Variant* intTrefferZahl = nullptr, Variant* lngNCILaenge = nullptr,
                                        Variant* strExt = nullptr, Variant* intFeldTyp = nullptr,
                                        Variant* strFeldtitel = nullptr, Variant* strDateiname = nullptr,
                                        Variant* intStatus = nullptr, Variant* strLayoutID = nullptr,
                                        Variant* lngThumbnailSize = nullptr);
  // Success: the number of text pieces (Long), strStatus "": the answer's "^"-enclosed units, a unit broken
  // over several lines joined with strCRLF (default CR LF, never sent). Failure: -1 (Integer), the failure
  // text, the pieces held before kept. A piece shorter than its two "^" raises 5.
  Variant EASYGetSegmentTextInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                 const Variant& strVer, const Variant& strQuery = Variant::missing(),
                                 const Variant& strMarkOn = Variant::missing(),
                                 const Variant& strMarkOff = Variant::missing(),
                                 const Variant& strCRLF = Variant::missing(),
                                 const Variant& strBlank = Variant::missing(), Variant* strStatus = nullptr);
  // The next text piece (String), "" after the last.
  Variant EASYGetSegmentTextNext();

  // ---- Notes of a document (held in the same text pieces as segment text: each read replaces the other)

  // Success: the number of notes (Long), strStatus "": each note is its header row, ",", and its text
  // without the enclosing "^", lines joined with CR LF. Failure: -1 (Integer), the failure text, the pieces
  // held before kept. An answer whose last note is cut short raises 9.
  Variant EASYGetNotesInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                           const Variant& strVer, Variant* strStatus = nullptr);
  // The next note (String), "" after the last.
  Variant EASYGetNotesNext();
  // Adds a note (its first 8000 characters) whose line break is strCRLF (default CR LF); DeleteNotes removes
  // all notes of the document. Result 1 or -1, both Integer; strStatus "" or the failure text.
  Variant EASYWriteNote(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                        const Variant& strVer, const Variant& strNote, const Variant& strCRLF = Variant::missing(),
                        Variant* strStatus = nullptr);
  Variant EASYDeleteNotes(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                          const Variant& strVer, Variant* strStatus = nullptr);

  // ---- Entry masks: a two-level walk over "@" mask rows and the field rows under each

  // Success: the number of masks (Long), strStatus "". Failure: -1 (Integer) and the failure text.
  Variant EASYGetMasksInit(const Variant& strChannel, const Variant& strArchive, Variant* strStatus = nullptr);
  // Skips the unread fields of the current mask; the number of fields of the next mask (Long) with its name
  // in strMaskName, or -1 (Integer) and "" after the last mask.
  Variant EASYGetMasksNext(Variant* strMaskName = nullptr);
  // Column 0 of the next field row (Long) with the columns 1 to 7 in the outs (Long, Long, String, String,
  // Boolean, String, Boolean) and, for rows of more than eight columns, the raw rest in strList (else left
  // alone); -1 (Integer) at the next mask row. Raises 9 at the answer's end, 5/13/6 for a malformed row.
  Variant EASYGetMasksNextField(Variant* lngTabIndex = nullptr, Variant* lngWidth = nullptr,
                                Variant* strAlign = nullptr, Variant* strName = nullptr,
                                Variant* blnMandatory = nullptr, Variant* strInitText = nullptr,
                                Variant* blnListOnly = nullptr, Variant* strList = nullptr);
  // Back to the first mask.
  void EASYGetMasksFirst();

  // ---- Extended archive list ("#" channel rows with the archive rows under each) and archive properties

  // Success: the number of channels (Long), strStatus "". Failure: -1 (Integer) and the failure text.
  Variant EASYGetAllArchivesExtInit(Variant* strStatus = nullptr);
  // Skips the unread archives of the current channel; the number of archives of the next channel (Long) with
  // its name and description, or -1 (Integer) and both "" after the last channel.
  Variant EASYGetAllArchivesExtNext(Variant* strChannel = nullptr, Variant* strDescription = nullptr);
  // The next archive row of the current channel (String), "" at the next channel row; raises 9 at the
  // answer's end.
  Variant EASYGetAllArchivesExtNextArchive();
  // Back to the first channel.
  void EASYGetAllArchivesExtFirst();
  // Success: the fifth value of the answer (Long), the four permissions as Booleans (true for "1" exactly),
  // strStatus ""; an answer without rows gives an Empty result and writes only strStatus. Failure: -1
  // (Integer) and the failure text. Fewer than four commas raise 5, a fifth value not a number 13 (or 6).
  Variant EASYGetArchiveProperties(const Variant& strChannel, const Variant& strArchive, Variant* blnCreate = nullptr,
                                   Variant* blnEdit = nullptr, Variant* blnDelete = nullptr,
                                   Variant* blnIndex = nullptr, Variant* strStatus = nullptr);
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
  Variant EASYGetSegmentSelectListInit(const Variant& strChannel, const Variant& strArchive, const Variant& intFieldID,
                                       Variant* strStatus = nullptr);
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
                               const Variant& strFolderRights = Variant::missing(), Variant* strLayoutFieldID = nullptr,
                               Variant* strLayoutID = nullptr, Variant* lngTotalHits = nullptr,
                               Variant* blnHitlistMultiTIFF = nullptr, Variant* strStatus = nullptr);
  Variant EASYQueryArchiveNext(Variant* strChannel = nullptr, Variant* strArchive = nullptr,
                               Variant* strDocID = nullptr, Variant* strVer = nullptr);
  Variant EASYGetQueryFormatListInit(const Variant& strChannel, const Variant& strArchive,
                                     Variant* strStatus = nullptr);
  Variant EASYGetQueryFormatListNext();
  int32_t EASYSortHitlistInit(const Variant& lngCol);
  Variant EASYSortHitlistNext(Variant* strChannel = nullptr, Variant* strArchive = nullptr, Variant* strDocID = nullptr,
                              Variant* strVer = nullptr);
  Variant EASYDeleteFromHitlist(const Variant& lngLine);

  // The object's private side (defined inside the library).
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor
