// A request's filter, read once and tested against the identifiers of many members.
// One thread at a time, like the tree that is filtered.
#pragma once

#include <cstdint>
#include <string_view>

#include "support/member_path.hpp"

namespace zal::object {

/// One filter text, split. The default one passes everything.
class Filter {
 public:
  constexpr Filter() noexcept = default;
  /// Reads `text`, which is borrowed for the log lines of the tests; null is allowed.
  explicit Filter(const char* text) noexcept;
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;

  [[nodiscard]] bool passesEverything() const noexcept { return form_ == Form::kEverything; }
  /// Tests one member, as the exported filterTest does. A terminator follows the identifier.
  [[nodiscard]] bool passes(std::string_view identifier, Strictness strictness) const noexcept;

 private:
  enum class Form : std::uint8_t { kEverything, kUnreadable, kUri };

  Form form_ = Form::kEverything;
  bool hasInclude_ = false;
  bool hasExclude_ = false;
  const char* text_ = nullptr;
  char pathText_[512] = {};
  char includeText_[512] = {};
  char excludeText_[512] = {};
  std::string_view path_;  ///< each of these is the text above
  std::string_view include_;
  std::string_view exclude_;
};

/// Passes everything; for trees without a filter.
extern const Filter kEverything;

}  // namespace zal::object
