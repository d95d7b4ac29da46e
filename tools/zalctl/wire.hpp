// What goes over the socket, as values of C++: command records in images, and the JSON in their payloads.
// Nothing here keeps state; any thread.
#pragma once

#include <cjson/cJSON.h>
#include <zal/zal_ipccommand.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zalctl {

struct CFree {
  void operator()(void* block) const noexcept { std::free(block); }
};
struct JsonDelete {
  void operator()(cJSON* node) const noexcept { cJSON_Delete(node); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

/// The longest service or method name that a record carries.
inline constexpr std::size_t kMaxName = sizeof(ZAL_IpcCommand::name) - 1;

/// One command record. `payload` holds any bytes; an empty one is no payload.
struct Record {
  std::int32_t code = 0;
  std::string service;
  std::string name;
  std::string payload;
  std::uint16_t requestId = 0;
};

/// One image, in memory that the transport can take over.
struct Image {
  std::unique_ptr<void, CFree> bytes;
  std::uint32_t size = 0;
};

/// An image of one record; without bytes when memory runs out.
[[nodiscard]] Image encode(const Record& record);
/// The records of an image in the order in which the peer added them; nothing when it is no image of records.
[[nodiscard]] std::optional<std::vector<Record>> decode(const void* image, std::uint32_t size);

/// A payload as JSON, null when it is none. The bytes need not end in a NUL; one that they end in is left out.
[[nodiscard]] JsonPtr parsePayload(std::string_view payload);
/// A text that somebody wrote: JSON and nothing after it. Throws std::runtime_error that tells where it goes wrong.
[[nodiscard]] JsonPtr parseText(const std::string& text);
/// The payload of a request: the data in a message's envelope, {"timestamp":...,"data":...}.
[[nodiscard]] std::string envelope(JsonPtr data);

}  // namespace zalctl
