// Reads numbers and words from a text that need not be terminated. It never looks beyond the text, and no locale
// changes what it reads.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

namespace zal {

/// Blanks as scanf(3) and strtoul(3) skip them.
inline constexpr std::string_view kBlanks = " \t\n\v\f\r";

class Scanner {
 public:
  explicit Scanner(std::string_view text) noexcept : rest_{text} {}

  /// What was not read yet.
  [[nodiscard]] std::string_view rest() const noexcept { return rest_; }
  [[nodiscard]] bool atEnd() const noexcept { return rest_.empty(); }

  void skipBlanks() noexcept { rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size())); }

  /// A decimal number after blanks. Where none stands, or it does not fit the type, nothing is given and nothing read.
  template <class Number>
  [[nodiscard]] std::optional<Number> number() noexcept {
    Scanner ahead{*this};
    ahead.skipBlanks();
    Number value{};
    const auto [end, error] = std::from_chars(ahead.rest_.data(), ahead.rest_.data() + ahead.rest_.size(), value);
    if (error != std::errc{}) return std::nullopt;
    rest_ = ahead.rest_.substr(static_cast<std::size_t>(end - ahead.rest_.data()));
    return value;
  }

  /// The characters up to the next blank, after blanks.
  std::string_view word() noexcept {
    skipBlanks();
    const std::string_view found = rest_.substr(0, rest_.find_first_of(kBlanks));
    rest_.remove_prefix(found.size());
    return found;
  }

 private:
  std::string_view rest_;
};

}  // namespace zal
