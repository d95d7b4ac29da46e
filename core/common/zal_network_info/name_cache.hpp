// Names of IPv4 addresses: what was looked up is kept, and a resolver that is down is left alone for a while.
// Any thread. The one lock is never held across a lookup, and at most one lookup runs at a time: who would have to wait
// for another one is told "unknown".
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "support/lock.hpp"

namespace zal::network {

inline constexpr char kUnknown[] = "unknown";

/// What the cache asks of the world.
struct Resolver {
  /// As getnameinfo(3): 0 and the terminated name of an address, or another code.
  int (*nameOf)(in_addr address, std::span<char> name) noexcept;
  /// The wall clock in seconds.
  double (*now)() noexcept;
};

class NameCache {
 public:
  constexpr explicit NameCache(Resolver resolver) noexcept : resolver_{resolver} {}

  /// Writes what is known of an address, cut to the buffer: 0, or the code of a lookup that failed.
  int describe(const char* address, char* buffer, std::size_t size) noexcept ZAL_EXCLUDES(mutex_);

 private:
  struct Entry {
    std::array<char, 46> address;  // empty in a free entry; the first free one ends the used part
    std::array<char, 46> description;
  };

  [[nodiscard]] bool answersAtOnce(std::string_view address, double now, char* buffer, std::size_t size) noexcept
      ZAL_EXCLUDES(mutex_);
  void finishLookup(std::string_view address, std::string_view description, int code, double seconds) noexcept
      ZAL_EXCLUDES(mutex_);
  [[nodiscard]] Entry* entryForLocked(std::string_view address) noexcept ZAL_REQUIRES(mutex_);
  [[nodiscard]] bool isSuppressedLocked(std::int64_t second) const noexcept ZAL_REQUIRES(mutex_);

  const Resolver resolver_;
  StaticMutex mutex_;  // a leaf: nothing is called that takes another lock
  std::array<Entry, 50> entries_ ZAL_GUARDED_BY(mutex_) = {};
  bool isResolverAvailable_ ZAL_GUARDED_BY(mutex_) = true;
  bool isLookingUp_ ZAL_GUARDED_BY(mutex_) = false;
  std::int64_t lastLookup_ ZAL_GUARDED_BY(mutex_) = 0;  // seconds since the epoch
};

}  // namespace zal::network
