// The identifiers by which request filters know the members of a document: the keys that lead to them, joined by "/";
// and how they are compared.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "support/text.hpp"

namespace zal {

/// How a member's identifier is compared with a path of the filter. Strict passes what lies on or below the path; loose
/// passes also what lies above it, since an object must exist for the requested member inside it.
enum class Strictness : bool { kLoose = false, kStrict = true };

constexpr Strictness strictnessOf(int value) noexcept {
  return value != 0 ? Strictness::kStrict : Strictness::kLoose;
}

/// Whether an identifier is the path `reference`, or lies below it.
inline bool isAtOrBelow(std::string_view reference, std::string_view identifier) noexcept {
  return identifier.starts_with(reference) &&
         (identifier.size() == reference.size() || identifier[reference.size()] == '/');
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
  void enter(const char* key) noexcept {
    if (key == nullptr) return;
    const std::string_view added{key};
    const std::size_t start = length_ == 0 ? 0 : length_ + 1;
    if (start + added.size() >= kSize) return;
    if (start != 0) text_[length_] = '/';
    added.copy(text_ + start, added.size());
    leave(start + added.size());
  }

  /// Goes back up to where the path had `length` characters.
  void leave(std::size_t length) noexcept {
    length_ = length;
    text_[length] = '\0';
  }

 private:
  char text_[kSize] = {};
  std::size_t length_ = 0;
};

/// A member's whole identifier: `path`, "/" and `rest`, or the one of them alone when the path is empty or the rest is
/// null; cut to 2047 characters.
class Identifier {
 public:
  static constexpr std::size_t kSize = 2048;

  Identifier(std::string_view path, const char* rest) noexcept {
    text_.append(path);
    if (rest == nullptr) return;
    if (text_.length() != 0) text_.append("/");
    text_.append(rest);
  }

  [[nodiscard]] const char* text() const noexcept { return text_.text(); }
  /// A terminator follows it.
  [[nodiscard]] std::string_view view() const noexcept { return text_.view(); }

 private:
  CutText<kSize> text_;
};

}  // namespace zal
