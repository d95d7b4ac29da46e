// The event loop under its users: handles asked for on any thread, runs that are stopped and begun again, jobs, file
// watches, and what a loop thread does to signals.
#include "base/zal_eventloop.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <zal/zal_eventloop.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/log_capture.hpp"
#include "tests/support/loop.hpp"
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
void runBody(Handle* handle, Rest... /*statusAndEvents*/) {
  (*static_cast<Body*>(ZAL_EventLoop_GetTimerContext(handle)))();
}

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
  void onLoopThread(const Body& body) { runOnLoop(loop_, body); }
  /// Opens an async of the test's own on the loop, to be closed by closeHandle().
  void openHandle(uv_async_t& async, Body& onClosed) {
    EXPECT_EQ(uv_async_init(ZAL_EventLoop_GetLoop(loop_), &async, nullptr), 0);
    async.data = &onClosed;
  }
  void closeHandle(uv_async_t& async) {
    ZAL_EventLoop_CloseHandle(loop_, reinterpret_cast<uv_handle_t*>(&async), runBody);
  }
  void queueJob(Body& job) { EXPECT_EQ(ZAL_EventLoop_Work(loop_, runBody, &job), 0); }

  LogCapture log_;
  ZAL_EventLoopContext loop_ = ZAL_EventLoop_Create(0, "loop under test");
};

TEST_F(EventLoop, FiresTimersOnItsNamedThreadAndNeverEarly) {
  const auto created = Clock::now();
  ASSERT_TRUE(waitUntil([&] { return Clock::now() - created > milliseconds{60}; }));  // libuv's clock lags behind now
  const auto started = Clock::now();
  std::array<char, 16> name{};
  std::atomic<bool> hasFired{false};
  Body body = [&] {
    EXPECT_GE(Clock::now() - started + kClockGrain, milliseconds{50});
    EXPECT_TRUE(isLoopThread(loop_));
    pthread_getname_np(pthread_self(), name.data(), name.size());
    hasFired = true;
  };

  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, runBody, 50, 0, &body);
  ZAL_EventLoop_Run(loop_);

  ASSERT_TRUE(waitUntil([&] { return hasFired.load(); }));
  EXPECT_STREQ(name.data(), "loop under test");
  EXPECT_FALSE(isLoopThread(loop_));
  ZAL_EventLoop_StopTimer(loop_, timer);
}

TEST_F(EventLoop, RefusesWhatItCannotUse) {
  const Body stopTwice = [&] {
    uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, runBody, 1000, 0, nullptr);
    ZAL_EventLoop_StopTimer(loop_, timer);
    ZAL_EventLoop_StopTimer(loop_, timer);
    ZAL_EventLoop_ExecuteCommands(loop_);
  };
  const struct {
    const char* line;
    Body call;
  } cases[] = {
      {"Invalid handle to EventLoop_Run", [] { ZAL_EventLoop_Run(nullptr); }},
      {"Invalid handle to EventLoop_Stop\n", [] { ZAL_EventLoop_Stop(nullptr); }},
      {"Invalid handle to EventLoop_Destroy", [] { ZAL_EventLoop_Destroy(nullptr); }},
      {"StopTimer\n", [&] { ZAL_EventLoop_StopTimer(loop_, nullptr); }},
      {"StartPoll\n", [&] { EXPECT_EQ(ZAL_EventLoop_StartPoll(loop_, nullptr, 0, nullptr), nullptr); }},
      {"StartFs\n", [&] { EXPECT_EQ(ZAL_EventLoop_StartFs(loop_, nullptr, IN_CREATE, onFile), nullptr); }},
      {"Invalid input parameter to StopPoll\n", [&] { ZAL_EventLoop_StopPoll(loop_, nullptr); }},
      {"StartTimer\n", [&] { EXPECT_EQ(ZAL_EventLoop_StartTimer(loop_, nullptr, 0, 0, nullptr), nullptr); }},
      {"CloseHandle\n", [&] { ZAL_EventLoop_CloseHandle(loop_, nullptr, nullptr); }},
      {"inotify_add_watch failed\n",
       [&] { EXPECT_EQ(ZAL_EventLoop_StartFs(loop_, "/nowhere/at/all", IN_CREATE, onFile), nullptr); }},
      {"ZAL_EventLoop_AsyncSend: Event Loop (loop under test) has no Async Event\n",
       [&] { ZAL_EventLoop_AsyncSend(loop_); }},
      {"", [&] { ZAL_EventLoop_Run(loop_); }},
      {"EventLoop loop under test already running\n", [&] { ZAL_EventLoop_Run(loop_); }},
      {"EventLoop loop under test already running\n", [&] { onLoopThread([&] { ZAL_EventLoop_Run(loop_); }); }},
      {"is already closed or closing", [&] { onLoopThread(stopTwice); }},
      {"ZAL_EventLoop_IdleInit should be called before the loop starts",
       [&] { ZAL_EventLoop_IdleInit(loop_, runBody, nullptr); }},
      {"Event Loop (loop under test) cannot be destroyed on its own thread\n",
       [&] { onLoopThread([&] { ZAL_EventLoop_Destroy(loop_); }); }},
  };
  for (const auto& refused : cases) {
    const LogCapture log;
    refused.call();
    EXPECT_THAT(log.text(), HasSubstr(refused.line));
  }
  EXPECT_EQ(ZAL_EventLoop_Work(loop_, nullptr, nullptr), UV_EINVAL);
  EXPECT_EQ(ZAL_EventLoop_GetLoop(nullptr), nullptr);
  EXPECT_EQ(ZAL_EventLoop_GetTimerContext(nullptr), nullptr);
  uv_timer_t timer{};
  uv_poll_t poll{};
  EXPECT_EQ(ZAL_EventLoop_StartTimer(nullptr, runBody, 0, 0, nullptr), nullptr);
  EXPECT_EQ(ZAL_EventLoop_StartPoll(nullptr, runBody, 0, nullptr), nullptr);
  EXPECT_EQ(ZAL_EventLoop_StartFs(nullptr, "/tmp", IN_CREATE, onFile), nullptr);
  ZAL_EventLoop_StopTimer(nullptr, &timer);
  ZAL_EventLoop_StopPoll(nullptr, &poll);
  ZAL_EventLoop_CloseHandle(nullptr, reinterpret_cast<uv_handle_t*>(&timer), nullptr);
  ZAL_EventLoop_IdleInit(nullptr, runBody, nullptr);
  ZAL_EventLoop_UpdateTimer(nullptr, 1);
  ZAL_EventLoop_AsyncInit(nullptr, nullptr, nullptr);
  ZAL_EventLoop_AsyncSend(nullptr);
}

TEST_F(EventLoop, ClosesEachHandleOnceAfterItsRunBeganAndBeforeStopReturns) {
  std::array<uv_async_t, 5> chain;  // each close callback asks for the next close
  size_t closed = 0;
  Body closeNext = [&] {
    if (++closed < chain.size()) closeHandle(chain.at(closed));
  };
  for (uv_async_t& link : chain) openHandle(link, closeNext);

  closeHandle(chain.front());
  closeHandle(chain.front());
  EXPECT_EQ(log_.count("is previously queued for closing, double close? FIX-ME!!!\n"), 1);
  EXPECT_EQ(closed, 0);
  ZAL_EventLoop_Run(loop_);
  ZAL_EventLoop_Stop(loop_);
  EXPECT_EQ(closed, chain.size());
  closeHandle(chain.front());
  EXPECT_EQ(log_.count("/async) is already closed or closing, double close? FIX-ME!!!\n"), 1);
  destroy();
  EXPECT_EQ(closed, chain.size());
}

TEST_F(EventLoop, LeavesNoJobBehindHoweverMuchIsAskedForWhileItEnds) {
  std::array<uv_async_t, 40> chain;  // longer than a stop has patience for
  size_t queued = 0;
  std::atomic<size_t> done{0};
  Body job = [&] { ++done; };
  Body goOn = [&] {
    std::thread{[&] { queueJob(job); }}.join();
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
  ASSERT_NE(ZAL_EventLoop_StartTimer(loop_, runBody, 1000000, 0, nullptr), nullptr);

  destroy();

  EXPECT_THAT(log_.text(), HasSubstr("Found a handle that was not closed properly (0x"));
  EXPECT_THAT(log_.text(), HasSubstr("(loop under test), 1\n"));
}

TEST_F(EventLoop, RunsAgainAfterEachKindOfStop) {
  std::atomic<int> ticks{0};
  Body tick = [&] { ++ticks; };
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, runBody, 1, 1000000, &tick);
  ZAL_EventLoop_UpdateTimer(timer, 1);
  const Body stops[] = {
      [&] { ZAL_EventLoop_Stop(loop_); },
      [&] { onLoopThread([&] { ZAL_EventLoop_Stop(loop_); }); },
      [&] { onLoopThread([&] { uv_stop(ZAL_EventLoop_GetLoop(loop_)); }); },
      [&] {
        std::thread other{[&] { ZAL_EventLoop_Stop(loop_); }};
        ZAL_EventLoop_Stop(loop_);
        other.join();
      },
      [] {},
  };

  for (const Body& stop : stops) {
    const int before = ticks;
    ZAL_EventLoop_Run(loop_);
    ASSERT_TRUE(waitUntil([&] { return ticks > before; }));
    stop();
    ZAL_EventLoop_Stop(loop_);
    const int atStop = ticks;
    ZAL_EventLoop_StopTimer(loop_, ZAL_EventLoop_StartTimer(loop_, runBody, 0, 0, &tick));
    EXPECT_EQ(ticks, atStop);
  }
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
    std::thread{[&] { refused = ZAL_EventLoop_StartPoll(loop_, runBody, -1, &body); }}.join();
    EXPECT_FALSE(log_.contains("Invalid fd")) << "executed while the loop thread is in its loop";
  });
  ZAL_EventLoop_Stop(loop_);

  EXPECT_EQ(log_.count("Invalid fd value passed to StartPoll\n"), 1);
  ZAL_EventLoop_StopPoll(loop_, refused);
}

TEST_F(EventLoop, RunsJobsOnWorkersAndWaitsForThemInDestroy) {
  std::atomic<int> jobs{0};
  Body job = [&, caller = pthread_self()] {
    EXPECT_FALSE(isLoopThread(loop_) || pthread_equal(pthread_self(), caller));
    ++jobs;
  };
  Body chain = [&] { queueJob(job); };  // while the loop is being destroyed, or shortly before

  queueJob(job);
  EXPECT_TRUE(waitUntil([&] { return jobs == 1; })) << "a resting loop's jobs do not wait for a run";
  ZAL_EventLoop_Run(loop_);
  onLoopThread([&] { queueJob(job); });
  queueJob(chain);
  destroy();

  EXPECT_EQ(jobs, 3);
}

TEST_F(EventLoop, InstallsItsAsyncOnAnyThreadWhileItRuns) {
  for (const bool isOnLoopThread : {false, true}) {
    std::atomic<bool> hasCome{false};
    Body body = [&] { hasCome = true; };
    const auto install = [&] { ZAL_EventLoop_AsyncInit(loop_, runBody, &body); };
    ZAL_EventLoop_Run(loop_);
    isOnLoopThread ? onLoopThread(install) : install();
    onLoopThread([] {});
    ZAL_EventLoop_AsyncSend(loop_);
    EXPECT_TRUE(waitUntil([&] { return hasCome.load(); }));
    destroy();
    loop_ = ZAL_EventLoop_Create(0, nullptr);
  }
}

TEST_F(EventLoop, StartsAPoolOfItsOwnInAForkedChild) {
#if defined(__SANITIZE_THREAD__) || defined(__arm__)
  GTEST_SKIP() << "ThreadSanitizer and the emulator end a child that starts threads";
#endif
  constexpr int kNotRun = 2;
  std::atomic<int> blockedInJob{kNotRun};
  Body job = [&] { blockedInJob = isSigpipeBlocked() ? 1 : 0; };
  const auto runJob = [&] {
    ZAL_EventLoop_Run(loop_);
    queueJob(job);
    return waitUntil([&] { return blockedInJob != kNotRun; }) ? blockedInJob.load() : kNotRun;
  };
  ASSERT_EQ(runJob(), 0);

  const auto runJobInChild = [&] {
    blockedInJob = kNotRun;
    loop_ = ZAL_EventLoop_Create(0, "child");
    _exit(runJob());
  };
  EXPECT_EXIT(runJobInChild(), ::testing::ExitedWithCode(0), "");
}

TEST_F(EventLoop, HoldsSigpipeBackFromItsThreadAndFromNothingElse) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  std::atomic<int> blockedInJob{-1};
  Body job = [&] { blockedInJob = isSigpipeBlocked() ? 1 : 0; };

  ZAL_EventLoop_Run(loop_);
  onLoopThread([&] {
    EXPECT_EQ(write(ends[1], "x", 1), -1);  // leaves the signal pending: it must not strike when the mask is lifted
    queueJob(job);
    EXPECT_TRUE(isSigpipeBlocked());
  });

  EXPECT_TRUE(waitUntil([&] { return blockedInJob != -1; }));
  EXPECT_EQ(blockedInJob, 0) << "programs that a handler starts would inherit it";
  EXPECT_FALSE(isSigpipeBlocked());
  close(ends[1]);
}

TEST(DefaultLoop, IsSharedAndRunsOnTheCallingThread) {
  const LogCapture log;
  std::array<ZAL_EventLoopContext, 8> shares{};
  {
    std::vector<std::jthread> creators;
    for (auto& share : shares) creators.emplace_back([&] { share = ZAL_EventLoop_Create(1, "default"); });
  }
  ZAL_EventLoopContext loop = shares[0];
  EXPECT_THAT(shares, ::testing::Each(loop));
  EXPECT_EQ(ZAL_EventLoop_GetLoop(loop), uv_default_loop());
  for (size_t i = 1; i < shares.size(); ++i) ZAL_EventLoop_Destroy(loop);

  std::thread stopper;
  Body body = [&, caller = pthread_self()] {
    EXPECT_TRUE(pthread_equal(pthread_self(), caller));
    EXPECT_TRUE(isSigpipeBlocked());
    stopper = std::thread{[&] { ZAL_EventLoop_Stop(loop); }};
  };
  for (int round = 1; round <= 2; ++round) {
    uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop, runBody, 0, 0, &body);
    ZAL_EventLoop_Run(loop);
    stopper.join();
    EXPECT_FALSE(isSigpipeBlocked());
    ZAL_EventLoop_StopTimer(loop, timer);
  }

  ZAL_EventLoop_Destroy(loop);
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
    ZAL_EventLoop_Destroy(loop);  // refused: it is its own thread
    isRunning = true;
    waitUntil([&] { return !isRunning; });  // until the loop has been told to stop
    const auto now = Clock::now();
    while (Clock::now() - now < milliseconds{20}) continue;
    hasLeft = true;
  };
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop, runBody, 0, 0, &lastCallback);
  std::thread runner{[&] { ZAL_EventLoop_Run(loop); }};
  ASSERT_TRUE(waitUntil([&] { return isRunning.load(); }));

  ZAL_EventLoop_StopTimer(loop, timer);
  ZAL_EventLoop_Stop(loop);
  isRunning = false;
  ZAL_EventLoop_Destroy(loop);

  EXPECT_TRUE(hasLeft);
  runner.join();
}

TEST(DefaultLoop, IsMadeAnewOnlyWhenItsTeardownHasEnded) {
  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(1, "old");
  ZAL_EventLoopContext next = nullptr;
  std::atomic<bool> isRefused{false};
  std::atomic<bool> isMade{false};
  std::thread creator;
  Body onClosed = [&] {
    creator = std::thread{[&] {
      ZAL_EventLoop_Run(loop);
      isRefused = true;
      next = ZAL_EventLoop_Create(1, "next");
      isMade = true;
    }};
    EXPECT_TRUE(waitUntil([&] { return isRefused.load(); }));
    const auto now = Clock::now();
    while (Clock::now() - now < milliseconds{20}) continue;
    EXPECT_FALSE(isMade);
  };
  uv_async_t async{};
  ASSERT_EQ(uv_async_init(ZAL_EventLoop_GetLoop(loop), &async, nullptr), 0);
  async.data = &onClosed;

  ZAL_EventLoop_CloseHandle(loop, reinterpret_cast<uv_handle_t*>(&async), runBody);
  ZAL_EventLoop_Destroy(loop);
  creator.join();
  ZAL_EventLoop_Destroy(next);
}

TEST_F(EventLoop, PollsReadableDescriptorsUntilTheCallbackStopsIt) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  std::atomic<int> reads{0};
  uv_poll_t* poll = nullptr;
  Body body = [&] {
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    if (++reads == 2) ZAL_EventLoop_StopPoll(loop_, poll);
  };
  poll = ZAL_EventLoop_StartPoll(loop_, runBody, ends[0], &body);

  ZAL_EventLoop_Run(loop_);
  EXPECT_EQ(write(ends[1], "xyz", 3), 3);

  EXPECT_TRUE(waitUntil([&] { return reads == 2; }));
  onLoopThread([] {});
  destroy();
  EXPECT_EQ(reads, 2) << "the third byte came after the stop";
  EXPECT_EQ(log_.text(), "");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(EventLoop, ReportsFilesUntilTheWatchIsStopped) {
  const TempDir dir;
  writeFile(dir.file("old"), "");
  ASSERT_NE(ZAL_EventLoop_StartFs(loop_, dir.path().c_str(), IN_CREATE, onFile), nullptr);
  ASSERT_NE(ZAL_EventLoop_StartFs(loop_, dir.file("old").c_str(), IN_MODIFY, onFile), nullptr);

  writeFile(dir.file("first"), "");
  writeFile(dir.file("second"), "");
  std::filesystem::resize_file(dir.file("old"), 1);
  for (const char* name : {"first", "second", ""})  // an event without a name has an empty one
    EXPECT_TRUE(waitUntil([&] { return reports.has(name); })) << name;

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

TEST_F(EventLoop, RunsItsIdleCallbackInEachIterationOfOneRun) {
  std::atomic<int> runs{0};
  Body count = [&] { ++runs; };
  Body unused = [] { FAIL() << "another has taken its place"; };
  for (Body* body : {&unused, &count}) ZAL_EventLoop_IdleInit(loop_, runBody, body);
  ZAL_EventLoop_Run(loop_);
  EXPECT_TRUE(waitUntil([&] { return runs > 10; }));
  ZAL_EventLoop_Stop(loop_);

  const int atStop = runs;
  ZAL_EventLoop_Run(loop_);
  onLoopThread([] {});
  EXPECT_EQ(runs, atStop);
}

}  // namespace
}  // namespace zal::test
