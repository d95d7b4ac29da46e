// The life of a map: making its records, finding an array by its index, emptying it and freeing it. What the format
// means is format.cpp's business.
#include "base/zal_tpl/tree.hpp"

#include "base/zal_tpl/rooms.hpp"

namespace zal::tpl {
namespace {

bool holdsArrays(const tpl_map_node& array) noexcept {
  const tpl_map_node* item = array.children;
  while (item != nullptr && item->type != Type::array) item = item->next;
  return item != nullptr;
}

void releaseElements(tpl_map_node& array, tpl_array_state& state) noexcept;

/// Gives back the nested arrays of an element; its texts and blobs lie in the block itself.
void releaseNested(tpl_map_node& array, tpl_element_block& block) noexcept {
  Storage storage = Storage::ofElement(block);
  walkItems(array, [&](tpl_map_node& item, Turn turn) {
    const char* place = storage.placeOf(item, turn);
    if (item.type != Type::array) return true;
    const HookPtr<tpl_array_state> nested{&arrayAt(place)};
    releaseElements(item, *nested);
    return true;
  });
}

void releaseElements(tpl_map_node& array, tpl_array_state& state) noexcept {
  ZAL_INVARIANT(state.first == nullptr || (state.count != 0 && state.last->next == nullptr));
  const bool isNesting = holdsArrays(array);
  for (tpl_element_block* block = state.first; block != nullptr;) {
    if (isNesting) releaseNested(array, *block);
    release(std::exchange(block, block->next));
  }
  state = {.count = 0, .slotSize = state.slotSize, .first = nullptr, .last = nullptr, .cursor = nullptr};
}

/// Gives back what the root's values at `place` own.
void releaseValues(tpl_map_node& item, char* place) noexcept {
  if (item.type == Type::text) {
    for (std::int32_t i = 0; i < item.num; ++i, place += sizeof(char*)) release(loadAs<char*>(place));
  } else if (item.type == Type::blob) {
    release(loadAs<tpl_blob>(place).address);
  }
}

void clearRootValues(tpl_map_node& map) noexcept {
  const bool ownsValues = (rootOf(map).state & kBorrowed) == 0;
  Storage storage = Storage::ofRoot();
  walkItems(map, [&](tpl_map_node& item, Turn turn) {
    if (item.type == Type::array) return true;
    char* place = storage.placeOf(item, turn);
    if (ownsValues) releaseValues(item, place);
    std::memset(place, 0, storedSize(item));
    return true;
  });
}

void releaseImage(tpl_map_root& root) noexcept {
  if ((root.state & kFromFile) != 0) {
    unmapFile(root.image);
  } else if ((root.state & kOwnsImage) != 0) {
    release(root.image.address);
  }
  root.image = {};
}

void freeNode(tpl_map_node* node) noexcept {
  for (tpl_map_node* child = node->children; child != nullptr;) freeNode(std::exchange(child, child->next));
  release(node->data);
  release(node);
}

}  // namespace

tpl_map_node* newMap(const char* format) noexcept {
  const std::string_view text{format};
  const auto counts = static_cast<std::size_t>(std::count(text.begin(), text.end(), '#'));
  auto* map = make<tpl_map_node>();
  auto* root = make<tpl_map_root>();
  map->num = 1;
  map->data = root;
  map->serializedSize = kHeaderSize + text.size() + 1;
  root->format = copyOf(text);
  if (counts != 0) root->counts = reinterpret_cast<std::int32_t*>(allocateZeroed(counts * sizeof(std::int32_t)));
  return map;
}

tpl_map_node& appendNode(tpl_map_node& parent, Type type) noexcept {
  auto* node = make<tpl_map_node>();
  node->type = type;
  node->num = 1;
  node->parent = &parent;
  if (parent.children == nullptr) {
    parent.children = node;
  } else {
    ZAL_INVARIANT(parent.children->prev->next == nullptr);
    node->prev = parent.children->prev;
    node->prev->next = node;
  }
  parent.children->prev = node;
  return *node;
}

tpl_map_node& appendArray(tpl_map_node& map, tpl_map_node& parent) noexcept {
  tpl_map_node& node = appendNode(parent, Type::array);
  node.data = newArrayState(0);
  auto* entry = make<tpl_array_index>();
  entry->node = &node;
  tpl_array_index*& first = rootOf(map).arrays;
  if (first == nullptr) {
    first = entry;
  } else {
    ZAL_INVARIANT(first->prev->next == nullptr);
    entry->prev = first->prev;
    entry->prev->next = entry;
  }
  first->prev = entry;
  return node;
}

tpl_array_state* newArrayState(std::size_t slotSize) noexcept {
  auto* state = make<tpl_array_state>();
  state->slotSize = slotSize;
  return state;
}

tpl_map_node* nodeAt(tpl_map_node* map, int index) noexcept {
  if (!isRoot(map) || index < 0) return nullptr;
  if (index == 0) return map;
  const tpl_array_index* entry = rootOf(*map).arrays;
  while (entry != nullptr && --index > 0) entry = entry->next;
  ZAL_INVARIANT(entry == nullptr || entry->node->type == Type::array);
  return entry == nullptr ? nullptr : entry->node;
}

void discardState(tpl_map_node& map) noexcept {
  tpl_map_root& root = rootOf(map);
  ZAL_INVARIANT((root.state & kPacked) == 0 || (root.state & kLoaded) == 0);
  releaseImage(root);
  clearRootValues(map);
  for (const tpl_array_index* entry = root.arrays; entry != nullptr; entry = entry->next) {
    releaseElements(*entry->node, arrayOf(*entry->node));
    entry->node->serializedSize = 0;
  }
  root.state = 0;
}

void freeMap(tpl_map_node& map) noexcept {
  discardState(map);
  tpl_map_root& root = rootOf(map);
  for (tpl_array_index* entry = root.arrays; entry != nullptr;) release(std::exchange(entry, entry->next));
  release(root.format);
  release(root.counts);
  freeNode(&map);
}

}  // namespace zal::tpl
