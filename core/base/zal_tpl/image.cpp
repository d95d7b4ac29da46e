// From packed values to an image: its size and its bytes, written in one pass. Where the bytes go is dump.cpp's
// business.
#include "base/zal_tpl/rooms.hpp"

#include <limits>

namespace zal::tpl {
namespace {

void writeItem(Writer& writer, tpl_map_node& item, const char* place) noexcept;

void writeItems(Writer& writer, tpl_map_node& parent, Storage storage) noexcept {
  walkItems(parent, [&](tpl_map_node& item, Turn turn) {
    writeItem(writer, item, storage.placeOf(item, turn));
    return true;
  });
}

void writeTexts(Writer& writer, const tpl_map_node& item, const char* place) noexcept {
  for (std::int32_t i = 0; i < item.num; ++i, place += sizeof(char*)) {
    const auto* text = loadAs<const char*>(place);
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    writer.value(static_cast<std::uint32_t>(text == nullptr ? 0 : length + 1));
    writer.bytes(text, length);
  }
}

void writeItem(Writer& writer, tpl_map_node& item, const char* place) noexcept {
  switch (item.type) {
    case Type::text:
      return writeTexts(writer, item, place);
    case Type::blob: {
      const auto blob = loadAs<tpl_blob>(place);
      writer.value(blob.length);
      return writer.bytes(blob.address, blob.length);
    }
    case Type::array: {
      const tpl_array_state& array = arrayAt(place);
      writer.value(array.count);
      for (auto* block = array.first; block != nullptr; block = block->next) {
        writeItems(writer, item, Storage::ofElement(*block));
      }
      return;
    }
    default:
      return writer.bytes(place, storedSize(item));
  }
}

}  // namespace

std::size_t imageSize(const tpl_map_node& item, const char* place) noexcept {
  switch (item.type) {
    case Type::text: {
      std::size_t size = static_cast<std::size_t>(item.num) * sizeof(std::uint32_t);
      for (std::int32_t i = 0; i < item.num; ++i, place += sizeof(char*)) {
        const auto* text = loadAs<const char*>(place);
        if (text != nullptr) size += std::strlen(text);
      }
      return size;
    }
    case Type::blob:
      return sizeof(std::uint32_t) + std::size_t{loadAs<tpl_blob>(place).length};
    case Type::array:
      return sizeof(std::uint32_t) + item.serializedSize;
    default:
      return storedSize(item);
  }
}

std::uint64_t tpl_ser_osz(tpl_map_node* map) noexcept {
  if (!isRoot(map)) ZAL_TPL_FATAL("internal error: tpl_ser_osz on non-root node\n");
  std::uint64_t size = map->serializedSize;
  Storage storage = Storage::ofRoot();
  walkItems(*map, [&](tpl_map_node& item, Turn turn) {
    size += imageSize(item, storage.placeOf(item, turn));
    return true;
  });
  return size;
}

std::optional<std::uint32_t> dumpSize(tpl_map_node* map) noexcept {
  if (isRoot(map) && (rootOf(*map).state & kLoaded) != 0) {
    tpl_hook.report_fn("error: tpl_dump called for a loaded tpl\n");
    return std::nullopt;
  }
  const std::uint64_t size = tpl_ser_osz(map);
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    tpl_hook.report_fn("tpl_dump: image exceeds %u bytes\n", std::numeric_limits<std::uint32_t>::max());
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(size);
}

void writeImage(tpl_map_node& map, std::uint32_t size, char* to) noexcept {
  const tpl_map_root& root = rootOf(map);
  const std::string_view format{root.format};
  Writer writer{to};
  writeHeader(writer, size, format.find('s') != std::string_view::npos);
  writer.bytes(format.data(), format.size() + 1);
  writer.bytes(root.counts, static_cast<std::size_t>(root.countTotal) * sizeof(std::int32_t));
  writeItems(writer, map, Storage::ofRoot());
  ZAL_INVARIANT(writer.position() == to + size);
}

}  // namespace zal::tpl
