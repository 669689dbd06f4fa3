#include <gtest/gtest.h>

#include <memory>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/frm_comm.h"
#include "support/gateway_session.h"

namespace halqvantor {
namespace {

using testing::OnFreshThread;

int32_t SlotOf(clsVantor& v) { return VantorAccess::Of(v).SlotIndex; }

TEST(ConnectionSlots, LowestFreeSlotIsReusedWithItsLastState) {
  OnFreshThread([] {
    frmComm& form = frmComm::ForThisThread();
    EXPECT_EQ(form.SlotCount(), 0);
    auto first = std::make_unique<clsVantor>();
    first->Init();
    clsVantor second;
    second.Init();
    EXPECT_EQ(SlotOf(*first), 1);
    EXPECT_EQ(SlotOf(second), 2);
    form.SetResponse(1, "old reply");
    first.reset();
    clsVantor third;
    third.Init();
    EXPECT_EQ(SlotOf(third), 1);  // no new element is loaded
    EXPECT_EQ(form.SlotCount(), 2);
    EXPECT_EQ(form.GetResponse(1), "old reply");
    // A second Init takes another slot and keeps the first busy.
    third.Init();
    EXPECT_EQ(SlotOf(third), 3);
    EXPECT_TRUE(form.GetBusy(1));
  });
}

}  // namespace
}  // namespace halqvantor
