// Many objects at once against the reference gateway: 16 clsVantor objects, each on its own thread, send
// their requests in parallel. Every answer must equal the one a single object got alone, and none may be
// lost. The ordinary suite sends a few requests per object; HALQVANTOR_CONCURRENT_REQUESTS raises the count
// (`./dev.sh test --tsan` runs 1,000 per object under ThreadSanitizer).

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "halqvantor/clsVantor.h"
#include "support/sample_gateway.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

constexpr int kThreads = 16;
const std::string kFibu = "FIBU";
const std::string kIn = "Eingangsrechnungen";

std::unique_ptr<clsVantor> Connect(int port, const std::string& session, const std::string& log_dir) {
  auto v = std::make_unique<clsVantor>();
  v->strREMOTEHOST = "127.0.0.1";
  v->lngREMOTEPORT = port;
  v->lngREQUESTTIMEOUT = 30;
  v->strSessionID = session;
  v->strEASYUser = v->strEASYPwd = "easy";
  v->strDebugLogPath = log_dir;
  v->Init();
  return v;
}

// One request of a kind, its answer as one text: kind 0 queries the incoming invoices (with the items its
// Next hands out), kind 1 + i asks for the document info of document `documents[i]`.
std::string Ask(clsVantor& v, size_t kind, const std::vector<std::string>& documents) {
  Variant status("unset");
  std::vector<Variant> info(8);
  std::string answer =
      (kind == 0 ? v.EASYQueryArchiveInit(kFibu, kIn, "", int32_t{0}, int32_t{0}, "Kurz", Variant::missing(), nullptr,
                                          nullptr, nullptr, nullptr, &status)
                 : v.EASYGetDocumentInfo(kFibu, kIn, documents[kind - 1], "1", &info[0], &info[1], &info[2], &info[3],
                                         &info[4], &info[5], &info[6], &info[7], &status))
          .ToString();
  for (Variant item; kind == 0 && (item = v.EASYQueryArchiveNext()) != Variant("");) answer += "|" + item.ToString();
  for (const Variant& column : info) answer += "|" + column.ToString();
  return answer + "|" + status.ToString();
}

TEST(Concurrency, SixteenObjectsOnSixteenThreadsGetEveryAnswerRight) {
  testing::SampleGateway gateway;
  gateway.Start();
  testing::TempDir logs;

  // The answers one object gets alone; the hit list names the documents to ask about.
  std::vector<std::string> documents;
  std::vector<std::string> expected;
  std::thread([&] {
    auto v = Connect(gateway.port(), "REF", logs.path());
    ASSERT_EQ(v->EASYQueryArchiveInit(kFibu, kIn, "", int32_t{0}, int32_t{0}, "Kurz"), Variant(int32_t{15}));
    (void)v->EASYQueryArchiveNext();  // the title line
    for (Variant id; v->EASYQueryArchiveNext(nullptr, nullptr, &id) != Variant("");) documents.push_back(id.ToString());
    for (size_t kind = 0; kind < 1 + documents.size(); ++kind) expected.push_back(Ask(*v, kind, documents));
  }).join();
  ASSERT_EQ(documents.size(), 14u);
  ASSERT_EQ(expected[1].substr(0, 2), "1|") << expected[1];

  const char* asked = std::getenv("HALQVANTOR_CONCURRENT_REQUESTS");
  const int requests = asked != nullptr && std::atoi(asked) > 0 ? std::atoi(asked) : 50;
  std::mutex mutex;
  std::vector<std::string> wrong;  // the first wrong answer of each thread
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      auto v = Connect(gateway.port(), "T" + std::to_string(t), logs.path());
      for (int i = 0; i < requests; ++i) {
        const size_t kind = static_cast<size_t>(t + i) % expected.size();
        const std::string answer = Ask(*v, kind, documents);
        if (answer == expected[kind]) continue;
        std::lock_guard<std::mutex> lock(mutex);
        wrong.push_back("thread " + std::to_string(t) + " request " + std::to_string(i) + ": " + answer);
        return;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(wrong.empty()) << wrong.front();
}

}  // namespace
}  // namespace halqvantor
