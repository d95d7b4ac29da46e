// Any stream, cut anywhere, with and without a limit: what is delivered, kept and refused must be what the plainest
// reading of the stream gives, and no more memory may be needed than was promised.
#include <zal/zal_tpl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;
using zal::fuzz::ImageSink;
using zal::fuzz::Text;

constexpr std::size_t kHeaderSize = 8;
constexpr std::uint32_t kSmallestImage = 9;

/// Joins what is pending with each block and cuts from the front, as a stream is described.
class Model {
 public:
  Model(std::size_t limit, std::size_t images) : limit_{limit}, imagesLeft_{images} {}

  int take(std::string_view block) {
    if (limit_ != 0 && !pending_.empty() && pending_.size() + block.size() > limit_) return end(-2);
    pending_ += block;
    std::string_view rest = pending_;
    while (rest.size() > kHeaderSize) {
      const std::uint32_t length = lengthOf(rest);
      if (!rest.starts_with("tpl") || length < kSmallestImage) return end(-3);
      if (length > rest.size()) break;
      delivered_.emplace_back(rest.substr(0, length));
      rest.remove_prefix(length);
      if (imagesLeft_-- == 0) return end(-4);
    }
    pending_.erase(0, pending_.size() - rest.size());
    return 1;
  }

  [[nodiscard]] const std::string& pending() const { return pending_; }
  [[nodiscard]] const std::vector<std::string>& delivered() const { return delivered_; }

 private:
  static std::uint32_t lengthOf(std::string_view image) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      const std::size_t shift = (image[3] & 1) != 0 ? 3 - i : i;
      length |= std::uint32_t{static_cast<std::uint8_t>(image[4 + i])} << 8 * shift;
    }
    return length;
  }

  int end(int result) {
    pending_.clear();
    return result;
  }

  std::size_t limit_;
  std::size_t imagesLeft_;  // that the callback accepts
  std::string pending_;
  std::vector<std::string> delivered_;
};

/// A block, made much longer by its last byte where large ones are wanted.
Text stretched(std::string_view bytes, bool isStretched) {
  constexpr std::size_t kFactor = 256;
  if (!isStretched) return Text{bytes};
  std::string longer{bytes};
  longer.resize(bytes.size() * kFactor, bytes.back());
  return Text{longer};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLimits[] = {0, 9, 64, 100000};
  constexpr std::size_t kSlack = 65 << 10;  // for the front of an image, whose length is believed so far
  zal::fuzz::Input input{data, size};
  const EngineHook hook;
  const std::uint8_t choice = input.byte();
  const std::size_t limit = kLimits[choice % 4];
  const std::size_t accepted = choice < 0x80 ? SIZE_MAX : choice / 4 % 8;
  const std::string_view cuts = input.take(input.below(16));
  const bool isStretched = (choice & 0x40) != 0;
  tpl_hook.gather_limit = limit;

  Model model{limit, accepted};
  ImageSink sink{accepted, {}};
  tpl_gather_state* state = nullptr;
  std::size_t largestBlock = 0;
  std::size_t total = 0;
  for (std::size_t i = 0; input.left() != 0; ++i) {
    const Text block =
        stretched(input.take(cuts.empty() ? size : static_cast<std::uint8_t>(cuts[i % cuts.size()]) + 1U), isStretched);
    largestBlock = std::max(largestBlock, block.size());
    total += block.size();
    const int result = tpl_gather(TPL_GATHER_FROM_MEM, block.get(), block.size(), &state, &ImageSink::take, &sink);
    FUZZ_CHECK(result == model.take(block.view()));
    FUZZ_CHECK((state == nullptr) == model.pending().empty());
    FUZZ_CHECK(zal::fuzz::pendingBytes(state) == model.pending());
  }
  FUZZ_CHECK(sink.images == model.delivered());
  FUZZ_CHECK(EngineHook::peak() <= 2 * total + kSlack);
  if (limit != 0) FUZZ_CHECK(EngineHook::peak() <= std::max(limit, largestBlock) + kSlack);
  zal::fuzz::freePending(state);
  FUZZ_CHECK(EngineHook::blocks() == 0);
  return 0;
}
