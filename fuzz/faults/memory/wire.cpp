// Scenarios of the serialization engine and of the command records.
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <string_view>

#include "memory/scenario.hpp"

namespace faults {

namespace {

using Map = Owned<tpl_map_node*, tpl_free>;
using Block = Owned<void*, std::free>;
using List = Owned<ZAL_IpcCommandList, ZAL_IpcCommand_Destroy>;

struct Pair {
  std::int32_t number;
  char* text;
};

/// What an image of the format "iA(S(is)B)" is packed from and unpacked into.
struct Values {
  std::int32_t number = 7;
  Pair pair{1, nullptr};
  tpl_blob blob{nullptr, 0};

  Map map() { return Map{FAULTS_ATTEMPT(nullptr, tpl_map("iA(S(is)B)", &number, &pair, &blob))}; }
};

tpl_map_node* mapOf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  tpl_map_node* const map = FAULTS_ATTEMPT(nullptr, tpl_map_va(format, arguments));
  va_end(arguments);
  return map;
}

void pack(Values& values, const Map& map) {
  char text[] = "text";
  char bytes[] = "bytes";
  values.pair.text = text;
  values.blob = {bytes, 5};
  FAULTS_REQUIRE(tpl_pack(map.get(), 0) == 0);
  FAULTS_REQUIRE(tpl_pack(map.get(), 1) == 0 && tpl_pack(map.get(), 1) == 0);
}

void unpack(const void* image, std::size_t size) {
  Values values;
  const Map map = values.map();
  FAULTS_REQUIRE(tpl_load(map.get(), TPL_VIA_MEM, image, size) == 0);
  FAULTS_REQUIRE(tpl_unpack(map.get(), 0) == 1 && tpl_Alen(map.get(), 1) == 2);
  while (tpl_unpack(map.get(), 1) > 0) {
    const Block text{values.pair.text};
    const Block blob{values.blob.address};
    FAULTS_REQUIRE(std::string_view{values.pair.text} == "text" && values.blob.length == 5);
  }
}

void peek(const void* image, std::size_t size) {
  const Text format{tpl_peek(TPL_VIA_MEM, image, size)};
  FAULTS_REQUIRE(format && std::strcmp(format.get(), "iA(S(is)B)") == 0);
  std::int32_t number = 0;
  const Text withValue{tpl_peek(TPL_VIA_MEM | TPL_DATAPEEK, image, size, "i", &number)};
  FAULTS_REQUIRE(withValue && number == 7);
}

int countImage(void* /*image*/, std::size_t /*length*/, void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

void gather(const char* image, std::size_t size) {
  tpl_gather_state* pending = nullptr;
  int count = 0;
  for (std::size_t at = 0; at < size; at += 7)
    FAULTS_REQUIRE(tpl_gather(TPL_GATHER_FROM_MEM, image + at, std::min<std::size_t>(7, size - at), &pending,
                              countImage, &count) == 1);
  FAULTS_REQUIRE(count == 1 && pending == nullptr);

  std::array<int, 2> pipe{};
  FAULTS_REQUIRE(::pipe(pipe.data()) == 0);
  std::int32_t number = 5;
  FAULTS_REQUIRE(tpl_jot(TPL_VIA_FD, pipe[1], "i", &number) == 0);
  void* bytes = nullptr;
  std::size_t length = 0;
  FAULTS_REQUIRE(tpl_gather(TPL_GATHER_FD_BLOCKING, pipe[0], &bytes, &length) == 1);
  const Block received{bytes};
  close(pipe[0]);
  close(pipe[1]);
}

}  // namespace

void engine() {
  FAULTS_REQUIRE(tpl_hook.alloc_fn == std::malloc);
  Values values;
  const Map map = values.map();
  pack(values, map);
  void* bytes = nullptr;
  std::size_t size = 0;
  FAULTS_REQUIRE(tpl_dump(map.get(), TPL_VIA_MEM, &bytes, &size) == 0);
  const Block image{bytes};
  unpack(image.get(), size);
  peek(image.get(), size);
  gather(static_cast<const char*>(image.get()), size);
  std::int32_t counted[3] = {1, 2, 3};
  const Map fixed{mapOf("i#", counted, 3)};
  FAULTS_REQUIRE(tpl_pack(fixed.get(), 0) == 0);
  static_cast<void>(calc_field_addr(fixed.get(), 1, reinterpret_cast<char*>(counted), 1));
}

void records() {
  const List list{FAULTS_ATTEMPT(nullptr, ZAL_IpcCommand_Create())};
  if (!list) return;
  ZAL_IpcCommand command{};
  command.code = ZAL_IPC_CMD_EVENT;
  std::strcpy(command.service, "service");
  char payload[] = "payload";
  command.payload = payload;
  command.payloadSize = sizeof payload;
  const std::uint64_t before = strikeCount();
  ZAL_IpcCommand_Add(list.get(), &command);
  ZAL_IpcCommand_Add(list.get(), &command);
  const bool isWhole = strikeCount() == before;

  void* bytes = nullptr;
  std::uint32_t size = 0;
  const std::uint64_t beforeImage = strikeCount();
  ZAL_IpcCommand_GetBuffer(list.get(), &bytes, &size);
  const Block image{bytes};
  FAULTS_REQUIRE((bytes != nullptr) == (size != 0));
  FAULTS_REQUIRE(image != nullptr || strikeCount() != beforeImage);
  if (!image) return;

  const List decoded{FAULTS_ATTEMPT(nullptr, ZAL_IpcCommand_Decode(image.get(), size))};
  int count = 0;
  while (ZAL_IpcCommand* const one = ZAL_IpcCommand_Remove(decoded.get())) {
    std::free(one->payload);
    std::free(one);
    ++count;
  }
  FAULTS_REQUIRE(!isWhole || !decoded || count == 2);
}

}  // namespace faults
