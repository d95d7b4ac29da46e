#include <zal/zal_runtime.h>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <new>
#include <thread>

#include "tests/support/log_capture.hpp"

namespace {

std::atomic<bool> memoryIsOut{false};
constexpr auto kForever = std::numeric_limits<std::uint64_t>::max();

TEST(Mutex, LetsOneThreadInAtATime) {
  const ZAL_MutexHandle mutex = ZAL_Mutex_Create();
  int count = 0;  // plain, so that the sum and the thread sanitizer tell
  const auto addMany = [&] {
    for (int round = 0; round < 20000; ++round) {
      ZAL_Mutex_Lock(mutex);
      ++count;
      ZAL_Mutex_Unlock(mutex);
    }
  };

  std::thread other{addMany};
  addMany();
  other.join();

  EXPECT_EQ(count, 40000);
  ZAL_Mutex_Destroy(mutex);
}

TEST(Cond, KeepsOneSignalForOneWait) {
  const ZAL_CondHandle cond = ZAL_Cond_Create();
  EXPECT_EQ(ZAL_Cond_Wait(cond, 0), -110);

  ZAL_Cond_Signal(cond);
  ZAL_Cond_Signal(cond);

  EXPECT_EQ(ZAL_Cond_Wait(cond, 0), 0);
  const std::uint64_t start = uv_hrtime();
  EXPECT_EQ(ZAL_Cond_Wait(cond, 100), -110);
  EXPECT_GE(uv_hrtime() - start, 99000000U);
  ZAL_Cond_Destroy(cond);
}

// The longest time-out must not wrap into the past, on either word size.
TEST(Cond, HandsEverySignalToAWaiterInAnotherThread) {
  const ZAL_CondHandle asked = ZAL_Cond_Create();
  const ZAL_CondHandle answered = ZAL_Cond_Create();
  int shared = 0;
  std::thread waiter{[&] {
    for (int round = 1; round <= 500 && ZAL_Cond_Wait(asked, kForever) == 0 && shared == round; ++round)
      ZAL_Cond_Signal(answered);
  }};

  for (shared = 1; shared <= 500; ++shared) {
    ZAL_Cond_Signal(asked);
    ASSERT_EQ(ZAL_Cond_Wait(answered, 60000), 0) << shared;
  }

  waiter.join();
  ZAL_Cond_Destroy(asked);
  ZAL_Cond_Destroy(answered);
}

TEST(Sync, ReportsThatMemoryRanOut) {
  const zal::test::LogCapture log;

  memoryIsOut = true;
  EXPECT_EQ(ZAL_Mutex_Create(), nullptr);
  EXPECT_EQ(ZAL_Cond_Create(), nullptr);

  EXPECT_TRUE(log.contains("ZAL_Mutex_Create(): Unable to allocate memory for Mutex ###")) << log.text();
  EXPECT_TRUE(log.contains("ZAL_Cond_Create(): Unable to allocate memory for cond ")) << log.text();
}

}  // namespace

// Stands in for the allocation of handles, so that a test can let memory run out.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return memoryIsOut ? nullptr : ::operator new(size);
}
