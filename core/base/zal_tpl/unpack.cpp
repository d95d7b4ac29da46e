// Unpacking: from a loaded image into the caller's variables, the root at once and an array one element a call.
#include "base/zal_tpl/rooms.hpp"

#include <limits>

namespace zal::tpl {
namespace {

/// Turns a packed map into a loaded one, by way of an image in memory.
[[nodiscard]] bool reload(tpl_map_node& map) noexcept {
  const auto size = dumpSize(&map);
  if (!size) return false;
  HookPtr<char> image = dumpToMemory(map, *size);
  if (loadMemory(map, TPL_VIA_MEM | TPL_OWN_IMAGE, image.get(), *size) != 0) return false;
  static_cast<void>(image.release());  // the map owns it now
  return true;
}

[[nodiscard]] bool unpackTexts(std::int32_t count, char* variable, Reader& reader) noexcept {
  for (; count > 0; --count, variable += sizeof(char*)) {
    const auto text = reader.text();
    if (!text) return false;
    storeAt(variable, copyOf(*text));
  }
  return true;
}

[[nodiscard]] bool unpackBlob(char* variable, Reader& reader) noexcept {
  const auto bytes = reader.blob();
  if (!bytes) return false;
  tpl_blob blob = {.address = nullptr, .length = static_cast<std::uint32_t>(bytes->size())};
  if (!bytes->empty()) {
    blob.address = allocate(bytes->size());
    std::memcpy(blob.address, bytes->data(), bytes->size());
  }
  storeAt(variable, blob);
  return true;
}

[[nodiscard]] bool unpackValues(const tpl_map_node& item, char* variable, Reader& reader) noexcept {
  const char* values = reader.take(storedSize(item));
  if (values == nullptr) return false;
  copyValues(variable, values, static_cast<std::size_t>(item.num), sizeOf(item.type), reader.crossEndian());
  return true;
}

[[nodiscard]] bool unpackItem(tpl_map_node& item, char* variable, Reader& reader) noexcept {
  switch (item.type) {
    case Type::text:
      return unpackTexts(item.num, variable, reader);
    case Type::blob:
      return unpackBlob(variable, reader);
    case Type::array:
      return armArray(item, reader);  // its elements come through its own index
    default:
      return unpackValues(item, variable, reader);
  }
}

void unpackItems(tpl_map_node& parent, Reader& reader) noexcept {
  const bool whole = walkItems(parent, [&](tpl_map_node& item, Turn turn) {
    char* variable = item.type == Type::array ? nullptr : static_cast<char*>(item.address) + turn.offset;
    return unpackItem(item, variable, reader);
  });
  if (!whole) ZAL_TPL_FATAL("internal error in unpack\n");  // the image has changed since it was validated
}

/// A count as an int result; one that is larger than any int is the largest.
int resultOf(std::uint32_t count) noexcept {
  return static_cast<int>(std::min<std::uint32_t>(count, std::numeric_limits<int>::max()));
}

int unpackElement(const tpl_map_root& root, tpl_map_node& array) noexcept {
  tpl_array_state& state = arrayOf(array);
  if (state.count == 0) return 0;
  if (state.cursor == nullptr) ZAL_TPL_FATAL("must unpack parent of node before node itself\n");
  const std::string_view image = bytesOf(root.image);
  ZAL_INVARIANT(state.cursor >= image.data() && state.cursor <= image.data() + image.size());
  Reader reader{image.substr(static_cast<std::size_t>(state.cursor - image.data())), root.state};
  const int left = resultOf(state.count--);
  unpackItems(array, reader);
  state.cursor = reader.position();
  return left;
}

int reportIndex(int index) noexcept {
  tpl_hook.report_fn("invalid index %d to tpl_unpack\n", index);
  return -1;
}

}  // namespace

int unpack(tpl_map_node* map, int index) noexcept {
  if (isRoot(map) && (rootOf(*map).state & kPacked) != 0 && !reload(*map)) return -1;
  tpl_map_node* node = nodeAt(map, index);
  if (node == nullptr) return reportIndex(index);
  const tpl_map_root& root = rootOf(*map);
  if (!isRoot(node)) return unpackElement(root, *node);
  if ((root.state & kLoaded) == 0) return -1;
  Reader reader = dataReader(root);
  unpackItems(*map, reader);
  return 1;
}

int elementsLeft(tpl_map_node* map, int index) noexcept {
  if (index == 0) return -1;
  const tpl_map_node* node = nodeAt(map, index);
  if (node == nullptr) return reportIndex(index);
  return resultOf(arrayOf(*node).count);
}

}  // namespace zal::tpl
