// Services and their methods: adding, replacing, removing, finding, and telling the agent of them. Any thread.
#include <zal/zal_runtime.h>

#include <cstring>
#include <utility>

#include "base/zal_client/client.hpp"
#include "support/log.hpp"

namespace zal {

namespace {

Method* findMethodLocked(ZAL_ServiceHandle_& service, const char* name) noexcept ZAL_REQUIRES(service.methodsMutex) {
  return service.methods.find([&](const auto& method) { return std::strcmp(method.name, name) == 0; });
}

bool hasMethods(ZAL_ServiceHandle_& service) noexcept {
  const LockGuard hold{service.methodsMutex};
  return service.methods.head() != nullptr;
}

/// Adds one subscription a method.
void listMethods(ZAL_ServiceHandle_& service, ZAL_IpcCommandList list) noexcept {
  const LockGuard hold{service.methodsMutex};
  for (const auto* method = service.methods.head(); method != nullptr; method = method->next) {
    ZAL_IpcCommand command{};
    command.code = ZAL_IPC_CMD_SUBSCRIBE;
    zalstrlcpy(command.service, service.name, sizeof command.service);
    zalstrlcpy(command.name, method->name, sizeof command.name);
    ZAL_IpcCommand_Add(list, &command);
  }
}

}  // namespace

ZAL_ServiceHandle_* findService(const ZAL_ClientHandle_& client, const char* name) noexcept {
  return client.services.find(
      [&](const auto& service) { return std::strncmp(service.name, name, sizeof service.name) == 0; });
}

ZAL_ServiceHandle_* findServiceByPrefix(const ZAL_ClientHandle_& client, const char* name) noexcept {
  return client.services.find(
      [&](const auto& service) { return std::strncmp(name, service.name, std::strlen(service.name)) == 0; });
}

std::optional<Method> findMethod(ZAL_ServiceHandle_& service, const char* name) noexcept {
  const LockGuard hold{service.methodsMutex};
  const Method* const method = findMethodLocked(service, name);
  return method != nullptr ? std::optional{*method} : std::nullopt;
}

std::unique_ptr<ZAL_ServiceHandle_> makeService(const char* name) noexcept {
  std::unique_ptr<ZAL_ServiceHandle_> service{new (std::nothrow) ZAL_ServiceHandle_{}};
  if (!service || !service->methodsMutex.valid()) return nullptr;
  zalstrlcpy(service->name, name, sizeof service->name);
  return service;
}

Method* changeMethodLocked(ZAL_ServiceHandle_& service, const MethodChange& change) noexcept {
  Method* const known = findMethodLocked(service, change.name);
  if (known != nullptr && !change.removes) return known;
  if (known != nullptr) {
    // Held until the end of the block: the log line names it.
    const std::unique_ptr<Method> removed =
        service.methods.remove([&](const auto& method) { return &method == known; });
    ZAL_LOG_AS(ZAL_LOG_DEBUG, change.function, "%s is removed from %s\n", change.name, change.group);
    return nullptr;
  }
  std::unique_ptr<Method> fresh{new (std::nothrow) Method{}};
  if (!fresh) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, change.function, "out of memory\n");
    return nullptr;
  }
  zalstrlcpy(fresh->name, change.name, sizeof fresh->name);
  Method* const added = fresh.get();
  service.methods.push(std::move(fresh));
  ZAL_LOG_AS(ZAL_LOG_DEBUG, change.function, "%s is added to %s\n", change.name, change.group);
  return added;
}

void addService(ZAL_ClientHandle_& client, ZAL_ServiceHandle_& service) noexcept {
  constexpr const char* kFunction = "ZAL_Client_AddService";
  const LockGuard hold{client.servicesMutex};
  if (findService(client, service.name) != nullptr) return;
  client.services.push(std::unique_ptr<ZAL_ServiceHandle_>{&service});
  if (!client.isConnected()) {
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "%s is added to client service list\n", service.name);
  } else if (hasMethods(service)) {
    ZAL_LOG_AS(ZAL_LOG_WARNING, kFunction,
               "%s is added after client is connected.  Try adding service before client starts.\n"
               "Service will auto-subscribe on next client reconnection.\n",
               service.name);
  }
}

void subscribeServices(ZAL_ClientHandle_& client) noexcept {
  constexpr const char* kFunction = "ZAL_Client_SubscribeServices";
  if (!client.isConnected()) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "Subscribe services called when not connected to agent\n");
    return;
  }
  const CommandListPtr list{ZAL_IpcCommand_Create()};
  if (!list) return;
  for (auto* service = client.services.head(); service != nullptr; service = service->next) {
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "Subscribing service \"%s\"\n", service->name);
    listMethods(*service, list.get());
  }
  writeList(client, list.get());
}

}  // namespace zal
