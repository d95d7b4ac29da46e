// Interrupt counters: the table of /proc/interrupts, the totals of /proc/stat and the interrupts of serial ports. The
// functions keep no state of their own and are for any thread, but for the locale that ZAL_GetInterruptCount sets.
#include "common/zal_interrupt_info.hpp"

#include <zal/zal_runtime.h>

#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <numeric>
#include <utility>

#include "support/line_reader.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"
#include "support/scanner.hpp"
#include "support/text.hpp"

namespace {

constexpr const char* kReader = "ZAL_GetInterruptCount";
constexpr std::size_t kTableBytes = 10240;
constexpr std::size_t kColumnWidth = 11;  // of one processor's counters
constexpr std::size_t kColumnGap = 2;     // between the counters and the description

using FileLines = zal::LineReader<1024>;

int printedLength(std::string_view text) noexcept {
  return static_cast<int>(text.size());
}

/// Counters have 32 bits; of greater numbers the low ones are kept.
std::optional<std::uint32_t> counter(zal::Scanner& scanner) noexcept {
  const auto number = scanner.number<std::uint64_t>();
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

/// Marks the processors that have a column, as many as are online. Gives the number of columns that are counted.
std::size_t readHeader(std::string_view header, long online, ZAL_InterruptInfo& info) noexcept {
  constexpr std::string_view kLabel = "CPU";
  for (ZAL_InterruptCpu& cpu : info.cpu) cpu.present = 0;
  std::size_t columns = 0;
  for (std::size_t at = header.find(kLabel); at != std::string_view::npos && std::cmp_less(columns, online);
       at = header.find(kLabel, at + kLabel.size())) {
    const auto number = zal::Scanner{header.substr(at + kLabel.size())}.number<std::size_t>();
    if (!number || *number >= std::size(info.cpu) || info.cpu[*number].present != 0) continue;
    info.cpu[*number].present = 1;
    ++columns;
  }
  return columns;
}

/// The text after the counters and the blanks around it; empty when the line ends before.
std::string_view descriptionIn(std::string_view afterLabel, std::size_t columns) noexcept {
  zal::Scanner scanner{afterLabel.substr(std::min(kColumnWidth * columns + kColumnGap, afterLabel.size()))};
  scanner.skipBlanks();
  return scanner.rest();
}

/// One reading of the table, line by line.
class TableReader {
 public:
  TableReader(zal::interrupts::Processors processors, ZAL_InterruptInfo& info) noexcept
      : processors_{processors}, info_{info} {}

  /// Lines count from 1; the first is the header.
  void readLine(unsigned number, std::string_view line) noexcept {
    if (number == 1) {
      columns_ = readHeader(line, processors_.online, info_);
    } else if (!line.empty()) {
      readEntry(number, number - 2, line);
    }
  }

  void finish(unsigned lines) noexcept {
    for (const ZAL_InterruptType& type : info_.types)
      info_.totalInterrupts = std::accumulate(type.count, type.count + columns_, info_.totalInterrupts);
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kReader, "after %u lines, total %lu\n\n\n", lines,
               static_cast<unsigned long>(info_.totalInterrupts));
  }

 private:
  void readEntry(unsigned number, unsigned index, std::string_view line) noexcept {
    if (index >= std::size(info_.types)) {
      std::fprintf(stderr, "%s: interrupt_idx (%u) exceeded ZAL_INTERRUPTS_MAX_TYPES\n", kReader, index);
      return;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view afterLabel = line.substr(colon + 1);
    ZAL_InterruptType& type = info_.types[index];
    type = {};  // an earlier reading may have had another interrupt here
    zal::copyCut(type.name, line.substr(0, colon), sizeof type.name);
    if (const std::string_view description = descriptionIn(afterLabel, columns_); !description.empty()) {
      zal::copyCut(type.description, description, sizeof type.description);
      ZAL_LOG_AS(ZAL_LOG_DEBUG, kReader, "%s: added new interrupt_ to idx %2u (%s)\n", kReader, index,
                 type.description);
    }
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kReader, "line %3u: (%.*s) ", number, printedLength(afterLabel), afterLabel.data());
    readCounters(zal::Scanner{afterLabel}, type);
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kReader, "\n");
  }

  void readCounters(zal::Scanner scanner, ZAL_InterruptType& type) noexcept {
    for (std::size_t k = 0; k < std::size(info_.cpu) && std::cmp_less(k, processors_.configured); ++k) {
      if (info_.cpu[k].present == 0) continue;
      type.count[k] = counter(scanner).value_or(0);
      info_.cpu[k].count += type.count[k];
      ZAL_LOG_AS(ZAL_LOG_DEBUG, kReader, "%lu ", static_cast<unsigned long>(type.count[k]));
    }
  }

  zal::interrupts::Processors processors_;
  ZAL_InterruptInfo& info_;
  std::size_t columns_ = 0;  // at most as many as the record has processors
};

}  // namespace

void zal::interrupts::readTable(std::string_view text, Processors processors, ZAL_InterruptInfo& info) noexcept {
  TableReader table{processors, info};
  unsigned lines = 0;
  for (bool isMore = true; isMore;) {  // what follows the last newline is a line, too
    const std::size_t end = text.find('\n');
    table.readLine(++lines, text.substr(0, end));
    isMore = end != std::string_view::npos;
    if (isMore) text.remove_prefix(end + 1);
  }
  table.finish(lines);
}

bool zal::interrupts::readStatLine(std::string_view line, ZAL_InterruptInfo& info) noexcept {
  constexpr std::string_view kInterrupts = "intr ";
  constexpr std::string_view kSwitches = "ctxt ";
  static_assert(kInterrupts.size() == kSwitches.size());
  const bool isInterrupts = line.starts_with(kInterrupts);
  const bool isSwitches = line.starts_with(kSwitches);
  if (!isInterrupts && !isSwitches) return false;
  Scanner scanner{line.substr(kInterrupts.size())};
  std::uint32_t& field = isInterrupts ? info.totalInterrupts : info.contextSwitches;
  field = counter(scanner).value_or(field);
  return isSwitches;
}

std::optional<std::string_view> zal::interrupts::serialInterrupt(std::string_view line,
                                                                 std::string_view port) noexcept {
  constexpr std::string_view kLabel = "irq:";
  const std::size_t colon = line.find(':');
  const std::size_t label = line.find(kLabel);
  if (colon == std::string_view::npos || label == std::string_view::npos || !port.starts_with(line.substr(0, colon)))
    return std::nullopt;
  const std::string_view value = line.substr(label + kLabel.size());
  return value.substr(0, value.find_first_of(kBlanks));
}

int ZAL_GetInterruptCount(ZAL_InterruptInfo* info) noexcept {
  constexpr const char* kPath = "/proc/interrupts";
  if (info == nullptr) return -1;
  const zal::interrupts::Processors processors{sysconf(_SC_NPROCESSORS_ONLN), sysconf(_SC_NPROCESSORS_CONF)};
  static_cast<void>(std::setlocale(LC_NUMERIC, ""));
  const zal::CPtr<char> text{ZAL_GetFileContentProc(kPath, kTableBytes)};
  if (text == nullptr) {
    std::printf("could not open (%s) \n", kPath);
    return -1;
  }
  zal::interrupts::readTable(text.get(), processors, *info);
  return 0;
}

int ZAL_GetProcStatInfo(ZAL_InterruptInfo* info) noexcept {
  constexpr const char* kPath = "/proc/stat";
  if (info == nullptr) return -1;
  FileLines file{kPath};
  if (!file.isOpen()) std::fprintf(stderr, "Could not open %s\n", kPath);
  while (const auto line = file.next())
    if (zal::interrupts::readStatLine(*line, *info)) break;
  return 0;
}

int ZAL_GetProcSerialIrqNum(const char* port, char* text) noexcept {
  constexpr const char* kPath = "/proc/tty/driver/serial";
  if (port == nullptr || text == nullptr) return -1;
  FileLines file{kPath};
  if (!file.isOpen()) {
    std::fprintf(stderr, "Could not open %s\n", kPath);
    return -1;
  }
  while (const auto line = file.next())
    if (const auto found = zal::interrupts::serialInterrupt(*line, port)) zal::copyCut(text, *found, found->size() + 1);
  return 0;
}
