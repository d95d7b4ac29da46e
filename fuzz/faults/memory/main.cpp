// Failing memory: in every scenario, each allocation fails in turn, once and from there on. See docs/reliability.md.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "memory/allocator.hpp"
#include "memory/scenario.hpp"
#include "support/agent.hpp"
#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/life.hpp"
#include "support/point.hpp"
#include "support/reached.hpp"
#include "support/sanitizer.hpp"
#include "support/tally.hpp"

namespace faults {

namespace {

constexpr Scenario kScenarios[] = {
    {"runtime", runtime},
    {"files", files},
    {"uris", uris},
    {"logging", logging},
    {"objects", objects},
    {"arrays", arrays},
    {"filters", filters},
    {"messages", messages},
    {"documents", documents},
    {"engine", engine, true},
    {"records", records},
    {"device", device, false, false},
    {"network", network},
    {"loops", loops},
    {"transport", transport, true},
    {"clients", clients},
    {"client's life", liveOverUnixDomain, true},
    {"client's life over TCP", liveOverTcp, true, false},
};

constexpr std::pair<Mode, const char*> kModes[] = {{Mode::kOnce, "once"}, {Mode::kFromThereOn, "on"}};

struct Options {
  std::string only;
  std::string map;
  std::uint64_t every = 1;
  std::uint64_t point = 0;
  bool isQuick = false;
  std::size_t jobs = 16;
};

void checkLive(const LiveBlocks& known, const char* when) {
  if (kHasLeakSanitizer ? hasUnreachableBlocks() : false) leaked(when, 0);
  if (const std::size_t size = kHasLeakSanitizer ? 0 : liveBlocks().surplusOver(known)) leaked(when, size);
}

/// Without a fault: how many allocations there are, and which blocks stay for the life of the process.
void runWhole(const Scenario& scenario) {
  watchBlocks();
  arm(Kind::kAllocation, Mode::kNone, 0);
  scenario.run();
  disarm();
  report().events = events();
  report().live = liveBlocks();
  arm(Kind::kAllocation, Mode::kNone, 0);
  scenario.run();
  disarm();
  checkLive(report().live, "left by a run without a fault");
}

void runWithFault(const Scenario& scenario, Mode mode, std::uint64_t point, const LiveBlocks& known) {
  watchBlocks();
  arm(Kind::kAllocation, mode, point);
  scenario.run();
  disarm();
  report().events = events();
  report().strikes = strikeCount();
  checkLive(known, "left by the fault");
  arm(Kind::kAllocation, Mode::kNone, 0);
  scenario.run();
  disarm();
  checkLive(known, "left by the run after the fault");
}

/// What a run without a fault told. Its end is that of the program when it is not as it should be.
Report measureOnce(Children& children, const Scenario& scenario, const Reached& reached) {
  Report found{};
  children.start(
      [&] {
        reached.watch();
        runWhole(scenario);
      },
      [&](Outcome outcome, const Report& report, const std::string& output) {
        if (outcome != Outcome::kPassed) {
          std::printf("%s", output.c_str());
          throw std::runtime_error{std::string{scenario.name} + " fails without a fault: " + nameOf(outcome) + ' ' +
                                   report.text.data()};
        }
        found = report;
      });
  children.finish();
  return found;
}

Report measure(Children& children, const Scenario& scenario, const Reached& reached) {
  Report shortest = measureOnce(children, scenario, reached);
  for (int i = 1; i < kCountedRuns; ++i) {
    const Report found = measureOnce(children, scenario, reached);
    if (found.events < shortest.events) shortest = found;
  }
  return shortest;
}

void runScenario(Children& children, const Scenario& scenario, const Options& options, const Reached& reached,
                 Tally& tally) {
  const Report whole = measure(children, scenario, reached);
  for (const auto& [mode, modeName] : kModes)
    for (std::uint64_t point = 1; point <= whole.events; point += options.every) {
      const Mode planned = mode;
      const std::string name =
          std::string{"--only '"} + scenario.name + "' --point " + std::to_string(point) + " (" + modeName + ")";
      startPoint(children, tally,
                 {scenario.name, name,
                  [&scenario, planned, point, &whole] { runWithFault(scenario, planned, point, whole.live); },
                  scenario.mayEndInEngine});
    }
  children.finish();
}

/// One point, here, for whoever looks into it.
void runPoint(const Scenario& scenario, std::uint64_t point) {
  LiveBlocks known{};
  for (const auto& [mode, name] : kModes) {
    Children one{1};
    one.start([&] { runWhole(scenario); },
              [&](Outcome, const Report& report, const std::string&) { known = report.live; });
    one.finish();
    const Mode planned = mode;
    one.start([&] { runWithFault(scenario, planned, point, known); },
              [&, shown = name](Outcome outcome, const Report& report, const std::string& output) {
                std::printf("--- %s: %s %s\n%s", shown, nameOf(outcome), report.text.data(), output.c_str());
              });
    one.finish();
  }
}

int run(const Options& options) {
  const Agent unixDomainAgent{Agent::Transport::kUnixDomain};
  const Agent tcpAgent{Agent::Transport::kTcp};
  setAgentUrls(unixDomainAgent.url(), tcpAgent.url());
  const Reached reached{options.map};
  Tally tally;
  Children children{options.jobs};
  for (const Scenario& scenario : kScenarios) {
    if (!options.only.empty() && options.only != scenario.name) continue;
    if (options.isQuick && !scenario.isQuick) continue;
    if (options.point != 0) {
      runPoint(scenario, options.point);
    } else {
      runScenario(children, scenario, options, reached, tally);
    }
  }
  if (options.point != 0) return 0;
  tally.print("scenario");
  const bool isComplete = options.only.empty() && !options.isQuick;
  const bool allReached = !isComplete || reached.print();
  return tally.hasFailures() || !allReached ? 1 : 0;
}

}  // namespace

}  // namespace faults

int main(int argc, char** argv) {
  setenv("LC_ALL", "C", 1);  // the C library loses blocks of its own when memory runs out while it loads a locale
  faults::Options options;
  CLI::App app{"Fails every allocation of every scenario in turn, and tells what came of it."};
  app.add_option("--only", options.only, "one scenario, by its name");
  app.add_option("--every", options.every, "only every n-th point")->check(CLI::PositiveNumber);
  app.add_option("--point", options.point, "this point alone, with its output");
  app.add_option("--jobs", options.jobs, "points at a time")->check(CLI::PositiveNumber);
  app.add_option("--map", options.map, "the library's version script: every function in it must be reached");
  app.add_flag("--quick", options.isQuick, "without the scenarios that take long");
  CLI11_PARSE(app, argc, argv);
  return faults::runProgram([&options] { return faults::run(options); });
}
