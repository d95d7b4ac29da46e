// Any files as those of a process in /proc and of a device in /sys, in a directory of the target's own.
#include <fcntl.h>
#include <unistd.h>
#include <zal/zal_runtime.h>
#include <zal/zal_system.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/zal_cpu_stat.hpp"
#include "common/zal_proc_pid.hpp"
#include "support/descriptor.hpp"
#include "support/fuzz.hpp"
#include "support/memory.hpp"

namespace {

using zal::fuzz::Input;
using zal::fuzz::Text;

constexpr const char* kProcess = "123";

/// A file whose content changes.
class File {
 public:
  explicit File(const std::filesystem::path& path)
      : file_{open(path.c_str(), O_CREAT | O_RDWR | O_TRUNC | O_CLOEXEC, 0600)} {
    FUZZ_CHECK(file_.isOpen());
  }
  void set(std::string_view text) const {
    FUZZ_CHECK(ftruncate(file_.get(), 0) == 0);
    FUZZ_CHECK(pwrite(file_.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  }

 private:
  zal::Descriptor file_;
};

/// The directory that stands for /proc, with one process in it; it vanishes with the program.
class Root {
 public:
  Root() {
    const std::filesystem::path memory{"/dev/shm"};
    const std::filesystem::path base = exists(memory) ? memory : std::filesystem::temp_directory_path();
    std::string name = (base / "fuzz_proc.XXXXXX").string();
    FUZZ_CHECK(mkdtemp(name.data()) != nullptr);
    path_ = name;
    std::filesystem::create_directory(path_ / kProcess);
  }
  ~Root() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  [[nodiscard]] std::filesystem::path operator/(const char* name) const { return path_ / kProcess / name; }
  [[nodiscard]] const char* path() const { return path_.c_str(); }

 private:
  std::filesystem::path path_;
};

struct Process {
  Root root;
  File stat{root / "stat"};
  File cmdline{root / "cmdline"};
  File comm{root / "comm"};
};

void readProcess(const char* root, std::string_view stat) {
  constexpr std::size_t kRead = 4095;  // of the file
  const auto process = zal::proc::readProcess(root, kProcess);
  FUZZ_CHECK(process.has_value() == zal::proc::parseStat(stat.substr(0, kRead)).has_value());
  const zal::proc::Table table = zal::proc::readTable(root);
  FUZZ_CHECK(table.records != nullptr && table.count == 1);
  FUZZ_CHECK(table.records.get()->pid == (process ? process->pid : 0));
}

void findProcess(const char* root, const Text& name) {
  const std::int32_t exact = zal::proc::findProcess(root, name.view(), true);
  const std::int32_t loose = zal::proc::findProcess(root, name.view(), false);
  FUZZ_CHECK(exact == 0 || exact == 123);
  FUZZ_CHECK(loose == exact || exact == 0);
  const zal::CPtr<char> list = zal::proc::listCommandLines(root, name.view());
  FUZZ_CHECK(!list || std::string_view{list.get()}.starts_with("root    123"));
}

void readAttribute(const Process& process, std::size_t size) {
  constexpr std::size_t kFrequencyRead = 31;
  std::uint32_t value = 1;
  FUZZ_CHECK(sysfs_get((process.root / "").c_str(), "comm", &value) == 0);
  const std::string path = process.root / "comm";
  static_cast<void>(zal::cpu::readProcessors(path.c_str(), ZAL_CPU_MAX));
  static_cast<void>(zal::cpu::readSystem(path.c_str()));
  const std::uint32_t frequency = zal::cpu::readMegahertz(path.c_str());
  // A number that is none for the one, such as a negative one, is the largest for the other.
  const bool isOrdinary = value != UINT32_MAX && size <= kFrequencyRead;
  FUZZ_CHECK(!isOrdinary || frequency == value / 1000 || frequency == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  static const Process process;
  Input input{data, size};
  const Text name = input.text();
  const Text stat = input.text();
  const Text comm = input.text();
  process.stat.set(stat.view());
  process.comm.set(comm.view());
  process.cmdline.set(input.rest());
  readProcess(process.root.path(), stat.view());
  findProcess(process.root.path(), name);
  readAttribute(process, comm.size());
  return 0;
}
