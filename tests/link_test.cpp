#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/frm_comm.h"
#include "support/errors.h"

namespace halqvantor {
namespace {

int32_t SlotOf(clsVantor& v) { return VantorAccess::Of(v).SlotIndex; }

template <typename F>
void OnFreshThread(F body) {
  std::thread t(body);
  t.join();
}

TEST(ConnectionSlots, LowestFreeSlotIsReused) {
  OnFreshThread([] {
    frmComm& form = frmComm::ForThisThread();
    EXPECT_EQ(form.SlotCount(), 0);
    auto first = std::make_unique<clsVantor>();
    first->Init();
    auto second = std::make_unique<clsVantor>();
    second->Init();
    EXPECT_EQ(SlotOf(*first), 1);
    EXPECT_EQ(SlotOf(*second), 2);
    EXPECT_EQ(form.SlotCount(), 2);
    form.SetResponse(1, "old reply");
    first.reset();
    clsVantor third;
    third.Init();
    EXPECT_EQ(SlotOf(third), 1);  // no new element is loaded
    EXPECT_EQ(form.SlotCount(), 2);
    EXPECT_EQ(form.GetResponse(1), "old reply");  // a reused slot keeps its last state
  });
}

TEST(ConnectionSlots, ObjectsOneAfterAnotherAllGetSlotOne) {
  OnFreshThread([] {
    for (int i = 0; i < 3; ++i) {
      clsVantor v;
      v.Init();
      EXPECT_EQ(SlotOf(v), 1);
    }
    EXPECT_EQ(frmComm::ForThisThread().SlotCount(), 1);
  });
}

TEST(ConnectionSlots, SecondInitTakesASecondSlotAndKeepsTheFirst) {
  OnFreshThread([] {
    {
      clsVantor v;
      v.Init();
      v.Init();
      EXPECT_EQ(SlotOf(v), 2);
    }
    frmComm& form = frmComm::ForThisThread();
    EXPECT_TRUE(form.GetBusy(1));
    EXPECT_FALSE(form.GetBusy(2));
  });
}

TEST(ConnectionSlots, EachThreadHasItsOwnTable) {
  OnFreshThread([] {
    clsVantor a;
    a.Init();
    clsVantor b;
    b.Init();
    int32_t other_slot = 0;
    int32_t other_count = 0;
    OnFreshThread([&] {
      clsVantor c;
      c.Init();
      other_slot = SlotOf(c);
      other_count = frmComm::ForThisThread().SlotCount();
    });
    EXPECT_EQ(other_slot, 1);
    EXPECT_EQ(other_count, 1);
    EXPECT_EQ(frmComm::ForThisThread().SlotCount(), 2);
  });
}

TEST(ConnectionSlots, UnknownSlotsAreRefused) {
  OnFreshThread([] {
    frmComm& form = frmComm::ForThisThread();
    form.GetFreeWinsockInstance();
    for (int32_t bad : {0, -1, 2}) EXPECT_EQ(testing::RuntimeErrorNumber([&] { form.GetBusy(bad); }), 9) << bad;
    EXPECT_NO_THROW(form.ctlWinsock(0));  // the design-time element exists
    EXPECT_THROW(form.lstSort(2), RuntimeError);
  });
}

}  // namespace
}  // namespace halqvantor
