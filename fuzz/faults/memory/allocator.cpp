#include "memory/allocator.hpp"

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/fault.hpp"

namespace faults {

namespace {

/// The functions that stand behind this allocator: the C library's, or the sanitizer's.
struct Real {
  void* (*malloc)(std::size_t);
  void* (*calloc)(std::size_t, std::size_t);
  void* (*realloc)(void*, std::size_t);
  void* (*memalign)(std::size_t, std::size_t);
  void (*free)(void*);
};

template <class Function>
void find(Function*& function, const char* name) noexcept {
  function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  if (function == nullptr) std::abort();
}

/// What is taken before the functions are known, and before a sanitizer's own are ready; it is never given back.
alignas(std::max_align_t) std::array<char, 1 << 20> firstBlocks;
std::atomic<std::size_t> firstUsed{0};
bool isUp = false;

__attribute__((constructor(101))) void comeUp() noexcept;

void* takeFirst(std::size_t size) noexcept {
  constexpr std::size_t kAlign = alignof(std::max_align_t);
  const std::size_t at = firstUsed.fetch_add((size + kAlign - 1) / kAlign * kAlign);
  return at + size <= firstBlocks.size() ? firstBlocks.data() + at : nullptr;
}

bool isFirst(const void* block) noexcept {
  const auto* const byte = static_cast<const char*>(block);
  return byte >= firstBlocks.data() && byte < firstBlocks.data() + firstBlocks.size();
}

Real real;

/// The loader's code. What it allocates are the threads' own tables, which stay with the stacks that the C library
/// keeps of ended threads, so that their number is not the library's affair.
std::uintptr_t loaderBegin = 0;
std::uintptr_t loaderEnd = 0;

int findLoader(dl_phdr_info* info, std::size_t /*size*/, void* /*unused*/) noexcept {
  if (std::strstr(info->dlpi_name, "/ld-") == nullptr) return 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& segment = info->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    loaderBegin = info->dlpi_addr + segment.p_vaddr;
    loaderEnd = loaderBegin + segment.p_memsz;
  }
  return 1;
}

bool isLoader(const void* caller) noexcept {
  const auto place = reinterpret_cast<std::uintptr_t>(caller);
  return place >= loaderBegin && place < loaderEnd;
}

void comeUp() noexcept {
  dl_iterate_phdr(findLoader, nullptr);
  find(real.malloc, "malloc");
  find(real.calloc, "calloc");
  find(real.realloc, "realloc");
  find(real.memalign, "memalign");
  find(real.free, "free");
  isUp = true;
}

/// The live blocks, in a table of open addresses. Removed entries leave a mark, which is used again.
class Table {
 public:
  void add(void* block, std::size_t size) noexcept {
    const Hold hold{lock_};
    std::size_t at = placeOf(block);
    while (entries_[at].block != nullptr && entries_[at].block != &removed_) at = next(at);
    entries_[at] = {block, size};
  }

  void remove(void* block) noexcept {
    const Hold hold{lock_};
    for (std::size_t at = placeOf(block); entries_[at].block != nullptr; at = next(at))
      if (entries_[at].block == block) {
        entries_[at].block = &removed_;
        return;
      }
  }

  LiveBlocks live() noexcept {
    const Hold hold{lock_};
    LiveBlocks blocks{};
    for (const Entry& entry : entries_)
      if (entry.block != nullptr && entry.block != &removed_) count(blocks, entry.size);
    return blocks;
  }

 private:
  struct Entry {
    void* block;
    std::size_t size;
  };
  class Hold {
   public:
    explicit Hold(std::atomic_flag& flag) noexcept : flag_{flag} {
      while (flag_.test_and_set(std::memory_order_acquire)) continue;
    }
    ~Hold() { flag_.clear(std::memory_order_release); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    std::atomic_flag& flag_;
  };
  static constexpr std::size_t kEntries = 1 << 16;

  static std::size_t placeOf(const void* block) noexcept {
    return reinterpret_cast<std::uintptr_t>(block) / 16 * 2654435761U % kEntries;
  }
  static std::size_t next(std::size_t at) noexcept { return (at + 1) % kEntries; }

  static void count(LiveBlocks& blocks, std::size_t size) noexcept {
    auto* const end = blocks.sizes.begin() + blocks.used;
    auto* const known = std::find_if(blocks.sizes.begin(), end, [&](const LiveSize& one) { return one.size == size; });
    if (known != end) {
      ++known->count;
    } else if (blocks.used < LiveBlocks::kMost) {
      blocks.sizes[blocks.used++] = {size, 1};
    }
  }

  std::atomic_flag lock_{};
  char removed_ = 0;
  std::array<Entry, kEntries> entries_{};
};

constinit Table table{};
std::atomic<bool> isWatching{false};

void* remember(void* block, std::size_t size) noexcept {
  if (block != nullptr && isWatching && !Aside::isInside()) table.add(block, size);
  return block;
}

void forget(void* block) noexcept {
  if (block != nullptr && isWatching) table.remove(block);
}

void* noMemory() noexcept {
  errno = ENOMEM;
  return nullptr;
}

void* allocate(std::size_t size, const void* caller) noexcept {
  if (!isUp) return takeFirst(size);
  if (strikes(Kind::kAllocation)) return noMemory();
  void* const block = real.malloc(size);
  return isLoader(caller) ? block : remember(block, size);
}

void* allocateZeroed(std::size_t count, std::size_t size, const void* caller) noexcept {
  if (!isUp) return takeFirst(count * size);
  if (strikes(Kind::kAllocation)) return noMemory();
  void* const block = real.calloc(count, size);
  return isLoader(caller) ? block : remember(block, count * size);
}

void* reallocate(void* block, std::size_t size) noexcept {
  if (!isUp && block == nullptr) return takeFirst(size);
  if (isFirst(block)) {
    void* const moved = allocate(size, nullptr);
    if (moved != nullptr) std::memcpy(moved, block, size);  // the first blocks lie in a row: nothing is beyond them
    return moved;
  }
  if (strikes(Kind::kAllocation)) return noMemory();
  forget(block);  // before it can be given to another thread
  void* const moved = real.realloc(block, size);
  return remember(moved, size);
}

void* allocateAligned(std::size_t alignment, std::size_t size) noexcept {
  if (!isUp) return nullptr;  // nobody asks so early
  if (strikes(Kind::kAllocation)) return noMemory();
  return remember(real.memalign(alignment, size), size);
}

void release(void* block) noexcept {
  if (block == nullptr || isFirst(block)) return;
  forget(block);
  real.free(block);
}

}  // namespace

int LiveBlocks::countOf(std::size_t size) const noexcept {
  const auto* const end = sizes.begin() + used;
  const auto* const found = std::find_if(sizes.begin(), end, [&](const LiveSize& one) { return one.size == size; });
  return found != end ? found->count : 0;
}

std::size_t LiveBlocks::surplusOver(const LiveBlocks& known) const noexcept {
  for (std::size_t i = 0; i < used; ++i)
    if (sizes[i].count > known.countOf(sizes[i].size)) return sizes[i].size;
  return 0;
}

void watchBlocks() noexcept {
  isWatching = true;
}

LiveBlocks liveBlocks() noexcept {
  return table.live();
}

}  // namespace faults

extern "C" {

void* malloc(std::size_t size) noexcept {
  return faults::allocate(size, __builtin_return_address(0));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  return faults::allocateZeroed(count, size, __builtin_return_address(0));
}

void* realloc(void* block, std::size_t size) noexcept {
  return faults::reallocate(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return faults::allocateAligned(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return faults::allocateAligned(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  void* const made = faults::allocateAligned(alignment, size);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}

void free(void* block) noexcept {
  faults::release(block);
}

// A sanitizer asks with it for the stack of each new thread, and ends the process when it gets no answer.
int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) noexcept {
  static int (*real)(pthread_t, pthread_attr_t*) = nullptr;
  const faults::Aside aside;
  if (real == nullptr) faults::find(real, "pthread_getattr_np");
  return real(thread, attributes);
}

}  // extern "C"

// The C library's way to operator new leads over malloc; a sanitizer's does not.
void* operator new(std::size_t size) {
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc{};
  return block;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete[](void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
