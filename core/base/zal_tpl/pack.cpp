// Packing: the caller's variables become copies that wait for a dump, the root's in the items' own areas, an array's in
// one new element. Each copy is made once.
#include "base/zal_tpl/rooms.hpp"

namespace zal::tpl {
namespace {

void packTexts(const tpl_map_node& item, const char* variable, char* place) noexcept {
  for (std::int32_t i = 0; i < item.num; ++i, variable += sizeof(char*), place += sizeof(char*)) {
    const auto* text = loadAs<const char*>(variable);
    release(loadAs<char*>(place));
    storeAt(place, text == nullptr ? nullptr : copyOf(text));
  }
}

void packBlob(const char* variable, char* place) noexcept {
  const auto blob = loadAs<tpl_blob>(variable);
  release(loadAs<tpl_blob>(place).address);
  tpl_blob copy = {.address = nullptr, .length = blob.length};
  if (blob.length != 0) {
    copy.address = allocate(blob.length);
    std::memcpy(copy.address, blob.address, blob.length);
  }
  storeAt(place, copy);
}

/// Moves a nested array with all its elements into the element that is being packed, and leaves an empty one.
void packArray(tpl_map_node& array, char* place) noexcept {
  storeAt(place, array.data);
  array.data = newArrayState(arrayOf(array).slotSize);
}

void packItem(tpl_map_node& item, const char* variable, char* place) noexcept {
  switch (item.type) {
    case Type::text:
      return packTexts(item, variable, place);
    case Type::blob:
      return packBlob(variable, place);
    case Type::array:
      return packArray(item, place);
    default:
      std::memcpy(place, variable, storedSize(item));
  }
}

tpl_element_block& appendElement(tpl_array_state& array) noexcept {
  auto* block = new (allocateZeroed(sizeof(tpl_element_block) + array.slotSize)) tpl_element_block{nullptr};
  (array.first == nullptr ? array.first : array.last->next) = block;
  array.last = block;
  ++array.count;
  return *block;
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

  Storage storage = isRoot(node) ? Storage::ofRoot() : Storage::ofElement(appendElement(arrayOf(*node)));
  std::size_t added = 0;
  walkItems(*node, [&](tpl_map_node& item, Turn turn) {
    if (item.type == Type::array && !storage.isElement()) return true;  // packed through its own index
    char* place = storage.placeOf(item, turn);
    packItem(item, static_cast<const char*>(item.address) + turn.offset, place);
    added += imageSize(item, place);
    if (item.type == Type::array) item.serializedSize = 0;
    return true;
  });
  if (storage.isElement()) node->serializedSize += added;
  return 0;
}

}  // namespace zal::tpl
