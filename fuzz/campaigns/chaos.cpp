// zal_chaos: a client of the library against an agent that means it no good. What the agent does comes from a seed.
#include <sys/wait.h>
#include <unistd.h>
#include <zal/zal_tpl.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "fuzz/campaigns/chaos/application.hpp"
#include "fuzz/campaigns/chaos/hostile_agent.hpp"
#include "fuzz/campaigns/support/endpoint.hpp"
#include "fuzz/campaigns/support/vitals.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::campaign {
namespace {

constexpr int kRestEvery = 50;
constexpr int kWarmUp = 200;
constexpr long kResidentSlackKib = 4096;  // of the agent too, which is in the same process

int saysNothing(const char* /*format*/, ...) {
  return 0;
}

void check(const Vitals& early, const Vitals& late) {
  if (hasGrown(early, late, kResidentSlackKib))
    throw Failure{"the client grows: " + early.text() + "; later " + late.text()};
}

void report(const HostileAgent& agent, int rounds, unsigned seed, bool isTcp) {
  const Tally& tally = agent.ledger().tally();
  const Lateness& late = agent.lateness();
  std::printf("seed %u, %s: %d rounds; %ld requests answered once, %ld of them without records; %ld requests and %s\n",
              seed, isTcp ? "TCP" : "Unix domain", rounds, tally.answered + tally.unserved, tally.unserved,
              tally.abandoned, "the answers to them ended with their connection");
  std::printf(
      "  %ld events; subscribed after each of %ld returns, %.0f ms beyond interval and 100 ms at worst, %s %ld\n",
      agent.events(), late.returns, late.worstMs, "more than 20 ms beyond:", late.above20Ms);
}

void run(unsigned seed, int rounds, bool isTcp) {
  const test::TempDir directory;
  Listener listener{isTcp ? std::string{} : directory.file("agent.sock")};
  Application application{listener.url()};
  HostileAgent agent{seed, listener, application};
  Vitals early{};
  Vitals late{};
  int round = 0;
  try {
    for (round = 1; round <= rounds; ++round) {
      agent.round();
      if (round % kRestEvery != 0 && round != rounds) continue;
      agent.rest([&] { late = vitals(); });
      if (round <= kWarmUp)
        early = late;
      else
        check(early, late);
    }
  } catch (const Failure& failure) {
    throw Failure{"seed " + std::to_string(seed) + ", round " + std::to_string(round) + ": " + failure.what()};
  }
  report(agent, rounds, seed, isTcp);
  std::printf("  after %d rounds: %s; at the end: %s\n", std::min(rounds, kWarmUp), early.text().c_str(),
              late.text().c_str());
}

/// In a process of its own, since the library counts gateway requests by the process. True when nothing was found.
bool survives(unsigned seed, int rounds) {
  const pid_t child = fork();
  if (child < 0) throw std::system_error{errno, std::generic_category(), "fork"};
  if (child == 0) {
    try {
      run(seed, rounds, seed % 2 == 0);
      std::exit(0);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "zal_chaos: %s\n", e.what());
      std::exit(1);
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) std::fprintf(stderr, "zal_chaos: seed %u: ended by signal %d\n", seed, WTERMSIG(status));
  return status == 0;
}

/// Starts this program again with a malloc that fills no caches of each thread, which count as heap, and has one arena:
/// malloc_trim() leaves the ends of the others resident. Under an emulator that cannot, it goes on as it is.
void useFrugalMalloc(char** argv) {
  if (std::getenv("GLIBC_TUNABLES") != nullptr) return;
  setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1", 1);
  execv(std::filesystem::read_symlink("/proc/self/exe").c_str(), argv);
}

}  // namespace
}  // namespace zal::campaign

int main(int argc, char** argv) {
  zal::campaign::useFrugalMalloc(argv);
  unsigned seed = 1;
  int seeds = 10;
  int rounds = 1000;
  CLI::App app{"Attacks a client of libzal-client. Odd seeds use a Unix-domain socket, even ones TCP on loopback."};
  app.add_option("--seed", seed, "The first seed")->capture_default_str();
  app.add_option("--seeds", seeds, "How many seeds, one after the other")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--rounds", rounds, "Connections of each seed")->check(CLI::Range(1, 1000000))->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  // What is wrong with an image would be said a thousand times.
  ZAL_Log_SetLevel(ZAL_LOG_ERROR + 1);
  tpl_hook.report_fn = zal::campaign::saysNothing;
  int survived = 0;
  for (int i = 0; i < seeds; ++i, ++seed) survived += zal::campaign::survives(seed, rounds) ? 1 : 0;
  return survived == seeds ? 0 : 1;
}
