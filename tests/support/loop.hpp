// Work on the thread of a loop that a test runs.
#pragma once

#include <gtest/gtest.h>
#include <zal/zal_eventloop.h>

#include <atomic>
#include <functional>

#include "tests/support/wait.hpp"

namespace zal::test {

/// Runs `body` on the loop thread and waits for it. What has arrived at the loop's sockets before is read before.
inline void runOnLoop(ZAL_EventLoopContext loop, const std::function<void()>& body) {
  std::atomic<bool> isDone{false};
  std::function<void()> all = [&] {
    body();
    isDone = true;
  };
  const auto run = [](uv_timer_t* timer) {
    (*static_cast<std::function<void()>*>(ZAL_EventLoop_GetTimerContext(timer)))();
  };
  // After a millisecond's rest, so that the loop sees what happens in `body` in the order in which it happens.
  uv_timer_t* const timer = ZAL_EventLoop_StartTimer(loop, run, 1, 0, &all);
  EXPECT_TRUE(waitUntil([&] { return isDone.load(); }));
  ZAL_EventLoop_StopTimer(loop, timer);
}

}  // namespace zal::test
