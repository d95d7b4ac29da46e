// The engine's way out: every block it holds comes from and goes back through tpl_hook, and what cannot be recovered
// ends the process through it. Any thread; the record itself is only read.
#pragma once

#include <zal/zal_tpl.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

/// Ends the process with a printf-style message. A hook that returns although it must not meets abort(): the code
/// behind a fatal condition never runs.
#define ZAL_TPL_FATAL(...) (tpl_hook.fatal_fn(__VA_ARGS__), std::abort())

namespace zal::tpl {

/// `size` uninitialised bytes (one at least); there is no result when memory runs out.
inline char* allocate(std::size_t size) noexcept {
  void* block = tpl_hook.alloc_fn(size == 0 ? 1 : size);
  if (block == nullptr) ZAL_TPL_FATAL("out of memory\n");
  return static_cast<char*>(block);
}

inline char* allocateZeroed(std::size_t size) noexcept {
  char* block = allocate(size);
  std::memset(block, 0, size);
  return block;
}

/// A zeroed record, to be given back with release().
template <class Record>
Record* make() noexcept {
  static_assert(std::is_trivially_destructible_v<Record>);
  return new (allocate(sizeof(Record))) Record{};
}

/// Gives a block back; null is none.
inline void release(void* block) noexcept {
  if (block != nullptr) tpl_hook.free_fn(block);
}

struct HookFree {
  void operator()(void* block) const noexcept { release(block); }
};

/// A block of the hook's until it is handed on.
template <class T>
using HookPtr = std::unique_ptr<T, HookFree>;

}  // namespace zal::tpl
