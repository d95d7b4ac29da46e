#include "tests/integration/client_with_agent.hpp"

#include <algorithm>

namespace zal::test {

void respond(ZAL_MessageHandle response, const char* key, int32_t value) {
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, key, value);
  ZAL_Message_SetData(response, data);
}

std::string dataOf(const std::string& envelope) {
  const std::string key = "\"data\":";
  const std::size_t at = envelope.find(key);
  if (at == std::string::npos) return "(none)";
  const std::size_t begin = at + key.size();
  return envelope.substr(begin, envelope.rfind('}') - begin);
}

WireRecord requestOf(std::string name, int id, std::string payload, std::string service) {
  return {.code = ZAL_IPC_CMD_REQUEST,
          .service = std::move(service),
          .name = std::move(name),
          .payload = std::move(payload),
          .requestId = id};
}

ClientWithAgent::ClientWithAgent() {
  agent_.answerConfiguration("{}");
}

ClientPtr ClientWithAgent::makeClient(ZAL_ServiceHandle& service) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, agent_.url().c_str(), sizeof options.url);
  options.interval = 1;
  ClientPtr client{ZAL_Client_Create(&options)};
  service = ZAL_Service_Create("svc");
  addGet(service);
  ZAL_Client_AddService(client.get(), service);
  return client;
}

void ClientWithAgent::addMethod(ZAL_ServiceHandle service, const char* name, Handler handler) {
  const auto call = [](ZAL_MessageHandle request, ZAL_MessageHandle response, void* data) {
    (*static_cast<const Handler*>(data))(request, response);
    return 0;
  };
  ZAL_Service_AddMethod(service, name, call, &handlers_.emplace_back(std::move(handler)));
}

void ClientWithAgent::addGet(ZAL_ServiceHandle service) {
  addMethod(service, "get", [this](ZAL_MessageHandle request, ZAL_MessageHandle response) {
    int32_t value = -1;
    if (ZAL_ObjectHandle data = ZAL_Message_GetData(request); data != nullptr)
      ZAL_Object_GetInt32(data, "value", &value);
    respond(response, "value", value);
    ++calls_;
  });
}

void ClientWithAgent::start() {
  ZAL_Client_Start(client_.get());
  ASSERT_TRUE(waitForSubscription(1));
}

bool ClientWithAgent::waitForSubscription(int connection) {
  return agent_.waitFor([&](const auto& received) {
    return std::any_of(received.begin(), received.end(), [&](const StandInAgent::Received& one) {
      return one.connection == connection && !one.image.empty() && one.image[0].code == ZAL_IPC_CMD_SUBSCRIBE;
    });
  });
}

std::optional<WireRecord> ClientWithAgent::call(const WireRecord& request) {
  if (!agent_.send({request})) return std::nullopt;
  return waitForResponse(request.requestId);
}

std::optional<WireRecord> ClientWithAgent::waitForResponse(int id) {
  return agent_.waitForRecord(
      [&](const WireRecord& record) { return record.code == ZAL_IPC_CMD_RESPONSE && record.requestId == id; });
}

}  // namespace zal::test
