#include "link/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "halqvantor/Extensions.h"
#include "support/sample_gateway.h"
#include "support/scripted_gateway.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using Event = ProgressInfo::Event;
using testing::Answer;
using testing::FakeClock;
using testing::GatewaySession;
using testing::kMinusOne;
using testing::kOne;
using testing::OpenDescriptors;
using testing::PatternOf;
using testing::SampleGateway;
using testing::ScriptedGateway;
using testing::TempDir;

constexpr int64_t kMiB = int64_t{1} << 20;

struct Call {
  Event event;
  int64_t bytes, expected;
  std::string operation;
  bool operator==(const Call&) const = default;
};

// Every call of a hook, answered by `go_on` (true when not given).
struct Recorder {
  std::vector<Call> calls;
  std::function<bool(const ProgressInfo&)> go_on;
  Progress Hook() {
    return [this](const ProgressInfo& info) {
      calls.push_back({info.event, info.bytes, info.expected, std::string(info.operation)});
      return go_on ? go_on(info) : true;
    };
  }
};

// The descriptors open now are back to `count` within a second (a gateway thread closes its side after us).
bool DescriptorsBackTo(int count) {
  for (int i = 0; i < 100 && OpenDescriptors() > count; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return OpenDescriptors() <= count;
}

// The pacing of reports, on a clock moved by hand: readings (ms, bytes) and the events they gave.
TEST(ProgressMeter, ReportsArePacedByTimeAndBytesAndToldOnce) {
  struct Step {
    int64_t ms, bytes;
    bool closed;
    std::vector<Event> events;
  };
  const std::vector<Step> steps = {
      {10, 100, false, {}},                          // too soon, too few bytes
      {120, 200, false, {Event::kMoved}},            // 100 ms since the start
      {130, 200 + kMiB, false, {Event::kMoved}},     // a MiB more at once
      {140, 300 + kMiB, false, {}},                  //
      {1100, 300 + kMiB, false, {Event::kMoved}},    // the bytes of 140 ms, told now
      {2050, 300 + kMiB, false, {}},                 // nothing moved, but not for a second yet
      {2100, 300 + kMiB, false, {Event::kWaiting}},  //
      {2110, 300 + kMiB, true, {Event::kClosedEarly}},
      {2120, 300 + kMiB, true, {}},  // the close is told once per connection
  };
  FakeClock clock;
  Recorder recorder;
  int64_t bytes = 0;
  bool closed = false;
  ProgressMeter meter;
  ASSERT_TRUE(meter.Start(recorder.Hook(), "Op", clock, [&] { return ProgressReading{bytes, 5 * kMiB, closed}; }));
  for (const Step& step : steps) {
    recorder.calls.clear();
    clock.AdvanceMs(step.ms - clock.SteadyMilliseconds());
    bytes = step.bytes;
    closed = step.closed;
    EXPECT_TRUE(meter.Look());
    std::vector<Event> events;
    for (const Call& c : recorder.calls) events.push_back(c.event);
    EXPECT_EQ(events, step.events) << "at " << step.ms << " ms";
  }
  bytes = 5 * kMiB;
  recorder.calls.clear();
  meter.Done();
  EXPECT_EQ(recorder.calls, (std::vector<Call>{{Event::kDone, 5 * kMiB, 5 * kMiB, "Op"}}));
  EXPECT_FALSE(meter.active());

  // A hook that throws cancels, and the meter says so until it is reset.
  const Progress throws = [](const ProgressInfo&) -> bool { throw std::runtime_error("x"); };
  ASSERT_TRUE(meter.Start(throws, "Op", clock, [] { return ProgressReading{kMiB, -1, false}; }));
  EXPECT_FALSE(meter.Look());
  EXPECT_TRUE(meter.cancelled());
  meter.Reset();
  EXPECT_FALSE(meter.cancelled());
}

// Each long operation against a gateway on loopback, its clock standing still: the hook sees its bytes grow
// strictly, a MiB at least between two calls, and a last call with every byte.
class ProgressOnLoopback : public ::testing::Test {
 protected:
  static constexpr int64_t kSize = 3 * kMiB + 12345;

  // A session on the scripted gateway (Init'ed), logging and with the clock standing.
  GatewaySession& Scripted() {
    if (!session_) {
      session_ = std::make_unique<GatewaySession>(scripted_.port(), &clock_);
      Options(session_->object()).progress = recorder_.Hook();
      session_->object().strBlobPathLocal = blob_.path();
      session_->object().strBlobPathRemote = "R";
    }
    return *session_;
  }

  // The reply of a list request of kSize payload bytes: a status line and rows of 1000 characters.
  static std::string BigList() {
    std::string payload = "Status: OK";
    while (static_cast<int64_t>(payload.size()) < kSize) payload += "\r\n" + std::string(998, 'r');
    return payload.substr(0, static_cast<size_t>(kSize));
  }

  void ExpectGrowingToTheTotal(const std::string& operation, int64_t total) {
    ASSERT_FALSE(recorder_.calls.empty());
    int64_t last = 0;
    for (size_t i = 0; i + 1 < recorder_.calls.size(); ++i) {
      const Call& c = recorder_.calls[i];
      EXPECT_EQ(c.event, Event::kMoved);
      EXPECT_GE(c.bytes, last + kMiB) << "call " << i;
      last = c.bytes;
    }
    EXPECT_EQ(recorder_.calls.back(), (Call{Event::kDone, total, total, operation}));
    for (const Call& c : recorder_.calls) EXPECT_EQ(c.operation, operation);
  }

  FakeClock clock_;
  TempDir blob_;
  ScriptedGateway scripted_;
  Recorder recorder_;
  std::unique_ptr<GatewaySession> session_;
};

TEST_F(ProgressOnLoopback, EveryOperationReportsGrowthAndEndsAtItsTotal) {
  // A list request, its rows as without a hook.
  const std::string list = BigList();
  scripted_.Script({Answer(list)});
  Variant status;
  const Variant count = Scripted().object().EASYGetQueryFormatListInit("C", "A", &status);
  EXPECT_EQ(count, Variant(static_cast<int32_t>(Scripted().impl().ResultRows.size())));
  EXPECT_GT(count.ToLong(), 3000);
  ExpectGrowingToTheTotal("EASYGetQueryFormatListInit", kSize);

  // A blob transfer.
  recorder_.calls.clear();
  const std::string file = PatternOf(kSize);
  scripted_.Script({ScriptedGateway::Send(file)});
  EXPECT_EQ(Scripted().object().EASYTransferBLOB("f.bin", static_cast<int32_t>(kSize), &status), kOne);
  EXPECT_EQ(testing::ReadFile(blob_.File("f.bin")), file);
  ExpectGrowingToTheTotal("EASYTransferBLOB", kSize);

  // A browser upload: the body read, then the file written.
  recorder_.calls.clear();
  const std::string body =
      "-----b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"up.bin\"\r\n\r\n" + file + "\r\n-----b--\r\n";
  Scripted().object().OnStartPage(std::make_shared<MemoryScriptingContext>(
      std::make_shared<MemoryPageRequest>(std::vector<uint8_t>(body.begin(), body.end()))));
  Variant name, size;
  EXPECT_TRUE(Scripted().object().UploadFile(Variant::missing(), &name, &size));
  EXPECT_EQ(testing::ReadFile(blob_.File("up.bin")), file);
  ExpectGrowingToTheTotal("UploadFile", static_cast<int64_t>(body.size()) + kSize);
}

// Cancel at the first report, in the middle, and while the last byte does not come, in a list and in a
// transfer: the member fails as cancelled, what arrived stays in the file, no descriptor stays open, and the
// next request on the object works.
TEST_F(ProgressOnLoopback, CancelAtAnyPointClosesTheConnectionAndFreesTheSlot) {
  enum class Point { kFirst, kMiddle, kStalled };
  // Time moves on with every look at the clock, so that a stalled reception is reported as waiting.
  clock_.on_read = [](FakeClock& c) { c.AdvanceMs(5); };
  GatewaySession& s = Scripted();
  scripted_.Script({Answer("Status: OK\r\nwarm")});
  Variant status;
  ASSERT_EQ(s.object().EASYGetQueryFormatListInit("C", "A", &status), Variant(int32_t{1}));
  const int before = OpenDescriptors();
  for (const bool list : {true, false}) {
    for (const Point point : {Point::kFirst, Point::kMiddle, Point::kStalled}) {
      SCOPED_TRACE(::testing::Message() << (list ? "list" : "transfer") << " at " << static_cast<int>(point));
      // Stalled: every byte but the last, then the gateway holds the connection open.
      const bool stall = point == Point::kStalled;
      std::string bytes = list ? ScriptedGateway::Reply(BigList()) : PatternOf(kSize);
      if (stall && list) bytes = "TotalBytes:" + std::to_string(kSize + 1) + "\r\n" + BigList();
      scripted_.Script({ScriptedGateway::Send(bytes)});
      scripted_.Script({Answer("Status: OK\r\nnext")});
      recorder_.go_on = [point](const ProgressInfo& info) {
        if (point == Point::kFirst) return false;
        return point == Point::kMiddle ? info.bytes < kSize / 2 : info.event != Event::kWaiting || info.bytes < kSize;
      };
      const size_t log_from = s.LogLines().size();
      const Variant result = list ? s.object().EASYGetQueryFormatListInit("C", "A", &status)
                                  : s.object().EASYTransferBLOB("f.bin", static_cast<int32_t>(kSize + stall), &status);
      recorder_.go_on = nullptr;
      EXPECT_EQ((Outs{Variant(result.ToLong()), status}), (Outs{Variant(-1), "Cancelled by the caller."}));
      EXPECT_THAT(s.LogLines(log_from), ::testing::Contains("Abbruch durch den Aufrufer."));
      EXPECT_FALSE(s.impl().RequestPending);
      EXPECT_EQ(s.socket().State(), platform::kSckClosed);
      if (!list) {  // what arrived stays in the file, as after any failed transfer
        EXPECT_GE(static_cast<int64_t>(std::filesystem::file_size(blob_.File("f.bin"))), recorder_.calls.back().bytes);
      }
      EXPECT_EQ(s.object().EASYGetQueryFormatListInit("C", "A", &status), Variant(int32_t{1}));
      EXPECT_EQ(s.object().EASYGetQueryFormatListNext(), Variant("next"));
      EXPECT_TRUE(DescriptorsBackTo(before)) << OpenDescriptors() << " open, " << before << " before";
    }
  }
}

// Against the reference gateway: an upload reports the file sent. The gateway ends a transfer of a file it
// does not have by closing the connection: the hook hears of it at once and can stop the wait instead of
// sitting out the time-out.
TEST_F(ProgressOnLoopback, UploadAndAnEarlyCloseAgainstTheGateway) {
  SampleGateway gateway;
  gateway.Start();
  GatewaySession s(gateway.port(), &clock_);  // the clock stands: only the hook can end the wait
  s.object().strEASYUser = s.object().strEASYPwd = "easy";
  s.object().strBlobPathLocal = blob_.path();
  Options(s.object()).progress = recorder_.Hook();
  const std::string file = PatternOf(kSize);
  testing::WriteFile(blob_.File("u.bin"), file);
  Variant status;
  ASSERT_EQ(s.object().EASYUploadFile("u.bin", &status), kOne) << status.ToString();
  EXPECT_EQ(testing::ReadFile(gateway.blob() + "/u.bin"), file);
  ExpectGrowingToTheTotal("EASYUploadFile", kSize);

  recorder_.calls.clear();
  recorder_.go_on = [](const ProgressInfo& info) { return info.event != Event::kClosedEarly; };
  EXPECT_EQ((Outs{s.object().EASYTransferBLOB("missing.bin", int32_t{20000}, &status), status}),
            (Outs{kMinusOne, "Cancelled by the caller."}));
  ASSERT_FALSE(recorder_.calls.empty());
  EXPECT_EQ(recorder_.calls.back(), (Call{Event::kClosedEarly, 0, 20000, "EASYTransferBLOB"}));
}

}  // namespace
}  // namespace halqvantor
