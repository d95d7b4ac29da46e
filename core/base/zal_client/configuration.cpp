// The last configuration document that the agent sent: one swap to store it, and copies for everyone who reads.
#include <cstring>

#include "base/zal_client/client.hpp"
#include "support/memory.hpp"

namespace zal {

bool storeConfiguration(ZAL_ClientHandle_& client, const char* text, std::size_t length) noexcept {
  if (text == nullptr || length == 0) return false;
  // Parsed here and not by ZAL_Object_CreateFromJson, which would log a text that is to be ignored in silence.
  JsonPtr tree{cJSON_ParseWithLength(text, length)};
  if (!tree) return false;
  ObjectPtr fresh{ZAL_Object_CreateFromcJSON(tree.get())};
  if (!fresh) return false;
  static_cast<void>(tree.release());  // the object owns it now
  {
    const LockGuard hold{client.configMutex};
    client.config.swap(fresh);
  }
  return true;  // the old document is freed outside the lock
}

ZAL_ObjectHandle copyConfiguration(ZAL_ClientHandle_& client, const char* path) noexcept {
  CPtr<char> text;
  {
    const LockGuard hold{client.configMutex};
    if (!client.config) return nullptr;
    if (path == nullptr || *path == '\0') {
      text.reset(ZAL_Object_DumpOutput(client.config.get()));
    } else if (const ObjectPtr view{ZAL_Object_GetObject(client.config.get(), path)}) {
      text.reset(ZAL_Object_DumpOutput(view.get()));
    }
  }
  return text ? ZAL_Object_CreateFromJson(text.get(), std::strlen(text.get())) : nullptr;
}

}  // namespace zal
