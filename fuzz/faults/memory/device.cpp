// Scenarios of what is read of the device.
#include <unistd.h>

#include <array>
#include <cstring>

#include "memory/scenario.hpp"

namespace faults {

namespace {

using Processes = Owned<ZAL_ProcessInfo*, std::free>;

void readProcesses() {
  ZAL_ProcessInfo own{};
  static_cast<void>(FAULTS_ATTEMPT(-1, ZAL_GetProcPid(&own, "self")));
  static_cast<void>(FAULTS_ATTEMPT(-1, ZAL_GetProcPidByInt(&own, getpid())));
  ZAL_ProcessInfo* table = nullptr;
  std::uint32_t count = 0;
  const int result = FAULTS_ATTEMPT(-1, ZAL_GetProcesses(&table, &count));
  const Processes owned{table};
  FAULTS_REQUIRE(result == 0 ? table != nullptr && count > 0 : table == nullptr && count == 0);

  const std::uint64_t before = strikeCount();
  ZAL_GetProcessSummary(&table, &count);
  const Processes summary{table};
  FAULTS_REQUIRE(table != nullptr || (count == 0 && strikeCount() != before));

  std::array<char, 16> state{};
  ZAL_ConvertStateToString('R', state.data(), state.size());
  FAULTS_REQUIRE(std::strcmp(state.data(), "runQueue") == 0);
  FAULTS_REQUIRE(proc_comp_tid(&own, &own) == 0);
  static_cast<void>(FAULTS_ATTEMPT(0U, ZAL_CountOpenFileDescriptors(static_cast<std::uint32_t>(getpid()))));
  static_cast<void>(ZAL_GetProcessPidOf("no such process", 1));
  const Text lines{FAULTS_ATTEMPT(nullptr, ZAL_GetProcessCmdline(""))};
}

void readProcessors() {
  FAULTS_REQUIRE(ZAL_GetNumOfCpu() > 0);
  std::uint64_t total = 0;
  std::uint64_t idle = 0;
  ZAL_GetTotalCpuTime(&total, &idle);
  ZAL_CpuStat* stats = nullptr;
  const int result = FAULTS_ATTEMPT(-1, ZAL_GetCpuStat(&stats));
  const Owned<ZAL_CpuStat*, std::free> owned{stats};
  FAULTS_REQUIRE((result == 0) == (stats != nullptr));
  ZAL_CpuSummary summary{};
  ZAL_GetCpuSummary(&summary);
  static_cast<void>(ZAL_GetCpuFrequency(0));
  std::array<std::uint32_t, ZAL_CPU_MAX> frequencies{};
  static_cast<void>(ZAL_GetCpuFreqList(frequencies.data()));
}

void readCounters() {
  static ZAL_InterruptInfo interrupts;
  interrupts = {};
  static_cast<void>(ZAL_GetInterruptCount(&interrupts));
  FAULTS_REQUIRE(ZAL_GetProcStatInfo(&interrupts) == 0);
  std::array<char, 1025> text{};
  static_cast<void>(ZAL_GetProcSerialIrqNum("0", text.data()));
  float seconds = 0;
  static_cast<void>(FAULTS_ATTEMPT(-1, ZAL_GetUptimeFloat(&seconds)));
  static_cast<void>(FAULTS_ATTEMPT(-1, ZAL_GetUpTimerFloat(&seconds)));
  std::uint64_t milliseconds = 0;
  FAULTS_REQUIRE(ZAL_GetUptime(&milliseconds) == 0);
  FAULTS_REQUIRE(ZAL_GetUpTime(&milliseconds) == 0);
  ZAL_MemoryInfo memory{};
  FAULTS_REQUIRE(ZAL_Osl_GetMemoryInfo(&memory) == 0);
}

}  // namespace

void device() {
  readProcesses();
  readProcessors();
  readCounters();
}

/// Names are asked for only where the system's resolver is not.
void network() {
  std::array<char, 64> text{};
  FAULTS_REQUIRE(ZAL_ConvertDotAddressToDescription("127.0.0.1", text.data(), text.size()) == 0);
  FAULTS_REQUIRE(std::strcmp(text.data(), "localhost") == 0);
  FAULTS_REQUIRE(ZAL_ConvertPortToDescription(22, "tcp", text.data(), text.size()) == 0);
  FAULTS_REQUIRE(ZAL_IsValidIp4("127.0.0.1") == 1);
  char tooShort[] = "1.2.3.4";
  char* servers[] = {tooShort};
  FAULTS_REQUIRE(ZAL_SetPublicIpAddress(servers, 1) == -1);
  FAULTS_REQUIRE(ZAL_GetPublicIpAddress(text.data(), text.size()) == 0);

  ZAL_AddressInfo address{};
  address.port = 1;
  if (const Object object{FAULTS_ATTEMPT(nullptr, ZAL_Object_Create())})
    FAULTS_REQUIRE(ZAL_ZalObjectAddAddressStructure(&address, "address", object.get()) == 0);
  cJSON* top = FAULTS_ATTEMPT(nullptr, json_Initialize());
  if (top != nullptr) FAULTS_REQUIRE(ZAL_JsonAddAddressStructure(&address, "address", "", nullptr, top, top) == 0);
  json_Uninitialize(&top);

  static std::array<ZAL_ProcSocketEntry, ZAL_PROC_SOCKET_ENTRIES> table;
  FAULTS_REQUIRE(ZAL_GatherProcPids(table.data()) == 0);
  FAULTS_REQUIRE(ZAL_GatherProcPidsSymlinks(table.data()) == 0);
  FAULTS_REQUIRE(ZAL_FindInodeSocket(1, nullptr) == -1);
  FAULTS_REQUIRE(ZAL_FindSocketIdx(table.data(), 0, 0) == -1);
}

}  // namespace faults
