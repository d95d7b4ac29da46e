// One question to one STUN server (RFC 5389, Binding over UDP), and what its answer says. Any thread; nothing is kept.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace zal::stun {

/// What became of a question.
enum Result : int { kNoAnswer = -1, kNotAsked = 0, kAnswered = 1 };

struct Answer {
  Result result;
  std::optional<in_addr> address;  // an answer may lack it
};

/// Asks `server`, a dotted address or a name, up to five times, and tells on standard error what went wrong.
[[nodiscard]] Answer query(std::string_view server, std::uint16_t port) noexcept;

/// The address in a Binding success response, which an attribute of the message gives. Lengths that the message claims
/// never lead out of it.
[[nodiscard]] std::optional<in_addr> addressIn(std::span<const std::uint8_t> message) noexcept;

}  // namespace zal::stun
