// device_gateway: offers the machine that it runs on to the agent, as telemetry. A complete client on zal.hpp.
//
//   device_gateway [--resolve] [URL]      URL is the agent's address, by default file:///tmp/zalIPC.sock
//
// Dataset "device":    system, with uptime, memory, cpu and interrupts; network, with the connections of this machine.
// Dataset "processes": list, the busiest first; "processes?include=list&range=0:5" asks for five.
//
// A request such as "device/system?include=cpu+memory/free" gets what it asks for, and only that is worked out: the
// load of the processors and of the processes is measured for half a second, in which the answer waits.
//
// --resolve names the addresses of other machines, too, by asking the system's resolver.
//
// Threads: main() builds everything and waits. Datasets are read on worker threads, several at a time, and share
// nothing that changes. The client runs until SIGINT or SIGTERM.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <zal/zal.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;

// ---- What the datasets share ---------------------------------------------------------------------------------------

struct Free {
  void operator()(void* block) const noexcept { std::free(block); }
};
/// A table that the library allocated.
template <class T>
using CArray = std::unique_ptr<T[], Free>;

/// A process may bear any bytes as its name, and JSON takes only text.
std::string printable(std::string_view name) {
  std::string text{name};
  std::ranges::replace_if(
      text, [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

// ---- device/system -------------------------------------------------------------------------------------------------

void addMemory(zal::Node system) {
  ZAL_MemoryInfo info{};
  ZAL_Osl_GetMemoryInfo(&info);
  // What is added to an object that nobody asked for goes nowhere.
  system.addObject("memory").add("total", info.total).add("free", info.free).add("available", info.available);
}

void addProcessors(zal::Node cpu) {
  // Would not be added if nobody asked for it; to know that beforehand saves half a second.
  if (!cpu.wants("processors")) return;
  ZAL_CpuSummary summary{};
  ZAL_GetCpuSummary(&summary);
  const zal::Node list = cpu.addArray("processors");
  for (const ZAL_CpuLoad& load : std::span{summary.cpu, summary.numCpus}) {
    list.appendObject()
        .add("usage", load.usage)
        .add("user", load.user)
        .add("system", load.system)
        .add("iowait", load.iowait);
  }
}

void addCpu(zal::Node system) {
  const zal::Node cpu = system.addObject("cpu");
  if (!cpu) return;
  cpu.add("frequency", ZAL_GetCpuFrequency(0));
  addProcessors(cpu);
}

void addInterruptLines(zal::Node interrupts) {
  if (!interrupts.wants("lines")) return;
  static std::mutex oneAtATime;  // reading the table sets the numeric locale of the process
  const auto info = std::make_unique<ZAL_InterruptInfo>();
  {
    const std::lock_guard hold{oneAtATime};
    ZAL_GetInterruptCount(info.get());
  }
  const zal::Node lines = interrupts.addArray("lines");
  for (const ZAL_InterruptType& type : info->types) {
    const std::string_view name = type.name;
    if (name.empty()) continue;
    lines.appendObject()
        .add("name", name.substr(std::min(name.find_first_not_of(' '), name.size())))
        .add("description", printable(type.description))
        .add("count", std::accumulate(std::begin(type.count), std::end(type.count), uint64_t{0}));
  }
}

void addInterrupts(zal::Node system) {
  const zal::Node interrupts = system.addObject("interrupts");
  if (!interrupts) return;
  const auto info = std::make_unique<ZAL_InterruptInfo>();
  ZAL_GetProcStatInfo(info.get());
  interrupts.add("total", info->totalInterrupts).add("contextSwitches", info->contextSwitches);
  addInterruptLines(interrupts);
}

void addSystem(zal::Node device) {
  const zal::Node system = device.addObject("system");
  if (!system) return;
  float uptime = 0;
  ZAL_GetUptimeFloat(&uptime);
  system.add("uptime", uptime);
  addMemory(system);
  addCpu(system);
  addInterrupts(system);
}

// ---- device/network ------------------------------------------------------------------------------------------------

struct Connection {
  const char* protocol;
  ZAL_AddressInfo local;
  ZAL_AddressInfo remote;
  uint32_t state;
  uint32_t inode;
};

template <class Number>
Number parse(std::string_view digits, int base) {
  Number value{};
  std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  return value;
}

/// One end of a connection as the kernel prints it, "0100007F:0016": one or four words of the address, each of them in
/// the byte order of the machine, and the port.
ZAL_AddressInfo readEnd(std::string_view text) {
  const auto colon = std::min(text.find(':'), text.size());
  std::array<uint32_t, 4> words{};
  for (std::size_t i = 0; i < words.size() && 8 * i < colon; ++i) words[i] = parse<uint32_t>(text.substr(8 * i, 8), 16);
  const auto v6 = std::bit_cast<in6_addr>(words);
  const bool isV6 = colon > 8;

  ZAL_AddressInfo end{};
  end.port = parse<int32_t>(text.substr(std::min(colon + 1, text.size())), 16);
  if (isV6) inet_ntop(AF_INET6, &v6, end.addressV6, sizeof end.addressV6);
  if (!isV6 || IN6_IS_ADDR_V4MAPPED(&v6)) {
    inet_ntop(AF_INET, &words[isV6 ? 3 : 0], end.address, sizeof end.address);
  } else {
    zalstrlcpy(end.address, end.addressV6, sizeof end.address);
  }
  return end;
}

/// The lines of one of the kernel's tables, such as /proc/net/tcp (proc(5)).
void readConnections(const char* protocol, const char* path, std::vector<Connection>& found) {
  std::ifstream table{path};
  std::string line;
  std::getline(table, line);  // the titles
  while (std::getline(table, line)) {
    std::istringstream fields{line};
    std::string local, remote, state, inode, skipped;
    fields >> skipped >> local >> remote >> state;
    fields >> skipped >> skipped >> skipped >> skipped >> skipped >> inode;  // queues, timer, retries, user, time-out
    if (!fields) continue;
    found.push_back(
        {protocol, readEnd(local), readEnd(remote), parse<uint32_t>(state, 16), parse<uint32_t>(inode, 10)});
  }
}

/// Knows which process holds a socket. To make one reads the descriptors of all processes.
class SocketHolders {
 public:
  SocketHolders() {
    ZAL_GatherProcPids(table_.data());
    ZAL_GatherProcPidsSymlinks(table_.data());
  }

  void addHolder(zal::Node connection, uint32_t inode) const {
    const int index = ZAL_FindInodeSocket(inode, table_.data());
    const int slot = ZAL_FindSocketIdx(table_.data(), index, inode);
    if (slot < 0) {  // nobody's any more, or not ours to see
      connection.add("process", nullptr);
      return;
    }
    const ZAL_ProcSocketEntry& holder = table_[static_cast<std::size_t>(index)];
    connection.addObject("process")
        .add("pid", holder.pid)
        .add("name", printable(holder.name))
        .add("changed", holder.socketTimes[slot]);  // of the descriptor's entry in /proc
  }

 private:
  std::vector<ZAL_ProcSocketEntry> table_ = std::vector<ZAL_ProcSocketEntry>(ZAL_PROC_SOCKET_ENTRIES);
};

/// The library names IPv4 addresses, two of them without asking anybody.
void describe(ZAL_AddressInfo& end, bool resolvesNames) {
  const std::string_view address = end.address;
  const bool isFixed = address == "127.0.0.1" || address == "0.0.0.0";
  const bool isV4 = address.find(':') == std::string_view::npos;
  if (isFixed || (isV4 && resolvesNames)) {
    ZAL_ConvertDotAddressToDescription(end.address, end.name, sizeof end.name);
  } else {
    zalstrlcpy(end.name, end.address, sizeof end.name);
  }
}

void addAddress(zal::Node connection, const char* key, ZAL_AddressInfo end, bool resolvesNames) {
  if (!connection.wants(key)) return;  // a look-up of the name takes time
  describe(end, resolvesNames);
  ZAL_ZalObjectAddAddressStructure(&end, key, connection.handle());
}

void addService(zal::Node connection, const char* key, const ZAL_AddressInfo& end, const char* protocol) {
  std::array<char, 64> name{};
  ZAL_ConvertPortToDescription(end.port, protocol, name.data(), name.size());
  connection.add(key, name.data());
}

const char* nameOfState(uint32_t state) {
  constexpr std::array kNames{"unknown",  "established", "synSent",   "synReceived", "finWait1",  "finWait2",
                              "timeWait", "closed",      "closeWait", "lastAck",     "listening", "closing"};
  return kNames[state < kNames.size() ? state : 0];
}

void addConnections(zal::Node network, bool resolvesNames) {
  if (!network.wants("connections")) return;
  std::vector<Connection> connections;
  readConnections("tcp", "/proc/net/tcp", connections);
  readConnections("tcp", "/proc/net/tcp6", connections);
  readConnections("udp", "/proc/net/udp", connections);
  readConnections("udp", "/proc/net/udp6", connections);

  std::optional<SocketHolders> holders;  // found when the first one is wanted
  const zal::Node list = network.addArray("connections");
  for (const Connection& connection : connections) {
    const zal::Node entry = list.appendObject();
    entry.add("protocol", connection.protocol);
    if (connection.protocol == "tcp"sv) entry.add("state", nameOfState(connection.state));
    addAddress(entry, "local", connection.local, resolvesNames);
    addService(entry, "localService", connection.local, connection.protocol);
    addAddress(entry, "remote", connection.remote, resolvesNames);
    addService(entry, "remoteService", connection.remote, connection.protocol);
    if (!entry.wants("process")) continue;
    if (!holders) holders.emplace();
    holders->addHolder(entry, connection.inode);
  }
}

// ---- processes -----------------------------------------------------------------------------------------------------

void addProcess(zal::Node list, const ZAL_ProcessInfo& info) {
  std::array<char, 32> state{};
  ZAL_ConvertStateToString(info.state, state.data(), state.size());
  list.appendObject()
      .add("pid", info.pid)
      .add("name", printable(info.comm))
      .add("command", printable(info.cmdline))
      .add("cpu", info.cpuUsage)
      .add("resident", info.rss)
      .add("threads", info.threads)
      .add("state", state.data());
}

void addProcesses(zal::Node data) {
  if (!data.wants("list")) return;
  ZAL_ProcessInfo* table = nullptr;
  uint32_t count = 0;
  ZAL_GetProcessSummary(&table, &count);  // half a second
  const CArray<ZAL_ProcessInfo> owner{table};
  const std::span processes{table, count};
  std::ranges::stable_sort(processes, std::greater{}, &ZAL_ProcessInfo::cpuUsage);
  const zal::Node list = data.addArray("list");
  for (const ZAL_ProcessInfo& process : processes) {
    if (process.pid != 0) addProcess(list, process);  // 0: it came or went meanwhile
  }
}

// ---- Start and end -------------------------------------------------------------------------------------------------

/// An exception that leaves a handler, such as std::bad_alloc, reaches the agent as an error.
void offerDatasets(const zal::Client& client, bool resolvesNames) {
  client.dataset("device", [resolvesNames](const zal::Request&, zal::Response& response) {
    const zal::Node device = response.data();
    addSystem(device);
    if (const zal::Node network = device.addObject("network")) addConnections(network, resolvesNames);
  });
  // Of a request with "range=", the array in the response is cut when the handler has returned.
  client.dataset("processes", [](const zal::Request&, zal::Response& response) { addProcesses(response.data()); });
}

/// Before any thread starts, so that all of them inherit it and only sigwait() gets the signals.
sigset_t blockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

}  // namespace

int main(int argc, char** argv) try {
  std::span<char*> arguments{argv + 1, argv + argc};
  const bool resolvesNames = !arguments.empty() && arguments[0] == "--resolve"sv;
  if (resolvesNames) arguments = arguments.subspan(1);
  if (arguments.size() > 1 || (!arguments.empty() && arguments[0][0] == '-')) {
    std::fprintf(stderr, "usage: device_gateway [--resolve] [URL]\n");
    return 2;
  }
  const sigset_t signals = blockEndSignals();
  const zal::Client client{arguments.empty() ? nullptr : arguments[0]};
  offerDatasets(client, resolvesNames);
  client.start();
  int received = 0;
  sigwait(&signals, &received);
  return EXIT_SUCCESS;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "device_gateway: %s\n", failure.what());
  return EXIT_FAILURE;
}
