// Any data as that of a message: cut to the range of any filter, decoded as a payload, and printed in its envelope.
#include <zal/zal_message.h>
#include <zal/zal_object.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/zal_message.hpp"
#include "support/fuzz.hpp"
#include "support/json.hpp"

namespace {

using zal::JsonPtr;
using zal::fuzz::Input;
using zal::fuzz::Object;
using zal::fuzz::Text;

struct MessageDestroy {
  void operator()(ZAL_MessageHandle message) const { ZAL_Message_Destroy(message); }
};
using Message = std::unique_ptr<std::remove_pointer_t<ZAL_MessageHandle>, MessageDestroy>;

std::string_view payloadOf(ZAL_MessageHandle message) {
  std::uint8_t* bytes = nullptr;
  std::uint32_t size = 0;
  ZAL_Message_GetPayload(message, &bytes, &size);
  FUZZ_CHECK((bytes == nullptr) == (size == 0));
  return {reinterpret_cast<const char*>(bytes), size};
}

/// The text of the envelope, which must be JSON that shows the data as it is now.
std::string print(ZAL_MessageHandle message) {
  const std::string text = zal::fuzz::takeText(ZAL_Message_DumpOutput(message));
  const JsonPtr envelope = zal::fuzz::parsed(text);
  FUZZ_CHECK(cJSON_IsObject(envelope.get()));
  const cJSON* const data = cJSON_GetObjectItemCaseSensitive(envelope.get(), "data");
  const cJSON* const given = ZAL_Object_GetInternal(ZAL_Message_GetData(message));
  FUZZ_CHECK((data == nullptr) == (given == nullptr));
  if (data != nullptr) FUZZ_CHECK(zal::fuzz::printed(data) == zal::fuzz::printed(given));
  return text;
}

/// A payload comes back from the message that its envelope makes.
void sendPayload(std::string_view bytes) {
  const Message sent{ZAL_Message_Create()};
  ZAL_Message_SetPayload(sent.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  const std::string text = zal::fuzz::takeText(ZAL_Message_DumpOutput(sent.get()));
  const Message received{ZAL_Message_Create()};
  ZAL_Message_SetData(received.get(), zal::fuzz::parsedObject(text).release());
  FUZZ_CHECK(payloadOf(received.get()) == bytes);
}

void sendError(const Text& text) {
  const Message message{ZAL_Message_Create()};
  ZAL_Message_SetError(message.get(), 1, text.get(), text.get());
  const JsonPtr envelope = zal::fuzz::parsed(zal::fuzz::takeText(ZAL_Message_DumpOutput(message.get())));
  const cJSON* const error = cJSON_GetObjectItemCaseSensitive(envelope.get(), "error");
  const char* const source = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(error, "source"));
  FUZZ_CHECK(source != nullptr && text.view() == source);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const Text filter = input.text();
  sendPayload(input.rest());
  sendError(filter);

  Object document = zal::fuzz::parsedObject(input.rest());
  if (!document) return 0;
  const Message message{ZAL_Message_Create()};
  zal::setMessageFilter(message.get(), filter.get());
  ZAL_Message_SetData(message.get(), document.release());
  static_cast<void>(print(message.get()));
  static_cast<void>(payloadOf(message.get()));
  ZAL_Message_SetData(message.get(), nullptr);
  FUZZ_CHECK(ZAL_Message_GetData(message.get()) == nullptr);
  return 0;
}
