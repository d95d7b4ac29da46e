#include <zal/zal_runtime.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

namespace {

// The longest time-out must not wrap into the past, on either word size.
TEST(Cond, HandsEverySignalToAWaiterAndKeepsOneForOneWait) {
  const ZAL_CondHandle asked = ZAL_Cond_Create();
  const ZAL_CondHandle answered = ZAL_Cond_Create();
  int shared = 0;
  std::thread waiter{[&] {
    for (int round = 1; round <= 500 && ZAL_Cond_Wait(asked, UINT64_MAX) == 0 && shared == round; ++round)
      ZAL_Cond_Signal(answered);
  }};
  for (shared = 1; shared <= 500; ++shared) {
    ZAL_Cond_Signal(asked);
    ASSERT_EQ(ZAL_Cond_Wait(answered, 60000), 0) << shared;
  }
  waiter.join();

  for (int signal = 0; signal < 2; ++signal) ZAL_Cond_Signal(asked);
  EXPECT_EQ(ZAL_Cond_Wait(asked, 0), 0);
  const std::uint64_t start = uv_hrtime();
  EXPECT_EQ(ZAL_Cond_Wait(asked, 100), -110);
  EXPECT_GE(uv_hrtime() - start, 99000000U);
  ZAL_Cond_Destroy(asked);
  ZAL_Cond_Destroy(answered);
}

}  // namespace
