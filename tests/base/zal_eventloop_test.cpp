// The event loop under its users: handles asked for on any thread, runs that are stopped and begun again, jobs, file
// watches, and what a loop thread does to signals.
#include "base/zal_eventloop.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zal/zal_eventloop.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace zal::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using ::testing::HasSubstr;
using Body = std::function<void()>;

/// libuv counts whole milliseconds of its own clock, so an expiry may be early by the part it cuts off.
constexpr milliseconds kClockGrain{2};

/// Any callback of the loop's: calls the body that the handle or request carries.
template <class Handle, class... Rest>
void on(Handle* handle, Rest... /*statusAndEvents*/) {
  (*static_cast<Body*>(ZAL_EventLoop_GetTimerContext(handle)))();
}
constexpr uv_timer_cb onTimer = on;
constexpr uv_poll_cb onPoll = on;
constexpr uv_async_cb onAsync = on;
constexpr uv_idle_cb onIdle = on;
constexpr uv_work_cb onWork = on;

bool isSigpipeBlocked() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGPIPE) == 1;
}

/// What file watches have reported: "name" of a created file, "" of a written one.
struct Reports {
  std::mutex lock;
  std::vector<std::string> names;
  std::atomic<bool> isStopping{false};

  bool has(const std::string& name) {
    const std::lock_guard hold{lock};
    return std::count(names.begin(), names.end(), name) == 1;
  }
} reports;

void onFile(ZAL_EventLoopFsWatch watch, const char* name, uint32_t mask) {
  const std::lock_guard hold{reports.lock};
  if ((mask & (IN_CREATE | IN_MODIFY)) != 0) reports.names.emplace_back(name);
  if (reports.isStopping) ZAL_EventLoop_StopFs(nullptr, watch);
}

/// One loop, which the test may run, stop and destroy by itself.
class EventLoop : public ::testing::Test {
 protected:
  ~EventLoop() override { destroy(); }

  void destroy() {
    if (loop_ == nullptr) return;
    ZAL_EventLoop_Stop(loop_);
    ZAL_EventLoop_Destroy(loop_);
    loop_ = nullptr;
  }
  /// Runs `body` on the loop thread and waits for it.
  void onLoopThread(Body body) {
    std::atomic<bool> isDone{false};
    Body all = [&] {
      body();
      isDone = true;
    };
    uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, onTimer, 0, 0, &all);
    EXPECT_TRUE(waitUntil([&] { return isDone.load(); }));
    ZAL_EventLoop_StopTimer(loop_, timer);
  }
  /// Opens an async of the test's own on the loop, to be closed by closeHandle().
  void openHandle(uv_async_t& async, Body& onClosed) {
    EXPECT_EQ(uv_async_init(ZAL_EventLoop_GetLoop(loop_), &async, nullptr), 0);
    async.data = &onClosed;
  }
  void closeHandle(uv_async_t& async) { ZAL_EventLoop_CloseHandle(loop_, reinterpret_cast<uv_handle_t*>(&async), on); }

  LogCapture log_;
  ZAL_EventLoopContext loop_ = ZAL_EventLoop_Create(0, "loop under test");
};

TEST_F(EventLoop, FiresTimersOnItsNamedThreadAndNeverEarly) {
  const auto created = Clock::now();
  ASSERT_TRUE(waitUntil([&] { return Clock::now() - created > milliseconds{60}; }));  // libuv's clock lags behind now
  const auto started = Clock::now();
  std::array<char, 16> name{};
  std::atomic<milliseconds> elapsed{milliseconds{0}};
  Body body = [&] {
    EXPECT_TRUE(isLoopThread(loop_));
    pthread_getname_np(pthread_self(), name.data(), name.size());
    elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - started);
  };

  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, onTimer, 50, 0, &body);
  ZAL_EventLoop_Run(loop_);

  ASSERT_TRUE(waitUntil([&] { return elapsed.load() != milliseconds{0}; }));
  EXPECT_GE(elapsed.load() + kClockGrain, milliseconds{50});
  EXPECT_STREQ(name.data(), "loop under test");
  EXPECT_FALSE(isLoopThread(loop_));
  ZAL_EventLoop_StopTimer(loop_, timer);
}

TEST_F(EventLoop, RefusesWhatItCannotUse) {
  const struct {
    const char* line;
    Body call;
  } cases[] = {
      {"Invalid handle to EventLoop_Run", [] { ZAL_EventLoop_Run(nullptr); }},
      {"Invalid handle to EventLoop_Stop\n", [] { ZAL_EventLoop_Stop(nullptr); }},
      {"Invalid handle to EventLoop_Destroy", [] { ZAL_EventLoop_Destroy(nullptr); }},
      {"Invalid input parameter to StopTimer\n", [&] { ZAL_EventLoop_StopTimer(loop_, nullptr); }},
      {"Invalid input parameter to StopPoll\n", [&] { ZAL_EventLoop_StopPoll(loop_, nullptr); }},
      {"StartTimer\n", [&] { EXPECT_EQ(ZAL_EventLoop_StartTimer(loop_, nullptr, 0, 0, nullptr), nullptr); }},
      {"StartPoll\n", [&] { EXPECT_EQ(ZAL_EventLoop_StartPoll(nullptr, onPoll, 0, nullptr), nullptr); }},
      {"CloseHandle\n", [&] { ZAL_EventLoop_CloseHandle(loop_, nullptr, nullptr); }},
      {"inotify_add_watch failed\n",
       [&] { EXPECT_EQ(ZAL_EventLoop_StartFs(loop_, "/nowhere/at/all", IN_CREATE, onFile), nullptr); }},
      {"ZAL_EventLoop_AsyncSend: Event Loop (loop under test) has no Async Event\n",
       [&] { ZAL_EventLoop_AsyncSend(loop_); }},
      {"", [&] { ZAL_EventLoop_Run(loop_); }},
      {"EventLoop loop under test already running\n", [&] { ZAL_EventLoop_Run(loop_); }},
      {"ZAL_EventLoop_IdleInit should be called before the loop starts",
       [&] { ZAL_EventLoop_IdleInit(loop_, onIdle, nullptr); }},
      {"Event Loop (loop under test) cannot be destroyed on its own thread\n",
       [&] { onLoopThread([&] { ZAL_EventLoop_Destroy(loop_); }); }},
  };
  for (const auto& refused : cases) {
    const LogCapture log;
    refused.call();
    EXPECT_THAT(log.text(), HasSubstr(refused.line));
  }
  EXPECT_EQ(ZAL_EventLoop_Work(loop_, nullptr, nullptr), UV_EINVAL);
  EXPECT_EQ(ZAL_EventLoop_GetPollContext(nullptr), nullptr);
  uvAfterWork(nullptr, 0);
  ZAL_EventLoop_StopFs(nullptr, nullptr);
}

TEST_F(EventLoop, ClosesAHandleOnceAndNotBeforeItRuns) {
  uv_async_t async;
  std::atomic<int> closed{0};
  Body onClosed = [&] { ++closed; };
  openHandle(async, onClosed);

  closeHandle(async);
  closeHandle(async);
  EXPECT_EQ(log_.count("is previously queued for closing, double close? FIX-ME!!!\n"), 1);
  EXPECT_EQ(uv_is_closing(reinterpret_cast<uv_handle_t*>(&async)), 0);

  ZAL_EventLoop_Run(loop_);
  ASSERT_TRUE(waitUntil([&] { return closed == 1; }));
  closeHandle(async);
  destroy();
  EXPECT_EQ(log_.count("ZAL_EventLoop_CloseHandle: handle ("), 2);
  EXPECT_EQ(log_.count("/async) is already closed or closing, double close? FIX-ME!!!\n"), 1);
  EXPECT_EQ(closed, 1);
}

TEST_F(EventLoop, HasClosedWhatItWasAskedToCloseWhenStopReturns) {
  std::array<uv_async_t, 5> chain;  // each close callback asks for the next close
  size_t closed = 0;
  Body closeNext = [&] {
    if (++closed < chain.size()) closeHandle(chain.at(closed));
  };
  for (uv_async_t& link : chain) openHandle(link, closeNext);

  ZAL_EventLoop_Run(loop_);
  closeHandle(chain.front());
  ZAL_EventLoop_Stop(loop_);

  EXPECT_EQ(closed, chain.size());
}

TEST_F(EventLoop, LeavesNoJobBehindHoweverMuchIsAskedForWhileItEnds) {
  std::array<uv_async_t, 40> chain;  // longer than a stop has patience for
  size_t queued = 0;
  std::atomic<size_t> done{0};
  Body job = [&] { ++done; };
  Body goOn = [&] {
    std::thread{[&] { EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0); }}.join();
    if (++queued < chain.size()) closeHandle(chain.at(queued));
  };
  for (uv_async_t& link : chain) openHandle(link, goOn);

  ZAL_EventLoop_Run(loop_);
  onLoopThread([&] {
    ZAL_EventLoop_Stop(loop_);
    closeHandle(chain.front());
  });
  ZAL_EventLoop_Stop(loop_);

  EXPECT_GT(queued, 1);
  EXPECT_TRUE(waitUntil([&] { return done == queued; })) << done << " of " << queued << " jobs ran";
  destroy();
}

TEST_F(EventLoop, ReportsWhatIsLeftWhenItIsDestroyed) {
  ASSERT_NE(ZAL_EventLoop_StartTimer(loop_, onTimer, 1000000, 0, nullptr), nullptr);

  destroy();

  EXPECT_THAT(log_.text(), HasSubstr("Found a handle that was not closed properly (0x"));
  EXPECT_THAT(log_.text(), HasSubstr("/timer)\n"));
  EXPECT_THAT(log_.text(), HasSubstr("Unexpected refCount in ZAL_EventLoop_Destroy() for 0x"));
  EXPECT_THAT(log_.text(), HasSubstr("(loop under test), 1\n"));
}

TEST_F(EventLoop, RunsAgainAfterEachKindOfStop) {
  std::atomic<int> ticks{0};
  Body tick = [&] { ++ticks; };
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, onTimer, 1, 1000000, &tick);
  ZAL_EventLoop_UpdateTimer(timer, 1);
  const auto ticksAgain = [&] {
    ZAL_EventLoop_Run(loop_);
    return waitUntil([&, before = ticks.load()] { return ticks > before; });
  };
  const Body stops[] = {
      [&] { ZAL_EventLoop_Stop(loop_); },
      [&] { onLoopThread([&] { ZAL_EventLoop_Stop(loop_); }); },
      [&] { onLoopThread([&] { uv_stop(ZAL_EventLoop_GetLoop(loop_)); }); },
      [&] {
        std::thread other{[&] { ZAL_EventLoop_Stop(loop_); }};
        ZAL_EventLoop_Stop(loop_);
        other.join();
      },
  };

  for (const Body& stop : stops) {
    ASSERT_TRUE(ticksAgain());
    stop();
    ZAL_EventLoop_Stop(loop_);
    const int atStop = ticks;
    Body other = [] {};
    ZAL_EventLoop_StopTimer(loop_, ZAL_EventLoop_StartTimer(loop_, onTimer, 0, 0, &other));
    EXPECT_EQ(ticks, atStop);
  }
  ASSERT_TRUE(ticksAgain());
  ZAL_EventLoop_StopTimer(loop_, timer);
  destroy();
  EXPECT_EQ(log_.text(), "");
}

TEST_F(EventLoop, LeavesCommandsToAStoppedThreadUntilThatHasLeft) {
  uv_poll_t* refused = nullptr;  // its start shows in the log
  Body body = [] {};

  ZAL_EventLoop_Run(loop_);
  onLoopThread([&] {
    ZAL_EventLoop_Stop(loop_);
    std::thread{[&] { refused = ZAL_EventLoop_StartPoll(loop_, onPoll, -1, &body); }}.join();
    EXPECT_FALSE(log_.contains("Invalid fd")) << "executed while the loop thread is in its loop";
  });
  ZAL_EventLoop_Stop(loop_);

  EXPECT_TRUE(log_.contains("Invalid fd"));
  ZAL_EventLoop_StopPoll(loop_, refused);
}

TEST_F(EventLoop, ServesManyThreadsWhileItIsStoppedAndRunAgain) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 60;
  std::atomic<int> closed{0};
  std::atomic<int> jobs{0};
  std::atomic<int> left{kThreads};
  Body onClosed = [&] { ++closed; };
  Body job = [&] { ++jobs; };
  Body tick = [] {};
  std::vector<std::array<uv_async_t, kRounds>> asyncs(kThreads);
  for (auto& own : asyncs)
    for (auto& async : own) openHandle(async, onClosed);

  std::vector<std::thread> threads;
  for (auto& own : asyncs)
    threads.emplace_back([&] {
      for (auto& async : own) {
        uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, onTimer, 0, 1, &tick);
        EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0);
        closeHandle(async);
        ZAL_EventLoop_StopTimer(loop_, timer);
      }
      --left;
    });
  while (left > 0) {
    ZAL_EventLoop_Run(loop_);
    ZAL_EventLoop_Stop(loop_);
  }
  for (std::thread& thread : threads) thread.join();
  destroy();

  EXPECT_EQ(closed, kThreads * kRounds);
  EXPECT_EQ(jobs, kThreads * kRounds);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(EventLoop, RunsJobsOnWorkersAndWaitsForThemInDestroy) {
  std::atomic<int> jobs{0};
  Body job = [&, caller = pthread_self()] {
    EXPECT_FALSE(isLoopThread(loop_) || pthread_equal(pthread_self(), caller));
    ++jobs;
  };
  Body chain = [&] {  // while the loop is being destroyed, or shortly before
    ++jobs;
    EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0);
  };

  EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0);
  EXPECT_TRUE(waitUntil([&] { return jobs == 1; })) << "a resting loop's jobs do not wait for a run";
  ZAL_EventLoop_Run(loop_);
  EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0);
  onLoopThread([&] { EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0); });
  EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &chain), 0);
  destroy();

  EXPECT_EQ(jobs, 5);
}

TEST_F(EventLoop, HoldsSigpipeBackFromItsThreadAndFromNothingElse) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  close(ends[1]);
  std::atomic<int> blockedInJob{-1};
  Body job = [&] { blockedInJob = isSigpipeBlocked() ? 1 : 0; };

  ZAL_EventLoop_Run(loop_);
  onLoopThread([&] {
    EXPECT_TRUE(isSigpipeBlocked());
    EXPECT_EQ(write(ends[0], "x", 1), -1);  // leaves the signal pending: it must not strike when the mask is lifted
    EXPECT_EQ(ZAL_EventLoop_Work(loop_, onWork, &job), 0);
    EXPECT_TRUE(isSigpipeBlocked());
  });

  EXPECT_TRUE(waitUntil([&] { return blockedInJob != -1; }));
  EXPECT_EQ(blockedInJob, 0) << "programs that a handler starts would inherit it";
  EXPECT_FALSE(isSigpipeBlocked());
  close(ends[0]);
}

TEST(DefaultLoop, IsSharedAndRunsOnTheCallingThread) {
  const LogCapture log;
  std::array<ZAL_EventLoopContext, 8> shares{};
  std::vector<std::thread> creators;
  for (auto& share : shares) creators.emplace_back([&] { share = ZAL_EventLoop_Create(1, "default"); });
  for (std::thread& creator : creators) creator.join();
  for (auto* share : shares) EXPECT_EQ(share, shares[0]);
  ZAL_EventLoopContext loop = shares[0];
  EXPECT_EQ(ZAL_EventLoop_GetLoop(loop), uv_default_loop());

  int runs = 0;
  std::thread stopper;
  const pthread_t caller = pthread_self();
  Body body = [&] {
    EXPECT_TRUE(pthread_equal(pthread_self(), caller));
    EXPECT_TRUE(isSigpipeBlocked());
    if (++runs == 1)
      ZAL_EventLoop_Stop(loop);
    else
      stopper = std::thread{[&] { ZAL_EventLoop_Stop(loop); }};
  };
  for (int round = 1; round <= 2; ++round) {
    uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop, onTimer, 0, 0, &body);
    ZAL_EventLoop_Run(loop);
    EXPECT_FALSE(isSigpipeBlocked());
    ZAL_EventLoop_StopTimer(loop, timer);
    EXPECT_EQ(runs, round);
    if (round == 1) ZAL_EventLoop_Destroy(loop);  // one share of eight
  }
  stopper.join();

  for (size_t i = 1; i < shares.size(); ++i) ZAL_EventLoop_Destroy(loop);  // one is gone already
  EXPECT_EQ(log.text(), "");
  ZAL_EventLoopContext next = ZAL_EventLoop_Create(1, "next");
  ZAL_EventLoop_AsyncSend(next);
  EXPECT_TRUE(log.contains("Event Loop (next) has no Async Event")) << "the last destroy forgets the record";
  ZAL_EventLoop_Destroy(next);
}

TEST(DefaultLoop, IsDestroyedOnlyWhenTheThreadThatRunsItHasLeft) {
  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(1, "default");
  std::atomic<bool> isRunning{false};
  std::atomic<bool> hasLeft{false};
  Body lastCallback = [&] {
    isRunning = true;
    waitUntil([&] { return !isRunning; });  // until the loop has been told to stop
    const auto now = Clock::now();
    while (Clock::now() - now < milliseconds{20}) continue;
    hasLeft = true;
  };
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop, onTimer, 0, 0, &lastCallback);
  std::thread runner{[&] { ZAL_EventLoop_Run(loop); }};
  ASSERT_TRUE(waitUntil([&] { return isRunning.load(); }));

  ZAL_EventLoop_StopTimer(loop, timer);
  ZAL_EventLoop_Stop(loop);
  isRunning = false;
  ZAL_EventLoop_Destroy(loop);

  EXPECT_TRUE(hasLeft);
  runner.join();
}

TEST_F(EventLoop, PollsReadableDescriptorsAndSurvivesRefusedOnes) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  std::atomic<int> reads{0};
  uv_poll_t* poll = nullptr;
  Body body = [&] {
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    if (++reads == 2) ZAL_EventLoop_StopPoll(loop_, poll);
  };
  poll = ZAL_EventLoop_StartPoll(loop_, onPoll, ends[0], &body);
  uv_poll_t* refused = ZAL_EventLoop_StartPoll(loop_, onPoll, -1, &body);
  EXPECT_EQ(log_.count("Invalid fd value passed to StartPoll\n"), 1);
  EXPECT_EQ(ZAL_EventLoop_GetPollContext(refused), &body);

  ZAL_EventLoop_Run(loop_);
  ZAL_EventLoop_StopPoll(loop_, refused);
  EXPECT_EQ(write(ends[1], "xyz", 3), 3);

  EXPECT_TRUE(waitUntil([&] { return reads == 2; }));
  onLoopThread([] {});
  destroy();
  EXPECT_EQ(reads, 2) << "the third byte came after the stop";
  EXPECT_FALSE(log_.contains("refCount"));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(EventLoop, ReportsFilesUntilTheWatchIsStopped) {
  const TempDir dir;
  writeFile(dir.file("old"), "");
  ASSERT_NE(ZAL_EventLoop_StartFs(loop_, dir.path().c_str(), IN_CREATE, onFile), nullptr);
  ZAL_EventLoop_Run(loop_);
  ASSERT_NE(ZAL_EventLoop_StartFs(loop_, dir.file("old").c_str(), IN_MODIFY, onFile), nullptr);

  writeFile(dir.file("first"), "");
  writeFile(dir.file("second"), "");
  EXPECT_TRUE(waitUntil([] { return reports.has("first") && reports.has("second"); }));
  const int appended = open(dir.file("old").c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(write(appended, "x", 1), 1);
  close(appended);
  EXPECT_TRUE(waitUntil([] { return reports.has(""); })) << "an event without a name has an empty one";

  reports.isStopping = true;
  writeFile(dir.file("third"), "");
  EXPECT_TRUE(waitUntil([] { return reports.has("third"); }));
  writeFile(dir.file("fourth"), "");
  destroy();  // ends the watch that is left, and waits for both
  EXPECT_FALSE(reports.has("fourth"));
}

TEST(EventLoopExit, IsNotHeldUpByAWatch) {
  const auto watchAndExit = [] {
    ZAL_EventLoopContext loop = ZAL_EventLoop_Create(0, "left running");
    ZAL_EventLoop_Run(loop);
    {
      const TempDir dir;
      ZAL_EventLoop_StartFs(loop, dir.path().c_str(), IN_CREATE, onFile);
      writeFile(dir.file("seen"), "");
      waitUntil([] { return reports.has("seen"); });
    }
    alarm(30);
    exit(0);
  };
  EXPECT_EXIT(watchAndExit(), ::testing::ExitedWithCode(0), "");
}

TEST_F(EventLoop, WakesItsOneUserAsyncFromAnyThread) {
  std::atomic<int> woken{0};
  Body body = [&] {
    EXPECT_TRUE(isLoopThread(loop_));
    ++woken;
  };
  Body other = [] { ADD_FAILURE() << "the first one stays"; };

  ZAL_EventLoop_Run(loop_);
  ZAL_EventLoop_AsyncInit(loop_, onAsync, &body);  // not on the loop thread: installed by it
  ZAL_EventLoop_AsyncInit(loop_, onAsync, &other);
  onLoopThread([&] {
    ZAL_EventLoop_AsyncInit(loop_, onAsync, &other);
    ZAL_EventLoop_AsyncSend(loop_);
    ZAL_EventLoop_AsyncSend(loop_);
  });
  EXPECT_TRUE(waitUntil([&] { return woken == 1; }));
  ZAL_EventLoop_AsyncSend(loop_);
  EXPECT_TRUE(waitUntil([&] { return woken == 2; }));
}

TEST_F(EventLoop, RunsItsIdleCallbackInEachIterationOfOneRun) {
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  Body replaced = [] { ADD_FAILURE() << "a later idle callback takes its place"; };
  Body countFirst = [&] { ++first; };
  Body countSecond = [&] { ++second; };

  ZAL_EventLoop_IdleInit(loop_, onIdle, &replaced);
  ZAL_EventLoop_IdleInit(loop_, onIdle, &countFirst);
  ZAL_EventLoop_Run(loop_);
  EXPECT_TRUE(waitUntil([&] { return first > 10; }));
  ZAL_EventLoop_Stop(loop_);
  const int atStop = first;

  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, onTimer, 1000000, 0, nullptr);
  ZAL_EventLoop_IdleInit(loop_, onIdle, &replaced);  // not while a timer is started
  ZAL_EventLoop_StopTimer(loop_, timer);
  ZAL_EventLoop_Run(loop_);
  onLoopThread([] {});
  ZAL_EventLoop_Stop(loop_);
  EXPECT_EQ(first, atStop);

  ZAL_EventLoop_IdleInit(loop_, onIdle, &countSecond);
  ZAL_EventLoop_Run(loop_);
  EXPECT_TRUE(waitUntil([&] { return second > 10; }));
  destroy();
}

}  // namespace
}  // namespace zal::test
