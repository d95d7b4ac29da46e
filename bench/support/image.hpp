// The images that the library's clients and their agent exchange, made and read by hand; docs/protocol.md describes
// them. Here each image that is made or read has one record of interest, its first.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/socket.hpp"

namespace bench {

enum class Code : std::uint32_t {
  kSubscribe = 1,
  kResponse = 3,
  kEvent = 4,
  kRequest = 5,
  kGetConfig = 7,
  kConfig = 8,
  kGatewayRequest = 10,
  kGatewayResponse = 11,
};

struct Record {
  Code code{};
  std::string_view service{};
  std::string_view name{};
  std::string_view payload{};
  std::uint32_t requestId = 0;
};

/// The bytes of an image; valid until the next call on this thread.
std::string_view imageOf(const Record& record);
/// How many records an image holds.
std::size_t countOf(std::string_view image);
/// The first record of an image; it throws when there is none.
Record firstOf(std::string_view image);

/// The agent's end of a connection.
class ImageStream {
 public:
  ImageStream() = default;
  explicit ImageStream(Descriptor socket) noexcept : socket_{std::move(socket)} {}

  void write(const Record& record) const { writeAll(socket_, imageOf(record)); }
  /// Waits for the next image; it is valid until the next call.
  std::string_view next();
  /// Waits for an image whose first record has this code; returns the number of its records.
  std::size_t expect(Code code);
  /// What an agent does with a new client: sends it a configuration.
  void greet();

 private:
  Descriptor socket_;
  Inbox inbox_;
  std::size_t taken_ = 0;
};

}  // namespace bench
