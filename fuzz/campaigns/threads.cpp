// zal_threads: clients are started, stopped and destroyed, while eight threads send, eight threads log, and handlers
// call back into the library. Meant for a build with ThreadSanitizer; what is measured is how long stop and destroy
// take.
#include <zal/zal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/campaigns/support/endpoint.hpp"
#include "fuzz/campaigns/support/processor_wait.hpp"
#include "fuzz/campaigns/support/vitals.hpp"
#include "fuzz/campaigns/threads/everything.hpp"
#include "fuzz/campaigns/threads/polite_agent.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::campaign {
namespace {

using std::chrono::milliseconds;

constexpr int kThreadsOfAKind = 8;

/// Threads that do the same thing again and again, with a pause, until the end of the scope.
class Crowd {
 public:
  explicit Crowd(const std::function<void(int member, int turn)>& act) {
    for (int i = 0; i < kThreadsOfAKind; ++i)
      threads_.emplace_back([this, act, i] {
        for (int turn = i; !isOver_; ++turn) {
          act(i, turn);
          std::this_thread::sleep_for(milliseconds{1});
        }
      });
  }
  ~Crowd() {
    isOver_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

 private:
  std::atomic<bool> isOver_ = false;
  std::vector<std::thread> threads_;
};

/// The present client. Who uses it holds a gate of his own, since a client that is being destroyed is its handlers'
/// alone; one gate for all would be held by one or the other all the time.
class Stage {
 public:
  void enter(ZAL_ClientHandle client) {
    for (std::mutex& gate : gates_) gate.lock();
    client_ = client;
    for (std::mutex& gate : gates_) gate.unlock();
  }
  void leave() { enter(nullptr); }
  void use(int user, int turn) {
    const std::lock_guard hold{gates_[static_cast<std::size_t>(user)]};
    if (client_ != nullptr) callSomething(client_, turn);
  }

 private:
  std::array<std::mutex, kThreadsOfAKind> gates_;
  ZAL_ClientHandle client_ = nullptr;
};

void writeLog(int /*member*/, int turn) {
  static constexpr int kBytes[] = {1, 2, 3};
  switch (turn % 8) {
    case 0:
      return Log_HexDump(kBytes, sizeof kBytes);
    case 1:
      return ZAL_Log_SetLevel(turn % 3 + 1);
    case 2:
      return ZAL_Log_SetFileMaxBytes(20'000 + turn % 100);
    case 3:
      zal_fprintf(stderr, "turn %d\n", turn);
      return;
    default:
      Log_PrintMessage(turn % 6, "threads", turn, "writeLog", "a line of turn %d, level %d\n", turn,
                       ZAL_Log_GetLevel());
  }
}

/// How long a call took beyond what it may wait for, in milliseconds.
class Durations {
 public:
  /// Throws Failure when it is more than what a call may take, and what the machine takes.
  void add(Milliseconds time, Milliseconds machine) {
    constexpr Milliseconds kBound{50};
    if (time > kBound + machine)
      throw Failure{"a call took " + std::to_string(time.count()) + " ms, at most " + std::to_string(machine.count()) +
                    " of them by the machine"};
    all_.push_back(time.count());
  }
  [[nodiscard]] std::string text() {
    if (all_.empty()) return "never";
    std::sort(all_.begin(), all_.end());
    const auto above = std::count_if(all_.begin(), all_.end(), [](double time) { return time > 50; });
    char line[128];
    std::snprintf(line, sizeof line, "median %.2f ms, worst %.1f ms, above 50 ms: %ld of %zu", all_[all_.size() / 2],
                  all_.back(), static_cast<long>(above), all_.size());
    return line;
  }

 private:
  std::vector<double> all_;
};

struct Times {
  Durations stop;     // waits for no handler
  Durations destroy;  // since the last handler ended
};

void stop(ZAL_ClientHandle client, Times& times) {
  const ProcessorWait wait;
  const auto begin = Clock::now();
  ZAL_Client_Stop(client);
  const Milliseconds time = Clock::now() - begin;
  times.stop.add(time, wait.sum());
}

/// One client's life. In turn it is stopped first, stopped and started again, or destroyed as it runs.
void live(int cycle, const std::string& url, Stage& stage, Times& times) {
  const auto awaitTraffic = [before = handlerWatch.calls()] {
    for (int ms = 0; ms < 100 && handlerWatch.calls() < before + 5; ++ms) std::this_thread::sleep_for(milliseconds{1});
  };
  ZAL_ClientHandle client = makeTalkativeClient(url);
  stage.enter(client);
  ZAL_Client_Start(client);
  awaitTraffic();
  if (cycle % 3 != 0) stop(client, times);
  if (cycle % 3 == 1) ZAL_Client_Start(client);
  stage.leave();

  const ProcessorWait wait;
  const auto begin = Clock::now();
  ZAL_Client_Destroy(client);
  const Milliseconds time = Clock::now() - std::max(begin, handlerWatch.lastEnd());
  times.destroy.add(time, wait.sum());
}

void run(int cycles) {
  const test::TempDir directory;
  ZAL_Log_SetDirectory(directory.path().c_str());
  Listener listener{directory.file("agent.sock")};
  PoliteAgent agent{listener, {"echo", "some", "all"}, 6};
  Stage stage;
  Times times;
  Vitals early{};
  {
    const Crowd loggers{writeLog};
    const Crowd senders{[&](int member, int turn) { stage.use(member, turn); }};
    for (int cycle = 0; cycle < cycles; ++cycle) {
      live(cycle, listener.url(), stage, times);
      if (cycle == std::min(cycles, 200) - 1) early = vitals();
    }
    const Vitals late = vitals();
    std::printf("%d cycles, %ld handlers and callbacks, %ld answers\n", cycles, handlerWatch.calls(), agent.answers());
    std::printf("  stop: %s\n  destroy, from the end of the last handler: %s\n", times.stop.text().c_str(),
                times.destroy.text().c_str());
    std::printf("  after %d cycles: %s; at the end: %s\n", std::min(cycles, 200), early.text().c_str(),
                late.text().c_str());
    // The log file and the agent's connection come and go.
    if (late.descriptors > early.descriptors + 3 || late.threads > early.threads) throw Failure{"the process grows"};
  }
  if (handlerWatch.calls() < cycles || agent.answers() == 0) throw Failure{"there was no traffic"};
}

}  // namespace
}  // namespace zal::campaign

int main(int argc, char** argv) {
  int cycles = 5000;
  CLI::App app{"Starts, stops and destroys clients under traffic."};
  app.add_option("--cycles", cycles, "Clients, one after the other")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    zal::campaign::run(cycles);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zal_threads: %s\n", e.what());
    return 1;
  }
}
