// Failing system calls: in a client's life and what belongs to it, each call fails in turn with each of its errors,
// once and for a while. See docs/reliability.md.
#include <dirent.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "calls/interposed.hpp"
#include "calls/log_lines.hpp"
#include "memory/allocator.hpp"
#include "memory/scenario.hpp"
#include "support/agent.hpp"
#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/life.hpp"
#include "support/point.hpp"
#include "support/sanitizer.hpp"
#include "support/tally.hpp"

namespace faults {

namespace {

constexpr Scenario kScenarios[] = {
    {"client's life", liveOverUnixDomain},
    {"client's life over TCP", liveOverTcp},
    {"server and client", transport},
    {"loop", loops, false, true, 1},  // that of uv_default_loop
    {"log", logLines},
};

constexpr Mode kModes[] = {Mode::kOnce, Mode::kForAWhile};
constexpr std::size_t kMostCalls = 64;

struct Options {
  std::string only;
  std::string scenario;
  std::uint64_t most = 0;
  std::uint64_t point = 0;
  std::size_t jobs = 16;
};

/// What a run without a fault leaves: descriptors and blocks for the life of the process, and how often each call came.
struct Whole {
  int descriptors;  // more than before
  LiveBlocks live;
  std::array<std::uint64_t, kMostCalls> counts;

  [[nodiscard]] std::uint64_t total() const noexcept {
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
  }
};

int openDescriptors() noexcept {
  const Aside aside;
  DIR* const directory = opendir("/proc/self/fd");
  require(directory != nullptr, "the list of descriptors");
  int count = 0;
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}

void checkLeft(const Whole& whole, int descriptorsBefore, int forgotten = 0) {
  if (kHasLeakSanitizer && hasUnreachableBlocks()) leaked("blocks that cannot be reached", 0);
  if (const std::size_t size = kHasLeakSanitizer ? 0 : liveBlocks().surplusOver(whole.live))
    leaked("left when the fault had ended", size);
  require(openDescriptors() - descriptorsBefore <= whole.descriptors + forgotten, "every descriptor is closed");
}

void runWhole(const Scenario& scenario, Whole& whole) {
  const int before = openDescriptors();
  watchBlocks();
  armCall(kMostCalls, 0, Mode::kNone, 0);
  scenario.run();
  disarm();
  countCalls(whole.counts);
  whole.live = liveBlocks();
  whole.descriptors = openDescriptors() - before;
  scenario.run();
  checkLeft(whole, before);
}

struct Fault {
  std::size_t call;
  int error;
  Mode mode;
  std::uint64_t number;
};

void runWithFault(const Scenario& scenario, const Fault& fault, const Whole& whole) {
  const int before = openDescriptors();
  watchBlocks();
  armCall(fault.call, fault.error, fault.mode, fault.number);
  scenario.run();
  disarm();
  report().strikes = strikeCount();
  armCall(kMostCalls, 0, Mode::kNone, 0);
  scenario.run();
  disarm();
  checkLeft(whole, before, scenario.forgotten);
}

Whole measureOnce(Children& children, const Scenario& scenario) {
  const Shared<Whole> whole;
  children.start([&] { runWhole(scenario, *whole); },
                 [&](Outcome outcome, const Report& report, const std::string& output) {
                   if (outcome == Outcome::kPassed) return;
                   std::printf("%s", output.c_str());
                   throw std::runtime_error{std::string{scenario.name} + " fails without a fault: " + nameOf(outcome) +
                                            ' ' + report.text.data()};
                 });
  children.finish();
  return *whole;
}

Whole measure(Children& children, const Scenario& scenario) {
  Whole shortest = measureOnce(children, scenario);
  for (int i = 1; i < kCountedRuns; ++i) {
    const Whole found = measureOnce(children, scenario);
    if (found.total() < shortest.total()) shortest = found;
  }
  return shortest;
}

void startFault(Children& children, const Scenario& scenario, const Fault& fault, const Whole& whole, Tally& tally) {
  const char* const call = calls()[fault.call].name;
  const char* const mode = fault.mode == Mode::kOnce ? "once" : "for a while";
  const std::string name = std::string{"--only "} + call + " --scenario '" + scenario.name + "' --point " +
                           std::to_string(fault.number) + " (" + strerrorname_np(fault.error) + ' ' + mode + ')';
  startPoint(children, tally, {call, name, [&scenario, fault, &whole] { runWithFault(scenario, fault, whole); }});
}

/// All points of a call in a scenario, or the one that was asked for.
void runCall(Children& children, const Scenario& scenario, std::size_t call, const Whole& whole, const Options& options,
             Tally& tally) {
  for (const Mode mode : kModes)
    for (const int error : calls()[call].errors) {
      const std::uint64_t first = options.point != 0 ? options.point : 1;
      const std::uint64_t last = options.point != 0 ? options.point : whole.counts[call];
      const std::uint64_t step = options.most != 0 ? last / options.most + 1 : 1;
      for (std::uint64_t number = first; number <= last; number += step)
        startFault(children, scenario, {call, error, mode, number}, whole, tally);
    }
}

int run(const Options& options) {
  const Agent unixDomainAgent{Agent::Transport::kUnixDomain};
  const Agent tcpAgent{Agent::Transport::kTcp};
  setAgentUrls(unixDomainAgent.url(), tcpAgent.url());
  Tally tally;
  Children children{options.jobs};
  std::array<std::uint64_t, kMostCalls> all{};
  for (const Scenario& scenario : kScenarios) {
    if (!options.scenario.empty() && options.scenario != scenario.name) continue;
    const Whole whole = measure(children, scenario);
    for (std::size_t call = 0; call < calls().size(); ++call) {
      all[call] += whole.counts[call];
      if (options.only.empty() || options.only == calls()[call].name)
        runCall(children, scenario, call, whole, options, tally);
    }
    children.finish();
  }
  tally.print("call");
  const auto met =
      static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [](auto count) { return count > 0; }));
  std::printf("%zu calls, %zu errors each\n", met, calls()[0].errors.size());
  return tally.hasFailures() ? 1 : 0;
}

}  // namespace

}  // namespace faults

int main(int argc, char** argv) {
  faults::Options options;
  CLI::App app{"Fails every system call of a client's life in turn, and tells what came of it."};
  app.add_option("--only", options.only, "one call, by its name");
  app.add_option("--scenario", options.scenario, "one scenario, by its name");
  app.add_option("--most", options.most,
                 "at most so many points of a call, error and mode in a scenario, evenly spread");
  app.add_option("--point", options.point, "this point alone");
  app.add_option("--jobs", options.jobs, "points at a time")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, argc, argv);
  return faults::runProgram([&options] { return faults::run(options); });
}
