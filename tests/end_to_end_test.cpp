// clsVantor against the reference gateway, in-process on a loopback port over a copy of the sample archive.
// `vantor demo` (vantor_demo_test) walks the members of a portal session and the vantor program
// (vantor_cli_test) the description, masks, archive lists, notes, files and, through `call`, the other
// members; these are what neither reaches: thumbnails, editing and deleting documents and busy answers.
// The gateway's error answers are checked in gateway_test, the component's handling of them in the member
// tests.

#include <gtest/gtest.h>

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
  clsVantor& v() { return *vantor_; }

  testing::SampleGateway gateway_;
  std::unique_ptr<clsVantor> vantor_;
};

// Thumbnails land in the folder the request names.
TEST_F(EndToEnd, SegmentDescriptionWithThumbnails) {
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
