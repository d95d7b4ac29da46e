// The library's lists of records.
#include <cstdlib>
#include <stdexcept>

#include "records/codec.hpp"

namespace bench {

namespace {

Encoded encode(const Records& records) {
  void* block = nullptr;
  std::uint32_t size = 0;
  ZAL_IpcCommand_GetBuffer(records.list, &block, &size);
  return {{block, std::free}, {static_cast<const char*>(block), size}};
}

void decode(std::string_view bytes, const Visit& visit) {
  ZAL_IpcCommandList list = ZAL_IpcCommand_Decode(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  if (list == nullptr) throw std::runtime_error{"no image of records"};
  while (const RecordPtr record{ZAL_IpcCommand_Remove(list)}) visit(*record);
  ZAL_IpcCommand_Destroy(list);
}

}  // namespace

Codec zalCodec() {
  return {"zal", encode, decode};
}

}  // namespace bench
