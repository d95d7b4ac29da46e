// Any bytes as an image of one of several formats: loaded, unpacked, packed into a second map and dumped again.
#include <zal/zal_tpl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;

/// The variables of every format; each uses what it needs.
struct Values {
  struct Nested {
    std::int32_t i;
    char c;
    struct {
      double f;
      std::int32_t i[2];
    } inner;
    char* s;
  };
  struct Pair {
    std::int32_t i;
    char* s;
  };
  struct Reading {
    double f;
    char c;
  };
  std::int32_t i[4];
  std::uint32_t u[3];
  std::int64_t I;
  std::uint64_t U;
  double f;
  std::int16_t j;
  std::uint16_t v[2][2];
  char c;
  char* s[3];
  tpl_blob B[4];
  Nested nested;
  Pair pairs[3];
  Reading reading;
};

struct Shape {
  tpl_map_node* (*map)(Values& at);
  /// Of each array in the order of the format: the number of the one that holds it, 0 for the root; -1 for none.
  std::array<int, 3> holders;
};

constexpr Shape kShapes[] = {
    {[](Values& at) { return tpl_map("A(iBBBBi)", &at.i[0], &at.B[0], &at.B[1], &at.B[2], &at.B[3], &at.i[1]); },
     {0, -1, -1}},
    {[](Values& at) { return tpl_map("A(A(s)i)", &at.s[0], &at.i[0]); }, {0, 1, -1}},
    {[](Values& at) { return tpl_map("iuIUcfjv", &at.i[0], &at.u[0], &at.I, &at.U, &at.c, &at.f, &at.j, &at.v[0][0]); },
     {-1, -1, -1}},
    {[](Values& at) { return tpl_map("i#A(s#)", &at.i[0], 3, &at.s[0], 2); }, {0, -1, -1}},
    {[](Values& at) { return tpl_map("S(ic$(fii)s)A(S(fc))", &at.nested, &at.reading); }, {0, -1, -1}},
    {[](Values& at) { return tpl_map("A(S(is)#)s", &at.pairs, 3, &at.s[0]); }, {0, -1, -1}},
    {[](Values& at) { return tpl_map("BA(A(A(c)B))", &at.B[0], &at.c, &at.B[1]); }, {0, 1, 2}},
    {[](Values& at) { return tpl_map("sA(u#v##)A(j)", &at.s[0], &at.u[0], 3, &at.v[0][0], 2, 2, &at.j); }, {0, 0, -1}},
};

/// What unpacking has given to the caller so far.
struct Given {
  std::size_t blocks = 0;
  std::size_t bytes = 0;
};

int unpack(tpl_map_node* map, int index, Given& given) {
  const std::size_t blocks = EngineHook::blocks();
  const std::size_t bytes = EngineHook::bytes();
  const int result = tpl_unpack(map, index);
  given.blocks += EngineHook::blocks() - blocks;
  given.bytes += EngineHook::bytes() - bytes;
  return result;
}

void copyElements(tpl_map_node* from, tpl_map_node* to, const Shape& shape, int holder, Given& given) {
  for (int array = 1; array <= 3; ++array) {
    if (shape.holders[static_cast<std::size_t>(array) - 1] != holder) continue;
    for (int left = tpl_Alen(from, array); left > 0; --left) {
      FUZZ_CHECK(unpack(from, array, given) == left);
      copyElements(from, to, shape, array, given);
      FUZZ_CHECK(tpl_pack(to, array) == 0);
    }
    FUZZ_CHECK(unpack(from, array, given) == 0);
  }
}

/// Another image with the values of a loaded one. What was unpacked is never freed here: the hook does that.
std::string_view copyOf(tpl_map_node* from, const Shape& shape, Values& at, Given& given) {
  tpl_map_node* const to = shape.map(at);
  FUZZ_CHECK(unpack(from, 0, given) == 1);
  FUZZ_CHECK(tpl_pack(to, 0) == 0);
  copyElements(from, to, shape, 0, given);
  void* image = nullptr;
  std::size_t size = 0;
  FUZZ_CHECK(tpl_dump(to, TPL_VIA_MEM, &image, &size) == 0);
  tpl_free(to);
  return {static_cast<const char*>(image), size};
}

/// Loads an image, borrowed or as one that the map is to own.
[[nodiscard]] bool load(tpl_map_node* map, std::string_view image, int mode) {
  if ((mode & TPL_OWN_IMAGE) == 0) return tpl_load(map, mode, const_cast<char*>(image.data()), image.size()) == 0;
  void* const owned = tpl_hook.alloc_fn(image.size());
  if (!image.empty()) std::memcpy(owned, image.data(), image.size());
  const bool isLoaded = tpl_load(map, mode, owned, image.size()) == 0;
  if (!isLoaded) tpl_hook.free_fn(owned);
  return isLoaded;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kFlags = 3;
  zal::fuzz::Input input{data, size};
  const EngineHook hook;
  const std::uint8_t choice = input.byte();
  const Shape& shape = kShapes[choice % std::size(kShapes)];
  const int mode = TPL_VIA_MEM | ((choice & 0x40) != 0 ? TPL_OWN_IMAGE : 0) | (choice & 0x80 ? TPL_ALLOW_EXCESS : 0);

  Values at{};
  Given given;
  tpl_map_node* const map = shape.map(at);
  if (load(map, input.rest(), mode)) {
    const std::string_view copy = copyOf(map, shape, at, given);
    FUZZ_CHECK(given.bytes <= 40 * input.left() + 1024);
    // A text loses what stands behind a NUL, an image what stands behind it, and nothing else is lost.
    const bool isWhole = (mode & TPL_ALLOW_EXCESS) == 0 && copy.size() == input.left();
    if (isWhole && copy[kFlags] == input.rest()[kFlags]) FUZZ_CHECK(copy == input.rest());
    FUZZ_CHECK(load(map, copy, TPL_VIA_MEM));
    const std::string_view again = copyOf(map, shape, at, given);
    FUZZ_CHECK(again == copy);
    tpl_hook.free_fn(const_cast<char*>(again.data()));
    tpl_free(map);
    tpl_hook.free_fn(const_cast<char*>(copy.data()));
  } else {
    FUZZ_CHECK(tpl_unpack(map, 0) == -1);
    tpl_free(map);
  }
  FUZZ_CHECK(EngineHook::blocks() == given.blocks);
  return 0;
}
