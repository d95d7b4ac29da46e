// The serialization engine under an input: its memory is counted, its reports are formatted and dropped, and where it
// would end the process, the input is rejected instead.
#pragma once

#include <zal/zal_tpl.h>

#include <csetjmp>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz.hpp"

namespace zal::fuzz {

/// Holds tpl_hook while it lives, and frees in the end what the engine has handed out or was kept from freeing.
class EngineHook {
 public:
  /// `memory` is what the engine can have at a time, in bytes.
  explicit EngineHook(std::size_t memory = 64 << 20) noexcept : saved_{tpl_hook} {
    blocks_ = {.previous = &blocks_, .next = &blocks_, .size = 0};
    memory_ = memory;
    bytes_ = peak_ = count_ = 0;
    tpl_hook = {report, allocate, reallocate, release, endInput, 0};
  }
  ~EngineHook() {
    while (blocks_.next != &blocks_) release(blocks_.next + 1);
    tpl_hook = saved_;
  }
  EngineHook(const EngineHook&) = delete;
  EngineHook& operator=(const EngineHook&) = delete;

  /// Runs `body`; false when the engine ended it. It must not own anything: its destructors do not run then.
  template <class Body>
  [[nodiscard]] static bool run(Body body) {
    std::jmp_buf back;
    if (setjmp(back) != 0) {  // NOLINT: the engine has no other way out, and it holds nothing but counted memory
      back_ = nullptr;
      return false;
    }
    back_ = &back;
    body();
    back_ = nullptr;
    return true;
  }

  /// Blocks that the engine holds or has handed out.
  static std::size_t blocks() noexcept { return count_; }
  /// Their bytes, and the most that there were.
  static std::size_t bytes() noexcept { return bytes_; }
  static std::size_t peak() noexcept { return peak_; }

 private:
  /// What stands in front of each block.
  struct alignas(std::max_align_t) Block {
    Block* previous;
    Block* next;
    std::size_t size;
  };

  ZAL_PRINTF_LIKE(1, 2) static int report(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments));
    va_end(arguments);
    return 0;
  }

  ZAL_PRINTF_LIKE(1, 2) static void endInput(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments));
    va_end(arguments);
    if (back_ == nullptr) fail(text, __FILE__, __LINE__);
    std::longjmp(*back_, 1);  // NOLINT
  }

  static void* allocate(std::size_t size) {
    if (size > memory_ - bytes_) return nullptr;
    return add(std::malloc(sizeof(Block) + size), size);
  }

  /// The old block counts until there is a new one, but not beside it.
  static void* reallocate(void* old, std::size_t size) {
    if (old == nullptr) return allocate(size);
    Block* const block = static_cast<Block*>(old) - 1;
    if (size > memory_ - (bytes_ - block->size)) return nullptr;
    remove(*block);
    return add(std::realloc(block, sizeof(Block) + size), size);
  }

  static void release(void* memory) {
    if (memory == nullptr) return;
    Block* const block = static_cast<Block*>(memory) - 1;
    remove(*block);
    std::free(block);
  }

  static void* add(void* memory, std::size_t size) {
    FUZZ_CHECK(memory != nullptr);
    auto* const block = new (memory) Block{.previous = blocks_.previous, .next = &blocks_, .size = size};
    block->previous->next = block->next->previous = block;
    bytes_ += size;
    peak_ = std::max(peak_, bytes_);
    ++count_;
    return block + 1;
  }

  static void remove(const Block& block) {
    block.previous->next = block.next;
    block.next->previous = block.previous;
    bytes_ -= block.size;
    --count_;
  }

  static inline Block blocks_{};
  static inline std::size_t memory_ = 0;
  static inline std::size_t bytes_ = 0;
  static inline std::size_t peak_ = 0;
  static inline std::size_t count_ = 0;
  static inline std::jmp_buf* back_ = nullptr;
  tpl_hook_record saved_;
};

/// Keeps the images of a stream, and refuses the first beyond a number.
struct ImageSink {
  std::size_t imagesLeft = SIZE_MAX;
  std::vector<std::string> images;

  static int take(void* image, std::size_t length, void* self) {
    auto& sink = *static_cast<ImageSink*>(self);
    sink.images.emplace_back(static_cast<const char*>(image), length);
    return sink.imagesLeft-- == 0 ? -1 : 0;
  }
};

inline std::string_view pendingBytes(const tpl_gather_state* state) noexcept {
  if (state == nullptr) return {};
  return {static_cast<const char*>(state->bytes), static_cast<std::size_t>(state->length)};
}

inline void freePending(tpl_gather_state* state) noexcept {
  if (state == nullptr) return;
  tpl_hook.free_fn(state->bytes);
  tpl_hook.free_fn(state);
}

}  // namespace zal::fuzz
