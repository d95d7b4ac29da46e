// The queue of a loop, filled by eight threads while its own thread is held up.
#include <zal/zal_eventloop.h>

#include <barrier>
#include <functional>
#include <latch>
#include <thread>

#include "growth/growth.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

constexpr int kThreads = 8;

void addOne(void* counter) {
  ++*static_cast<std::atomic<int>*>(counter);
}

class Loop {
 public:
  Loop() { ZAL_EventLoop_Run(context); }
  ~Loop() {
    ZAL_EventLoop_Stop(context);
    ZAL_EventLoop_Destroy(context);
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  /// Waits until all that was queued has been executed.
  void awaitExecuted() const {
    std::atomic<int> expired{0};
    uv_timer_t* const timer = ZAL_EventLoop_StartTimer(
        context, [](uv_timer_t* expiring) { addOne(ZAL_EventLoop_GetTimerContext(expiring)); }, 0, 0, &expired);
    awaitCount(expired, 1);
    ZAL_EventLoop_StopTimer(context, timer);
  }

  const ZAL_EventLoopContext context = ZAL_EventLoop_Create(0, "growth");
};

/// Holds up the thread of a loop, once that has done the preparations.
class Hold {
 public:
  Hold(const Loop& loop, std::function<void()> prepare) : loop_{loop}, prepare_{std::move(prepare)} {
    timer_ = ZAL_EventLoop_StartTimer(loop.context, keep, 0, 0, this);
    isHeld_.wait();
  }
  ~Hold() {
    mayGo_.count_down();
    ZAL_EventLoop_StopTimer(loop_.context, timer_);
    loop_.awaitExecuted();
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  static void keep(uv_timer_t* timer) {
    Hold& self = *static_cast<Hold*>(ZAL_EventLoop_GetTimerContext(timer));
    self.prepare_();
    self.isHeld_.count_down();
    self.mayGo_.wait();
  }

  const Loop& loop_;
  std::function<void()> prepare_;
  uv_timer_t* timer_ = nullptr;
  std::latch isHeld_{1};
  std::latch mayGo_{1};
};

/// Has the threads call `queue` for 0 to `count` - 1 and returns when they began.
template <class Queue>
Clock::time_point queueFromThreads(int count, Queue queue) {
  Clock::time_point start;
  std::barrier ready{kThreads, [&start]() noexcept { start = Clock::now(); }};
  std::vector<std::jthread> threads;
  for (int first = 0; first < kThreads; ++first)
    threads.emplace_back([&, first] {
      ready.arrive_and_wait();
      for (int i = first; i < count; i += kThreads) queue(static_cast<std::size_t>(i));
    });
  threads.clear();
  return start;
}

/// Seconds in which the commands were queued while the loop was held up, and then executed.
template <class Queue>
double run(
    const Loop& loop, int count, Queue queue, std::function<void()> prepare = [] {}) {
  Clock::time_point start;
  {
    const Hold hold{loop, std::move(prepare)};
    start = queueFromThreads(count, queue);
  }
  return secondsSince(start);
}

class Timers {
 public:
  Timers(const Loop& loop, int count) : loop_{loop}, timers_(static_cast<std::size_t>(count)) {}

  void start(std::size_t i) {
    constexpr uint64_t kHourMs = 3600000;
    timers_[i] = ZAL_EventLoop_StartTimer(
        loop_.context, [](uv_timer_t*) {}, kHourMs, 0, nullptr);
  }
  void stop(std::size_t i) { ZAL_EventLoop_StopTimer(loop_.context, timers_[i]); }

 private:
  const Loop& loop_;
  std::vector<uv_timer_t*> timers_;
};

double timerSeconds(const Loop& loop, int count) {
  Timers timers{loop, count};
  const double seconds = run(loop, count, [&](std::size_t i) { timers.start(i); });
  return (seconds + run(loop, count, [&](std::size_t i) { timers.stop(i); })) / 2;
}

double jobSeconds(const Loop& loop, int count) {
  std::atomic<int> done{0};
  const auto start = Clock::now();
  run(loop, count, [&](std::size_t) {
    ZAL_EventLoop_Work(
        loop.context, [](uv_work_t* request) { addOne(request->data); }, &done);
  });
  awaitCount(done, count);
  return secondsSince(start);
}

double closeSeconds(const Loop& loop, int count) {
  std::vector<uv_timer_t> handles(static_cast<std::size_t>(count));
  std::atomic<int> closed{0};
  const auto prepare = [&] {
    for (uv_timer_t& handle : handles) {
      uv_timer_init(ZAL_EventLoop_GetLoop(loop.context), &handle);
      handle.data = &closed;
    }
  };
  const auto queue = [&](std::size_t i) {
    ZAL_EventLoop_CloseHandle(loop.context, reinterpret_cast<uv_handle_t*>(&handles[i]),
                              [](uv_handle_t* handle) { addOne(handle->data); });
  };
  const double seconds = run(loop, count, queue, prepare);
  awaitCount(closed, count);
  return seconds;
}

double queuedTimerBytes(const Loop& loop, int count) {
  Timers timers{loop, count};
  double bytes = 0;
  {
    const Hold hold{loop, [] {}};
    bytes = -heapBytes();
    queueFromThreads(count, [&](std::size_t i) { timers.start(i); });
    bytes += heapBytes();
  }
  run(loop, count, [&](std::size_t i) { timers.stop(i); });
  return bytes;
}

}  // namespace

void measureCommandGrowth(const Settings& settings, Report& report) {
  const Loop loop;
  const auto table = [&](const char* what, const char* unit) {
    return Measure{std::string{"loop commands of 8 threads: "} + what, unit, settings.rounds};
  };
  const auto perCommand = [&](double (*measure)(const Loop&, int), double scale) {
    return atEach(sizes(1000, 100000, settings), [&loop, measure, scale](int size) {
      constexpr int kLeast = 10000;
      const int repetitions = std::max(1, kLeast / size);
      double sum = 0;
      for (int i = 0; i < repetitions; ++i) sum += measure(loop, size);
      return sum / repetitions / size * scale;
    });
  };
  report.add(table("timers started and stopped, each", "us"), perCommand(timerSeconds, 1e6));
  report.add(table("jobs, each", "us"), perCommand(jobSeconds, 1e6));
  report.add(table("handles closed, each", "us"), perCommand(closeSeconds, 1e6));
  report.add(table("heap of a queued timer", "bytes"), perCommand(queuedTimerBytes, 1));
}

}  // namespace bench
