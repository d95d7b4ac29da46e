// The map: the tree of records that a format becomes, the walk over its items in the order of the image, and the places
// where packed values wait for a dump. A map belongs to one thread at a time.
#pragma once

#include "base/zal_tpl/wire.hpp"
#include "support/invariant.hpp"

struct tpl_map_node {
  zal::tpl::Type type;
  void* address;               ///< the caller's variable
  void* data;                  ///< by type; see the accessors below
  std::int32_t num;            ///< values of an atom, or repetitions of a structure
  std::size_t serializedSize;  ///< root: header, format and counts; array: the image bytes of its packed elements
  tpl_map_node* children;      ///< the first; its prev is the last
  tpl_map_node* next;
  tpl_map_node* prev;
  tpl_map_node* parent;
};

/// One array of the format, in the order of the 'A' characters.
struct tpl_array_index {
  tpl_map_node* node;
  tpl_array_index* next;
  tpl_array_index* prev;  ///< of the first entry: the last
};

struct tpl_image_record {
  std::int32_t descriptor;  ///< of a mapped file
  char* address;
  std::size_t size;
};

struct tpl_map_root {
  std::int32_t state;  ///< bits of zal::tpl::State
  tpl_array_index* arrays;
  tpl_image_record image;
  char* format;  ///< as passed to tpl_map
  std::int32_t* counts;
  std::int32_t countTotal;
};

/// The header of one packed element; its slot of values follows.
struct tpl_element_block {
  tpl_element_block* next;
};

struct tpl_array_state {
  std::uint32_t count;  ///< elements packed, or still to unpack
  std::size_t slotSize;
  tpl_element_block* first;
  tpl_element_block* last;
  const char* cursor;  ///< the next element in a loaded image; null when unknown
};

/// What a '#' behind a structure repeats. The iterations are counted by the walk, so an aborted one leaves nothing.
struct tpl_repeat_state {
  std::int32_t stride;  ///< from one structure of the caller's array to the next
  tpl_map_node* firstMember;
};

namespace zal::tpl {

inline tpl_map_root& rootOf(const tpl_map_node& map) noexcept {
  ZAL_INVARIANT(map.type == Type::root && map.data != nullptr);
  return *static_cast<tpl_map_root*>(map.data);
}
inline tpl_array_state& arrayOf(const tpl_map_node& node) noexcept {
  ZAL_INVARIANT(node.type == Type::array && node.data != nullptr);
  return *static_cast<tpl_array_state*>(node.data);
}
inline const tpl_repeat_state& repeatOf(const tpl_map_node& node) noexcept {
  ZAL_INVARIANT(node.type == Type::repeat && node.data != nullptr);
  return *static_cast<const tpl_repeat_state*>(node.data);
}
/// The array whose state's address a place holds; see Storage.
inline tpl_array_state& arrayAt(const char* place) noexcept {
  return *static_cast<tpl_array_state*>(loadAs<void*>(place));
}
inline bool isRoot(const tpl_map_node* map) noexcept {
  return map != nullptr && map->type == Type::root;
}
inline char* slotOf(tpl_element_block& block) noexcept {
  return reinterpret_cast<char*>(&block + 1);
}
inline std::string_view bytesOf(const tpl_image_record& image) noexcept {
  return {image.address, image.size};
}

/// The bytes that the packed values of an item take in memory: values, text pointers, a tpl_blob, or the address of a
/// nested array's state.
inline std::size_t storedSize(const tpl_map_node& item) noexcept {
  if (item.type == Type::array) return sizeof item.data;
  if (item.type == Type::blob) return sizeof(tpl_blob);
  return static_cast<std::size_t>(item.num) * sizeOf(item.type);
}

/// One turn through a repeated structure: how many went before, and how far behind the first one the caller's lies.
struct Turn {
  std::size_t iteration = 0;
  std::ptrdiff_t offset = 0;
};

/// Visits the items under the root or an array in the order of the image, the members of a repeated structure once for
/// each structure. Ends early, with false, when `visit` returns false.
template <class Visit>
bool walkItems(tpl_map_node& parent, Visit&& visit) noexcept {
  Turn turn;
  for (tpl_map_node* item = parent.children; item != nullptr;) {
    if (item->type != Type::repeat) {
      if (!visit(*item, turn)) return false;
      item = item->next;
      continue;
    }
    const tpl_repeat_state& repeat = repeatOf(*item);
    ZAL_INVARIANT(repeat.firstMember != item && repeat.firstMember->parent == &parent);
    turn = {turn.iteration + 1, turn.offset + repeat.stride};
    const bool goesOn = turn.iteration < static_cast<std::size_t>(item->num);
    if (!goesOn) turn = {};
    item = goesOn ? repeat.firstMember : item->next;
  }
  return true;
}

/// Where the packed values of one walk lie: in the items' own areas under the root, in one slot for an element.
class Storage {
 public:
  static Storage ofRoot() noexcept { return Storage{nullptr}; }
  static Storage ofElement(tpl_element_block& block) noexcept { return Storage{slotOf(block)}; }

  [[nodiscard]] bool isElement() const noexcept { return slot_ != nullptr; }

  /// The place of the item that the walk has reached; for an array it holds the address of the array's state.
  [[nodiscard]] char* placeOf(tpl_map_node& item, Turn turn) noexcept {
    if (isElement()) return std::exchange(slot_, slot_ + storedSize(item));
    if (item.type == Type::array) return reinterpret_cast<char*>(&item.data);
    ZAL_INVARIANT(item.data != nullptr);
    return static_cast<char*>(item.data) + turn.iteration * storedSize(item);
  }

 private:
  explicit Storage(char* slot) noexcept : slot_{slot} {}
  char* slot_;
};

// map.cpp: the life of the tree.

/// A root for a format, with room for the format's counts and no items yet.
tpl_map_node* newMap(const char* format) noexcept;
tpl_map_node& appendNode(tpl_map_node& parent, Type type) noexcept;
tpl_map_node& appendArray(tpl_map_node& map, tpl_map_node& parent) noexcept;
tpl_array_state* newArrayState(std::size_t slotSize) noexcept;

/// The root for index 0, the n-th array for n; null when there is none or `map` is no root.
tpl_map_node* nodeAt(tpl_map_node* map, int index) noexcept;

/// Makes a map empty again: drops packed and unpacked values, and lets go of a loaded image.
void discardState(tpl_map_node& map) noexcept;
void freeMap(tpl_map_node& map) noexcept;

struct MapFree {
  void operator()(tpl_map_node* map) const noexcept { freeMap(*map); }
};
using MapPtr = std::unique_ptr<tpl_map_node, MapFree>;

}  // namespace zal::tpl
