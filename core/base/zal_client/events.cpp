// Events on their way to the agent, and the event settings in its configuration. Any thread.
#include <zal/zal_runtime.h>

#include <cstdio>
#include <cstring>

#include "base/zal_client/client.hpp"
#include "base/zal_client/events.hpp"
#include "support/memory.hpp"

namespace zal {

void sendEvent(ZAL_ClientHandle_* client, const char* service, MessagePtr message) noexcept {
  if (client == nullptr || service == nullptr || !message) return;
  const CPtr<char> text{ZAL_Message_DumpOutput(message.get())};
  const CommandView event{.code = ZAL_IPC_CMD_EVENT,
                          .service = service,
                          .name = ZAL_Message_GetName(message.get()),
                          .optionalParam = ZAL_Message_GetOptionalParam(message.get()),
                          .payload = viewOf(text)};
  writeCommands(*client, {&event, 1});
}

EventSettings::EventSettings(ZAL_ClientHandle_* client, const char* event, const char* parameter) noexcept
    : events_{client != nullptr ? ZAL_Client_GetConfiguration(client, "events") : nullptr} {
  if (event == nullptr || parameter == nullptr) {
    events_.reset();
  } else {
    static_cast<void>(std::snprintf(path_, sizeof path_, "settings:%s:%s", event, parameter));
  }
}

ObjectPtr EventSettings::element(std::int32_t index) const noexcept {
  if (!events_) return nullptr;
  const ArrayPtr array{ZAL_Object_GetArray(events_.get(), path_)};
  return ObjectPtr{array ? ZAL_Array_GetObject(array.get(), index) : nullptr};
}

}  // namespace zal
