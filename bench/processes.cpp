// The process table, against a straight read of the same files.
#include <zal/zal_system.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "suites.hpp"
#include "support/socket.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

/// Bytes of one file, to its end.
std::size_t readStraight(const char* process, const char* name) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%.32s/%s", process, name);
  const Descriptor file{open(path, O_RDONLY | O_CLOEXEC)};
  char bytes[4096];
  std::size_t length = 0;
  for (ssize_t count = 1; count > 0 && length < sizeof bytes;
       length += static_cast<std::size_t>(std::max(count, ssize_t{0})))
    count = file.get() < 0 ? 0 : read(file.get(), bytes + length, sizeof bytes - length);
  return length;
}

std::uint32_t readAllStraight() {
  std::uint32_t processes = 0;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory{opendir("/proc"), closedir};
  while (const dirent* const entry = readdir(directory.get())) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
    if (readStraight(entry->d_name, "stat") > 0) ++processes;
    readStraight(entry->d_name, "cmdline");
  }
  return processes;
}

std::uint32_t readAllWithZal() {
  ZAL_ProcessInfo* table = nullptr;
  std::uint32_t count = 0;
  ZAL_GetProcesses(&table, &count);
  const std::unique_ptr<ZAL_ProcessInfo, decltype(&std::free)> owner{table, std::free};
  return static_cast<std::uint32_t>(
      std::count_if(table, table + count, [](const ZAL_ProcessInfo& process) { return process.pid > 0; }));
}

template <class Read>
double tableTime(Read readAll, int count) {
  std::uint32_t found = 0;
  const double time = nanosecondsOf(count, [&] { found = readAll(); }) / 1e3;
  if (found == 0) throw std::runtime_error{"no process was found"};
  return time;
}

}  // namespace

void measureProcesses(const Settings& settings, Report& report) {
  const int count = scaled(50, settings.effort);
  report.add({"process table", "us", settings.rounds},
             {{"straight read", [=] { return tableTime(readAllStraight, count); }},
              {"zal", [=] { return tableTime(readAllWithZal, count); }}});
}

}  // namespace bench
