// Any text as a format, with any counts: what tpl_map takes is packed, dumped, peeked at, loaded and unpacked.
#include <zal/zal_tpl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;
using zal::fuzz::Input;

constexpr std::size_t kArguments = 24;
constexpr std::size_t kAreaSize = 4096;

/// What the formats' variables lie in: numbers of 0, texts and blobs without address.
alignas(16) char areas[kArguments][kAreaSize];

/// The variable arguments of a format. Numbers and addresses travel alike on the machines that this runs on.
struct Arguments {
  std::array<std::uintptr_t, kArguments + 1> values{};  // the last one is never set
  std::size_t count = 0;
  bool fitsAreas = true;
};

int readCount(Input& input) {
  constexpr int kSpecial[] = {0, -1, 1 << 16, 46341, std::numeric_limits<int>::max()};
  const std::uint8_t choice = input.byte();
  return choice < std::size(kSpecial) ? kSpecial[choice] : 1 + choice % 4;
}

/// Which characters take an argument. Where the format is wrong, nothing behind is read.
class Grammar {
 public:
  bool takesVariable(char symbol) {
    const bool isOutside = !isStructureOpen_;
    if (symbol == 'S') isStructureOpen_ = true;
    if (symbol == '$') ++nestedDepth_;
    if (symbol == ')') close();
    return isOutside && std::string_view{"iucsfIUjvBS"}.find(symbol) != std::string_view::npos;
  }

 private:
  void close() {
    if (nestedDepth_ > 0) {
      --nestedDepth_;
    } else {
      isStructureOpen_ = false;
    }
  }

  bool isStructureOpen_ = false;
  int nestedDepth_ = 0;
};

Arguments argumentsOf(std::string_view format, Input& input) {
  constexpr std::int64_t kMostOfArea = 16;
  Arguments arguments;
  Grammar grammar;
  std::int64_t product = 1;
  for (const char symbol : format) {
    std::uintptr_t& value = arguments.values[arguments.count];
    if (grammar.takesVariable(symbol)) {
      char* const area = areas[arguments.count++];
      std::memset(area, 0, kAreaSize);  // an unpacked blob leaves its padding there
      value = reinterpret_cast<std::uintptr_t>(area);
    } else if (symbol == '#') {
      const int count = readCount(input);
      value = static_cast<std::uintptr_t>(static_cast<std::intptr_t>(count));
      ++arguments.count;
      if (arguments.fitsAreas) product *= std::max(count, 0);  // a map with a negative one is refused
      arguments.fitsAreas = arguments.fitsAreas && product <= kMostOfArea;
    }
  }
  return arguments;
}

template <std::size_t... I>
tpl_map_node* mapOf(const char* format, const Arguments& arguments, std::index_sequence<I...> /*all*/) {
  return tpl_map(format, arguments.values[I]...);
}

tpl_map_node* mapOf(const char* format, const Arguments& arguments) {
  return mapOf(format, arguments, std::make_index_sequence<kArguments>{});
}

/// The caller frees the image.
std::string_view dump(tpl_map_node* map) {
  void* image = nullptr;
  std::size_t size = 0;
  std::size_t asked = 0;
  FUZZ_CHECK(tpl_dump(map, TPL_SIZE_QUERY, &asked) == 0);
  FUZZ_CHECK(tpl_dump(map, TPL_VIA_MEM, &image, &size) == 0);
  FUZZ_CHECK(size == asked);
  return {static_cast<const char*>(image), size};
}

void peek(std::string_view image, std::string_view format) {
  std::uint32_t count = 0;
  std::uint32_t* counts = nullptr;
  char* const found = tpl_peek(TPL_VIA_MEM | TPL_FXLENS, image.data(), image.size(), &count, &counts);
  FUZZ_CHECK(found != nullptr && found == format);
  FUZZ_CHECK(count == static_cast<std::size_t>(std::count(format.begin(), format.end(), '#')));
  tpl_hook.free_fn(found);
  tpl_hook.free_fn(counts);
}

/// Packs each array twice, the inner before the outer ones, and unpacks all again.
void fill(tpl_map_node* map, tpl_map_node* other, int arrays) {
  FUZZ_CHECK(tpl_pack(map, 0) == 0);
  for (int array = arrays; array > 0; --array)
    for (int i = 0; i < 2; ++i) FUZZ_CHECK(tpl_pack(map, array) == 0);
  const std::string_view image = dump(map);
  FUZZ_CHECK(tpl_load(other, TPL_VIA_MEM, image.data(), image.size()) == 0);
  FUZZ_CHECK(tpl_unpack(other, 0) == 1);
  for (int array = 1; array <= arrays; ++array)
    while (tpl_unpack(other, array) > 0) {
    }
  FUZZ_CHECK(tpl_pack(map, arrays + 1) == -1);
  FUZZ_CHECK(tpl_unpack(other, arrays + 1) == -1);
  tpl_free(other);
  tpl_hook.free_fn(const_cast<char*>(image.data()));
}

void use(const char* format, const Arguments& arguments) {
  tpl_map_node* const map = mapOf(format, arguments);
  if (map == nullptr) return;
  tpl_map_node* const other = mapOf(format, arguments);
  const std::string_view image = dump(map);
  peek(image, format);
  FUZZ_CHECK(tpl_load(other, TPL_VIA_MEM, image.data(), image.size()) == 0);
  const std::string_view text{format};
  const auto arrays = static_cast<int>(std::count(text.begin(), text.end(), 'A'));
  for (int array = 1; array <= arrays; ++array) FUZZ_CHECK(tpl_Alen(other, array) == 0);
  if (arguments.fitsAreas) {
    fill(map, other, arrays);
  } else {
    tpl_free(other);
  }
  tpl_hook.free_fn(const_cast<char*>(image.data()));
  tpl_free(map);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input{data, size};
  const zal::fuzz::Text whole = input.text();
  const zal::fuzz::Text format{whole.view().substr(0, kArguments)};
  const Arguments arguments = argumentsOf(format.view(), input);
  const EngineHook hook{1 << 20};
  // A count below 1, eleven '#' in a row, and values beyond the memory end the process.
  const bool isOver = EngineHook::run([&] { use(format.get(), arguments); });
  FUZZ_CHECK(!isOver || EngineHook::blocks() == 0);
  return 0;
}
