#include "common/zal_interrupt_info.hpp"

#include <zal/zal_log.h>

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/line_reader.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;
using zal::interrupts::Processors;

constexpr const char* kGateway =
    "           CPU0       CPU1       CPU2       CPU3       \n"
    " 24:          1          2          3          4     GICv2  30 Level     arch_timer\n"
    "151:         50          0          0 4294967290     GICv2  66 Edge      ttyS0, uart\n"
    "\n"
    "a line of another kind\n"
    "ERR:          7\n";

using Counters = std::vector<std::uint32_t>;
Counters countersOf(const ZAL_InterruptType& type, std::size_t processors = 4) {
  return {type.count, type.count + processors};
}

std::unique_ptr<ZAL_InterruptInfo> read(std::string_view text, Processors processors) {
  auto info = std::make_unique<ZAL_InterruptInfo>();
  zal::interrupts::readTable(text, processors, *info);
  return info;
}

TEST(InterruptTable, HasAnEntryForEachLineAndASumForEachColumn) {
  const auto info = read(kGateway, {4, 4});
  EXPECT_STREQ(info->types[0].name, " 24");
  EXPECT_STREQ(info->types[0].description, "GICv2  30 Level     arch_timer");
  EXPECT_EQ(countersOf(info->types[0], 8), (Counters{1, 2, 3, 4, 0, 0, 0, 0}));
  for (const int index : {2, 3}) EXPECT_STREQ(info->types[index].name, "") << "an index, but no entry";
  EXPECT_STREQ(info->types[4].name, "ERR");
  EXPECT_EQ(countersOf(info->types[4]), (Counters{7, 0, 0, 0}));
  EXPECT_EQ(info->cpu[3].count, 4294967294U);
  EXPECT_EQ(info->totalInterrupts, 61U) << "58 + 2 + 3 - 2: sums have 32 bits";

  const char* const withoutProcessors1And3 =
      "           CPU0       CPU2\n 24:         11         33     GICv2\nERR:          1\n";
  zal::interrupts::readTable(withoutProcessors1And3, {2, 4}, *info);
  EXPECT_EQ(countersOf(info->types[0]), (Counters{11, 0, 33, 0}));
  EXPECT_STREQ(info->types[1].description, "") << "nothing of the interrupt that was here before";
  EXPECT_EQ(info->cpu[1].present, 0);
  EXPECT_EQ(info->cpu[2].count, 3U + 33U) << "sums go on";
  EXPECT_EQ(info->totalInterrupts, 61U + 11U + 1U + 7U) << "the first two counters of every entry";
}

TEST(InterruptTable, TakesAnyTextAndNoMoreThanEightProcessors) {
  const std::string many =
      "CPU0 CPU1 CPU2 CPU3 CPU4 CPU5 CPU6 CPU7 CPU8\n"
      " 1:          0          1          2          3          4          5          6          7"
      "          8  chip";
  const auto wide = read(many, {12, 12});
  EXPECT_EQ(countersOf(wide->types[0], 8), (Counters{0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_STREQ(wide->types[0].description, "8  chip");
  EXPECT_EQ(read(many, {3, 12})->cpu[3].present, 0) << "as many columns as processors are online";
  EXPECT_EQ(countersOf(read(many, {12, 2})->types[0], 3), (Counters{0, 1, 0}));

  const std::string longLine = std::string(300, 'n') + ":" + std::string(300, '9') + std::string(300, 'd');
  const auto hostile = read("CPU0 CPU0 CPU CPU99999999999999999999 CPU-1 CPU1 CPU8\n" + longLine +
                                "\n:\n 2: 4294967297 18446744073709551616 7\n 3: -1 5",
                            {64, 64});
  EXPECT_EQ(std::string(hostile->types[0].name), std::string(9, 'n'));
  EXPECT_EQ(std::string(hostile->types[0].description), std::string(95, '9'));
  EXPECT_EQ(countersOf(hostile->types[2], 2), (Counters{1, 0}));
  EXPECT_EQ(countersOf(hostile->types[3], 2), (Counters{0, 0}));
  for (const std::string_view none : {std::string_view{}, std::string_view{"\n\n"}, std::string_view{kGateway, 60}})
    EXPECT_EQ(read(none, {4, 4})->totalInterrupts, 0U);
  EXPECT_EQ(read({kGateway, 72}, {4, 4})->types[0].count[0], 1U) << "cut behind the first counter";
  EXPECT_EQ(read(kGateway, {-1, -1})->totalInterrupts, 0U);
}

TEST(InterruptTable, ReportsEachLineThatFindsNoEntry) {
  std::string text = "           CPU0\n";
  for (int i = 0; i < 122; ++i) text += std::to_string(i) + ":          2  chip\n";
  const LogCapture log;
  EXPECT_EQ(read(text, {1, 1})->totalInterrupts, 240U);
  EXPECT_EQ(log.text(),
            "ZAL_GetInterruptCount: interrupt_idx (120) exceeded ZAL_INTERRUPTS_MAX_TYPES\n"
            "ZAL_GetInterruptCount: interrupt_idx (121) exceeded ZAL_INTERRUPTS_MAX_TYPES\n");
}

TEST(InterruptTable, IsLoggedLineByLineForDebugging) {
  ZAL_Log_SetLevel(ZAL_LOG_DEBUG);
  const LogCapture log;
  read("           CPU0       CPU1\n  7:          5          6  chip\nERR:          1\n", {2, 2});
  EXPECT_EQ(std::regex_replace(log.text(), std::regex{"\\.\\.\\. [0-9:.]+: "}, ""),
            "ZAL_GetInterruptCount: added new interrupt_ to idx  0 (chip)\n"
            "line   2: (          5          6  chip) 5 6 \nline   3: (          1) 1 0 \n"
            "after 4 lines, total 12\n\n\n");
}

TEST(InterruptTable, IsThatOfThisMachine) {
  const std::string table = readFile("/proc/interrupts");
  const std::size_t label = table.find('\n') + 1;
  const std::size_t colon = table.find(':');
  if (colon == std::string::npos) GTEST_SKIP() << "no table here";
  const auto info = std::make_unique<ZAL_InterruptInfo>();
  ASSERT_EQ(ZAL_GetInterruptCount(info.get()), 0);
  EXPECT_EQ(info->types[0].name, table.substr(label, colon - label));
  EXPECT_GE(info->totalInterrupts, std::stoul(table.substr(colon + 1)));
  EXPECT_EQ(ZAL_GetInterruptCount(nullptr), -1);
}

TEST(InterruptTotals, ComeFromTheirTwoLinesHoweverLongOthersAre) {
  const TempDir dir;
  writeFile(dir.file("stat"),
            "cpu  1 2 3\nctxtra 1\nintr 4294967298" + std::string(40000, '0').insert(0, " ") + "\nctxt 77\nctxt 78\n");
  zal::LineReader<1024> file{dir.file("stat").c_str()};
  ZAL_InterruptInfo info{};
  for (auto line = file.next(); line && !zal::interrupts::readStatLine(*line, info);) line = file.next();
  EXPECT_EQ(info.totalInterrupts, 2U) << "the low 32 bits";
  EXPECT_TRUE(zal::interrupts::readStatLine("ctxt ", info));
  EXPECT_EQ(info.contextSwitches, 77U) << "without a number nothing is stored";
}

TEST(InterruptTotals, AreThoseOfThisMachine) {
  const auto switches = [] {
    const std::string text = readFile("/proc/stat");
    return static_cast<std::uint32_t>(std::stoull(text.substr(text.find("ctxt ") + 5)));
  };
  ZAL_InterruptInfo info{};
  const std::uint32_t before = switches();
  EXPECT_EQ(ZAL_GetProcStatInfo(&info), 0);
  EXPECT_LE(info.contextSwitches - before, switches() - before);
  EXPECT_EQ(ZAL_GetProcStatInfo(nullptr), -1);
}

TEST(SerialInterrupt, StandsInTheLinesWhoseLabelBeginsThePort) {
  using Row = std::tuple<const char*, const char*, std::optional<std::string_view>>;
  for (const auto& [line, port, interrupt] : {Row{"0: uart:16550A port:000003F8 irq:26 tx:218", "0", "26"},
                                              {"1: uart:16550A irq:3", "10", "3"},
                                              {"10: irq:3 tx:0", "1", {}},
                                              {"serinfo:1.0", "serinfo", {}},
                                              {"0 irq", "0", {}},
                                              {"0: irq:", "0", ""}})
    EXPECT_EQ(zal::interrupts::serialInterrupt(line, port), interrupt) << line;

  const bool isThere = std::ifstream{"/proc/tty/driver/serial"}.is_open();
  const LogCapture log;
  std::array<char, 1024> text{"unchanged"};
  EXPECT_EQ(ZAL_GetProcSerialIrqNum("no such port", text.data()), isThere ? 0 : -1);
  EXPECT_EQ(log.text(), isThere ? "" : "Could not open /proc/tty/driver/serial\n");
  EXPECT_STREQ(text.data(), "unchanged");
  EXPECT_EQ(ZAL_GetProcSerialIrqNum(nullptr, text.data()), -1);
  EXPECT_EQ(ZAL_GetProcSerialIrqNum("0", nullptr), -1);
}

// Reading the table sets the numeric locale: numbers of JSON keep their point where the environment wants a comma.
TEST(NumericLocale, OfTheEnvironmentIsSetAndLeavesJsonAlone) {
  const TempDir dir;
  const std::string make = "localedef -i de_DE -f UTF-8 " + dir.file("comma.UTF-8") + " >/dev/null 2>&1";
  static_cast<void>(std::system(make.c_str()));
  setenv("LOCPATH", dir.path().c_str(), 1);
  setenv("LC_ALL", "comma.UTF-8", 1);
  ZAL_InterruptInfo info{};
  static_cast<void>(ZAL_GetInterruptCount(&info));
  if (std::string{std::localeconv()->decimal_point} != ",") GTEST_SKIP() << "no locale with a comma can be made here";

  const HandlePtr object = parse(R"({"measured":1.5})");
  double measured = 0;
  EXPECT_EQ(ZAL_Object_GetDouble(object.get(), "measured", &measured), 1);
  EXPECT_EQ(measured, 1.5);
  ZAL_Object_AddDouble(object.get(), "added", 2.25);
  EXPECT_EQ(textOf(object.get()), R"({"measured":1.5,"added":2.250000})");
}

}  // namespace
