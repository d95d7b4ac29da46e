// Attaching an image to a map. Nothing of an image is believed before it has been measured against the map's format:
// whatever comes later reads only what was found whole here.
#include "base/zal_tpl/rooms.hpp"

namespace zal::tpl {
namespace {

/// What is wrong with an image.
enum class Fault {
  none = 0,
  tooShort = -1,
  noMagic = -2,
  otherLength = -3,
  unknownCharacter = -4,
  endlessFormat = -5,
  otherFormat = -6,
  otherCounts = -7,
  overrunningData = -8,
  otherEnd = -9,
  missingCounts = -10,
  unknownFlags = -11
};

Fault checkFormat(std::string_view rest, std::string_view expected) noexcept {
  const std::size_t end = rest.find('\0');
  const std::string_view format = rest.substr(0, end);
  if (format.find_first_not_of(kFormatCharacters) != std::string_view::npos) return Fault::unknownCharacter;
  if (end == std::string_view::npos) return Fault::endlessFormat;
  return format == expected ? Fault::none : Fault::otherFormat;
}

Fault checkCounts(const tpl_map_root& root, Reader& reader) noexcept {
  if (reader.left() / sizeof(std::uint32_t) < static_cast<std::size_t>(root.countTotal)) return Fault::missingCounts;
  for (std::int32_t i = 0; i < root.countTotal; ++i) {
    if (reader.length() != static_cast<std::uint32_t>(root.counts[i])) return Fault::otherCounts;
  }
  return Fault::none;
}

/// Tests a whole image against the map.
Fault checkImage(tpl_map_node& map, std::string_view image, std::int32_t encoding, bool allowsExcess) noexcept {
  const tpl_map_root& root = rootOf(map);
  const std::string_view format{root.format};
  if (const Fault fault = checkFormat(image.substr(kHeaderSize), format); fault != Fault::none) return fault;
  Reader reader{image.substr(kHeaderSize + format.size() + 1), encoding};
  if (const Fault fault = checkCounts(root, reader); fault != Fault::none) return fault;
  const auto length = tpl_serlen(map, reader);
  if (!length) return Fault::overrunningData;
  return *length == reader.left() || allowsExcess ? Fault::none : Fault::otherEnd;
}

/// Tests the header first; `encoding` is what it says about the rest.
Fault validate(tpl_map_node& map, std::string_view image, int mode, std::int32_t& encoding) noexcept {
  if (image.size() < kSmallestImage) return Fault::tooShort;
  const auto header = readHeader(image);
  if (!header) return Fault::noMagic;
  const bool allowsExcess = (mode & TPL_ALLOW_EXCESS) != 0;
  if ((header->flags & ~kKnownFlags) != 0) return Fault::unknownFlags;
  if (header->length != image.size() && !allowsExcess) return Fault::otherLength;
  encoding = header->encoding;
  return checkImage(map, image, encoding, allowsExcess);
}

void discardOldState(tpl_map_node& map) noexcept {
  if ((rootOf(map).state & (kPacked | kLoaded)) != 0) discardState(map);
}

void attach(tpl_map_node& map, const tpl_image_record& image, std::int32_t state) noexcept {
  tpl_map_root& root = rootOf(map);
  ZAL_INVARIANT(root.state == 0 && root.image.address == nullptr);
  root.image = image;
  root.state = kLoaded | state;
  Reader reader = dataReader(root);
  const bool armed = walkItems(map, [&](tpl_map_node& item, Turn) {
    return item.type == Type::array ? armArray(item, reader) : skipItem(item, reader);
  });
  if (!armed) ZAL_TPL_FATAL("internal error in unpackA0\n");
}

/// Elements without texts, blobs and arrays all take the same bytes, in an image and in their slots.
bool hasFixedElements(const tpl_map_node& array) noexcept {
  for (const tpl_map_node* item = array.children; item != nullptr; item = item->next) {
    if (item->type == Type::text || item->type == Type::blob || item->type == Type::array) return false;
  }
  return true;
}

bool skipItems(tpl_map_node& parent, Reader& reader) noexcept {
  return walkItems(parent, [&](tpl_map_node& item, Turn) { return skipItem(item, reader); });
}

/// Steps over elements whose count has been read. A count is bounded by the bytes that follow, since an element takes
/// one byte at least; those of an array without items take none, and are not walked.
bool skipElements(tpl_map_node& array, std::uint32_t count, Reader& reader) noexcept {
  if (hasFixedElements(array)) return reader.skip(count, arrayOf(array).slotSize);
  for (; count > 0; --count) {
    if (!skipItems(array, reader)) return false;
  }
  return true;
}

bool skipTexts(std::int32_t count, Reader& reader) noexcept {
  for (; count > 0; --count) {
    if (!reader.text()) return false;
  }
  return true;
}

}  // namespace

Reader dataReader(const tpl_map_root& root) noexcept {
  const std::size_t start =
      kHeaderSize + std::strlen(root.format) + 1 + static_cast<std::size_t>(root.countTotal) * sizeof(std::uint32_t);
  ZAL_INVARIANT((root.state & kLoaded) != 0 && start <= root.image.size);
  return {bytesOf(root.image).substr(start), root.state};
}

bool skipItem(tpl_map_node& item, Reader& reader) noexcept {
  switch (item.type) {
    case Type::text:
      return skipTexts(item.num, reader);
    case Type::blob:
      return reader.blob().has_value();
    case Type::array: {
      const auto count = reader.length();
      return count && skipElements(item, *count, reader);
    }
    default:
      return reader.take(storedSize(item)) != nullptr;
  }
}

bool armArray(tpl_map_node& array, Reader& reader) noexcept {
  const auto count = reader.length();
  if (!count) return false;
  tpl_array_state& state = arrayOf(array);
  ZAL_INVARIANT(state.first == nullptr);
  state.count = *count;
  state.cursor = reader.position();
  return skipElements(array, *count, reader);
}

std::optional<std::size_t> tpl_serlen(tpl_map_node& node, Reader reader) noexcept {
  const std::size_t before = reader.left();
  if (!(isRoot(&node) ? skipItems(node, reader) : skipItem(node, reader))) return std::nullopt;
  return before - reader.left();
}

int loadFile(tpl_map_node& map, int mode, const char* path) noexcept {
  discardOldState(map);
  tpl_image_record image;
  if (!mapFile(path, image)) {
    tpl_hook.report_fn("tpl_load failed for file %s\n", path);
    return -1;
  }
  std::int32_t encoding = 0;
  const Fault fault = validate(map, bytesOf(image), mode, encoding);
  if (fault == Fault::none) {
    attach(map, image, kFromFile | encoding);
    return 0;
  }
  if (fault == Fault::otherFormat) {
    tpl_hook.report_fn("%s: format signature mismatch\n", path);
  } else if (fault == Fault::otherCounts) {
    tpl_hook.report_fn("%s: array lengths mismatch\n", path);
  } else {
    tpl_hook.report_fn("%s: not a valid tpl file\n", path);
  }
  unmapFile(image);
  return -1;
}

int loadMemory(tpl_map_node& map, int mode, void* address, std::size_t size) noexcept {
  discardOldState(map);
  const tpl_image_record image = {.descriptor = -1, .address = static_cast<char*>(address), .size = size};
  std::int32_t encoding = 0;
  const Fault fault = validate(map, bytesOf(image), mode, encoding);
  if (fault == Fault::none) {
    attach(map, image, ((mode & TPL_OWN_IMAGE) != 0 ? kOwnsImage : 0) | encoding);
    return 0;
  }
  if (fault == Fault::otherFormat) {
    tpl_hook.report_fn("format signature mismatch\n");
  } else {
    tpl_hook.report_fn("not a valid tpl file\n");
  }
  return -1;
}

int loadDescriptor(tpl_map_node& map, int descriptor) noexcept {
  discardOldState(map);
  void* image = nullptr;
  std::size_t size = 0;
  if (tpl_gather_fd_blocking(descriptor, &image, &size) <= 0) return -1;
  if (loadMemory(map, TPL_VIA_MEM | TPL_OWN_IMAGE, image, size) == 0) return 0;
  release(image);
  return -1;
}

}  // namespace zal::tpl
