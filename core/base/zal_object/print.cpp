// Printing a tree as JSON text, byte for byte as cJSON_PrintUnformatted does it, but many times faster: most of an
// answer's printing is its numbers. Without recursion, like everything in this module. Any thread.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#include "base/zal_object.hpp"
#include "base/zal_object/digits.hpp"
#include "support/boundary.hpp"
#include "support/json_node.hpp"
#include "support/number.hpp"

namespace zal {

namespace {

/// A text that grows in malloc's memory, so that it can be handed to a caller who frees it. Once memory has run out it
/// stays as it is.
class Text {
 public:
  [[nodiscard]] bool isComplete() const noexcept { return isComplete_; }

  void add(char c) noexcept {
    if (hasRoom(1)) bytes_.get()[size_++] = c;
  }
  void add(std::string_view text) noexcept {
    if (!hasRoom(text.size())) return;
    std::memcpy(bytes_.get() + size_, text.data(), text.size());
    size_ += text.size();
  }
  /// Lets `write` put at most `most` characters; it returns their end.
  template <class Write>
  void addWritten(std::size_t most, Write write) noexcept {
    if (!hasRoom(most)) return;
    size_ = static_cast<std::size_t>(write(bytes_.get() + size_) - bytes_.get());
  }
  /// The text with a terminator; null when memory ran out.
  [[nodiscard]] CPtr<char> take() noexcept {
    add('\0');
    return isComplete_ ? std::move(bytes_) : nullptr;
  }

 private:
  [[nodiscard]] bool hasRoom(std::size_t count) noexcept {
    return capacity_ - size_ >= count ? isComplete_ : grow(size_ + count);
  }
  [[nodiscard]] bool grow(std::size_t least) noexcept {
    constexpr std::size_t kFirst = 1024;
    const std::size_t wanted = std::max({kFirst, capacity_ * 2, least});
    void* const grown = isComplete_ ? std::realloc(bytes_.get(), wanted) : nullptr;
    isComplete_ = grown != nullptr;
    if (!isComplete_) return false;
    static_cast<void>(bytes_.release());  // realloc has freed it
    bytes_.reset(static_cast<char*>(grown));
    capacity_ = wanted;
    return true;
  }

  CPtr<char> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool isComplete_ = true;
};

/// The character that stands for a byte behind a backslash; 'u' for one that has no such character, 0 for one that
/// stands for itself.
constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> escapes{};
  std::fill_n(escapes.begin(), ' ', 'u');
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['\t'] = 't';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  return escapes;
}();

void addEscaped(Text& out, unsigned char byte) noexcept {
  constexpr char kDigits[] = "0123456789abcdef";
  const char escape = kEscapes[byte];
  out.add('\\');
  out.add(escape);
  if (escape != 'u') return;
  out.add("00");
  out.add(kDigits[byte >> 4]);
  out.add(kDigits[byte & 15]);
}

/// Whether one of eight characters has to be escaped: below a blank, a quotation mark or a backslash. Each term sets
/// the highest bit of a byte that is, and may then do so for others.
bool hasEscape(std::uint64_t eight) noexcept {
  constexpr std::uint64_t kEach = 0x0101010101010101;
  const std::uint64_t quote = eight ^ kEach * '"';
  const std::uint64_t backslash = eight ^ kEach * '\\';
  const std::uint64_t found =
      ((eight - kEach * ' ') & ~eight) | ((quote - kEach) & ~quote) | ((backslash - kEach) & ~backslash);
  return (found & kEach * 0x80) != 0;
}

/// Copies what stands before the first character that has to be escaped; returns its length.
std::size_t copyPlain(char* to, std::string_view text) noexcept {
  std::size_t length = 0;
  for (std::uint64_t eight = 0; text.size() - length >= sizeof eight; length += sizeof eight) {
    std::memcpy(&eight, text.data() + length, sizeof eight);
    if (hasEscape(eight)) break;
    std::memcpy(to + length, &eight, sizeof eight);
  }
  for (; length < text.size() && kEscapes[static_cast<unsigned char>(text[length])] == 0; ++length)
    to[length] = text[length];
  return length;
}

void addString(Text& out, const char* text) noexcept {
  std::string_view rest{text == nullptr ? "" : text};
  out.add('"');
  while (!rest.empty()) {
    std::size_t length = 0;
    out.addWritten(rest.size(), [&](char* to) noexcept { return to + (length = copyPlain(to, rest)); });
    if (length < rest.size()) addEscaped(out, static_cast<unsigned char>(rest[length++]));
    rest.remove_prefix(length);
  }
  out.add('"');
}

/// Whether cJSON takes two doubles for the same number.
bool isSame(double one, double other) noexcept {
  const double larger = std::max(std::fabs(one), std::fabs(other));
  return std::fabs(one - other) <= larger * std::numeric_limits<double>::epsilon();
}

/// 15 digits, or 17 where those would be another number.
char* writeNumber(char* text, double value) noexcept {
  constexpr double kExact = 1e15;  // an integer below has at most 15 digits
  if (std::fabs(value) < kExact && value == std::trunc(value) && !(value == 0 && std::signbit(value)))
    return std::to_chars(text, text + object::kLongestDigits, static_cast<std::int64_t>(value)).ptr;
  char* const end = object::writeDigits(text, value, 15);
  *end = '\0';
  double readBack = 0;
  // Only rounded up beyond the largest double, or among the smallest, it is out of range here.
  if (std::from_chars(text, end, readBack).ec != std::errc{}) readBack = readDouble(text);
  return isSame(readBack, value) ? end : object::writeDigits(text, value, 17);
}

void addNumber(Text& out, double value) noexcept {
  if (!std::isfinite(value)) return out.add("null");
  out.addWritten(object::kLongestDigits, [value](char* text) noexcept { return writeNumber(text, value); });
}

/// Prints a value, of a container its beginning; false for a node that is none.
bool addValue(Text& out, const cJSON& node) noexcept {
  switch (typeOf(node)) {
    case cJSON_NULL:
      return out.add("null"), true;
    case cJSON_False:
      return out.add("false"), true;
    case cJSON_True:
      return out.add("true"), true;
    case cJSON_Number:
      return addNumber(out, node.valuedouble), true;
    case cJSON_Raw:
      if (node.valuestring == nullptr) return false;
      return out.add(node.valuestring), true;
    case cJSON_String:
      return addString(out, node.valuestring), true;
    case cJSON_Array:
      return out.add('['), true;
    case cJSON_Object:
      return out.add('{'), true;
    default:
      return false;
  }
}

void addKey(Text& out, const cJSON& parent, const cJSON& member) noexcept {
  if (typeOf(parent) != cJSON_Object) return;
  addString(out, member.string);
  out.add(':');
}

void addEnd(Text& out, const cJSON& container) noexcept {
  out.add(typeOf(container) == cJSON_Object ? '}' : ']');
}

bool addTree(Text& out, const cJSON& top) {
  std::vector<const cJSON*> open;  // the containers that the current node lies in
  open.reserve(16);                // few documents are deeper
  const cJSON* node = &top;
  for (;;) {
    if (!addValue(out, *node) || !out.isComplete()) return false;
    if (isContainer(*node)) {
      if (node->child != nullptr) {
        open.push_back(node);
        node = node->child;
        addKey(out, *open.back(), *node);
        continue;
      }
      addEnd(out, *node);
    }
    while (!open.empty() && node->next == nullptr) {
      node = open.back();
      open.pop_back();
      addEnd(out, *node);
    }
    if (open.empty()) return true;
    out.add(',');
    node = node->next;
    addKey(out, *open.back(), *node);
  }
}

}  // namespace

CPtr<char> printJson(const cJSON* node) noexcept {
  if (node == nullptr) return nullptr;
  Text out;
  const bool isPrinted = guarded(ZAL_HERE, false, [&] { return addTree(out, *node); });
  return isPrinted ? out.take() : nullptr;
}

}  // namespace zal
