#include "common/zal_cpu_stat.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace {

using namespace zal::test;
namespace cpu = zal::cpu;

TEST(ProcessorTimes, AreFoundForSixteenProcessorsAtMostAndZeroWhereTheTextLacksThem) {
  std::string text = "cpu  9\n";
  for (int i = 0; i < 20; ++i)
    if (i != 1) text += "cpu" + std::to_string(i) + " 10" + std::to_string(i) + " 1 2 7 3 4 5 6 9 9\n";
  const cpu::Sample all = cpu::parseProcessors(text, 20);
  for (std::size_t i = 0; i < all.size(); ++i) EXPECT_EQ(all[i].valid, i != 1) << i;
  EXPECT_EQ(all[1].user, 0U);
  const ZAL_CpuStat& last = all[15];
  EXPECT_EQ(std::tie(last.user, last.nice, last.system, last.idle, last.iowait, last.irq, last.softirq, last.steal),
            std::tuple(1015U, 1U, 2U, 7U, 3U, 4U, 5U, 6U));

  const ZAL_CpuStat broken = cpu::parseProcessors("cpu0 3 x 5\ncpu1 4", 1)[0];
  EXPECT_EQ(std::tie(broken.valid, broken.user, broken.nice, broken.system), std::tuple(1, 3U, 0U, 0U));
}

TEST(StatFile, IsReadToItsByte1023AndFailuresAreReported) {
  const TempDir dir;
  const LogCapture log;
  const std::string file = dir.file("stat");
  writeFile(file, "cpu  1 2 3 4 5 6 7 8 900 900\ncpu0 " + std::string(987, ' ') + "1234");
  EXPECT_EQ(cpu::totalOf(cpu::readSystem(file.c_str())), 36U);
  EXPECT_EQ(cpu::readProcessors(file.c_str(), 1)[0].user, 12U);
  EXPECT_EQ(log.text(), "");

  writeFile(file, "");
  EXPECT_EQ(cpu::totalOf(cpu::readSystem(file.c_str())), 0U);
  EXPECT_EQ(cpu::totalOf(cpu::readSystem(dir.file("none").c_str())), 0U);
  EXPECT_EQ(cpu::readProcessors(dir.file("none").c_str(), 1)[0].valid, 0);
  for (const char* text : {"Could not open stat file\n", "Could not read stat file\n", "could not open /proc/stat\n"})
    EXPECT_EQ(log.count(text), 1) << log.text();
  EXPECT_EQ(log.count("ZAL_GetTotalCpuTime"), 2) << log.text();
}

TEST(Load, IsCutToHundredthsAndNeverNegative) {
  using Shares = std::tuple<double, double, double, double>;  // usage, user, system, softirq
  const std::tuple<const char*, const char*, Shares> cases[] = {
      {"0 0 0 0", "123456 0 0 876544", {12.34, 12.34, 0, 0}},
      {"0 0 0 0", "0 0 0 50", {0, 0, 0, 0}},
      {"9 9 9 50", "9 9 34 50 25 25 25", {100, 0, 25, 25}},
      {"7 7 7 7", "7 7 7 7", {0, 0, 0, 0}},          // no tick in between
      {"9 0 0 9", "", {0, 0, 0, 0}},                 // the processor left
      {"0 0 9 50", "20 0 4 40", {300, 400, 0, 0}}};  // some time was taken back
  for (const auto& [before, after, expected] : cases) {
    const ZAL_CpuLoad load = cpu::loadBetween(cpu::parseCounters(before), cpu::parseCounters(after));
    EXPECT_EQ(std::tie(load.usage, load.user, load.system, load.softirq), expected) << after;
  }
}

TEST(Frequency, IsWholeMegahertzOfTheFile) {
  const TempDir dir;
  const std::string file = dir.file("frequency");
  EXPECT_EQ(cpu::readMegahertz(file.c_str()), 0U);
  for (const auto& [text, expected] : {std::pair{"1200999\n", 1200U}, {"", 0U}, {"-5000", 0U}, {"<unknown>", 0U}}) {
    writeFile(file, text);
    EXPECT_EQ(cpu::readMegahertz(file.c_str()), expected) << text;
  }
}

// A kernel may take some idle time back: what lies between two readings is looked at until it fits.
TEST(ThisMachine, IsReadAsItsOwnFileTellsIt) {
  const auto ownIdle = [] {
    std::string word;
    std::ifstream file{"/proc/stat"};
    for (int i = 0; i < 5; ++i) file >> word;
    return std::stoull(word);
  };
  EXPECT_TRUE(waitUntil([&] {
    std::uint64_t total = 0;
    std::uint64_t idle = 0;
    const std::uint64_t before = ownIdle();
    ZAL_GetTotalCpuTime(&total, &idle);
    return before <= idle && idle <= ownIdle() && idle < total;
  }));
  ZAL_CpuStat* stats = nullptr;
  ASSERT_EQ(ZAL_GetCpuStat(&stats), 0);
  const std::unique_ptr<ZAL_CpuStat, decltype(&std::free)> owner{stats, std::free};
  EXPECT_GT(stats[0].valid * stats[0].user, 0U);
}

TEST(ThisMachine, IsLoadedWhileAThreadSpins) {
  const std::jthread spinner{[](const std::stop_token& stop) {
    while (!stop.stop_requested()) continue;
  }};
  const auto start = std::chrono::steady_clock::now();
  ZAL_CpuSummary summary{};
  ZAL_GetCpuSummary(&summary);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{500});
  EXPECT_EQ(summary.numCpus, ZAL_GetNumOfCpu());
  EXPECT_TRUE(std::ranges::any_of(summary.cpu, [](const auto& load) { return load.valid == 1 && load.usage > 0; }));
}

}  // namespace
