// Cutting a byte stream into images, beside a cutter written by hand with the same contract: each whole image goes to a
// callback, once and in order, and what is incomplete waits for the next block. How both grow with the size of an
// image.
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "suites.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

constexpr std::size_t kSmallBlock = 7;
constexpr std::size_t kPageBlock = 4096;
constexpr std::size_t kReadBlock = 512 << 10;

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kFrontSize = kHeaderSize + 2 + sizeof(std::uint32_t);  // of an image of the format "B"

std::uint32_t lengthOf(std::string_view image) {
  std::uint32_t length = 0;
  std::memcpy(&length, image.data() + sizeof length, sizeof length);
  return length;
}

/// An image of one blob, `size` bytes in all.
std::string imageOf(std::size_t size) {
  std::string bytes(size - kFrontSize, 'x');
  tpl_blob blob{bytes.data(), static_cast<std::uint32_t>(bytes.size())};
  void* image = nullptr;
  std::size_t written = 0;
  if (tpl_jot(TPL_VIA_MEM, &image, &written, "B", &blob) != 0 || written != size) throw std::runtime_error{"tpl_jot"};
  bytes.assign(static_cast<const char*>(image), written);
  tpl_hook.free_fn(image);
  return bytes;
}

/// Images from 100 bytes to 64 KiB, small ones as often as large ones, until they make up `size` bytes.
std::string mixedStream(std::size_t size) {
  constexpr std::size_t kSizes[] = {100, 65536, 300, 16384, 1000, 4096, 150, 30000, 600, 2000};
  std::string stream;
  for (std::size_t i = 0; stream.size() < size; ++i) stream += imageOf(kSizes[i % std::size(kSizes)]);
  return stream;
}

/// What came out of a stream.
struct Tally {
  std::size_t images = 0;
  std::size_t bytes = 0;

  static int add(void* image, std::size_t length, void* data) {
    auto* tally = static_cast<Tally*>(data);
    ++tally->images;
    tally->bytes += static_cast<const char*>(image)[0] == 't' ? length : 0;
    return 0;
  }
};

class ByHand {
 public:
  explicit ByHand(Tally& tally) : ByHand{&Tally::add, &tally} {}
  [[gnu::noinline]] ByHand(tpl_gather_callback callback, void* data) : callback_{callback}, data_{data} {}

  [[gnu::noinline]] void feed(std::string_view block) {
    if (!pending_.empty()) {
      if (!fill(block, kHeaderSize + 1)) return;
      const std::size_t length = checkedLength(pending_);
      pending_.reserve(length);
      if (!fill(block, length)) return;
      deliver(pending_);
      pending_.clear();
    }
    while (block.size() > kHeaderSize && checkedLength(block) <= block.size()) {
      const std::string_view image = block.substr(0, lengthOf(block));
      block.remove_prefix(image.size());
      deliver(image);
    }
    pending_ = block;
  }

 private:
  /// Brings what is pending to a size as far as the block reaches; false when that is too short.
  bool fill(std::string_view& block, std::size_t size) {
    if (pending_.size() < size) {
      const std::string_view next = block.substr(0, size - pending_.size());
      pending_ += next;
      block.remove_prefix(next.size());
    }
    return pending_.size() >= size;
  }

  static std::size_t checkedLength(std::string_view bytes) {
    const std::size_t length = lengthOf(bytes);
    if (!bytes.starts_with("tpl") || length <= kHeaderSize) throw std::runtime_error{"no image"};
    return length;
  }

  void deliver(std::string_view image) {
    if (callback_(const_cast<char*>(image.data()), image.size(), data_) < 0) throw std::runtime_error{"aborted"};
  }

  tpl_gather_callback callback_;
  void* data_;
  std::string pending_;
};

class Zal {
 public:
  explicit Zal(Tally& tally) : tally_{tally} {}
  ~Zal() {
    if (state_ == nullptr) return;
    tpl_hook.free_fn(state_->bytes);
    tpl_hook.free_fn(state_);
  }
  Zal(const Zal&) = delete;
  Zal& operator=(const Zal&) = delete;

  void feed(std::string_view block) {
    if (tpl_gather(TPL_GATHER_FROM_MEM, block.data(), block.size(), &state_, &Tally::add, &tally_) != 1)
      throw std::runtime_error{"tpl_gather"};
  }

 private:
  Tally& tally_;
  tpl_gather_state* state_ = nullptr;
};

/// The floor of encoding: the front of an image and a blob, copied into a new block.
double nanosecondsByHand(std::size_t size, int times) {
  const std::string front = imageOf(size).substr(0, kFrontSize);
  const std::string bytes(size - kFrontSize, 'x');
  return nanosecondsOf(times, [&] {
    const std::unique_ptr<char, void (*)(void*)> image{static_cast<char*>(std::malloc(size)), std::free};
    if (!image) throw std::bad_alloc{};
    std::memcpy(image.get(), front.data(), front.size());
    std::memcpy(image.get() + front.size(), bytes.data(), bytes.size());
    if (lengthOf({image.get(), size}) != size) throw std::runtime_error{"no image"};
  });
}

/// A stream that arrives in blocks, so many times over.
struct Work {
  std::string_view stream;
  std::size_t images;
  std::size_t blockSize;
  int times;
};

template <class Cutter>
double nanosecondsToCut(const Work& work) {
  Tally tally;
  Cutter cutter{tally};
  const double time = nanosecondsOf(work.times, [&] {
    for (std::size_t at = 0; at < work.stream.size(); at += work.blockSize)
      cutter.feed(work.stream.substr(at, work.blockSize));
  });
  const auto times = static_cast<std::size_t>(work.times);
  if (tally.images != work.images * times || tally.bytes != work.stream.size() * times)
    throw std::runtime_error{"an image is missing"};
  return time;
}

std::size_t imagesIn(std::string_view stream) {
  std::size_t images = 0;
  for (; !stream.empty(); stream.remove_prefix(lengthOf(stream))) ++images;
  return images;
}

double nanosecondsToEncode(std::size_t size, int times) {
  std::string bytes(size - kFrontSize, 'x');
  return nanosecondsOf(times, [&] {
    tpl_blob blob{bytes.data(), static_cast<std::uint32_t>(bytes.size())};
    void* image = nullptr;
    std::size_t written = 0;
    if (tpl_jot(TPL_VIA_MEM, &image, &written, "B", &blob) != 0 || written != size) throw std::runtime_error{"tpl_jot"};
    tpl_hook.free_fn(image);
  });
}

double nanosecondsToDecode(std::size_t size, int times) {
  std::string image = imageOf(size);
  return nanosecondsOf(times, [&] {
    tpl_blob blob{};
    const std::unique_ptr<tpl_map_node, void (*)(tpl_map_node*)> map{tpl_map("B", &blob), tpl_free};
    if (tpl_load(map.get(), TPL_VIA_MEM, image.data(), image.size()) != 0 || tpl_unpack(map.get(), 0) != 1 ||
        blob.length != size - kFrontSize)
      throw std::runtime_error{"tpl_load"};
    tpl_hook.free_fn(blob.address);
  });
}

void measureBlocks(const Settings& settings, Report& report) {
  const std::string stream = mixedStream(4 << 20);
  const auto bytes = static_cast<double>(stream.size());
  const auto measure = [&](const char* name, std::size_t blockSize, int times) {
    const Work work{stream, imagesIn(stream), blockSize, scaled(times, settings.effort)};
    report.add({name, "GB/s", settings.rounds}, {{"by hand", [=] { return bytes / nanosecondsToCut<ByHand>(work); }},
                                                 {"zal", [=] { return bytes / nanosecondsToCut<Zal>(work); }}});
  };
  measure("cut a stream, blocks of 512 KiB", kReadBlock, 2000);
  measure("cut a stream, blocks of 4 KiB", kPageBlock, 200);
  measure("cut a stream, blocks of 7 bytes", kSmallBlock, 5);
}

/// The same step with images of 1 KiB to 256 MiB, per byte.
template <class Step>
void measureGrowth(const char* name, const Settings& settings, Report& report, Step nanoseconds) {
  std::vector<Candidate> sizes;
  for (const std::size_t kilobytes : {1U, 16U, 256U, 4096U, 65536U, 262144U}) {
    const std::size_t size = kilobytes << 10;
    const int times = std::max(1, scaled(64 << 20, settings.effort) / static_cast<int>(size));
    sizes.push_back(
        {std::to_string(kilobytes) + " KiB", [=] { return nanoseconds(size, times) / static_cast<double>(size); }});
  }
  report.add({name, "ns a byte", settings.rounds}, sizes);
}

template <class Cutter>
double nanosecondsToCutOne(std::size_t size, int times) {
  const std::string image = imageOf(size);
  return nanosecondsToCut<Cutter>({image, 1, kReadBlock, times});
}

}  // namespace

void measureGather(const Settings& settings, Report& report) {
  measureBlocks(settings, report);
  measureGrowth("cut images by size in blocks of 512 KiB, by hand", settings, report, nanosecondsToCutOne<ByHand>);
  measureGrowth("cut images by size in blocks of 512 KiB, zal", settings, report, nanosecondsToCutOne<Zal>);
  measureGrowth("encode images by size, by hand", settings, report, nanosecondsByHand);
  measureGrowth("encode images by size, zal", settings, report, nanosecondsToEncode);
  measureGrowth("decode images by size, zal", settings, report, nanosecondsToDecode);
}

}  // namespace bench
