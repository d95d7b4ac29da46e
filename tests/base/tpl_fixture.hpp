// What the tests of the serialization engine share: maps that free themselves, the engine's reports, and its memory.
#pragma once

#include <gtest/gtest.h>
#include <zal/zal_tpl.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace zal::test {

struct MapFree {
  void operator()(tpl_map_node* map) const { tpl_free(map); }
};
using Map = std::unique_ptr<tpl_map_node, MapFree>;

template <class... Arguments>
Map mapOf(const char* format, Arguments... arguments) {
  return Map{tpl_map(format, arguments...)};
}

/// Bytes of a text literal, NULs included.
template <std::size_t Size>
std::string bytes(const char (&literal)[Size]) {
  return {literal, Size - 1};
}

inline std::string takeImage(void* image, std::size_t size) {
  std::string copy{static_cast<const char*>(image), size};
  tpl_hook.free_fn(image);
  return copy;
}

/// The image of what is packed; empty when the dump fails.
inline std::string dump(const Map& map) {
  void* image = nullptr;
  std::size_t size = 0;
  return tpl_dump(map.get(), TPL_VIA_MEM, &image, &size) == 0 ? takeImage(image, size) : std::string{};
}

template <class... Arguments>
std::string jot(const char* format, Arguments... arguments) {
  void* image = nullptr;
  std::size_t size = 0;
  return tpl_jot(TPL_VIA_MEM, &image, &size, format, arguments...) == 0 ? takeImage(image, size) : std::string{};
}

inline int load(const Map& map, std::string& image, int flags = 0) {
  return tpl_load(map.get(), TPL_VIA_MEM | flags, image.data(), image.size());
}

/// While it lives, collects the engine's reports, and keeps count of the blocks that the engine holds or has given
/// away.
class EngineHook {
 public:
  EngineHook() : saved_{tpl_hook} {
    reports_.clear();
    tpl_hook.report_fn = report;
    tpl_hook.alloc_fn = [](std::size_t size) { return remember(std::malloc(size)); };
    tpl_hook.realloc_fn = [](void* block, std::size_t size) {
      live_.erase(block);
      return remember(std::realloc(block, size));
    };
    tpl_hook.free_fn = [](void* block) {
      live_.erase(block);
      std::free(block);
    };
  }
  ~EngineHook() {
    tpl_hook = saved_;
    freeBlocks();
  }
  EngineHook(const EngineHook&) = delete;
  EngineHook& operator=(const EngineHook&) = delete;

  /// The reports since the last call.
  static std::string takeReports() { return std::exchange(reports_, {}); }
  static std::size_t blocks() { return live_.size(); }
  /// Frees what was handed out and is not needed any more; no map may be alive.
  static void freeBlocks() {
    for (void* block : std::exchange(live_, {})) std::free(block);
  }

 private:
  ZAL_PRINTF_LIKE(1, 2) static int report(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments));
    va_end(arguments);
    reports_ += text;
    return 0;
  }
  static void* remember(void* block) {
    live_.insert(block);
    return block;
  }

  static inline std::string reports_;
  static inline std::set<void*> live_;
  tpl_hook_record saved_;
};

/// Every test leaves the engine without a block.
class EngineTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(hook_.blocks(), 0U); }

  EngineHook hook_;
};

/// Header and format of an image, in front of its data; flag 1 says that its numbers are big-endian.
inline std::string imageOf(const std::string& format, char flags, const std::string& data) {
  const auto size = static_cast<char>(8 + format.size() + 1 + data.size());
  const std::string length = (flags & 1) != 0 ? bytes("\0\0\0") + size : size + bytes("\0\0\0");
  return "tpl" + std::string{flags} + length + format + '\0' + data;
}

inline tpl_blob blobOf(std::string_view bytes) {
  return {const_cast<char*>(bytes.data()), static_cast<std::uint32_t>(bytes.size())};
}

/// The documented image: two command records.
inline std::string documentedImage() {
  return bytes(
      "tpl\0\x5a\0\0\0A(iBBBBi)\0\2\0\0\0"
      "\5\0\0\0\4\0\0\0svc\0\4\0\0\0get\0\1\0\0\0\0\2\0\0\0{}\7\0\0\0"
      "\3\0\0\0\4\0\0\0svc\0\4\0\0\0set\0\1\0\0\0\0\0\0\0\0\0\0\0\0");
}

/// The variables that it is packed from and unpacked into.
struct Command {
  std::int32_t code = 0;
  tpl_blob blobs[4] = {};
  std::int32_t id = 0;

  Map map() { return mapOf("A(iBBBBi)", &code, &blobs[0], &blobs[1], &blobs[2], &blobs[3], &id); }
};

}  // namespace zal::test
