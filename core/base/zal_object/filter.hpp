// A request's filter, read once and tested against many members, and the identifiers by which it knows them.
// One thread at a time, like the tree that is filtered.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zal::object {

/// How a member's identifier is compared with a path of the filter. Strict passes what lies on or below the path; loose
/// passes also what lies above it, since an object must exist for the requested member inside it.
enum class Strictness : bool { kLoose = false, kStrict = true };

constexpr Strictness strictnessOf(int value) noexcept {
  return value != 0 ? Strictness::kStrict : Strictness::kLoose;
}

/// The keys from a top node down to a member, joined by "/". A key that would make it 1024 bytes long, or longer, is
/// left out.
class MemberPath {
 public:
  static constexpr std::size_t kSize = 1024;

  MemberPath() noexcept = default;
  explicit MemberPath(const char* path) noexcept { enter(path); }

  [[nodiscard]] const char* text() const noexcept { return text_; }
  [[nodiscard]] std::size_t length() const noexcept { return length_; }
  /// Goes down to a member; a null key (an element of an array) adds nothing.
  void enter(const char* key) noexcept;
  /// Goes back up to where the path had `length` characters.
  void leave(std::size_t length) noexcept;

 private:
  char text_[kSize] = {};
  std::size_t length_ = 0;
};

/// A member's whole identifier: `path`, "/" and `rest`, or the one of them alone when the path is empty or the rest is
/// null; cut to 2047 characters.
class Identifier {
 public:
  static constexpr std::size_t kSize = 2048;

  Identifier(const char* path, const char* rest) noexcept;
  [[nodiscard]] const char* text() const noexcept { return text_; }

 private:
  char text_[kSize];
};

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
