// Faults from outside: a gateway that cuts its reply short at every byte, and a file system that fails each of its
// calls in turn. Every member must end in its failure text within the time-out, and leave no descriptor behind.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::FakeNetwork;
using testing::GatewaySession;
using testing::InFakeSession;
using testing::OpenDescriptors;
using testing::TempDir;
enum class Cut { kClose, kReset, kStall };

constexpr int kTimeout = 2;
const std::string kTimedOut = "Timeout of 2 seconds occured waiting for server response.";
const std::string kReset = "Winsock Error (10054 - Connection is reset by remote side)";
const std::string kHeaderWithoutEnd = "Winsock Error (DataArrival Error (5 - Invalid procedure call or argument))";

std::string Reply(std::string_view payload) { return FakeNetwork::Reply(payload).bytes; }

// The first `offset` bytes of `wire`, then the connection closed, reset, or left open in silence (a stall).
std::vector<FakeNetwork::Step> CutAt(std::string_view wire, size_t offset, Cut how) {
  std::vector<FakeNetwork::Step> steps;
  if (offset > 0) steps.push_back(FakeNetwork::Packet(std::string(wire.substr(0, offset))));
  if (how != Cut::kStall) steps.push_back(how == Cut::kClose ? FakeNetwork::Close() : FakeNetwork::Reset());
  return steps;
}

// A member that makes one request and reports its failure as -1 and strStatus.
struct Member {
  const char* name;
  std::string wire;  // the whole reply as the gateway sends it
  bool byte_mode;
  std::function<Variant(clsVantor&, Variant*)> call;
};

TEST(CutReplies, EveryOffsetByCloseResetOrStallEndsInTheMembersFailureWithinTheTimeOut) {
  TempDir blob;
  const std::vector<Member> members = {{"list", Reply("Status: OK\r\nK1\r\nK2,zwei"), false,
                                        [](clsVantor& v, Variant* status) { return v.EASYGetChannelsInit(status); }},
                                       {"blob transfer", "0123456789abcdef", true, [](clsVantor& v, Variant* status) {
                                          return v.EASYTransferBLOB("f.bin", int32_t{16}, status);
                                        }}};
  for (const Member& member : members) {
    SCOPED_TRACE(member.name);
    std::vector<std::pair<size_t, Cut>> cases;
    std::vector<std::vector<FakeNetwork::Step>> scripts;
    for (Cut how : {Cut::kClose, Cut::kReset, Cut::kStall}) {
      for (size_t offset = 0; offset < member.wire.size(); ++offset) {
        cases.push_back({offset, how});
        scripts.push_back(CutAt(member.wire, offset, how));
      }
    }
    const size_t header_end = member.byte_mode ? 0 : member.wire.find("\r\n") + 2;
    InFakeSession(scripts, [&](GatewaySession& s, FakeNetwork& net, FakeClock& clock) {
      clsVantor& v = s.object();
      v.lngREQUESTTIMEOUT = kTimeout;
      v.strDebugLogPath = "";
      v.strBlobPathLocal = blob.path();
      // Time runs only once the current cut's request is out: a second per look at the clock.
      int target = 0, seconds = 0;
      clock.on_read = [&](FakeClock& c) {
        if (net.requests.size() >= static_cast<size_t>(target) && !net.requests.back().empty())
          c.AdvanceSeconds(1), ++seconds;
      };
      const int descriptors = OpenDescriptors();
      for (const auto& [offset, how] : cases) {
        SCOPED_TRACE("offset " + std::to_string(offset) + ", cut " + std::to_string(static_cast<int>(how)));
        ++target;
        const int start = seconds;
        Variant status, result;
        try {
          result = member.call(v, &status);
        } catch (const RuntimeError& e) {
          // Only a reply that reception takes as complete (below) can reach the row parsers.
          result = Variant(int16_t{-1});
          status = Variant("raised " + std::to_string(e.number()));
        }
        EXPECT_LE(seconds - start, 2 * (kTimeout + 2));
        EXPECT_FALSE(s.impl().RequestPending);
        // A first packet that ends inside the keyword "TotalBytes:" is no header: it follows whatever the
        // slot held and completes it at once, as reception always does. Here it only has to end in time.
        if (!member.byte_mode && offset > 0 && offset < 11) continue;
        EXPECT_EQ(result, Variant(int16_t{-1}));
        const bool broken_header = !member.byte_mode && offset >= 11 && offset < header_end;
        if (how == Cut::kReset) {  // the reset and an unfinished header may come in one pass; either reports it
          EXPECT_TRUE(status == Variant(kReset) || (broken_header && status == Variant(kHeaderWithoutEnd)))
              << status.ToString();
        } else {
          EXPECT_EQ(status, Variant(broken_header ? kHeaderWithoutEnd : kTimedOut));
        }
      }
      // A broken header leaves the slot's socket open for the next request to close: close it as that would.
      // Then nothing may be left open.
      s.socket().Close();
      EXPECT_EQ(net.open_sockets(), 0);
      EXPECT_EQ(OpenDescriptors(), descriptors);
      EXPECT_EQ(net.requests.size(), cases.size());
    });
  }
}

// Fails the n-th call of one kind with "Disk full" (61) and counts the calls of every kind. The debug log drops a line
// it cannot write and an import file raises its one append's error: component_test and import_files_test see those.
class FaultyDisk : public platform::EnvWrapper {
 public:
  enum Kind { kOpen, kWrite, kKinds };
  FaultyDisk(Kind kind, int at, platform::Env* base) : EnvWrapper(base), kind_(kind), at_(at) {}

  int calls(Kind kind) const { return calls_[kind]; }
  bool Fails(Kind kind) { return ++calls_[kind] == at_ && kind == kind_; }

  int OpenForBinaryWrite(const std::string& path, std::unique_ptr<platform::WritableFile>* file) override {
    if (Fails(kOpen)) return 61;
    const int error = EnvWrapper::OpenForBinaryWrite(path, file);
    if (error == 0) *file = std::make_unique<Writes>(std::move(*file), *this);
    return error;
  }

 private:
  struct Writes : platform::WritableFile {
    Writes(std::unique_ptr<platform::WritableFile> f, FaultyDisk& d) : inner(std::move(f)), disk(d) {}
    int Write(std::string_view bytes) override { return disk.Fails(kWrite) ? 61 : inner->Write(bytes); }
    int Close() override { return inner->Close(); }
    std::unique_ptr<platform::WritableFile> inner;
    FaultyDisk& disk;
  };

  Kind kind_;
  int at_;
  int calls_[kKinds] = {};
};

TEST(FileFaults, EachOpenAndWriteOfATransferFailsCleanly) {
  TempDir blob;
  const std::pair<FaultyDisk::Kind, std::string> kRows[] = {
      {FaultyDisk::kOpen, "File Error (61 - Disk full)"},
      {FaultyDisk::kWrite, "Winsock Error (File Error (61 - Disk full))"}};
  for (const auto& [kind, faulty] : kRows) {
    SCOPED_TRACE(faulty);
    InFakeSession({{FakeNetwork::Packet("abcd")}}, [&](GatewaySession& s, FakeNetwork& net, FakeClock&) {
      clsVantor& v = s.object();
      v.strBlobPathLocal = blob.path();
      const int descriptors = OpenDescriptors();
      Variant status;
      int calls = 0;
      {
        FaultyDisk counting(FaultyDisk::kKinds, 0, &net);
        testing::EnvScope use(v, &counting);
        EXPECT_EQ(v.EASYTransferBLOB("t.bin", int32_t{4}, &status), testing::kOne);
        calls = counting.calls(kind);
      }
      EXPECT_GT(calls, 0);
      for (int n = 1; n <= calls; ++n) {
        FaultyDisk disk(kind, n, &net);
        testing::EnvScope use(v, &disk);
        EXPECT_EQ(v.EASYTransferBLOB("t.bin", int32_t{4}, &status), testing::kMinusOne) << "call " << n;
        EXPECT_EQ(status, Variant(faulty)) << "call " << n;
        EXPECT_FALSE(s.impl().RequestPending);
      }
      // A failed write leaves the connection for the next request to close, like any reception failure.
      s.socket().Close();
      EXPECT_EQ(net.open_sockets(), 0);
      EXPECT_EQ(OpenDescriptors(), descriptors);
    });
  }
}

}  // namespace
}  // namespace halqvantor
