// A request's filter, read once and tested against the identifiers of many members.
// One thread at a time, like the tree that is filtered.
#pragma once

#include <cstdint>

#include "support/member_path.hpp"

namespace zal::object {

/// One filter text, split. The default one passes everything.
class Filter {
 public:
  constexpr Filter() noexcept = default;
  /// Reads `text`, which is borrowed for the log lines of the tests; null is allowed.
  explicit Filter(const char* text) noexcept;

  [[nodiscard]] bool passesEverything() const noexcept { return form_ == Form::kEverything; }
  /// Tests one member, as the exported filterTest does.
  [[nodiscard]] bool passes(const char* identifier, Strictness strictness) const noexcept;

 private:
  enum class Form : std::uint8_t { kEverything, kUnreadable, kUri };

  Form form_ = Form::kEverything;
  bool hasInclude_ = false;
  bool hasExclude_ = false;
  const char* text_ = nullptr;
  char path_[512] = {};
  char include_[512] = {};
  char exclude_[512] = {};
};

/// Passes everything; for trees without a filter.
extern const Filter kEverything;

}  // namespace zal::object
