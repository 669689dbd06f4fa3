// clsVantor against the reference gateway, in-process on a loopback port over a copy of the sample archive:
// every archive and document member with the values the sample holds.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/sample_gateway.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::WriteFile;

const std::string kFibu = "FIBU";
const std::string kIn = "Eingangsrechnungen";
const Variant kOne(int16_t{1});
const Variant kFailed(int16_t{-1});

Variant Long(int32_t v) { return Variant(v); }

class EndToEnd : public ::testing::Test {
 protected:
  void SetUp() override { Serve(0); }
  void TearDown() override { vantor_.reset(); }

  // (Re)starts the gateway, answering `busy` requests busy before it serves, and Inits a new object for it.
  void Serve(int busy) {
    vantor_.reset();
    gateway::GatewayOptions options;
    options.busy = busy;
    gateway_.Start(options);
    vantor_ = std::make_unique<clsVantor>();
    vantor_->strREMOTEHOST = "127.0.0.1";
    vantor_->lngREMOTEPORT = gateway_.port();
    vantor_->lngREQUESTTIMEOUT = 10;
    vantor_->strSessionID = "E2E";
    vantor_->strEASYUser = "easy";
    vantor_->strEASYPwd = "easy";
    vantor_->strBlobPathLocal = blob();
    vantor_->strBlobPathRemote = blob();
    vantor_->strDebugLogPath = gateway_.dir().File("");
    vantor_->Init();
  }

  std::string data() const { return gateway_.data(); }
  std::string blob() const { return gateway_.blob(); }
  std::string InBlob(const std::string& name) const { return blob() + "/" + name; }
  // The remote form of a file of the blob folder, with the separator the gateway expects.
  std::string Remote(const std::string& name) const { return blob() + "\\" + name; }
  // The bytes of a downloaded file, checked against the length the member reported.
  std::string Fetched(const Variant& name, const Variant& length) const {
    const std::string bytes = ReadFile(InBlob(name.ToString()));
    EXPECT_EQ(std::to_string(bytes.size()), length.ToString()) << name.ToString();
    return bytes;
  }

  clsVantor& v() { return *vantor_; }

  testing::SampleGateway gateway_;
  std::unique_ptr<clsVantor> vantor_;
};

// The items a Next member hands out until it answers "".
template <typename F>
std::vector<Variant> Walk(F next) {
  std::vector<Variant> items;
  for (Variant item = next(); item != Variant("") && items.size() < 100; item = next()) items.push_back(item);
  return items;
}

// The error number at the start of a gateway's status text.
std::string Code(const Variant& status) { return status.ToString().substr(0, 8); }

// ---- channels, archives, description, select lists

// The channel and archive lists of one channel, with their values, are the demo's first steps.
TEST_F(EndToEnd, ArchiveListsDescriptionsAndSelectListsFromTheSample) {
  Variant status("old");
  EXPECT_EQ(v().EASYGetArchivesInit("KEIN", &status), kFailed);
  EXPECT_EQ(Code(status), "Error 30");
  EXPECT_EQ(v().EASYGetAllArchivesInit(&status), Long(5));
  EXPECT_EQ(Walk([&] { return v().EASYGetAllArchivesNext(); }),
            (std::vector<Variant>{"$(#FIBU)\\Ausgangsrechnungen", "$(#FIBU)\\Eingangsrechnungen",
                                  "$(#PERSONAL)\\Personalakten", "$(#VERTRAG)\\Korrespondenz",
                                  "$(#VERTRAG)\\Verträge"}));

  // Fields by weight; the select-list flag is set for fields 5 and 6.
  Variant rights("old");
  EXPECT_EQ(v().EASYGetArchiveDescriptionInit(kFibu, kIn, &rights, &status), Long(6));
  EXPECT_EQ(rights, Variant("RCEDI"));
  int last_weight = -1;
  std::string with_list;
  for (int i = 0; i < 6; ++i) {
    Variant id, weight, select;
    ASSERT_NE(v().EASYGetArchiveDescriptionNext(&id, nullptr, nullptr, nullptr, &weight, &select), Variant(""));
    EXPECT_LE(last_weight, std::stoi(weight.ToString())) << i;
    last_weight = std::stoi(weight.ToString());
    if (select == Variant("1")) with_list += id.ToString();
  }
  std::sort(with_list.begin(), with_list.end());
  EXPECT_EQ(with_list, "56");
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(), Variant(""));
  EXPECT_EQ(v().EASYGetSegmentSelectListInit(kFibu, kIn, int16_t{6}, &status), Long(3));
  EXPECT_EQ(Walk([&] { return v().EASYGetSegmentSelectListNext(); }),
            (std::vector<Variant>{"offen", "geprüft", "bezahlt"}));
  EXPECT_EQ(v().EASYGetSegmentSelectListInit(kFibu, kIn, int16_t{9}, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 33");
  EXPECT_EQ(v().EASYGetQueryFormatListInit(kFibu, kIn, &status), Long(3));
  EXPECT_EQ(Walk([&] { return v().EASYGetQueryFormatListNext(); }),
            (std::vector<Variant>{"Standard", "Kurz", "Buchhaltung"}));
  // The gast account may read, nothing more.
  v().strEASYUser = "gast";
  v().strEASYPwd = "gast";
  EXPECT_EQ(v().EASYGetArchiveDescriptionInit(kFibu, kIn, &rights), Long(6));
  EXPECT_EQ(rights, Variant("R"));
}

// ---- query, hit list, sort, delete

TEST_F(EndToEnd, QueryHitListSortAndDelete) {
  Variant fields("old"), layouts("old"), total("old"), multi("old"), status("old");
  EXPECT_EQ(v().EASYQueryArchiveInit(kFibu, kIn, "", int32_t{0}, int32_t{0}, "Kurz", Variant::missing(), &fields,
                                     &layouts, &total, &multi, &status),
            Long(15));
  // Every invoice has its scan.
  EXPECT_EQ(std::vector<Variant>({total, fields, layouts, multi, status}),
            (std::vector<Variant>{"14", "1,2", "10;11", true, ""}));
  std::vector<Variant> where(4);
  EXPECT_EQ(v().EASYQueryArchiveNext(), Variant("^Rechnungsnummer^,^Lieferant^"));
  EXPECT_EQ(v().EASYQueryArchiveNext(&where[0], &where[1], &where[2], &where[3]),
            Variant("^2002-0117^,^Meier GmbH^"));
  EXPECT_EQ(where, (std::vector<Variant>{kFibu, kIn, "1000001", "1"}));

  // After a sort by the supplier (its order, and a second sort reversing it, are the demo's), the first hit
  // as last seen goes; a new sort shows 13.
  auto sorted = [&] {
    std::vector<Variant> rows = Walk([&] { return v().EASYSortHitlistNext(); });
    return std::vector<Variant>(rows.begin() + 1, rows.end());  // without the title line
  };
  EXPECT_EQ(v().EASYSortHitlistInit(int32_t{2}), 14);
  const std::vector<Variant> seen = sorted();
  ASSERT_EQ(seen.size(), 14u);
  EXPECT_EQ(v().EASYDeleteFromHitlist(int32_t{1}), Variant());
  EXPECT_EQ(v().EASYSortHitlistInit(int32_t{2}), 13);
  const std::vector<Variant> after = sorted();
  EXPECT_EQ(std::count(after.begin(), after.end(), seen[0]), 0) << seen[0].ToString();
  EXPECT_EQ(after.size(), 13u);

  EXPECT_EQ(v().EASYQueryArchiveInit(kFibu, kIn, ".LIEFERANT=(meier*)", int32_t{1}, int32_t{0}, "Standard"), Long(2));
  EXPECT_EQ(v().EASYQueryArchiveNext(), Variant("^Rechnungsnummer^,^Lieferant^,^Rechnungsdatum^,^Betrag^"));
  EXPECT_EQ(v().EASYQueryArchiveInit(kFibu, kIn, ".NIX=(1)", int32_t{0}, int32_t{0}, Variant::missing(),
                                     Variant::missing(), nullptr, nullptr, nullptr, nullptr, &status),
            kFailed);
  EXPECT_EQ(Code(status), "Error 33");
}

// ---- documents: info, segments, text, notes

TEST_F(EndToEnd, DocumentInfoAndSegmentDescription) {
  std::vector<Variant> info(8);
  Variant status("old");
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, "1000001", "1", &info[0], &info[1], &info[2], &info[3], &info[4],
                                    &info[5], &info[6], &info[7], &status),
            Long(1));
  EXPECT_EQ(status, Variant(""));
  const std::string tif_len = std::to_string(fs::file_size(data() + "/files/eingang_beleg_a.tif"));
  EXPECT_EQ(info[0].type(), VarType::String);
  EXPECT_GE(std::stoll(info[0].ToString()), std::stoll(tif_len));
  EXPECT_EQ(std::vector<Variant>(info.begin() + 1, info.end()),
            (std::vector<Variant>{"01.01.2002", "01.01.2002", "Rechnung 2002-0117 Meier GmbH", "4", "1", "1", "2"}));
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, "1000001", "7", &info[0], nullptr, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, &status),
            kFailed);
  EXPECT_EQ(Code(status), "Error 32");

  // Thumbnails land in the folder the request names.
  Variant notes;
  EXPECT_EQ(v().EASYGetSegmentDescriptionInit(kFibu, kIn, "1000001", "1", blob(), &notes, &status), Long(4));
  EXPECT_EQ(notes, Variant("2"));
  std::vector<std::vector<Variant>> segments;
  std::vector<Variant> names = Walk([&] {
    std::vector<Variant> out(11);
    const Variant name = v().EASYGetSegmentDescriptionNext(&out[0], &out[1], &out[2], &out[3], &out[4], &out[5],
                                                           &out[6], &out[7], &out[8], &out[9], &out[10]);
    segments.push_back(out);
    return name;
  });
  EXPECT_EQ(names, (std::vector<Variant>{"TEXT", "BELEG", "ORIGINAL", "VERWEISE"}));
  ASSERT_EQ(segments.size(), 5u);
  EXPECT_GT(std::stoll(segments[0][1].ToString()), 200);
  const std::string thumb = std::to_string(fs::file_size(InBlob("TN_1000001_1_2.TIF")));
  EXPECT_EQ(segments[1], (std::vector<Variant>{"2", "0", "0", tif_len, "TIF", "2", segments[1][6],
                                               "eingang_beleg_a.tif", "0", "11", thumb}));
  EXPECT_EQ(segments[2][4], Variant("PDF"));
  EXPECT_EQ(segments[3][5], Variant("4"));
}

// The caller's markers and line break, and the umlauts of the text, are the demo's.
TEST_F(EndToEnd, SegmentTextWithTheCallersBlanksAndTheDefaultLineBreak) {
  Variant status("old");
  EXPECT_EQ(v().EASYGetSegmentTextInit(kFibu, kIn, "1000001", "1", "", "", "", Variant::missing(), "_"), Long(1));
  EXPECT_TRUE(v().EASYGetSegmentTextNext().ToString().starts_with("Rechnung_2002-0117\r\nLieferant:_Meier_GmbH"));
  EXPECT_EQ(v().EASYGetSegmentTextInit(kFibu, "Rechnungen", "1000001", "1", "", "", "", "", "", &status), kFailed);
  EXPECT_EQ(Code(status), "Error 31");
}

TEST_F(EndToEnd, NotesReadWrittenAndDeleted) {
  Variant status("old");
  EXPECT_EQ(v().EASYGetNotesInit(kFibu, kIn, "1000001", "1", &status), Long(2));
  EXPECT_EQ(Walk([&] { return v().EASYGetNotesNext(); }),
            (std::vector<Variant>{"^1^,^easy^,^05.02.2002^,^09:12:44^,Betrag mit Bestellung 4711 abgeglichen.",
                                  "^2^,^admin^,^06.02.2002^,^14:30:02^,Skonto nicht gezogen.\r\n"
                                  "Bitte Rücksprache mit Herrn Meier.\r\nFrist: 15.02.2002"}));
  // Only 8000 characters of a note are sent (a note with the caller's line break is the demo's).
  EXPECT_EQ(v().EASYWriteNote(kFibu, kIn, "1000003", "1", std::string(8100, 'x'), Variant::missing(), &status), kOne);
  EXPECT_EQ(v().EASYGetNotesInit(kFibu, kIn, "1000003", "1"), Long(1));
  const std::string note = v().EASYGetNotesNext().ToString();
  EXPECT_EQ(note.substr(0, 12), "^1^,^easy^,^");
  EXPECT_EQ(note.substr(note.find(",x")), "," + std::string(8000, 'x'));

  EXPECT_EQ(v().EASYDeleteNotes(kFibu, kIn, "1000003", "1", &status), kOne);
  EXPECT_EQ(v().EASYGetNotesInit(kFibu, kIn, "1000003", "1"), Long(0));
  // Deleting needs the edit right, which easy lacks on the personnel files.
  EXPECT_EQ(v().EASYDeleteNotes("PERSONAL", "Personalakten", "1000023", "1", &status), kFailed);
  EXPECT_EQ(Code(status), "Error 22");
}

// ---- entry masks, extended archive list, archive properties

TEST_F(EndToEnd, MasksWithTheirFields) {
  Variant status("old"), name;
  EXPECT_EQ(v().EASYGetMasksInit(kFibu, kIn, &status), Long(3));
  EXPECT_EQ(v().EASYGetMasksNext(&name), Long(6));
  EXPECT_EQ(name, Variant("Erfassung"));
  std::vector<Variant> field(8);
  std::vector<Variant> ids;
  for (Variant id; ids.size() < 10; ids.push_back(id)) {
    id = v().EASYGetMasksNextField(&field[0], &field[1], &field[2], &field[3], &field[4], &field[5], &field[6],
                                   &field[7]);
    if (id == Variant(int16_t{-1})) break;
    if (id == Long(5)) {
      EXPECT_EQ(field[7], Variant("^Einkauf^,^Vertrieb^,^Verwaltung^,^Technik^"));
    }
  }
  EXPECT_EQ(ids, (std::vector<Variant>{Long(1), Long(2), Long(3), Long(4), Long(5), Long(6)}));
  // The second mask: names of its own or the field's, mandatory flags as Booleans.
  EXPECT_EQ(v().EASYGetMasksNext(&name), Long(3));
  EXPECT_EQ(name, Variant("Schnellerfassung"));
  EXPECT_EQ(v().EASYGetMasksNextField(&field[0], &field[1], &field[2], &field[3], &field[4]), Long(1));
  EXPECT_EQ(std::vector<Variant>(field.begin(), field.begin() + 5),
            (std::vector<Variant>{Long(1), Long(12), "L", field[3], true}));
  EXPECT_EQ(v().EASYGetMasksNextField(&field[0], &field[1], &field[2], &field[3], &field[4]), Long(2));
  EXPECT_EQ(std::vector<Variant>({field[3], field[4]}), (std::vector<Variant>{"Firma", false}));
  EXPECT_EQ(v().EASYGetMasksNext(&name), Long(0));
  EXPECT_EQ(name, Variant("Leer"));
  EXPECT_EQ(v().EASYGetMasksNext(&name), Variant(int16_t{-1}));
  EXPECT_EQ(v().EASYGetMasksInit("VERTRAG", "Korrespondenz"), Long(0));
  EXPECT_EQ(v().EASYGetMasksInit(kFibu, "Keins", &status), kFailed);
  EXPECT_EQ(Code(status), "Error 31");
}

TEST_F(EndToEnd, ExtendedArchiveListAndProperties) {
  Variant status("old"), channel, description;
  EXPECT_EQ(v().EASYGetAllArchivesExtInit(&status), Long(3));
  EXPECT_EQ(v().EASYGetAllArchivesExtNext(&channel, &description), Long(2));
  EXPECT_EQ(std::vector<Variant>({channel, description}),
            (std::vector<Variant>{"FIBU", "Finanzbuchhaltung, Rechnungseingang und -ausgang"}));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant(kIn));
  EXPECT_EQ(v().EASYGetAllArchivesExtNext(&channel), Long(1));
  EXPECT_EQ(channel, Variant("PERSONAL"));
  EXPECT_EQ(Walk([&] { return v().EASYGetAllArchivesExtNextArchive(); }), std::vector<Variant>{"Personalakten"});
  EXPECT_EQ(v().EASYGetAllArchivesExtNext(&channel), Long(2));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant("Verträge"));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant("Korrespondenz"));
  EXPECT_EQ(v().EASYGetAllArchivesExtNext(&channel), Variant(int16_t{-1}));

  std::vector<Variant> rights(4);
  EXPECT_EQ(v().EASYGetArchiveProperties(kFibu, kIn, &rights[0], &rights[1], &rights[2], &rights[3], &status),
            Long(14));
  EXPECT_EQ(rights, (std::vector<Variant>{true, true, true, true}));
  // Contracts: easy may create, edit and index, not delete.
  EXPECT_EQ(v().EASYGetArchiveProperties("VERTRAG", "Verträge", &rights[0], &rights[1], &rights[2], &rights[3]),
            Long(6));
  EXPECT_EQ(rights, (std::vector<Variant>{true, true, false, true}));
  EXPECT_EQ(v().EASYGetArchiveProperties("KEIN", kIn, &rights[0], nullptr, nullptr, nullptr, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 30");
}

// ---- segment downloads

TEST_F(EndToEnd, SegmentFilesLandInTheBlobFolder) {
  Variant name, length, status("old");
  const std::string tif = ReadFile(data() + "/files/eingang_beleg_a.tif");
  EXPECT_EQ(v().EASYGetSegmentData(kFibu, kIn, "1000001", "1", int16_t{2}, &name, &length, &status), kOne);
  EXPECT_EQ(std::vector<Variant>({name, status}), (std::vector<Variant>{"1000001_1_2.TIF", ""}));
  EXPECT_EQ(Fetched(name, length), tif);

  // PDF through a layout: never mapped (a mapped segment file is the demo's).
  v().strChangeFileExt = "tif-Pdf,PDF-TXT";
  EXPECT_EQ(v().EASYGetSegmentPDF(kFibu, kIn, "1000001", "1", int16_t{1}, "10", &name, &length), kOne);
  EXPECT_EQ(name, Variant("1000001_1_1_L10.PDF"));
  EXPECT_EQ(Fetched(name, length).substr(0, 5), "%PDF-");
  EXPECT_EQ(v().EASYGetSegmentPDF(kFibu, kIn, "1000001", "1", int16_t{1}, "99", &name, &length, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 34");

  // Print files: PDF by default, the TIFF in mode intPrintTIF, renamed by the mapping.
  v().strChangeFileExt = "tif-Pdf";
  EXPECT_EQ(v().EASYGetSegmentPrintfile(kFibu, kIn, "1000001", "1", "2", "11", Variant::missing(), &name, &length),
            kOne);
  EXPECT_EQ(name, Variant("1000001_1_2_L11_P.PDF"));
  EXPECT_EQ(Fetched(name, length).substr(0, 5), "%PDF-");
  EXPECT_EQ(v().EASYGetSegmentPrintfile(kFibu, kIn, "1000001", "1", "2", "11", int16_t{intPrintTIF}, &name, &length),
            kOne);
  ASSERT_EQ(name.type(), VarType::String);
  EXPECT_TRUE(name.ToString().ends_with("_P.Pdf")) << name.ToString();
  EXPECT_EQ(Fetched(name, length).substr(0, 2), "II");
  v().strChangeFileExt = "";

  // Multi-page TIFF of the pages 2 and 1 (the range expanded downwards).
  EXPECT_EQ(v().EASYGetSegmentMultiTIF(kFibu, kIn, "1000001", "1", "2-1", &name, &length), kOne);
  EXPECT_EQ(name, Variant("1000001_1_MULTI.TIF"));
  const std::string multi = Fetched(name, length);
  EXPECT_TRUE(multi.substr(0, 4) == std::string("II*\0", 4) || multi.substr(0, 4) == std::string("MM\0*", 4));
  EXPECT_EQ(v().EASYGetSegmentMultiTIF(kFibu, kIn, "1000001", "1", "9", &name, &length, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 36");
}

TEST_F(EndToEnd, ReferencesOfASegment) {
  Variant status("old");
  EXPECT_EQ(v().EASYGetSegmentERFInit(kFibu, kIn, "1000001", "1", int16_t{4}, &status), Long(3));
  std::vector<Variant> parts(4);
  EXPECT_EQ(v().EASYGetSegmentERFNext(&parts[0], &parts[1], &parts[2], &parts[3]),
            Variant("$(#FIBU)\\Ausgangsrechnungen,1000016,1"));
  EXPECT_EQ(parts, (std::vector<Variant>{"FIBU", "Ausgangsrechnungen", "1000016", "1"}));
  EXPECT_EQ(Walk([&] { return v().EASYGetSegmentERFNext(); }),
            (std::vector<Variant>{"$(#FIBU)\\Eingangsrechnungen,1000002,2", "$(#VERTRAG)\\Verträge,1000030,1"}));
  // A segment that is no reference list.
  EXPECT_EQ(v().EASYGetSegmentERFInit(kFibu, kIn, "1000001", "1", int16_t{1}, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 41");
}

// ---- blob transfer and upload

TEST_F(EndToEnd, TransferBlobFromASubfolderAndNoEmptyUpload) {
  std::string bytes(300000, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 7919) >> 3);
  fs::create_directories(InBlob("archiv"));
  WriteFile(InBlob("archiv/scan.bin"), bytes);
  Variant status("kept");
  EXPECT_EQ(v().EASYTransferBLOB("archiv\\scan.bin", int32_t(bytes.size()), &status), kOne);
  EXPECT_EQ(status, Variant("kept"));
  EXPECT_EQ(ReadFile(InBlob("scan.bin")), bytes);
  // A file the gateway does not have: the connection closes without a byte, which ends nothing; the wait
  // runs into the time-out (a second per look at the clock here).
  {
    testing::FakeClock clock;
    clock.on_read = [](testing::FakeClock& c) { c.AdvanceSeconds(1); };
    EXPECT_EQ(v().EASYTransferBLOB("fehlt.bin", int32_t{10}, &status), kFailed);
  }
  EXPECT_EQ(status, Variant("Timeout of 10 seconds occured waiting for server response."));

  // An empty file cannot be sent (an upload into a folder below the blob folder is the demo's).
  WriteFile(InBlob("leer.bin"), "");
  EXPECT_EQ(v().EASYUploadFile("leer.bin", &status), kFailed);
  EXPECT_EQ(status.ToString().substr(0, 12), "File Error (");
}

// ---- import files, create, edit, delete

TEST_F(EndToEnd, ImportFileCreatesEditsAndDeletesADocument) {
  const std::string import = InBlob("neu.txt");
  Variant status("old");
  EXPECT_EQ(v().CreateImportFile(import, kFibu, kIn, "Rechnung Grün", "1,1,3,2,4", "NR,LIEFERANT,DATUM,BETRAG,TEXT",
                                 "^2002-4711^,^Grün & Söhne^,^15.03.2002^,^12,50^,^Zeile eins\r\nZeile zwei^",
                                 Variant::missing(), &status),
            kOne);
  Variant reference("old");
  EXPECT_EQ(v().EASYCreateDocument(Remote("neu.txt"), &reference, &status), Long(1));
  const std::string ref = reference.ToString();
  const std::string id = ref.substr(0, ref.find(','));
  EXPECT_EQ(ref, id + ",1");

  std::vector<Variant> info(4);
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, id, "1", nullptr, nullptr, nullptr, &info[0], &info[1], &info[2]),
            Long(1));
  EXPECT_EQ(info[0], Variant("Rechnung Grün"));
  EXPECT_EQ(info[1], Variant("1"));  // one text segment
  EXPECT_EQ(v().EASYGetSegmentTextInit(kFibu, kIn, id, "1"), Long(1));
  EXPECT_EQ(v().EASYGetSegmentTextNext(), Variant("Zeile eins\r\nZeile zwei"));
  EXPECT_EQ(v().EASYGetArchiveProperties(kFibu, kIn), Long(15));

  // A new state from a second import file.
  const std::string change = InBlob("aenderung.txt");
  EXPECT_EQ(v().CreateImportFile(change, kFibu, kIn, "Rechnung Grün bezahlt", "1", "STATUS", "^bezahlt^"), kOne);
  Variant edited(ref);
  EXPECT_EQ(v().EASYEditDocument(Remote("aenderung.txt"), &edited, &status), Long(1));
  EXPECT_EQ(edited, Variant(id + ",2"));
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, id, "2", nullptr, nullptr, nullptr, &info[0]), Long(1));
  EXPECT_EQ(info[0], Variant("Rechnung Grün bezahlt"));

  // A broken import file: the gateway's reason, the reference kept.
  const std::string broken = InBlob("kaputt.txt");
  EXPECT_EQ(v().CreateImportFile(broken, kFibu, kIn, "x", "3", "DATUM", "^31.02.2002^"), kOne);
  EXPECT_EQ(v().EASYEditDocument(Remote("kaputt.txt"), &edited, &status), kFailed);
  EXPECT_EQ(Code(status), "Error 53");
  EXPECT_EQ(edited, Variant(id + ",2"));

  // Deleting the second version, then the document.
  EXPECT_EQ(v().EASYDeleteDocument(kFibu, kIn, id, "2", &status), kOne);
  EXPECT_EQ(status, Variant(""));
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, id, "2"), kFailed);
  EXPECT_EQ(v().EASYDeleteDocument(kFibu, kIn, id, "1", &status), kOne);
  EXPECT_EQ(v().EASYGetArchiveProperties(kFibu, kIn), Long(14));
  EXPECT_EQ(v().EASYDeleteDocument(kFibu, kIn, id, "1", &status), kFailed);
  EXPECT_EQ(Code(status), "Error 32");
}

// ---- log-on and busy answers

TEST_F(EndToEnd, AWrongPasswordEndsInTheGatewaysStatus) {
  v().strEASYPwd = "falsch";
  Variant status;
  EXPECT_EQ(v().EASYGetAllArchivesExtInit(&status), kFailed);
  EXPECT_EQ(status, Variant("Error 21 Anmeldung fehlgeschlagen"));
  Variant name("kept");
  EXPECT_EQ(v().EASYGetSegmentData(kFibu, kIn, "1000001", "1", int16_t{2}, &name, nullptr, &status), kFailed);
  EXPECT_EQ(name, Variant("kept"));
  EXPECT_EQ(status, Variant("Error 21 Anmeldung fehlgeschlagen"));
  // The password is compared as the gateway's account holds it; the user name in any case.
  v().strEASYPwd = "easy";
  v().strEASYUser = "EASY";
  EXPECT_EQ(v().EASYGetAllArchivesExtInit(&status), Long(3));
}

// Busy answers are retried while the request time-out lasts. The clock moves a second per look while no
// connection is open, so the pauses between tries cost nothing.
TEST_F(EndToEnd, BusyAnswersAreRetriedUntilTheGatewayServesOrTheTimeIsUp) {
  testing::FakeClock clock;
  clock.on_read = [this](testing::FakeClock& c) {
    if (!vantor_) return;
    auto& impl = VantorAccess::Of(v());
    if (impl.form.ctlWinsock(impl.SlotIndex).State() == platform::kSckClosed) c.AdvanceSeconds(1);
  };
  Serve(2);
  v().lngREQUESTTIMEOUT = 30;
  Variant status("old");
  EXPECT_EQ(v().EASYGetAllArchivesExtInit(&status), Long(3));
  EXPECT_EQ(status, Variant(""));
  EXPECT_EQ(gateway_.server().answered(), 3u);

  Serve(1000);
  v().lngREQUESTTIMEOUT = 12;
  EXPECT_EQ(v().EASYGetAllArchivesExtInit(&status), kFailed);
  EXPECT_EQ(status, Variant("Error 101 Server ausgelastet, bitte später erneut versuchen"));
  EXPECT_GE(gateway_.server().answered(), 2u);
  vantor_.reset();  // before the clock its hook reads goes
}

}  // namespace
}  // namespace halqvantor
