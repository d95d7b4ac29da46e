// The services database, read from its file: the C library's way to it ends the process when memory runs out while the
// name switch is set up. Any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "support/line_reader.hpp"
#include "support/scanner.hpp"

namespace zal {

/// One entry of services(5).
struct Service {
  std::string_view name;
  std::uint16_t port;
  std::string_view protocol;
  std::string_view aliases;  // separated by blanks

  [[nodiscard]] bool isCalled(std::string_view wanted) const noexcept {
    if (name == wanted) return true;
    Scanner rest{aliases};
    for (auto alias = rest.word(); !alias.empty(); alias = rest.word())
      if (alias == wanted) return true;
    return false;
  }
};

/// Goes through the entries. It takes half a kilobyte, and is empty when the file cannot be read.
class ServiceReader {
 public:
  /// The next entry, valid until the one after it; nothing at the end.
  [[nodiscard]] std::optional<Service> next() noexcept {
    while (const auto line = lines_.next())
      if (const auto service = parse(*line)) return service;
    return std::nullopt;
  }

 private:
  static std::optional<Service> parse(std::string_view line) noexcept {
    Scanner scanner{line.substr(0, line.find('#'))};
    const std::string_view name = scanner.word();
    const auto port = scanner.number<std::uint16_t>();
    const std::string_view protocol = scanner.word();
    if (!port || !protocol.starts_with('/')) return std::nullopt;
    return Service{name, *port, protocol.substr(1), scanner.rest()};
  }

  LineReader<512> lines_{"/etc/services"};
};

}  // namespace zal
