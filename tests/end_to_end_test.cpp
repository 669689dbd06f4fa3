// clsVantor against the reference gateway, in-process on a loopback port over a copy of the sample archive.
// `vantor demo` (vantor_demo_test) walks the members of a portal session and the vantor program
// (vantor_cli_test) the description, masks, archive lists, notes and files; these are the members neither
// reaches, each with what the sample holds, so that the component and the gateway are seen to agree on
// every command. The gateway's error answers are checked in gateway_test, the component's handling of them
// in the member tests.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/sample_gateway.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

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
std::vector<Variant> Walk(const std::function<Variant()>& next) {
  std::vector<Variant> items;
  for (Variant item = next(); item != Variant("") && items.size() < 100; item = next()) items.push_back(item);
  return items;
}

TEST_F(EndToEnd, ListsWalkWhatTheSampleHolds) {
  struct List {
    const char* what;
    std::function<Variant()> init, next;
    Variant count;
    std::vector<Variant> items;
  };
  const std::vector<List> lists = {
      {"all archives",
       [&] { return v().EASYGetAllArchivesInit(); },
       [&] { return v().EASYGetAllArchivesNext(); },
       Long(5),
       {"$(#FIBU)\\Ausgangsrechnungen", "$(#FIBU)\\Eingangsrechnungen", "$(#PERSONAL)\\Personalakten",
        "$(#VERTRAG)\\Korrespondenz", "$(#VERTRAG)\\Verträge"}},
      {"query formats",
       [&] { return v().EASYGetQueryFormatListInit(kFibu, kIn); },
       [&] { return v().EASYGetQueryFormatListNext(); },
       Long(3),
       {"Standard", "Kurz", "Buchhaltung"}},
      {"references",
       [&] { return v().EASYGetSegmentERFInit(kFibu, kIn, "1000001", "1", int16_t{4}); },
       [&] { return v().EASYGetSegmentERFNext(); },
       Long(3),
       {"$(#FIBU)\\Ausgangsrechnungen,1000016,1", "$(#FIBU)\\Eingangsrechnungen,1000002,2",
        "$(#VERTRAG)\\Verträge,1000030,1"}},
  };
  for (const List& list : lists) {
    EXPECT_EQ(list.init(), list.count) << list.what;
    EXPECT_EQ(Walk(list.next), list.items) << list.what;
  }
}

// The demo queries with the standard format; here the other out-arguments, from a format of two columns.
TEST_F(EndToEnd, QueryOutArgumentsOfAShortFormat) {
  Variant fields("old"), layouts("old"), total("old"), multi("old"), status("old");
  EXPECT_EQ(v().EASYQueryArchiveInit(kFibu, kIn, "", int32_t{0}, int32_t{0}, "Kurz", Variant::missing(), &fields,
                                     &layouts, &total, &multi, &status),
            Long(15));
  EXPECT_EQ(std::vector<Variant>({total, fields, layouts, multi, status}),
            (std::vector<Variant>{"14", "1,2", "10;11", true, ""}));
  std::vector<Variant> where(4);
  EXPECT_EQ(v().EASYQueryArchiveNext(), Variant("^Rechnungsnummer^,^Lieferant^"));
  EXPECT_EQ(v().EASYQueryArchiveNext(&where[0], &where[1], &where[2], &where[3]), Variant("^2002-0117^,^Meier GmbH^"));
  EXPECT_EQ(where, (std::vector<Variant>{kFibu, kIn, "1000001", "1"}));
}

TEST_F(EndToEnd, ThumbnailsAndEveryKindOfSegmentFile) {
  // Thumbnails land in the folder the request names.
  const std::string tif = ReadFile(gateway_.data() + "/files/eingang_beleg_a.tif");
  EXPECT_EQ(v().EASYGetSegmentDescriptionInit(kFibu, kIn, "1000001", "1", blob()), Long(4));
  std::vector<Variant> beleg(11);
  v().EASYGetSegmentDescriptionNext();
  EXPECT_EQ(v().EASYGetSegmentDescriptionNext(&beleg[0], &beleg[1], &beleg[2], &beleg[3], &beleg[4], &beleg[5],
                                              &beleg[6], &beleg[7], &beleg[8], &beleg[9], &beleg[10]),
            Variant("BELEG"));
  const std::string thumb = std::to_string(fs::file_size(InBlob("TN_1000001_1_2.TIF")));
  EXPECT_EQ(beleg, (std::vector<Variant>{"2", "0", "0", std::to_string(tif.size()), "TIF", "2", beleg[6],
                                         "eingang_beleg_a.tif", "0", "11", thumb}));

  // PDF through a layout and the print file (PDF by default, the TIFF in mode intPrintTIF).
  Variant name, length;
  EXPECT_EQ(v().EASYGetSegmentPDF(kFibu, kIn, "1000001", "1", int16_t{1}, "10", &name, &length), kOne);
  EXPECT_EQ(name, Variant("1000001_1_1_L10.PDF"));
  EXPECT_EQ(Fetched(name, length).substr(0, 5), "%PDF-");
  EXPECT_EQ(v().EASYGetSegmentPrintfile(kFibu, kIn, "1000001", "1", "2", "11", Variant::missing(), &name, &length),
            kOne);
  EXPECT_EQ(name, Variant("1000001_1_2_L11_P.PDF"));
  EXPECT_EQ(Fetched(name, length).substr(0, 5), "%PDF-");
  EXPECT_EQ(v().EASYGetSegmentPrintfile(kFibu, kIn, "1000001", "1", "2", "11", int16_t{intPrintTIF}, &name, &length),
            kOne);
  EXPECT_EQ(Fetched(name, length).substr(0, 2), "II");
}

TEST_F(EndToEnd, DocumentsEditedAndDeleted) {
  Variant reference, status("old");
  EXPECT_EQ(v().CreateImportFile(InBlob("neu.txt"), kFibu, kIn, "Rechnung Grün", "1,1,3,2,4",
                                 "NR,LIEFERANT,DATUM,BETRAG,TEXT",
                                 "^2002-4711^,^Grün & Söhne^,^15.03.2002^,^12,50^,^Zeile eins\r\nZeile zwei^"),
            kOne);
  EXPECT_EQ(v().EASYCreateDocument(Remote("neu.txt"), &reference), Long(1));
  const std::string id = reference.ToString().substr(0, reference.ToString().find(','));

  // A new state from a second import file; a broken one keeps the reference.
  EXPECT_EQ(v().CreateImportFile(InBlob("neu2.txt"), kFibu, kIn, "Rechnung Grün bezahlt", "1", "STATUS", "^bezahlt^"),
            kOne);
  EXPECT_EQ(v().EASYEditDocument(Remote("neu2.txt"), &reference, &status), Long(1));
  EXPECT_EQ(reference, Variant(id + ",2"));
  Variant title;
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, id, "2", nullptr, nullptr, nullptr, &title), Long(1));
  EXPECT_EQ(title, Variant("Rechnung Grün bezahlt"));
  EXPECT_EQ(v().CreateImportFile(InBlob("kaputt.txt"), kFibu, kIn, "x", "3", "DATUM", "^31.02.2002^"), kOne);
  EXPECT_EQ(v().EASYEditDocument(Remote("kaputt.txt"), &reference, &status), kFailed);
  EXPECT_EQ(status.ToString().substr(0, 8), "Error 53");
  EXPECT_EQ(reference, Variant(id + ",2"));
  // Deleting the second version, then the document.
  EXPECT_EQ(v().EASYDeleteDocument(kFibu, kIn, id, "2", &status), kOne);
  EXPECT_EQ(v().EASYGetDocumentInfo(kFibu, kIn, id, "2"), kFailed);
  EXPECT_EQ(v().EASYDeleteDocument(kFibu, kIn, id, "1"), kOne);
  EXPECT_EQ(v().EASYGetArchiveProperties(kFibu, kIn), Long(14));
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
