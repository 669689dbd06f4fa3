#include <gtest/gtest.h>

#include <filesystem>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/frm_comm.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::OnFreshThread;
using testing::ReadLines;
using testing::TempDir;

// Runs `body` on a fresh thread (a slot table of its own) with an object on `clock` that logs into `folder`
// under session `id`, not yet Init'ed.
template <typename F>
void InObject(FakeClock& clock, const std::string& folder, const std::string& id, F body) {
  OnFreshThread([&] {
    clsVantor v;
    SetEnvironment(v, &clock);
    v.strDebugLogPath = folder;
    v.strSessionID = id;
    body(v);
  });
}

TEST(ComponentObject, FirstObjectLogsItsLifeInFourLines) {
  TempDir dir;
  FakeClock clock({{2002, 11, 15}, 14, 3, 7});
  InObject(clock, dir.path(), "S1", [&](clsVantor& v) {
    v.strREMOTEHOST = "gateway.example";
    v.lngREMOTEPORT = 4711;
    v.Init();
    EXPECT_EQ(VantorAccess::Of(v).SlotIndex, 1);
    const platform::Socket& socket = frmComm::ForThisThread().ctlWinsock(1);
    EXPECT_EQ(std::make_tuple(socket.RemoteHost, socket.RemotePort, socket.State()),
              std::make_tuple(std::string("gateway.example"), int32_t{4711}, platform::kSckClosed));  // no connect
    clock.AdvanceSeconds(1);
  });
  EXPECT_EQ(ReadLines(dir.File("S1.LOG")),
            (std::vector<std::string>{"15.11.2002 14:03:07   Neue Sitzung initiiert mit SessionID S1.",
                                      "15.11.2002 14:03:07   Freie/neue Winsock-Instanz 1 ermittelt.",
                                      "15.11.2002 14:03:08   Winsock-Instanz 1 wieder freigegeben.",
                                      "15.11.2002 14:03:08   Sitzung beendet."}));
}

// An empty folder turns the debug log off, before Init or later; no file appears there or in the working
// folder (where a log without a folder would land).
TEST(ComponentObject, LoggingOffTouchesNoFile) {
  TempDir dir, work;
  FakeClock clock;
  const std::filesystem::path cwd = std::filesystem::current_path();
  std::filesystem::current_path(work.path());
  InObject(clock, dir.path(), "S1", [&](clsVantor& v) {
    v.strDebugLogPath = "";
    v.Init();
    VantorAccess::Of(v).WriteLog("x");
  });
  InObject(clock, dir.path(), "S2", [&](clsVantor& v) {
    v.Init();
    v.strDebugLogPath = "";
    VantorAccess::Of(v).WriteLog("x");
  });
  std::filesystem::current_path(cwd);
  EXPECT_TRUE(std::filesystem::is_empty(work.path()));
  EXPECT_FALSE(std::filesystem::exists(dir.File("S1.LOG")));
  EXPECT_EQ(ReadLines(dir.File("S2.LOG")).size(), 2u);              // the two lines of Init
  InObject(clock, dir.path(), "", [](clsVantor& v) { v.Init(); });  // an empty session id names the file ".LOG"
  EXPECT_EQ(ReadLines(dir.File(".LOG")).size(), 4u);
}

// Init reads its argument before it takes a slot, and logs a failure to read it; a session id changed after
// Init splits the log.
TEST(ComponentObject, InitFailuresAndALaterSessionId) {
  TempDir dir;
  FakeClock clock;
  InObject(clock, dir.path(), "S", [&](clsVantor& v) {
    v.Init(Variant("kein Wahrheitswert"));
    EXPECT_EQ(VantorAccess::Of(v).SlotIndex, 0);
    v.Init(Variant(false));
    EXPECT_EQ(VantorAccess::Of(v).SlotIndex, 1);
  });
  EXPECT_EQ(ReadLines(dir.File("S.LOG")).at(0),
            "15.11.2002 14:03:07   Allgemeiner Fehler in Funktion 'Init': 13 - Type mismatch.");
  InObject(clock, dir.path(), "A", [&](clsVantor& v) {
    v.Init();
    v.strSessionID = "B";
    VantorAccess::Of(v).WriteLog("Objekt");
    frmComm::ForThisThread().WriteSlotLog(VantorAccess::Of(v).SlotIndex, "    Slot");
  });
  // The slot keeps the id copied by Init; the object's own lines go to the new one.
  EXPECT_EQ(ReadLines(dir.File("A.LOG"))[2], "15.11.2002 14:03:07       Slot");
  EXPECT_EQ(ReadLines(dir.File("B.LOG")),
            (std::vector<std::string>{"15.11.2002 14:03:07   Objekt",
                                      "15.11.2002 14:03:07   Winsock-Instanz 1 wieder freigegeben.",
                                      "15.11.2002 14:03:07   Sitzung beendet."}));
}

TEST(ComponentObject, UnwritableLogChangesNothingButTheLine) {
  TempDir dir;
  FakeClock clock;
  InObject(clock, dir.File("missing/folder"), "S", [&](clsVantor& v) {
    v.Init();
    EXPECT_EQ(VantorAccess::Of(v).SlotIndex, 1);
    // A session id that would name a file outside the folder is not followed.
    v.strDebugLogPath = dir.path();
    v.strSessionID = "../escape";
    VantorAccess::Of(v).WriteLog("x");
    // A folder that is a file: the open fails.
    testing::WriteFile(dir.File("plain"), "");
    v.strDebugLogPath = dir.File("plain");
    v.strSessionID = "S";
    VantorAccess::Of(v).WriteLog("x");
  });
  EXPECT_EQ(std::filesystem::directory_iterator(dir.path())->path().filename(), "plain");
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(dir.path()).parent_path() / "escape.LOG"));
}

}  // namespace
}  // namespace halqvantor
