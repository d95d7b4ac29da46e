// The application's connect, disconnect and configuration-change callbacks: their lists and the jobs that call them.
// The lists are walked on worker threads only, with callbackMutex held.
#include <zal/zal_runtime.h>

#include "base/zal_client/client.hpp"
#include "support/boundary.hpp"
#include "support/log.hpp"

namespace zal {

namespace {

template <class Function>
void addOnce(HeadList<CallbackEntry<Function>>& list, Function function, void* userData, const char* caller) noexcept {
  if (list.find([&](const auto& entry) { return entry.function == function; }) != nullptr) return;
  std::unique_ptr<CallbackEntry<Function>> entry{new (std::nothrow)
                                                     CallbackEntry<Function>{function, userData, nullptr}};
  if (!entry) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, caller, "out of memory\n");
    return;
  }
  list.push(std::move(entry));
}

}  // namespace

void runEventCallbacks(ZAL_ClientHandle_& client, EventCallbackList ZAL_ClientHandle_::*list, unsigned flag) noexcept {
  const LockGuard hold{client.callbackMutex};
  for (auto* entry = (client.*list).head(); entry != nullptr; entry = entry->next) {
    guarded(ZAL_HERE, [&] { entry->function(entry->userData, flag); });
  }
}

void postProfileChanged(ZAL_ClientHandle_& client, const char* service) noexcept {
  std::unique_ptr<ProfileJob> job{new (std::nothrow) ProfileJob{&client, {}}};
  if (!job) {
    ZAL_LOG(ZAL_LOG_ERROR, "out of memory\n");
    return;
  }
  zalstrlcpy(job->service, service, sizeof job->service);
  if (postJob(client, profileChangedCallbackWork, job.get())) static_cast<void>(job.release());
}

void addEventCallback(ZAL_ClientHandle_& client, EventCallbackList ZAL_ClientHandle_::*list,
                      ZAL_ClientEventCallback callback, void* userData, const char* caller) noexcept {
  const LockGuard hold{client.callbackMutex};
  addOnce(client.*list, callback, userData, caller);
}

void addConfigCallback(ZAL_ClientHandle_& client, ZAL_ConfigChangeCallback callback, void* userData) noexcept {
  const LockGuard hold{client.callbackMutex};
  addOnce(client.configChangeCallbacks, callback, userData, "ZAL_Client_AddConfigurationChangeCallback");
}

void runConfigCallbacks(ProfileJob& job) noexcept {
  const LockGuard hold{job.client->callbackMutex};
  for (auto* entry = job.client->configChangeCallbacks.head(); entry != nullptr; entry = entry->next) {
    guarded(ZAL_HERE, [&] { entry->function(entry->userData, job.service); });
  }
}

}  // namespace zal
