#include <zal/zal_runtime.h>
#include <zal/zal_system.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/zal_message.hpp"
#include "common/zal_network_info/name_cache.hpp"
#include "support/memory.hpp"
#include "support/text.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace {

using namespace zal::test;
using zal::network::NameCache;

// ---- Names of addresses: a cache over a resolver and a clock that the tests script ---------------------------------

using Answer = std::pair<int, std::string>;

struct Script {
  int code = 0;
  double seconds = 0;  // that a lookup takes
  std::atomic<double> now{0};
  std::atomic<int> lookups{0};
  std::function<void()> duringLookup = [] {};
} script;

int scriptedName(in_addr address, std::span<char> name) noexcept {
  ++script.lookups;
  script.duringLookup();
  script.now = script.now + script.seconds;
  zal::copyCut(name.data(), std::string{"host-"} + inet_ntoa(address), name.size());
  return script.code;
}

NameCache cache{{.nameOf = scriptedName, .now = []() noexcept { return script.now.load(); }}};

Answer describe(const char* address, std::size_t size = 64) {
  std::string text(64, '#');
  const int code = cache.describe(address, text.data(), size);
  return {code, text.c_str()};
}

std::string numbered(int number) {
  return "10.0.0." + std::to_string(number);
}

TEST(AddressNames, NeedALookupOnlyForAnIpv4AddressThatIsNotFixed) {
  EXPECT_EQ(describe("0.0.0.0"), Answer(0, "unknown"));
  EXPECT_EQ(describe("127.0.0.1"), Answer(0, "localhost"));
  for (const char* rubbish : {"", "abc", "10.0.0.1 ", "10.0.0", "::1", static_cast<const char*>(nullptr)})
    EXPECT_EQ(describe(rubbish), Answer(EAI_NONAME, "unknown"));
  EXPECT_EQ(cache.describe("0.0.0.0", nullptr, 9), 0);
  EXPECT_EQ(script.lookups, 0);
}

TEST(AddressNames, OfFiftyAddressesAreKeptFoundOrNot) {
  script.code = EAI_AGAIN;
  EXPECT_EQ(describe("10.0.0.1"), Answer(EAI_AGAIN, "unknown"));
  script.code = 0;
  EXPECT_EQ(describe("10.0.0.1"), Answer(0, "unknown"));
  for (const std::size_t size : {5U, 64U})
    EXPECT_EQ(describe("10.0.0.2", size), Answer(0, "host")) << "as it was written for the first who asked";
  EXPECT_EQ(script.lookups, 2);

  for (const int lookupsOfTheLast : {1, 2}) {
    for (int i = 1; i <= 51; ++i) EXPECT_EQ(describe(numbered(i).c_str()).first, 0);
    EXPECT_EQ(script.lookups, 50 + lookupsOfTheLast);
  }
}

TEST(AddressNames, AreLeftUnknownForFiveMinutesWhenTheResolverIsDownAndThenForgotten) {
  const struct {
    double now;
    const char* address;
    int code;
    double seconds;  // that a lookup would take
    const char* expected;
    int lookups;
  } moments[] = {
      {0.9, "10.0.0.1", 0, 0, "host-10.0.0.1", 1},
      {0.9, "10.0.0.2", EAI_AGAIN, 2.5, "unknown", 2},
      {300.9, "10.0.0.3", 0, 0, "unknown", 2},
      {300.9, "10.0.0.1", 0, 0, "host-10.0.0.1", 2},
      {301, "10.0.0.3", EAI_FAIL, 2.0, "unknown", 3},  // an answer all the same, for it comes in time
      {301, "10.0.0.1", 0, 0, "host-10.0.0.1", 4},
      {301, "10.0.0.2", 0, 0, "host-10.0.0.2", 5},
      {400, "10.0.0.4", EAI_AGAIN, 2.5, "unknown", 6},
      {399, "10.0.0.5", 0, 0, "host-10.0.0.5", 7},  // the clock was set back
  };
  for (const auto& moment : moments) {
    const bool isLookedUp = moment.lookups > script.lookups;
    script.now = moment.now;
    script.code = moment.code;
    script.seconds = moment.seconds;
    EXPECT_EQ(describe(moment.address), Answer(isLookedUp ? moment.code : 0, moment.expected)) << moment.now;
    EXPECT_EQ(script.lookups, moment.lookups) << moment.now;
  }
}

TEST(AddressNames, AreLookedUpByOneThreadWhileTheOthersGoOn) {
  constexpr int kThreads = 8;
  std::atomic<int> answered{0};
  std::atomic<int> found{0};
  script.duringLookup = [&] { EXPECT_TRUE(waitUntil([&] { return answered == kThreads - 1; })); };
  {
    std::vector<std::jthread> threads;
    for (int i = 1; i <= kThreads; ++i)
      threads.emplace_back([&, address = numbered(i)] {
        const Answer answer = describe(address.c_str());
        if (answer == Answer(0, "unknown")) ++answered;
        if (answer == Answer(0, "host-" + address)) ++found;
      });
  }
  EXPECT_EQ(script.lookups, 1);
  EXPECT_EQ(found, 1);
}

TEST(AddressNames, ComeFromTheHostsFile) {
  const TempDir dir;
  const std::string hosts = dir.file("hosts");
  writeFile(hosts, "127.9.8.7 meter-of-the-cellar\n");
  if (std::filesystem::exists("/run/nscd/socket")) GTEST_SKIP() << "another process reads the hosts file here";
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount(hosts.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
    GTEST_SKIP() << "this user cannot put a hosts file of the test's own in place";
  std::array<char, 32> text{};
  EXPECT_EQ(ZAL_ConvertDotAddressToDescription("127.9.8.7", text.data(), text.size()), 0);
  EXPECT_STREQ(text.data(), "meter-of-the-cellar");
}

// ---- Ports and records ---------------------------------------------------------------------------------------------

TEST(PortNames, AreThoseOfTheSystemWhenTheyFit) {
  const auto nameOf = [](int port, const char* protocol, std::size_t size = 32) {
    std::array<char, 33> text{"###"};
    EXPECT_EQ(ZAL_ConvertPortToDescription(port, protocol, text.data(), size), 0);
    return std::string{text.data()};
  };
  const servent* const ssh = getservbyport(htons(22), "tcp");
  const std::string name = ssh == nullptr ? "unknown" : ssh->s_name;
  EXPECT_EQ(nameOf(22, "tcp", name.size() + 1), name);
  EXPECT_EQ(nameOf(22, "tcp", name.size()), std::string{"unknown"}.substr(0, name.size() - 1));
  EXPECT_EQ(nameOf(22, nullptr), name);
  for (const int port : {0, -22, 65536 + 22}) EXPECT_EQ(nameOf(port, "tcp"), "unknown");
  EXPECT_EQ(nameOf(22, "no-protocol"), "unknown");
}

/// What is added under a filter; both ways must agree.
std::string added(const ZAL_AddressInfo* info, const char* key, const char* filter) {
  const ZAL_MessageHandle message = ZAL_Message_Create();
  zal::setMessageFilter(message, filter);
  const HandlePtr handle{ZAL_TelemetryObject_Create(message)};
  EXPECT_EQ(ZAL_ZalObjectAddAddressStructure(info, key, handle.get()), 0);
  ZAL_Message_Destroy(message);

  const HandlePtr bare{ZAL_Object_Create()};
  cJSON* const top = ZAL_Object_GetInternal(bare.get());
  EXPECT_EQ(ZAL_JsonAddAddressStructure(info, key, filter, nullptr, top, top), 0);
  EXPECT_EQ(textOf(bare.get()), textOf(handle.get()));
  return textOf(bare.get());
}

TEST(AddressRecord, BecomesAnObjectOfWhatWasAskedFor) {
  ZAL_AddressInfo info{};
  info.port = 443;
  std::memset(info.address, 'a', sizeof info.address);  // not terminated
  zalstrlcpy(info.name, "gate", sizeof info.name);
  EXPECT_EQ(added(&info, "local", ""),
            R"({"local":{"name":"gate","address":")" + std::string(46, 'a') + R"(","addressV6":null,"port":443}})");
  zalstrlcpy(info.addressV6, "::1", sizeof info.addressV6);
  EXPECT_EQ(added(&info, "local", "local?include=port+addressV6"), R"({"local":{"addressV6":"::1","port":443}})");
  for (const auto& none : {added(&info, "local", "remote"), added(nullptr, "local", ""), added(&info, nullptr, "")})
    EXPECT_EQ(none, "{}");

  const zal::JsonPtr top{cJSON_CreateObject()};
  ZAL_JsonAddAddressStructure(&info, "local", nullptr, "", top.get(), top.get());
  ZAL_JsonAddAddressStructure(&info, "local", "", "", nullptr, nullptr);
  EXPECT_EQ(top->child, nullptr);
}

// ---- Processes and their sockets -----------------------------------------------------------------------------------

using Table = std::vector<ZAL_ProcSocketEntry>;

Table tableOf(pid_t first, pid_t second = 0) {
  Table table(ZAL_PROC_SOCKET_ENTRIES);
  table[0].pid = first;
  table[1].pid = second;
  return table;
}

/// The inode numbers behind a process's descriptors above 2 that are sockets, in the order of the descriptors.
std::vector<std::uint32_t> socketsOf(pid_t pid) {
  std::vector<std::uint32_t> inodes;
  for (int descriptor = 3; descriptor < 1200; ++descriptor) {
    const std::string link = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(descriptor);
    std::error_code notOpen;
    const std::string target = std::filesystem::read_symlink(link, notOpen).string();
    if (target.starts_with("socket:[")) inodes.push_back(static_cast<std::uint32_t>(std::stoul(target.substr(8))));
  }
  return inodes;
}

std::vector<std::uint32_t> socketsIn(const ZAL_ProcSocketEntry& entry) {
  const auto* const end = std::ranges::find(entry.sockets, 0U);
  EXPECT_TRUE(std::all_of(end, std::end(entry.sockets), [](std::uint32_t inode) { return inode == 0; }));
  return {std::begin(entry.sockets), end};
}

TEST(ProcessTable, NamesProcessesWhateverTheirNamesHoldAndForgetsWhatItHeld) {
  const Child odd{[] { prctl(PR_SET_NAME, "a) \n\xff%s [b]"); }};
  const Child empty{[] { prctl(PR_SET_NAME, ""); }};
  Table table(ZAL_PROC_SOCKET_ENTRIES);
  std::memset(table.data(), 0x7f, table.size() * sizeof table[0]);
  EXPECT_EQ(ZAL_GatherProcPids(table.data()), 0);
  if (table.back().pid != 0 && table.back().pid != 0x7f7f7f7f) GTEST_SKIP() << "more processes than a table holds";

  const auto end = std::ranges::find(table, 0, &ZAL_ProcSocketEntry::pid);
  const auto nameOf = [&](pid_t pid) {
    const auto found = std::ranges::find(table.begin(), end, pid, &ZAL_ProcSocketEntry::pid);
    EXPECT_TRUE(found == end || socketsIn(*found).empty());
    return found == end ? "(none)" : std::string{found->name};
  };
  EXPECT_EQ(nameOf(odd.pid()), "a) \n\xff%s [b]");
  EXPECT_EQ(nameOf(empty.pid()), "");
  EXPECT_EQ(nameOf(getpid()) + "\n", readFile("/proc/self/comm"));
}

TEST(ProcessTable, ReportsThatProcCannotBeOpened) {
  Table table = tableOf(1);
  const LogCapture output;
  withoutDescriptors([&] {
    EXPECT_EQ(ZAL_GatherProcPids(table.data()), 0);
    EXPECT_EQ(ZAL_GatherProcPidsSymlinks(table.data()), 0);
  });
  EXPECT_EQ(output.text(), "ZAL_GatherProcPids - could not open dir (/proc)\n");
}

TEST(SocketTable, HoldsTheSocketsOfThisProcessAndNoneOfOneThatHasEnded) {
  const TempDir dir;
  const std::string likeASocket = dir.file("x socket:[7]");
  writeFile(likeASocket, "");
  ASSERT_GE(open(likeASocket.c_str(), O_RDONLY), 0);
  const int socketA = socket(AF_UNIX, SOCK_STREAM, 0);
  const int socketB = socket(AF_INET, SOCK_DGRAM, 0);
  dup2(socketB, STDIN_FILENO);  // not looked at
  dup2(socketA, 1100);          // where the limit of this machine allows it
  struct stat64 status {};
  fstat64(socketA, &status);
  const auto inode = static_cast<std::uint32_t>(status.st_ino);

  const pid_t ended = std::make_unique<Child>([] {})->pid();
  Table table = tableOf(ended, getpid());
  table[0].sockets[0] = 7;
  EXPECT_EQ(lstat64(("/proc/self/fd/" + std::to_string(socketA)).c_str(), &status), 0);
  EXPECT_EQ(ZAL_GatherProcPidsSymlinks(table.data()), 0);

  EXPECT_TRUE(socketsIn(table[0]).empty());
  EXPECT_EQ(socketsIn(table[1]), socketsOf(getpid()));
  EXPECT_EQ(ZAL_FindInodeSocket(inode, table.data()), 1);
  const int slot = ZAL_FindSocketIdx(table.data(), 1, inode);
  ASSERT_GE(slot, 0);
  EXPECT_GE(table[1].socketTimes[slot], status.st_ctim.tv_sec);  // later when the kernel forgot the link in between
  EXPECT_LE(table[1].socketTimes[slot], time(nullptr));
}

TEST(SocketTable, KeepsTwoHundredSocketsOfAProcessAndLogsTheRest) {
  const Child child{[] {
    for (int i = 0; i < 210; ++i) socket(AF_UNIX, SOCK_DGRAM, 0);
  }};
  std::vector<std::uint32_t> all = socketsOf(child.pid());
  ASSERT_GE(all.size(), 210);
  Table table = tableOf(child.pid());
  const LogCapture log;
  ZAL_GatherProcPidsSymlinks(table.data());
  const std::string line = "ZAL_GatherProcPidsSymlinks - socket array for PID " + std::to_string(child.pid()) +
                           " max'ed out at 200; ignored symlink socket:[";
  EXPECT_EQ(log.count(line), static_cast<int>(all.size()) - 200);
  EXPECT_TRUE(log.contains(line + std::to_string(all.back()) + "]\n"));
  all.resize(200);
  EXPECT_EQ(socketsIn(table[0]), all);
}

TEST(SocketTable, IsSearchedUpToItsEnd) {
  Table table = tableOf(11, 12);
  table[0].sockets[3] = table[1].sockets[0] = 100;
  table[1].sockets[199] = 200;
  table[2].sockets[0] = 300;  // behind the end
  for (const auto& [inode, index] : {std::pair{100U, 0}, {200U, 1}, {300U, -1}})
    EXPECT_EQ(ZAL_FindInodeSocket(inode, table.data()), index) << inode;
  EXPECT_EQ(ZAL_FindSocketIdx(table.data(), 0, 100), 3);
  EXPECT_EQ(ZAL_FindSocketIdx(table.data(), 1, 200), 199);
  for (const int index : {-1, 0, ZAL_PROC_SOCKET_ENTRIES}) EXPECT_EQ(ZAL_FindSocketIdx(table.data(), index, 200), -1);
  EXPECT_EQ(ZAL_FindSocketIdx(table.data(), 0, 0), -1);
  EXPECT_EQ(ZAL_FindInodeSocket(100, nullptr) + ZAL_FindSocketIdx(nullptr, 0, 100), -2);
}

}  // namespace
