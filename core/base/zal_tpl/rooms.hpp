// What the rooms of the engine offer each other and the front door. The results are those of the exported functions.
#pragma once

#include "base/zal_tpl/tree.hpp"

#include <sys/types.h>
#include <cstdarg>

namespace zal::tpl {

/// Variable arguments that are passed by reference, which a bare va_list cannot be everywhere.
struct Arguments {
  va_list list;
};

// format.cpp

/// The tree of a format, null when the format is rejected.
tpl_map_node* mapFormat(const char* format, Arguments& arguments) noexcept;
/// Where the next member of a structure lies, after the parent's last child.
char* fieldAddress(const tpl_map_node& parent, Type type, char* base, int ordinal) noexcept;

// pack.cpp

int pack(tpl_map_node* map, int index) noexcept;
/// Packs the root of an empty map without copies: the caller's texts and blobs must stay until the map is freed.
void packBorrowed(tpl_map_node& map) noexcept;

// image.cpp

/// The bytes that an item's packed values, at their place, take in an image.
std::size_t imageSize(const tpl_map_node& item, const char* place) noexcept;
/// The size of the image that a dump would write.
std::uint64_t tpl_ser_osz(tpl_map_node* map) noexcept;
/// The size of the image, absent (and reported) for a loaded map and for an image beyond the length field.
std::optional<std::uint32_t> dumpSize(tpl_map_node* map) noexcept;
/// Writes the image of `size` bytes.
void writeImage(tpl_map_node& map, std::uint32_t size, char* to) noexcept;

// dump.cpp

int dumpToFile(tpl_map_node& map, std::uint32_t size, const char* path) noexcept;
int dumpToDescriptor(tpl_map_node& map, std::uint32_t size, int descriptor) noexcept;
int dumpToBuffer(tpl_map_node& map, std::uint32_t size, void* buffer, std::size_t capacity) noexcept;
HookPtr<char> dumpToMemory(tpl_map_node& map, std::uint32_t size) noexcept;

// files.cpp

/// Maps a file for reading, or reports what failed.
[[nodiscard]] bool mapFile(const char* path, tpl_image_record& image) noexcept;
void unmapFile(tpl_image_record& image) noexcept;
/// Waits until a descriptor that had nothing to give (POLLIN), or no room (POLLOUT), is ready.
void awaitReady(int descriptor, short events) noexcept;
/// The text of errno.
const char* systemError() noexcept;

// load.cpp

int loadFile(tpl_map_node& map, int mode, const char* path) noexcept;
int loadMemory(tpl_map_node& map, int mode, void* address, std::size_t size) noexcept;
int loadDescriptor(tpl_map_node& map, int descriptor) noexcept;
/// Reads the data of a loaded image from its start.
Reader dataReader(const tpl_map_root& root) noexcept;
/// The bytes that the data of the root, or of one array from its element count on, takes at the reader's position;
/// absent when they run past the end.
std::optional<std::size_t> tpl_serlen(tpl_map_node& node, Reader reader) noexcept;
/// Points an array at its elements, and steps over them.
[[nodiscard]] bool armArray(tpl_map_node& array, Reader& reader) noexcept;
/// Steps over an item of any type.
[[nodiscard]] bool skipItem(tpl_map_node& item, Reader& reader) noexcept;

// unpack.cpp

int unpack(tpl_map_node* map, int index) noexcept;
int elementsLeft(tpl_map_node* map, int index) noexcept;

// gather.cpp

struct GatherSink {
  tpl_gather_callback callback;
  void* data;
};
int tpl_gather_fd_blocking(int descriptor, void** image, std::size_t* size) noexcept;
int tpl_fd_gather(int descriptor, tpl_gather_state** state, GatherSink sink) noexcept;
int tpl_mem_gather(std::string_view bytes, tpl_gather_state** state, GatherSink sink) noexcept;

// peek.cpp

char* peek(int mode, Arguments& arguments) noexcept;

}  // namespace zal::tpl
