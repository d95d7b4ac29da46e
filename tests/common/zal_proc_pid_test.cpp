#include "common/zal_proc_pid.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/log_capture.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace {

using namespace zal::test;
using ::testing::Each;
using ::testing::IsNull;
namespace fs = std::filesystem;
namespace proc = zal::proc;

/// A stat line from the state on: 4294967297 user and 7 system ticks, 3 threads, 5 GiB and 1023 bytes, 300 pages.
const std::string kRest =
    " S 1 9 9 0 -1 4194560 1 2 3 4 4294967297 7 0 0 20 0 3 0 17 5368710143 300 18446744073709551615\n";

/// A tree that stands for /proc.
class ProcessTree : public ::testing::Test {
 protected:
  void add(const std::string& pid, const std::string& commandLine, const std::string& comm = "") const {
    fs::create_directory(dir_.file(pid));
    writeFile(dir_.file(pid + "/stat"), pid + " (" + comm + ")" + kRest);
    writeFile(dir_.file(pid + "/cmdline"), commandLine);
    writeFile(dir_.file(pid + "/comm"), comm + "\n");
  }
  TempDir dir_;
  const std::string root_ = dir_.path().string();
};

TEST(StatLine, IsReadAroundAnyName) {
  for (const std::string name : {"sh", "a) (b\n c", "(sd-pam)", "", "kworker/u8:2-events"}) {
    const auto read = proc::parseStat("12 (" + name + ")" + kRest);
    ASSERT_TRUE(read) << name;
    EXPECT_EQ(read->comm, name.substr(0, 15));
    EXPECT_EQ(std::tie(read->pid, read->state, read->utime, read->stime, read->threads, read->vsize),
              std::tuple(12, 'S', 1U, 7U, 3, static_cast<std::uint32_t>(5242880ULL * 1000)));
    EXPECT_EQ(read->rss, 300U * static_cast<std::uint32_t>(getpagesize()) / 1024);
  }
  const std::string cut = "12 (sh)" + kRest.substr(0, kRest.find(" 300 "));
  for (const std::string& text :
       {"x (sh)" + kRest, "12 (sh" + kRest, "12 )sh(" + kRest, std::string{"12 (sh) "}, cut, cut + " x"})
    EXPECT_FALSE(proc::parseStat(text)) << text;
}

TEST_F(ProcessTree, IsReadUpToTwoHundredProcessesWithZeroesForThoseThatVanish) {
  add("7", std::string("/bin/sh\n\0-c\0", 12), "sh");
  add("8", std::string(300, 'x'));
  add("9", "gone");
  fs::remove(dir_.file("9/cmdline"));
  fs::create_directory(dir_.file("acpi"));
  writeFile(dir_.file("10"), "");
  auto table = proc::readTable(root_.c_str());
  std::qsort(table.records.get(), table.count, sizeof(ZAL_ProcessInfo), proc_comp_tid);
  std::vector<std::string> found;
  for (const ZAL_ProcessInfo& record : table.span()) found.push_back(std::to_string(record.pid) + record.cmdline);
  EXPECT_EQ(found, (std::vector<std::string>{"0", "7/bin/sh\n", "8" + std::string(255, 'x')}));

  for (int i = 100; i < 350; ++i) fs::create_directory(dir_.file(std::to_string(i)));
  table = proc::readTable(root_.c_str());
  EXPECT_EQ(table.count, 200U);
  EXPECT_EQ(table.span()[1].pid + table.span()[0].pid, 15);
  writeFile(dir_.file("7/sta"), "7 (cut)" + kRest);  // what the paths would name if they were cut to 255 characters
  writeFile(dir_.file("7/cmd"), "cut");
  EXPECT_FALSE(proc::readProcess((root_ + std::string(249 - root_.size(), '/')).c_str(), "7"));
}

TEST(Snapshots, JoinTheProcessesOfBothWithTheirShares) {
  const auto at = [](int pid, std::uint32_t utime, std::uint32_t stime) {
    return ZAL_ProcessInfo{pid, "", "", 0, utime, stime, 0, 0, 0, 'R'};
  };
  const std::vector before{at(0, 0, 0), at(2, 5, 5), at(3, 1, 1), at(5, 9, 9), at(6, 0xFFFFFFFF, 0)};
  const std::vector after{at(0, 0, 0), at(0, 0, 0), at(2, 10, 10), at(4, 7, 7), at(5, 1, 1), at(6, 4, 0)};
  for (const auto& [elapsed, shares] : {std::pair{100U, "2:40 5:0 6:20 0:0 0:0 "}, {0U, "2:0 5:0 6:0 0:0 0:0 "}}) {
    std::array<ZAL_ProcessInfo, 5> joined{};
    proc::joinSnapshots(before, after, elapsed, 4, joined.data());
    std::ostringstream found;
    for (const auto& record : joined) found << record.pid << ":" << record.cpuUsage << " ";
    EXPECT_EQ(found.str(), shares);
    EXPECT_EQ(joined[0].utime + joined[0].stime, 0U);
  }
}

TEST_F(ProcessTree, IsSearchedByFirstArgumentOrNameOfAThread) {
  add("99", "early");
  add("100", std::string("/sbin/early\0late\0", 17));
  add("101", "", "kworker/0:1");
  fs::create_directory(dir_.file("102"));
  using Row = std::tuple<const char*, bool, int>;
  for (const auto& [name, exact, pid] : {Row{"early", false, 100}, Row{"early", true, 0}, Row{"/sbin/early", true, 100},
                                         Row{"late", false, 0}, Row{"worker", true, 101}, Row{"workers", false, 0}})
    EXPECT_EQ(proc::findProcess(root_.c_str(), name, exact), pid) << name;

  EXPECT_STREQ(proc::listCommandLines(root_.c_str(), "early late").get(), "root    100   /sbin/early late ");
  EXPECT_EQ(proc::listCommandLines(root_.c_str(), "worker"), nullptr);
  add("103", "late " + std::string(600, 'x'));
  const std::string list = proc::listCommandLines(root_.c_str(), "late").get();
  EXPECT_EQ(list.size(), 511U);
  EXPECT_NE(list.find("root    103   late x"), std::string::npos);
}

TEST(ThisMachine, TellsOfAChildWithAnOddNameAndManyDescriptors) {
  const Child child{[] {
    for (int i = 0; i < 210; ++i) static_cast<void>(dup(STDERR_FILENO));
    prctl(PR_SET_NAME, "a) (b\n");
  }};
  ZAL_ProcessInfo info{};
  ASSERT_TRUE(waitUntil([&] { return ZAL_GetProcPidByInt(&info, child.pid()) == 0 && info.state == 'S'; }));
  EXPECT_STREQ(info.comm, "a) (b\n");
  const std::string argument = readFile(child.file("cmdline")).c_str();
  EXPECT_EQ(info.cmdline, argument.substr(0, 255));
  const std::uint64_t pages = std::stoull(readFile(child.file("statm")));
  EXPECT_EQ(info.vsize, static_cast<std::uint32_t>((pages * static_cast<std::uint64_t>(getpagesize()) >> 10) * 1000));
  EXPECT_EQ(info.threads, entriesOf(child.file("task")));
  EXPECT_GE(entriesOf(child.file("fd")), 210);
  EXPECT_EQ(ZAL_CountOpenFileDescriptors(static_cast<std::uint32_t>(child.pid())), entriesOf(child.file("fd")));

  if (child.pid() >= 100) {  // found is the child, or whatever else runs under its name
    EXPECT_TRUE(waitUntil([&] {
      const int found = ZAL_GetProcessPidOf(argument.c_str(), 1);
      return readFile("/proc/" + std::to_string(found) + "/cmdline").c_str() == argument;
    }));
  }
  const zal::CPtr<char> list{ZAL_GetProcessCmdline(argument.c_str())};
  EXPECT_EQ(std::string{list.get()}.find("root    "), 0U);
}

TEST(ThisMachine, HasNoProcessForWhatNamesNone) {
  ZAL_ProcessInfo info{};
  for (const char* pid : {"", "net", static_cast<const char*>(nullptr)}) EXPECT_EQ(ZAL_GetProcPid(&info, pid), -1);
  EXPECT_EQ(ZAL_GetProcPid(nullptr, "self"), -1);
  EXPECT_EQ(ZAL_CountOpenFileDescriptors(0) + ZAL_CountOpenFileDescriptors(0x7FFFFFFF), 0U);
  EXPECT_EQ(ZAL_GetProcessPidOf(nullptr, 0), 0);
  EXPECT_EQ(ZAL_GetProcessCmdline(nullptr), nullptr);
}

TEST(ThisMachine, HasNoTableWhileNothingCanBeOpened) {
  const LogCapture log;
  ZAL_ProcessInfo record{};
  ZAL_ProcessInfo* tables[] = {&record, &record};
  std::uint32_t counts[] = {7, 7};
  withoutDescriptors([&] {
    EXPECT_EQ(ZAL_GetProcesses(&tables[0], &counts[0]), -1);
    ZAL_GetProcessSummary(&tables[1], &counts[1]);
    EXPECT_EQ(ZAL_GetProcessCmdline(""), nullptr);
  });
  EXPECT_THAT(tables, Each(IsNull()));
  EXPECT_THAT(counts, Each(0U));
  EXPECT_EQ(log.count("Could not open /proc\n"), 2) << log.text();
  EXPECT_EQ(log.count("ZAL_GetProcesses() failed\n"), 1) << log.text();
}

TEST(ThisMachine, ShowsABusyChildInTheSummary) {
  const Child child{[] {}, [] { getppid(); }};
  std::uint32_t count = 0;
  ASSERT_TRUE(waitUntil([&] {
    ZAL_ProcessInfo* table = nullptr;
    ZAL_GetProcessSummary(&table, &count);
    const proc::Table owner{zal::CPtr<ZAL_ProcessInfo>{table}, count};
    const auto found = std::ranges::find(owner.span(), child.pid(), &ZAL_ProcessInfo::pid);
    return count == ZAL_PROCESSES_MAX || (found != owner.span().end() && found->cpuUsage > 0);
  }));
  if (count == ZAL_PROCESSES_MAX) GTEST_SKIP() << "the child may be behind the last process of the table";
}

TEST(State, IsNamedAsFarAsItFits) {
  using Row = std::tuple<char, std::size_t, std::string>;
  for (const auto& [letter, size, name] :
       {Row{'D', 32, "uninterruptableSleep"}, Row{'N', 32, "lowPriority"}, Row{'R', 32, "runQueue"}, Row{'S', 4, "sle"},
        Row{'T', 32, "stopped"}, Row{'Z', 32, "zombie"}, Row{'I', 32, "unknown"}}) {
    std::array<char, 32> buffer{};
    ZAL_ConvertStateToString(letter, buffer.data(), size);
    EXPECT_EQ(buffer.data(), name);
  }
  ZAL_ConvertStateToString('R', nullptr, 4);
}

}  // namespace
