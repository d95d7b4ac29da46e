// Memory that a child shares with its parent, for what it has to tell when it can no longer write.
#pragma once

#include <sys/mman.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <type_traits>

namespace faults {

/// A zeroed record that forked children see as well.
template <class Record>
class Shared {
 public:
  Shared() : record_{new (map()) Record{}} {}
  ~Shared() { munmap(record_, sizeof(Record)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  Record& operator*() const noexcept { return *record_; }
  Record* operator->() const noexcept { return record_; }

 private:
  static_assert(std::is_trivially_destructible_v<Record>);

  static void* map() {
    void* const block = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) throw std::system_error{errno, std::generic_category(), "mmap"};
    return block;
  }

  Record* record_;
};

}  // namespace faults
