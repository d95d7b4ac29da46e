// What the public address is learnt through, for tests. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

/// Asks one server, and stores the address that it tells. `length` characters of `host`, which are a dotted address or
/// a name, are its text; more than 45 are cut. Blocks for up to 3.5 s, and while the name is looked up.
///
/// Returns 1 when an answer came, with or without an address; 0 when the server could not be asked; -1 when the host is
/// null or shorter than 8 characters, when waiting failed and when no answer came. All but the host are told on
/// standard error.
int ZAL_SearchForPublicAddress(const char* host, std::size_t length, std::uint16_t port) noexcept;

namespace zal::publicaddress {

/// Whether a discovery may begin at `now`, in seconds: at least 10 after the last one that might. If so, that is now
/// the last one.
[[nodiscard]] bool beginDiscovery(std::int64_t now) noexcept;

}  // namespace zal::publicaddress
