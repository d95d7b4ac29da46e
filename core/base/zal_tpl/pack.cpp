// Packing: the caller's variables become copies that wait for a dump, the root's in the items' own areas, an array's in
// one new element. Each copy is made once.
#include "base/zal_tpl/rooms.hpp"

#include <limits>

namespace zal::tpl {
namespace {

/// The caller's variable; an array has none.
const char* variableOf(const tpl_map_node& item, Turn turn) noexcept {
  return item.type == Type::array ? nullptr : static_cast<const char*>(item.address) + turn.offset;
}

/// Where the copies of texts and blobs go: into blocks of their own for the root, whose values are replaced one by one,
/// and behind the slot of an element, which is freed as a whole. Or there are none, and the caller's bytes stand in.
class Copies {
 public:
  static Copies inBlocks() noexcept { return Copies{nullptr, false}; }
  static Copies behind(char* slot) noexcept { return Copies{slot, false}; }
  static Copies none() noexcept { return Copies{nullptr, true}; }

  [[nodiscard]] const void* of(const void* bytes, std::size_t size) noexcept {
    if (borrows_) return bytes;
    char* copy = next_ == nullptr ? allocate(size) : std::exchange(next_, next_ + size);
    std::memcpy(copy, bytes, size);
    return copy;
  }

 private:
  Copies(char* next, bool borrows) noexcept : next_{next}, borrows_{borrows} {}
  char* next_;
  bool borrows_;
};

void packTexts(const tpl_map_node& item, const char* variable, char* place, Copies& copies) noexcept {
  for (std::int32_t i = 0; i < item.num; ++i, variable += sizeof(char*), place += sizeof(char*)) {
    const auto* text = loadAs<const char*>(variable);
    release(loadAs<char*>(place));
    storeAt(place, text == nullptr ? nullptr : copies.of(text, std::strlen(text) + 1));
  }
}

void packBlob(const char* variable, char* place, Copies& copies) noexcept {
  const auto blob = loadAs<tpl_blob>(variable);
  release(loadAs<tpl_blob>(place).address);
  const void* copy = blob.length == 0 ? nullptr : copies.of(blob.address, blob.length);
  storeAt(place, tpl_blob{.address = const_cast<void*>(copy), .length = blob.length});
}

/// Moves a nested array with all its elements into the element that is being packed, and leaves an empty one.
void packArray(tpl_map_node& array, char* place) noexcept {
  storeAt(place, array.data);
  array.data = newArrayState(arrayOf(array).slotSize);
  array.serializedSize = 0;
}

void packItem(tpl_map_node& item, const char* variable, char* place, Copies& copies) noexcept {
  switch (item.type) {
    case Type::text:
      return packTexts(item, variable, place, copies);
    case Type::blob:
      return packBlob(variable, place, copies);
    case Type::array:
      return packArray(item, place);
    default:
      std::memcpy(place, variable, storedSize(item));
  }
}

void packItems(tpl_map_node& parent, Storage storage, Copies copies) noexcept {
  walkItems(parent, [&](tpl_map_node& item, Turn turn) {
    if (item.type == Type::array && !storage.isElement()) return true;  // packed through its own index
    packItem(item, variableOf(item, turn), storage.placeOf(item, turn), copies);
    return true;
  });
}

/// What an element takes in an image, and what the copies of its texts and blobs take in memory at most.
struct ElementSize {
  std::uint64_t serialized = 0;
  std::uint64_t copies = 0;
};

ElementSize measureElement(tpl_map_node& array) noexcept {
  ElementSize size;
  walkItems(array, [&](tpl_map_node& item, Turn turn) {
    const std::size_t serialized = imageSize(item, variableOf(item, turn));
    size.serialized += serialized;
    // A length takes more bytes than the terminator of the text behind it.
    if (item.type == Type::text || item.type == Type::blob) size.copies += serialized;
    return true;
  });
  return size;
}

tpl_element_block& appendElement(tpl_array_state& array, std::uint64_t copies) noexcept {
  ZAL_INVARIANT((array.first == nullptr) == (array.count == 0));
  ZAL_INVARIANT(array.first == nullptr || array.last->next == nullptr);
  constexpr std::uint64_t kMost = std::numeric_limits<std::size_t>::max();  // which no allocation gives
  const std::size_t fixed = sizeof(tpl_element_block) + array.slotSize;
  char* memory = allocate(static_cast<std::size_t>(std::min(fixed + copies, kMost)));
  std::memset(memory, 0, fixed);
  auto* block = new (memory) tpl_element_block{nullptr};
  (array.first == nullptr ? array.first : array.last->next) = block;
  array.last = block;
  ++array.count;
  return *block;
}

void packElement(tpl_map_node& node) noexcept {
  tpl_array_state& array = arrayOf(node);
  const ElementSize size = measureElement(node);
  tpl_element_block& block = appendElement(array, size.copies);
  packItems(node, Storage::ofElement(block), Copies::behind(slotOf(block) + array.slotSize));
  node.serializedSize += static_cast<std::size_t>(size.serialized);
}

}  // namespace

int pack(tpl_map_node* map, int index) noexcept {
  tpl_map_node* node = nodeAt(map, index);
  if (node == nullptr) {
    tpl_hook.report_fn("invalid index %d to tpl_pack\n", index);
    return -1;
  }
  tpl_map_root& root = rootOf(*map);
  if ((root.state & kLoaded) != 0) discardState(*map);
  root.state |= kPacked;
  if (isRoot(node)) {
    packItems(*node, Storage::ofRoot(), Copies::inBlocks());
  } else {
    packElement(*node);
  }
  return 0;
}

void packBorrowed(tpl_map_node& map) noexcept {
  rootOf(map).state |= kPacked | kBorrowed;
  packItems(map, Storage::ofRoot(), Copies::none());
}

}  // namespace zal::tpl
