// The rules of the name cache; what they are for stands in the header.
#include "common/zal_network_info/name_cache.hpp"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>

#include "support/text.hpp"

namespace zal::network {

namespace {

constexpr double kSlowFailureSeconds = 2.0;
constexpr std::int64_t kSuppressedSeconds = 300;

}  // namespace

int NameCache::describe(const char* address, char* buffer, std::size_t size) noexcept {
  in_addr binary{};
  if (address == nullptr || inet_pton(AF_INET, address, &binary) != 1) {
    copyCut(buffer, kUnknown, size);
    return EAI_NONAME;
  }
  const double started = resolver_.now();
  if (answersAtOnce(address, started, buffer, size)) return 0;

  std::array<char, NI_MAXHOST> name{};
  const int code = resolver_.nameOf(binary, name);
  const std::string_view description = code == 0 && name.front() != '\0' ? name.data() : kUnknown;
  copyCut(buffer, description, size);
  const std::string_view shown = description.substr(0, buffer == nullptr || size == 0 ? 0 : size - 1);
  finishLookup(address, shown.empty() ? kUnknown : shown, code, resolver_.now() - started);
  return code;
}

/// False makes the lookup the caller's: nobody else looks up until it calls finishLookup().
bool NameCache::answersAtOnce(std::string_view address, double now, char* buffer, std::size_t size) noexcept {
  const auto answer = [&](std::string_view description) {
    copyCut(buffer, description, size);
    return true;
  };
  if (address == "0.0.0.0") return answer(kUnknown);
  if (address == "127.0.0.1") return answer("localhost");

  const LockGuard hold{mutex_};
  const Entry* const entry = entryForLocked(address);
  if (entry != nullptr && entry->address.front() != '\0') return answer(entry->description.data());
  const auto second = static_cast<std::int64_t>(now);
  if (isLookingUp_ || isSuppressedLocked(second)) return answer(kUnknown);
  isLookingUp_ = true;
  lastLookup_ = second;
  return false;
}

void NameCache::finishLookup(std::string_view address, std::string_view description, int code,
                             double seconds) noexcept {
  const LockGuard hold{mutex_};
  isLookingUp_ = false;
  if (code != 0 && seconds > kSlowFailureSeconds) {
    isResolverAvailable_ = false;
  } else if (!isResolverAvailable_) {
    entries_ = {};  // what was cached as unknown while the resolver was down may have a name
    isResolverAvailable_ = true;
  }
  Entry* const entry = entryForLocked(address);
  if (entry == nullptr) return;
  copyCut(entry->address.data(), address, entry->address.size());
  copyCut(entry->description.data(), description, entry->description.size());
}

/// The address's entry, else the first free one, else null.
NameCache::Entry* NameCache::entryForLocked(std::string_view address) noexcept {
  const auto found = std::ranges::find_if(
      entries_, [&](const Entry& entry) { return entry.address.front() == '\0' || address == entry.address.data(); });
  return found == entries_.end() ? nullptr : &*found;
}

/// A clock that was set back behind the last lookup suppresses nothing.
bool NameCache::isSuppressedLocked(std::int64_t second) const noexcept {
  return !isResolverAvailable_ && second >= lastLookup_ && second - lastLookup_ <= kSuppressedSeconds;
}

}  // namespace zal::network
