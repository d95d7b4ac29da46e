// Any bytes as an image of command records. The records' own reader and a map of the serialization engine must agree,
// and what was read must survive being written and read again.
#include <malloc.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;

struct ListDestroy {
  void operator()(ZAL_IpcCommandList list) const { ZAL_IpcCommand_Destroy(list); }
};
using List = std::unique_ptr<ZAL_IpcCommandList_, ListDestroy>;

struct CommandFree {
  void operator()(ZAL_IpcCommand* command) const {
    std::free(command->payload);
    std::free(command);
  }
};
using Command = std::unique_ptr<ZAL_IpcCommand, CommandFree>;

std::vector<Command> recordsOf(List list) {
  std::vector<Command> records;
  while (Command command{ZAL_IpcCommand_Remove(list.get())}) records.push_back(std::move(command));
  return records;
}

/// The bytes of the heap that records take.
std::size_t footprintOf(const std::vector<Command>& records) {
  constexpr std::size_t kBlockHeader = sizeof(std::size_t);
  std::size_t bytes = 0;
  for (const Command& command : records) {
    bytes += malloc_usable_size(command.get()) + kBlockHeader;
    if (command->payload != nullptr) bytes += malloc_usable_size(command->payload) + kBlockHeader;
  }
  return bytes;
}

std::string_view payloadOf(const ZAL_IpcCommand& command) {
  return {static_cast<const char*>(command.payload), command.payloadSize};
}

bool areSame(const ZAL_IpcCommand& one, const ZAL_IpcCommand& other) {
  return one.code == other.code && std::strcmp(one.service, other.service) == 0 &&
         std::strcmp(one.name, other.name) == 0 && std::strcmp(one.optionalParam, other.optionalParam) == 0 &&
         payloadOf(one) == payloadOf(other) && one.requestId == other.requestId;
}

void writeAndReadAgain(std::vector<Command> records) {
  const List list{ZAL_IpcCommand_Create()};
  for (const Command& command : records) ZAL_IpcCommand_Add(list.get(), command.get());
  void* image = nullptr;
  std::uint32_t size = 0;
  ZAL_IpcCommand_GetBuffer(list.get(), &image, &size);
  const std::vector<Command> again = recordsOf(List{ZAL_IpcCommand_Decode(image, size)});
  FUZZ_CHECK(again.size() == records.size());
  for (std::size_t i = 0; i < again.size(); ++i) FUZZ_CHECK(areSame(*again[i], *records[i]));
  tpl_hook.free_fn(image);
}

/// What the engine makes of a record's image.
class Map {
 public:
  bool load(std::string_view image) {
    return tpl_load(map_, TPL_VIA_MEM, const_cast<char*>(image.data()), image.size()) == 0;
  }
  /// The next record must be this one; its name is also what no map gives.
  void expect(const ZAL_IpcCommand& command) {
    FUZZ_CHECK(tpl_unpack(map_, 1) > 0);
    FUZZ_CHECK(command.code == code_);
    FUZZ_CHECK(command.requestId == static_cast<std::uint16_t>(requestId_));
    FUZZ_CHECK(command.service == textOf(blobs_[0], sizeof command.service));
    FUZZ_CHECK(command.name == textOf(blobs_[1], sizeof command.name));
    FUZZ_CHECK(command.optionalParam == textOf(blobs_[2], sizeof command.optionalParam));
    FUZZ_CHECK((payloadOf(command) == std::string_view{static_cast<const char*>(blobs_[3].address), blobs_[3].length}));
    for (const tpl_blob& blob : blobs_) tpl_hook.free_fn(blob.address);
  }
  [[nodiscard]] int left() const { return tpl_Alen(map_, 1); }
  void free() { tpl_free(map_); }

 private:
  static std::string_view textOf(const tpl_blob& blob, std::size_t fieldSize) {
    const auto* const text = static_cast<const char*>(blob.address);
    return {text, text == nullptr ? 0 : strnlen(text, std::min<std::size_t>(blob.length, fieldSize - 1))};
  }

  std::int32_t code_ = 0;
  tpl_blob blobs_[4] = {};
  std::int32_t requestId_ = 0;
  tpl_map_node* map_ = tpl_map("A(iBBBBi)", &code_, &blobs_[0], &blobs_[1], &blobs_[2], &blobs_[3], &requestId_);
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const EngineHook hook;
  const std::string_view image{reinterpret_cast<const char*>(data), size};
  List list{ZAL_IpcCommand_Decode(data, static_cast<std::uint32_t>(size))};
  Map map;
  FUZZ_CHECK((list != nullptr) == map.load(image));
  if (list) {
    std::vector<Command> records = recordsOf(std::move(list));
    FUZZ_CHECK(footprintOf(records) <= 40 * size + 1024);
    for (auto command = records.rbegin(); command != records.rend(); ++command) map.expect(**command);
    FUZZ_CHECK(map.left() == 0);
    writeAndReadAgain(std::move(records));
  }
  map.free();
  return 0;
}
