// Requests that the application addresses to another party through the agent, and the answers that come back.
// Worker threads. One lock of the process guards the id counter, which all clients share, and every pending list.
#include <utility>

#include "base/zal_client/client.hpp"
#include "support/boundary.hpp"
#include "support/log.hpp"

namespace zal {

namespace {

constexpr std::uint16_t kFirstRequestId = 65531;

constinit StaticMutex gatewayMutex;
std::uint16_t requestIdCounter ZAL_GUARDED_BY(gatewayMutex) = kFirstRequestId;

}  // namespace

void sendGatewayRequest(ZAL_ClientWorkItem_& item) noexcept {
  std::unique_ptr<PendingRequest> pending{new (std::nothrow) PendingRequest{}};
  if (!pending) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "handleClientRequest", "out of memory\n");
    return;
  }
  pending->callback = item.callback;
  pending->userData = item.userData;
  {
    const LockGuard hold{gatewayMutex};
    item.command->requestId = requestIdCounter++;
    pending->requestId = item.command->requestId;
    item.client->pendingRequests.push(std::move(pending));
  }
  const CommandView request = viewOf(*item.command);
  writeCommands(*item.client, {&request, 1});
}

void deliverGatewayResponse(ZAL_ClientWorkItem_& item) noexcept {
  std::unique_ptr<PendingRequest> pending;
  {
    const LockGuard hold{gatewayMutex};
    auto& all = item.client->pendingRequests;
    if (PendingRequest* const request = all.find(item.requestId)) pending = all.remove(*request);
  }
  ZAL_INVARIANT(!pending || pending->requestId == item.requestId);
  if (!pending || pending->callback == nullptr) return;
  // A payload that is no JSON still answers the request: the callback then gets no object.
  const ObjectPtr response{
      ZAL_Object_CreateFromJson(static_cast<const char*>(item.command->payload), item.command->payloadSize)};
  guarded(ZAL_HERE, [&] { pending->callback(response.get(), pending->userData); });
}

}  // namespace zal
