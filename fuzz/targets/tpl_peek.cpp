// Any bytes as an image to look into: its format, its counts, its first values, which a map must read alike.
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;

/// A place for each value that is peeked at.
struct Values {
  alignas(8) char number[3][8];
  char* text;
};

constexpr const char* kFormats[] = {"i", "is", "jvs", "ccs", "fIU", "s", "x", "uuc"};

/// The arguments of a format: a text has a place of its own.
void* placeOf(std::string_view format, std::size_t index, Values& at) {
  return index < format.size() && format[index] == 's' ? static_cast<void*>(&at.text) : at.number[index];
}

char* peekValues(std::string_view image, const char* format, Values& at) {
  return tpl_peek(TPL_VIA_MEM | TPL_DATAPEEK, image.data(), image.size(), format, placeOf(format, 0, at),
                  placeOf(format, 1, at), placeOf(format, 2, at));
}

bool areSame(const Values& one, const Values& other) {
  if (std::memcmp(one.number, other.number, sizeof one.number) != 0) return false;
  if (one.text == nullptr || other.text == nullptr) return one.text == other.text;
  return std::strcmp(one.text, other.text) == 0;
}

/// An image of exactly the format that was peeked with gives a map the same values, if it is a whole one.
void compareWithMap(std::string_view image, const char* format, const Values& peeked) {
  Values at{};
  tpl_map_node* const map = tpl_map(format, placeOf(format, 0, at), placeOf(format, 1, at), placeOf(format, 2, at));
  if (tpl_load(map, TPL_VIA_MEM, image.data(), image.size()) == 0) {
    FUZZ_CHECK(tpl_unpack(map, 0) == 1);
    FUZZ_CHECK(areSame(at, peeked));
  }
  tpl_free(map);
  tpl_hook.free_fn(at.text);
}

void lookForValues(std::string_view image, const char* wanted) {
  Values at{};
  char* const format = peekValues(image, wanted, at);
  if (format == nullptr) {
    FUZZ_CHECK(at.text == nullptr);
    return;
  }
  if (std::strcmp(format, wanted) == 0) compareWithMap(image, wanted, at);
  tpl_hook.free_fn(format);
  tpl_hook.free_fn(at.text);
}

void lookForCounts(std::string_view image) {
  std::uint32_t count = 1;
  std::uint32_t* counts = nullptr;
  char* const format = tpl_peek(TPL_VIA_MEM | TPL_FXLENS, image.data(), image.size(), &count, &counts);
  char* const plain = tpl_peek(TPL_VIA_MEM, image.data(), image.size());
  FUZZ_CHECK((format == nullptr) == (plain == nullptr));
  if (format != nullptr) {
    const std::string_view text{format};
    FUZZ_CHECK(text == plain);
    FUZZ_CHECK(count == static_cast<std::size_t>(std::count(text.begin(), text.end(), '#')));
  }
  FUZZ_CHECK((counts != nullptr) == (count != 0));
  tpl_hook.free_fn(format);
  tpl_hook.free_fn(plain);
  tpl_hook.free_fn(counts);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::Input input{data, size};
  const EngineHook hook;
  const char* const wanted = kFormats[input.below(std::size(kFormats))];
  lookForCounts(input.rest());
  lookForValues(input.rest(), wanted);
  FUZZ_CHECK(EngineHook::blocks() == 0);
  return 0;
}
