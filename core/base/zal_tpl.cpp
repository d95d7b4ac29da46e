// The serialization engine's front door: the exported functions, which read their variable arguments and hand on to the
// rooms in zal_tpl/. The engine takes no locks; a map, or a gather state with its stream, belongs to one thread at a
// time.
#include <zal/zal_tpl.h>

#include "base/zal_tpl/rooms.hpp"

namespace tpl = zal::tpl;

namespace {

int dumpBy(tpl_map_node& map, std::uint32_t size, int mode, tpl::Arguments& arguments) noexcept {
  if ((mode & TPL_VIA_FILE) != 0) return tpl::dumpToFile(map, size, va_arg(arguments.list, const char*));
  if ((mode & TPL_VIA_FD) != 0) return tpl::dumpToDescriptor(map, size, va_arg(arguments.list, int));
  if ((mode & TPL_VIA_MEM) != 0 && (mode & TPL_INTO_BUFFER) != 0) {
    void* buffer = va_arg(arguments.list, void*);
    return tpl::dumpToBuffer(map, size, buffer, va_arg(arguments.list, std::size_t));
  }
  if ((mode & TPL_VIA_MEM) != 0) {
    *va_arg(arguments.list, void**) = tpl::dumpToMemory(map, size).release();
    *va_arg(arguments.list, std::size_t*) = size;
    return 0;
  }
  if ((mode & TPL_SIZE_QUERY) != 0) {
    *va_arg(arguments.list, std::size_t*) = size;
    return 0;
  }
  tpl_hook.report_fn("unsupported tpl_dump mode %d\n", mode);
  return -1;
}

int loadBy(tpl_map_node* map, int mode, tpl::Arguments& arguments) noexcept {
  if ((mode & (TPL_VIA_FILE | TPL_VIA_MEM | TPL_VIA_FD)) == 0) {
    tpl_hook.report_fn("unsupported tpl_load mode %d\n", mode);
    return -1;
  }
  if (!tpl::isRoot(map)) {
    tpl_hook.report_fn("error: tpl_load to non-root node\n");
    return -1;
  }
  if ((mode & TPL_VIA_FILE) != 0) return tpl::loadFile(*map, mode, va_arg(arguments.list, const char*));
  if ((mode & TPL_VIA_MEM) != 0) {
    void* address = va_arg(arguments.list, void*);
    return tpl::loadMemory(*map, mode, address, va_arg(arguments.list, std::size_t));
  }
  return tpl::loadDescriptor(*map, va_arg(arguments.list, int));
}

/// A target of tpl_jot, read before the format and its variables.
struct JotTarget {
  int mode = 0;
  const char* path = nullptr;
  void** image = nullptr;
  std::size_t* size = nullptr;
  int descriptor = -1;
};

JotTarget takeJotTarget(int mode, tpl::Arguments& arguments) noexcept {
  JotTarget target;
  if ((mode & TPL_VIA_FILE) != 0) {
    target.mode = TPL_VIA_FILE;
    target.path = va_arg(arguments.list, const char*);
  } else if ((mode & TPL_VIA_MEM) != 0) {
    target.mode = TPL_VIA_MEM;
    target.image = va_arg(arguments.list, void**);
    target.size = va_arg(arguments.list, std::size_t*);
  } else if ((mode & TPL_VIA_FD) != 0) {
    target.mode = TPL_VIA_FD;
    target.descriptor = va_arg(arguments.list, int);
  } else {
    ZAL_TPL_FATAL("invalid tpl_jot mode\n");
  }
  return target;
}

int jotBy(const JotTarget& target, tpl::Arguments& arguments) noexcept {
  const char* format = va_arg(arguments.list, const char*);
  const tpl::MapPtr map{tpl::mapFormat(format, arguments)};
  if (!map) return -1;
  tpl::packBorrowed(*map);
  if (target.mode == TPL_VIA_FILE) return tpl_dump(map.get(), TPL_VIA_FILE, target.path);
  if (target.mode == TPL_VIA_MEM) return tpl_dump(map.get(), TPL_VIA_MEM, target.image, target.size);
  return tpl_dump(map.get(), TPL_VIA_FD, target.descriptor);
}

int gatherBy(int mode, tpl::Arguments& arguments) noexcept {
  if (mode == TPL_GATHER_FD_BLOCKING) {
    const int descriptor = va_arg(arguments.list, int);
    void** image = va_arg(arguments.list, void**);
    return tpl::tpl_gather_fd_blocking(descriptor, image, va_arg(arguments.list, std::size_t*));
  }
  if (mode == TPL_GATHER_FD_NOWAIT) {
    const int descriptor = va_arg(arguments.list, int);
    auto** state = va_arg(arguments.list, tpl_gather_state**);
    const auto callback = va_arg(arguments.list, tpl_gather_callback);
    return tpl::tpl_fd_gather(descriptor, state, {callback, va_arg(arguments.list, void*)});
  }
  if (mode == TPL_GATHER_FROM_MEM) {
    const char* bytes = va_arg(arguments.list, const char*);
    const auto size = va_arg(arguments.list, std::size_t);
    auto** state = va_arg(arguments.list, tpl_gather_state**);
    const auto callback = va_arg(arguments.list, tpl_gather_callback);
    return tpl::tpl_mem_gather({bytes, size}, state, {callback, va_arg(arguments.list, void*)});
  }
  ZAL_TPL_FATAL("unsupported tpl_gather mode %d\n", mode);
}

}  // namespace

tpl_map_node* tpl_map(const char* format, ...) noexcept {
  tpl::Arguments arguments;
  va_start(arguments.list, format);
  tpl_map_node* map = tpl::mapFormat(format, arguments);
  va_end(arguments.list);
  return map;
}

tpl_map_node* tpl_map_va(const char* format, va_list list) noexcept {
  tpl::Arguments arguments;
  va_copy(arguments.list, list);
  tpl_map_node* map = tpl::mapFormat(format, arguments);
  va_end(arguments.list);
  return map;
}

int tpl_pack(tpl_map_node* map, int index) noexcept {
  return tpl::pack(map, index);
}

int tpl_dump(tpl_map_node* map, int mode, ...) noexcept {
  const auto size = tpl::dumpSize(map);
  if (!size) return -1;
  tpl::Arguments arguments;
  va_start(arguments.list, mode);
  const int result = dumpBy(*map, *size, mode, arguments);
  va_end(arguments.list);
  return result;
}

void tpl_free(tpl_map_node* map) noexcept {
  if (tpl::isRoot(map)) tpl::freeMap(*map);
}

int tpl_jot(int mode, ...) noexcept {
  tpl::Arguments arguments;
  va_start(arguments.list, mode);
  const int result = jotBy(takeJotTarget(mode, arguments), arguments);
  va_end(arguments.list);
  return result;
}

char* calc_field_addr(tpl_map_node* parent, int type, char* base, int ordinal) noexcept {
  if (parent == nullptr) return base;
  return tpl::fieldAddress(*parent, static_cast<tpl::Type>(type), base, ordinal);
}

int tpl_load(tpl_map_node* map, int mode, ...) noexcept {
  tpl::Arguments arguments;
  va_start(arguments.list, mode);
  const int result = loadBy(map, mode, arguments);
  va_end(arguments.list);
  return result;
}

int tpl_unpack(tpl_map_node* map, int index) noexcept {
  return tpl::unpack(map, index);
}

int tpl_Alen(tpl_map_node* map, int index) noexcept {
  return tpl::elementsLeft(map, index);
}

int tpl_gather(int mode, ...) noexcept {
  tpl::Arguments arguments;
  va_start(arguments.list, mode);
  const int result = gatherBy(mode, arguments);
  va_end(arguments.list);
  return result;
}

char* tpl_peek(int mode, ...) noexcept {
  tpl::Arguments arguments;
  va_start(arguments.list, mode);
  char* format = tpl::peek(mode, arguments);
  va_end(arguments.list);
  return format;
}
