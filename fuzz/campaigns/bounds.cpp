// zal_bounds: how much memory a peer can make the library take, and how long joining a large image lasts. Each case
// runs in a process of its own, on a thread of its own as a client's loop does, and is measured by the peak of its
// resident memory.
#include <sys/wait.h>
#include <unistd.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "fuzz/campaigns/support/endpoint.hpp"
#include "fuzz/campaigns/support/vitals.hpp"

namespace zal::campaign {
namespace {

using namespace std::string_literals;

constexpr double kMib = 1 << 20;
constexpr double kKib = 1 << 10;
constexpr std::size_t kReadBlock = 512 << 10;  // what the transport reads at a time

std::string number(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift & 0xff));
  return bytes;
}

/// An image of a format with its NUL, a count, and the same element so many times.
std::string imageOf(const std::string& format, const std::string& element, std::size_t size) {
  const std::size_t count = size / element.size();
  std::string data = format + number(static_cast<std::uint32_t>(count));
  data.reserve(size + 100);
  for (std::size_t i = 0; i < count; ++i) data += element;
  return "tpl\0"s + number(static_cast<std::uint32_t>(8 + data.size())) + data;
}

/// The most that `act` has made resident, in MiB.
double peakOf(const std::function<void()>& act) {
  const long before = vitals().residentKib;
  forgetPeak();
  std::thread{act}.join();
  return std::max(0.0, static_cast<double>(peakKib() - before) / kKib);
}

/// What a case found: a figure, and the most that it may be.
struct Finding {
  double figure;
  double bound;
};

/// Has the process load what it needs once, such as the pages of the library's code.
void warmUp();

/// Runs a case in a process of its own and prints what it found. False beyond the bound.
bool holds(const std::string& name, const char* unit, const std::function<Finding()>& measure) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    warmUp();
    const Finding found = measure();
    const bool isWithin = found.figure <= found.bound;
    std::printf("%-64s %8.2f %s, bound %.2f%s\n", name.c_str(), found.figure, unit, found.bound,
                isWithin ? "" : "  EXCEEDED");
    std::fflush(stdout);
    _exit(isWithin ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) std::printf("%s: ended by signal %d\n", name.c_str(), WTERMSIG(status));
  return status == 0;
}

// Decoding.

constexpr double kDecodeFactor = 40;
constexpr std::size_t kDecodeSize = 4 << 20;

double mibOf(const std::string& bytes) {
  return static_cast<double>(bytes.size()) / kMib;
}

Finding decodeCommands(const std::string& element) {
  const std::string image = imageOf("A(iBBBBi)\0"s, element, kDecodeSize);
  const double peak = peakOf([&] {
    ZAL_IpcCommandList list = ZAL_IpcCommand_Decode(image.data(), static_cast<std::uint32_t>(image.size()));
    if (list == nullptr) throw Failure{"the image cannot be decoded"};
    ZAL_IpcCommand_Destroy(list);
  });
  return {peak / mibOf(image), kDecodeFactor};
}

/// The engine itself, with a map of the image's format.
Finding loadArray(const std::string& format, const std::string& element) {
  std::string image = imageOf(format, element, kDecodeSize);
  const double peak = peakOf([&] {
    char atom = 0;
    const std::unique_ptr<tpl_map_node, void (*)(tpl_map_node*)> map{tpl_map(format.c_str(), &atom, &atom), tpl_free};
    if (tpl_load(map.get(), TPL_VIA_MEM, image.data(), image.size()) != 0) throw Failure{"the image cannot be loaded"};
    while (tpl_unpack(map.get(), 1) > 0) {
    }
  });
  return {peak / mibOf(image), kDecodeFactor};
}

bool measureDecoding() {
  const std::string none = number(0);
  const auto record = [&](const std::string& texts, const std::string& payload) {
    return number(5) + texts + texts + texts + number(static_cast<std::uint32_t>(payload.size())) + payload + number(7);
  };
  const auto texts = number(1) + "\0"s;
  bool isFine = true;
  const std::vector<std::pair<const char*, std::string>> records{
      {"records without texts", record(none, {})},
      {"records with empty texts", record(texts, {})},
      {"records with a payload of 1 byte", record(none, "x")},
      {"records with a payload of 100 bytes", record(texts, std::string(100, 'x'))},
      {"one record with a payload", record(texts, std::string(kDecodeSize / 2, 'x'))},
  };
  for (const auto& [name, element] : records)
    isFine &= holds("decode "s + name, "x image", [&e = element] { return decodeCommands(e); });
  isFine &= holds("load and unpack A(c)", "x image", [] { return loadArray("A(c)\0"s, "x"); });
  isFine &=
      holds("load and unpack A(A(c)), empty inner arrays", "x image", [&] { return loadArray("A(A(c))\0"s, none); });
  return isFine;
}

// Gathering.

int ignore(void* /*image*/, std::size_t /*length*/, void* images) {
  ++*static_cast<long*>(images);
  return 0;
}

/// One image so large, front first, with nothing behind it in memory: the peer's bytes are not to be counted.
class Stream {
 public:
  Stream(std::size_t size, std::size_t blockSize) : size_{size}, block_(blockSize, 'x') {}
  ~Stream() {
    if (state_ == nullptr) return;
    tpl_hook.free_fn(state_->bytes);
    tpl_hook.free_fn(state_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Feeds so many bytes of the image in blocks; the engine's last result.
  int feed(std::size_t bytes) {
    std::string front = "tpl\0"s + number(static_cast<std::uint32_t>(size_)) + "B\0"s;
    for (std::size_t fed = 0; fed < bytes;) {
      const std::size_t part = std::min(block_.size(), bytes - fed);
      if (fed == 0) std::copy_n(front.begin(), std::min(front.size(), part), block_.begin());
      const int result = tpl_gather(TPL_GATHER_FROM_MEM, block_.data(), part, &state_, ignore, &images_);
      if (fed == 0) std::fill_n(block_.begin(), std::min(front.size(), part), 'x');
      if (result != 1) return result;
      fed += part;
    }
    return 1;
  }
  [[nodiscard]] long images() const noexcept { return images_; }

 private:
  std::size_t size_;
  std::string block_;
  tpl_gather_state* state_ = nullptr;
  long images_ = 0;
};

/// Three images one after the other: the allocator treats the second differently, after it has seen the first.
constexpr int kImages = 3;

Finding gather(std::size_t size, std::size_t arriving, std::size_t blockSize) {
  Stream stream{size, blockSize};
  const double peak = peakOf([&] {
    for (int i = 0; i < kImages; ++i) {
      if (stream.feed(arriving) != 1) throw Failure{"the stream is refused"};
      if (arriving < size) break;
    }
  });
  if (arriving == size && stream.images() != kImages) throw Failure{"an image is missing"};
  return {peak, 2 * static_cast<double>(arriving) / kMib + 1};
}

Finding gatherBeyond(std::size_t limit, std::size_t blockSize) {
  tpl_hook.gather_limit = limit;
  const double peak = peakOf([&] {
    for (int i = 0; i < kImages; ++i)
      if (Stream{10 * limit, blockSize}.feed(10 * limit) != -2) throw Failure{"the limit is not kept"};
  });
  return {peak, static_cast<double>(limit) / kMib + 1};
}

Finding joinInTime() {
  constexpr std::size_t kLarge = 128 << 20;
  constexpr double kInstrumented = 10;
  double best = 1e9;
  for (int round = 0; round < 5; ++round) {
    Stream stream{kLarge, kReadBlock};
    const std::clock_t begin = std::clock();  // the processor's time: nothing waits, and other programs do not count
    static_cast<void>(stream.feed(kLarge));
    best = std::min(best, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    if (stream.images() != 1) throw Failure{"an image is missing"};
  }
  return {best, kMemoryIsTelling ? 0.5 : kInstrumented};
}

void warmUp() {
  constexpr std::size_t kSmall = 100'000;
  Stream stream{kSmall, 1000};
  static_cast<void>(peakOf([&] {
    static_cast<void>(stream.feed(kSmall));
    const std::string image = imageOf("A(iBBBBi)\0"s, std::string(24, '\0'), kSmall);
    ZAL_IpcCommand_Destroy(ZAL_IpcCommand_Decode(image.data(), static_cast<std::uint32_t>(image.size())));
  }));
}

bool measureGathering() {
  constexpr std::size_t kLarge = 64 << 20;
  bool isFine = true;
  for (const std::size_t block : {std::size_t{4096}, kReadBlock}) {
    const std::string blocks = ", blocks of " + std::to_string(block / 1024) + " KiB";
    isFine &= holds("gather three images of 64 MiB" + blocks, "MiB", [=] { return gather(kLarge, kLarge, block); });
    isFine &=
        holds("gather 20 MiB of an image of 1 GiB" + blocks, "MiB", [=] { return gather(1 << 30, 20 << 20, block); });
    isFine &= holds("gather with a limit of 8 MiB" + blocks, "MiB", [=] { return gatherBeyond(8 << 20, block); });
    isFine &= holds("gather with a limit of 256 KiB" + blocks, "MiB", [=] { return gatherBeyond(256 << 10, block); });
  }
  isFine &= holds("join 128 MiB from blocks of 512 KiB, the best of five", "s", joinInTime);
  return isFine;
}

int saysNothing(const char* /*format*/, ...) {
  return 0;
}

}  // namespace
}  // namespace zal::campaign

int main() {
  using namespace zal::campaign;
  if (!kMemoryIsTelling) {
    std::puts("a sanitizer counts for nothing here");
    return 0;
  }
  tpl_hook.report_fn = saysNothing;
  const bool isDecoded = measureDecoding();
  return measureGathering() && isDecoded ? 0 : 1;
}
