// Services and their methods: adding, replacing, removing, finding, and telling the agent of them. Any thread.
#include <zal/zal_runtime.h>

#include <cstring>
#include <utility>

#include "base/zal_client/client.hpp"
#include "support/log.hpp"

namespace zal {

namespace {

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

/// Where a walk over the services begins. It needs no lock: services are added at the head and stay.
ZAL_ServiceHandle_* newestService(const ZAL_ClientHandle_& client) noexcept {
  const LockGuard hold{client.servicesMutex};
  return client.services.head();
}

/// False when there is one of this name.
bool takeService(ZAL_ClientHandle_& client, ZAL_ServiceHandle_& service) noexcept {
  const LockGuard hold{client.servicesMutex};
  if (client.services.find(service.name) != nullptr) return false;
  client.services.push(std::unique_ptr<ZAL_ServiceHandle_>{&service});
  return true;
}

}  // namespace

ZAL_ServiceHandle_* findService(const ZAL_ClientHandle_& client, const char* name) noexcept {
  const LockGuard hold{client.servicesMutex};
  return client.services.find(name);
}

ZAL_ServiceHandle_* findServiceByPrefix(const ZAL_ClientHandle_& client, const char* name) noexcept {
  ZAL_ServiceHandle_* service = newestService(client);
  while (service != nullptr && std::strncmp(name, service->name, std::strlen(service->name)) != 0)
    service = service->next;
  return service;
}

std::optional<MethodHandler> findMethod(ZAL_ServiceHandle_& service, const char* name) noexcept {
  const LockGuard hold{service.methodsMutex};
  const Method* const method = service.methods.find(name);
  return method != nullptr ? std::optional{method->call} : std::nullopt;
}

std::unique_ptr<ZAL_ServiceHandle_> makeService(const char* name) noexcept {
  std::unique_ptr<ZAL_ServiceHandle_> service{new (std::nothrow) ZAL_ServiceHandle_{}};
  if (!service || !service->methodsMutex.valid()) return nullptr;
  zalstrlcpy(service->name, name, sizeof service->name);
  return service;
}

MethodHandler* changeMethodLocked(ZAL_ServiceHandle_& service, const MethodChange& change) noexcept {
  Method* const known = service.methods.find(change.name);
  if (known != nullptr && !change.removes) return &known->call;
  if (known != nullptr) {
    // Held until the end of the block: the log line may name it.
    const std::unique_ptr<Method> removed = service.methods.remove(*known);
    ZAL_LOG_AS(ZAL_LOG_DEBUG, change.function, "%s is removed from %s\n", change.name, change.group);
    return nullptr;
  }
  std::unique_ptr<Method> fresh{new (std::nothrow) Method{}};
  if (!fresh) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, change.function, "out of memory\n");
    return nullptr;
  }
  zalstrlcpy(fresh->name, change.name, sizeof fresh->name);
  Method& added = *fresh;
  service.methods.push(std::move(fresh));
  ZAL_LOG_AS(ZAL_LOG_DEBUG, change.function, "%s is added to %s\n", change.name, change.group);
  return &added.call;
}

void addService(ZAL_ClientHandle_& client, ZAL_ServiceHandle_& service) noexcept {
  constexpr const char* kFunction = "ZAL_Client_AddService";
  if (!takeService(client, service)) return;
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
  for (auto* service = newestService(client); service != nullptr; service = service->next) {
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "Subscribing service \"%s\"\n", service->name);
    listMethods(*service, list.get());
  }
  writeList(client, list.get());
}

}  // namespace zal
