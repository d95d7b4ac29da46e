// The event loop under its users: handles started from any thread, runs that are stopped and begun again, worker jobs,
// file watches, and what a loop thread does to signals.
#include <gtest/gtest.h>
#include <zal/zal_eventloop.h>

#include <atomic>

#include "tests/support/log_capture.hpp"
#include "tests/support/wait.hpp"

namespace zal::test {
namespace {

TEST(EventLoop, FiresAOneShotTimerOnItsThread) {
  auto* loop = ZAL_EventLoop_Create(0, "test");
  std::atomic<int> fired{0};
  ZAL_EventLoop_Run(loop);
  auto* timer = ZAL_EventLoop_StartTimer(
      loop, [](uv_timer_t* t) { ++*static_cast<std::atomic<int>*>(ZAL_EventLoop_GetTimerContext(t)); }, 20, 0, &fired);
  EXPECT_TRUE(waitUntil([&] { return fired == 1; }));
  ZAL_EventLoop_StopTimer(loop, timer);
  ZAL_EventLoop_Stop(loop);
  ZAL_EventLoop_Run(loop);
  ZAL_EventLoop_Stop(loop);
  ZAL_EventLoop_Destroy(loop);
}

}  // namespace
}  // namespace zal::test
