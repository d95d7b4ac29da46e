// What an image looks like: the type table, the header, the byte order, and a reader and a writer of its values. Values
// are copied byte for byte, since nothing in an image is aligned.
#pragma once

#include "base/zal_tpl/hook.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace zal::tpl {

/// The type code of an item, its place in kTypes.
enum class Type : std::int32_t {
  root,
  int32,
  uint32,
  character,
  text,
  array,
  blob,
  real,
  int64,
  uint64,
  int16,
  uint16,
  repeat
};

/// A type's character in formats, and the size of one value in the caller's memory, which is its alignment inside a
/// structure as well. Only atoms have a size.
struct TypeEntry {
  char symbol;
  std::size_t size;
};

inline constexpr std::array<TypeEntry, 13> kTypes = {{{'r', 0},
                                                      {'i', sizeof(std::int32_t)},
                                                      {'u', sizeof(std::uint32_t)},
                                                      {'c', sizeof(char)},
                                                      {'s', sizeof(char*)},
                                                      {'A', 0},
                                                      {'B', 0},
                                                      {'f', sizeof(double)},
                                                      {'I', sizeof(std::int64_t)},
                                                      {'U', sizeof(std::uint64_t)},
                                                      {'j', sizeof(std::int16_t)},
                                                      {'v', sizeof(std::uint16_t)},
                                                      {'#', 0}}};
static_assert(kTypes[static_cast<std::size_t>(Type::text)].symbol == 's');
static_assert(kTypes[static_cast<std::size_t>(Type::uint16)].symbol == 'v');
static_assert(kTypes[static_cast<std::size_t>(Type::repeat)].symbol == '#');

/// Every character that a stored format may hold.
inline constexpr std::string_view kFormatCharacters = "AS($)BiucsfIUjv#";

/// The size of one value of a type; 0 for what is no atom.
inline std::size_t sizeOf(Type type) noexcept {
  const auto code = static_cast<std::size_t>(type);
  if (code >= kTypes.size()) ZAL_TPL_FATAL("unsupported format character\n");
  return kTypes[code].size;
}

/// The atom that a format character stands for.
inline std::optional<Type> atomOf(char symbol) noexcept {
  for (std::size_t code = 0; code < kTypes.size(); ++code) {
    if (kTypes[code].symbol == symbol && kTypes[code].size != 0) return static_cast<Type>(code);
  }
  return std::nullopt;
}

/// The state bits of a map; kCrossEndian and kOldStrings tell how its image is written.
enum State : std::int32_t {
  kPacked = 0x1,
  kLoaded = 0x2,
  kFromFile = 0x4,  // else from memory
  kOwnsImage = 0x8,
  kCrossEndian = 0x10,
  kOldStrings = 0x20,
  kBorrowed = 0x40  // the packed texts and blobs of the root are the caller's
};

// Magic, flags and total length; the format follows. The smallest image is a header and an empty format.
inline constexpr std::string_view kMagic = "tpl";
inline constexpr std::size_t kFlagsOffset = 3;
inline constexpr std::size_t kLengthOffset = 4;
inline constexpr std::size_t kHeaderSize = 8;
inline constexpr std::uint32_t kSmallestImage = kHeaderSize + 1;

inline constexpr std::uint8_t kFlagBigEndian = 0x01;
inline constexpr std::uint8_t kFlagStringsCountTerminator = 0x02;
inline constexpr std::uint8_t kKnownFlags = kFlagBigEndian | kFlagStringsCountTerminator;
inline constexpr std::uint8_t kOwnOrder = std::endian::native == std::endian::big ? kFlagBigEndian : 0;

/// The value at an address that need not be aligned.
template <class T>
T loadAs(const void* from) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <class T>
void storeAt(void* to, const T& value) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(to, &value, sizeof value);
}

inline std::uint32_t loadLength(const char* from, bool crossEndian) noexcept {
  const auto length = loadAs<std::uint32_t>(from);
  return crossEndian ? __builtin_bswap32(length) : length;
}

/// Copies `count` values of `size` bytes each, every one reversed when the image is cross-endian.
inline void copyValues(void* to, const char* from, std::size_t count, std::size_t size, bool crossEndian) noexcept {
  auto* target = static_cast<char*>(to);
  if (!crossEndian || size == 1) {
    std::memcpy(target, from, count * size);
    return;
  }
  for (; count > 0; --count, from += size, target += size) std::reverse_copy(from, from + size, target);
}

struct ImageHeader {
  std::uint8_t flags;
  std::int32_t encoding;  ///< kCrossEndian and kOldStrings as they apply
  std::uint32_t length;
};

/// The header in front of `bytes`; absent when they are too few or do not begin with the magic.
inline std::optional<ImageHeader> readHeader(std::string_view bytes) noexcept {
  if (bytes.size() < kHeaderSize || !bytes.starts_with(kMagic)) return std::nullopt;
  const auto flags = static_cast<std::uint8_t>(bytes[kFlagsOffset]);
  const bool crossEndian = (flags & kFlagBigEndian) != kOwnOrder;
  const bool oldStrings = (flags & kFlagStringsCountTerminator) == 0;
  return ImageHeader{flags, (crossEndian ? kCrossEndian : 0) | (oldStrings ? kOldStrings : 0),
                     loadLength(bytes.data() + kLengthOffset, crossEndian)};
}

/// Reads on through the bytes of an image and never past their end. What does not fit is absent, and nothing moves.
class Reader {
 public:
  Reader(std::string_view bytes, std::int32_t encoding) noexcept
      : rest_{bytes}, crossEndian_{(encoding & kCrossEndian) != 0}, oldStrings_{(encoding & kOldStrings) != 0} {}

  [[nodiscard]] const char* position() const noexcept { return rest_.data(); }
  [[nodiscard]] std::size_t left() const noexcept { return rest_.size(); }
  [[nodiscard]] bool crossEndian() const noexcept { return crossEndian_; }

  /// The next `count` bytes, null when fewer are left.
  [[nodiscard]] const char* take(std::size_t count) noexcept {
    if (count > rest_.size()) return nullptr;
    const char* taken = rest_.data();
    rest_.remove_prefix(count);
    return taken;
  }

  /// Steps over `count` things of `size` bytes each.
  [[nodiscard]] bool skip(std::uint32_t count, std::size_t size) noexcept {
    if (size != 0 && count > rest_.size() / size) return false;
    rest_.remove_prefix(count * size);
    return true;
  }

  /// A length, an element count or a '#' count.
  [[nodiscard]] std::optional<std::uint32_t> length() noexcept {
    const char* bytes = take(sizeof(std::uint32_t));
    if (bytes == nullptr) return std::nullopt;
    return loadLength(bytes, crossEndian_);
  }

  [[nodiscard]] std::optional<std::string_view> blob() noexcept {
    const Reader before = *this;
    if (const auto size = length()) {
      if (const char* bytes = take(*size)) return std::string_view{bytes, *size};
    }
    *this = before;
    return std::nullopt;
  }

  /// The characters of a text; a view without address is a null text.
  [[nodiscard]] std::optional<std::string_view> text() noexcept {
    const Reader before = *this;
    if (const auto field = length()) {
      // Newer images count the terminator that they do not hold, so that 0 can stand for a null text.
      if (*field == 0 && !oldStrings_) return std::string_view{};
      const std::uint32_t size = oldStrings_ ? *field : *field - 1;
      if (const char* characters = take(size)) return std::string_view{characters, size};
    }
    *this = before;
    return std::nullopt;
  }

 private:
  std::string_view rest_;
  bool crossEndian_;
  bool oldStrings_;
};

/// Writes an image into a block of exactly its size, in the machine's own byte order.
class Writer {
 public:
  explicit Writer(char* to) noexcept : to_{to} {}

  [[nodiscard]] char* position() const noexcept { return to_; }

  void bytes(const void* from, std::size_t size) noexcept {
    if (size != 0) std::memcpy(to_, from, size);
    to_ += size;
  }
  template <class T>
  void value(T value) noexcept {
    bytes(&value, sizeof value);
  }

 private:
  char* to_;
};

/// The header of an image of that size, whose format has texts ('s') or not.
inline void writeHeader(Writer& out, std::uint32_t size, bool hasTexts) noexcept {
  out.bytes(kMagic.data(), kMagic.size());
  out.value(static_cast<std::uint8_t>(kOwnOrder | (hasTexts ? kFlagStringsCountTerminator : 0)));
  out.value(size);
}

/// A new terminated copy of a text of an image, null for a null text.
inline char* copyOf(std::string_view text) noexcept {
  if (text.data() == nullptr) return nullptr;
  char* copy = allocate(text.size() + 1);
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace zal::tpl
