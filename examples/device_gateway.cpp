// device_gateway: offers the machine that it runs on to the agent, as telemetry. A complete client in C++20.
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
#include <zal/zal.h>

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
#include <new>
#include <numeric>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

using namespace std::string_view_literals;

bool resolvesNames = false;  // set before the client starts

// ---- What the datasets share ---------------------------------------------------------------------------------------

template <auto Function>
struct Release {
  template <class T>
  void operator()(T* resource) const noexcept {
    Function(resource);
  }
};
using ObjectPtr = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, Release<ZAL_Object_Destroy>>;
using ClientPtr = std::unique_ptr<std::remove_pointer_t<ZAL_ClientHandle>, Release<ZAL_Client_Destroy>>;

struct Free {
  void operator()(void* block) const noexcept { std::free(block); }
};
/// A table that the library allocated.
template <class T>
using CArray = std::unique_ptr<T[], Free>;

/// Sends what `build` adds. The object that it gets takes only the members that the request asks for. No exception may
/// leave a handler: the library that calls it speaks C.
template <class Build>
int answer(ZAL_MessageHandle response, Build build) noexcept {
  try {
    ObjectPtr data{ZAL_TelemetryObject_Create(response)};
    if (!data) throw std::bad_alloc{};
    build(data.get());
    ZAL_Message_SetData(response, data.release());  // also cuts the array that a "range=" of the request means
  } catch (const std::exception& failure) {
    ZAL_Message_SetError(response, 500, "device_gateway", failure.what());
  }
  return 0;
}

/// Whether the request asks for a member, or for something in it. One that it does not ask for would not be added
/// anyway; to know that beforehand saves the time that its value takes.
bool isWanted(ZAL_ObjectHandle parent, const char* key) {
  return ZAL_Object_CheckFilter(parent, key, 0) == 1;
}

/// A process may bear any bytes as its name, and JSON takes only text.
std::string printable(std::string_view name) {
  std::string text{name};
  std::ranges::replace_if(
      text, [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

// ---- device/system -------------------------------------------------------------------------------------------------

void addMemory(ZAL_ObjectHandle system) {
  ZAL_MemoryInfo info{};
  ZAL_Osl_GetMemoryInfo(&info);
  // Handles may be null: what is added to a member that nobody asked for goes nowhere.
  ZAL_ObjectHandle memory = ZAL_Object_AddObject(system, "memory");
  ZAL_Object_AddUint64(memory, "total", info.total);
  ZAL_Object_AddUint64(memory, "free", info.free);
  ZAL_Object_AddUint64(memory, "available", info.available);
}

void addProcessors(ZAL_ObjectHandle cpu) {
  if (!isWanted(cpu, "processors")) return;
  ZAL_CpuSummary summary{};
  ZAL_GetCpuSummary(&summary);  // half a second
  ZAL_ObjectHandle list = ZAL_Object_AddArray(cpu, "processors");
  for (const ZAL_CpuLoad& load : std::span{summary.cpu, summary.numCpus}) {
    ZAL_ObjectHandle processor = ZAL_Array_AddObject(list);
    ZAL_Object_AddDouble(processor, "usage", load.usage);
    ZAL_Object_AddDouble(processor, "user", load.user);
    ZAL_Object_AddDouble(processor, "system", load.system);
    ZAL_Object_AddDouble(processor, "iowait", load.iowait);
  }
}

void addCpu(ZAL_ObjectHandle system) {
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(system, "cpu");
  if (cpu == nullptr) return;
  ZAL_Object_AddUint32(cpu, "frequency", ZAL_GetCpuFrequency(0));
  addProcessors(cpu);
}

void addInterruptLines(ZAL_ObjectHandle interrupts) {
  if (!isWanted(interrupts, "lines")) return;
  static std::mutex oneAtATime;  // reading the table sets the numeric locale of the process
  const auto info = std::make_unique<ZAL_InterruptInfo>();
  {
    const std::lock_guard hold{oneAtATime};
    ZAL_GetInterruptCount(info.get());
  }
  ZAL_ObjectHandle lines = ZAL_Object_AddArray(interrupts, "lines");
  for (const ZAL_InterruptType& type : info->types) {
    const std::string_view name = type.name;
    if (name.empty()) continue;
    ZAL_ObjectHandle line = ZAL_Array_AddObject(lines);
    ZAL_Object_AddString(line, "name", type.name + std::min(name.find_first_not_of(' '), name.size()));
    ZAL_Object_AddString(line, "description", printable(type.description).c_str());
    ZAL_Object_AddUint64(line, "count", std::accumulate(std::begin(type.count), std::end(type.count), uint64_t{0}));
  }
}

void addInterrupts(ZAL_ObjectHandle system) {
  ZAL_ObjectHandle interrupts = ZAL_Object_AddObject(system, "interrupts");
  if (interrupts == nullptr) return;
  const auto info = std::make_unique<ZAL_InterruptInfo>();
  ZAL_GetProcStatInfo(info.get());
  ZAL_Object_AddUint32(interrupts, "total", info->totalInterrupts);
  ZAL_Object_AddUint32(interrupts, "contextSwitches", info->contextSwitches);
  addInterruptLines(interrupts);
}

void addSystem(ZAL_ObjectHandle device) {
  ZAL_ObjectHandle system = ZAL_Object_AddObject(device, "system");
  if (system == nullptr) return;
  float uptime = 0;
  ZAL_GetUptimeFloat(&uptime);
  ZAL_Object_AddDouble(system, "uptime", uptime);
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

  void addHolder(ZAL_ObjectHandle connection, uint32_t inode) const {
    const int index = ZAL_FindInodeSocket(inode, table_.data());
    const int slot = ZAL_FindSocketIdx(table_.data(), index, inode);
    if (slot < 0) {  // nobody's any more, or not ours to see
      ZAL_Object_AddNull(connection, "process");
      return;
    }
    const ZAL_ProcSocketEntry& holder = table_[static_cast<std::size_t>(index)];
    ZAL_ObjectHandle process = ZAL_Object_AddObject(connection, "process");
    ZAL_Object_AddInt32(process, "pid", holder.pid);
    ZAL_Object_AddString(process, "name", printable(holder.name).c_str());
    ZAL_Object_AddUint32(process, "changed", holder.socketTimes[slot]);  // of the descriptor's entry in /proc
  }

 private:
  std::vector<ZAL_ProcSocketEntry> table_ = std::vector<ZAL_ProcSocketEntry>(ZAL_PROC_SOCKET_ENTRIES);
};

/// The library names IPv4 addresses, two of them without asking anybody.
void describe(ZAL_AddressInfo& end) {
  const std::string_view address = end.address;
  const bool isFixed = address == "127.0.0.1" || address == "0.0.0.0";
  const bool isV4 = address.find(':') == std::string_view::npos;
  if (isFixed || (isV4 && resolvesNames)) {
    ZAL_ConvertDotAddressToDescription(end.address, end.name, sizeof end.name);
  } else {
    zalstrlcpy(end.name, end.address, sizeof end.name);
  }
}

void addAddress(ZAL_ObjectHandle connection, const char* key, ZAL_AddressInfo end) {
  if (!isWanted(connection, key)) return;  // a look-up of the name takes time
  describe(end);
  ZAL_ZalObjectAddAddressStructure(&end, key, connection);
}

void addService(ZAL_ObjectHandle connection, const char* key, const ZAL_AddressInfo& end, const char* protocol) {
  std::array<char, 64> name{};
  ZAL_ConvertPortToDescription(end.port, protocol, name.data(), name.size());
  ZAL_Object_AddString(connection, key, name.data());
}

const char* nameOfState(uint32_t state) {
  constexpr std::array kNames{"unknown",  "established", "synSent",   "synReceived", "finWait1",  "finWait2",
                              "timeWait", "closed",      "closeWait", "lastAck",     "listening", "closing"};
  return kNames[state < kNames.size() ? state : 0];
}

void addConnections(ZAL_ObjectHandle network) {
  if (!isWanted(network, "connections")) return;
  std::vector<Connection> connections;
  readConnections("tcp", "/proc/net/tcp", connections);
  readConnections("tcp", "/proc/net/tcp6", connections);
  readConnections("udp", "/proc/net/udp", connections);
  readConnections("udp", "/proc/net/udp6", connections);

  std::optional<SocketHolders> holders;  // found when the first one is wanted
  ZAL_ObjectHandle list = ZAL_Object_AddArray(network, "connections");
  for (const Connection& connection : connections) {
    ZAL_ObjectHandle entry = ZAL_Array_AddObject(list);
    ZAL_Object_AddString(entry, "protocol", connection.protocol);
    if (connection.protocol == "tcp"sv) ZAL_Object_AddString(entry, "state", nameOfState(connection.state));
    addAddress(entry, "local", connection.local);
    addService(entry, "localService", connection.local, connection.protocol);
    addAddress(entry, "remote", connection.remote);
    addService(entry, "remoteService", connection.remote, connection.protocol);
    if (!isWanted(entry, "process")) continue;
    if (!holders) holders.emplace();
    holders->addHolder(entry, connection.inode);
  }
}

int readDevice(ZAL_MessageHandle, ZAL_MessageHandle response, ZAL_MessageHandle) {
  return answer(response, [](ZAL_ObjectHandle device) {
    addSystem(device);
    ZAL_ObjectHandle network = ZAL_Object_AddObject(device, "network");
    if (network != nullptr) addConnections(network);
  });
}

// ---- processes -----------------------------------------------------------------------------------------------------

void addProcess(ZAL_ObjectHandle list, const ZAL_ProcessInfo& info) {
  std::array<char, 32> state{};
  ZAL_ConvertStateToString(info.state, state.data(), state.size());
  ZAL_ObjectHandle process = ZAL_Array_AddObject(list);
  ZAL_Object_AddInt32(process, "pid", info.pid);
  ZAL_Object_AddString(process, "name", printable(info.comm).c_str());
  ZAL_Object_AddString(process, "command", printable(info.cmdline).c_str());
  ZAL_Object_AddDouble(process, "cpu", static_cast<double>(info.cpuUsage));
  ZAL_Object_AddUint32(process, "resident", info.rss);
  ZAL_Object_AddInt32(process, "threads", info.threads);
  ZAL_Object_AddString(process, "state", state.data());
}

int readProcesses(ZAL_MessageHandle, ZAL_MessageHandle response, ZAL_MessageHandle) {
  return answer(response, [](ZAL_ObjectHandle data) {
    if (!isWanted(data, "list")) return;
    ZAL_ProcessInfo* table = nullptr;
    uint32_t count = 0;
    ZAL_GetProcessSummary(&table, &count);  // half a second
    const CArray<ZAL_ProcessInfo> owner{table};
    const std::span processes{table, count};
    std::ranges::stable_sort(processes, std::greater{}, &ZAL_ProcessInfo::cpuUsage);
    ZAL_ObjectHandle list = ZAL_Object_AddArray(data, "list");
    for (const ZAL_ProcessInfo& process : processes) {
      if (process.pid != 0) addProcess(list, process);  // 0: it came or went meanwhile
    }
  });
}

// ---- Start and end -------------------------------------------------------------------------------------------------

ClientPtr startClient(const char* url) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  if (url != nullptr) zalstrlcpy(options.url, url, sizeof options.url);
  ClientPtr client{ZAL_Client_Create(&options)};
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  if (!client || telemetry == nullptr) return nullptr;
  ZAL_TelemetryService_AddDataset(telemetry, "device", readDevice);
  ZAL_TelemetryService_AddDataset(telemetry, "processes", readProcesses);
  ZAL_Client_AddService(client.get(), telemetry);  // the client owns it from here on
  ZAL_Client_Start(client.get());
  return client;
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

int main(int argc, char** argv) {
  std::span<char*> arguments{argv + 1, argv + argc};
  if (!arguments.empty() && arguments[0] == "--resolve"sv) {
    resolvesNames = true;
    arguments = arguments.subspan(1);
  }
  if (arguments.size() > 1 || (!arguments.empty() && arguments[0][0] == '-')) {
    std::fprintf(stderr, "usage: device_gateway [--resolve] [URL]\n");
    return 2;
  }
  const sigset_t signals = blockEndSignals();
  const ClientPtr client = startClient(arguments.empty() ? nullptr : arguments[0]);
  if (!client) {
    std::fprintf(stderr, "device_gateway: out of memory\n");
    return EXIT_FAILURE;
  }
  int received = 0;
  sigwait(&signals, &received);
  return EXIT_SUCCESS;
}
