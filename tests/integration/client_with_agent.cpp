#include "tests/integration/client_with_agent.hpp"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdlib>

namespace zal::test {
namespace {

bool isSubscription(const WireImage& image) {
  return !image.empty() &&
         std::all_of(image.begin(), image.end(), [](const WireRecord& r) { return r.code == ZAL_IPC_CMD_SUBSCRIBE; });
}

}  // namespace

ClientPtr makeClient(const std::string& url) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, url.c_str(), sizeof options.url);
  options.interval = 1;
  return ClientPtr{ZAL_Client_Create(&options)};
}

void respond(ZAL_MessageHandle response, const char* key, int32_t value) {
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, key, value);
  ZAL_Message_SetData(response, data);
}

std::string dataOf(const std::string& envelope) {
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree{cJSON_ParseWithLength(envelope.data(), envelope.size()),
                                                             cJSON_Delete};
  const cJSON* data = cJSON_GetObjectItemCaseSensitive(tree.get(), "data");
  if (data == nullptr) return "(none)";
  const std::unique_ptr<char, decltype(&std::free)> text{cJSON_PrintUnformatted(data), std::free};
  return text.get();
}

WireRecord requestOf(std::string name, int id, std::string payload, std::string service) {
  return {.code = ZAL_IPC_CMD_REQUEST,
          .service = std::move(service),
          .name = std::move(name),
          .payload = std::move(payload),
          .requestId = id};
}

void Latch::open() {
  const std::lock_guard hold{mutex_};
  isOpen_ = true;
  opened_.notify_all();
}

bool Latch::wait() {
  std::unique_lock hold{mutex_};
  return opened_.wait_for(hold, std::chrono::seconds{60}, [this] { return isOpen_; });
}

void PrintTo(Transport transport, std::ostream* out) {
  *out << (transport == Transport::kUnix ? "UnixSocket" : "Tcp");
}

ClientWithAgent::ClientWithAgent()
    : agent_{GetParam() == Transport::kUnix ? dir_.file("agent.sock") : std::string{}},
      client_{makeClient(agent_.url())},
      service_{ZAL_Service_Create("svc")} {
  agent_.answerConfiguration("{}");
  addGet(service_);
  ZAL_Client_AddService(client_.get(), service_);
}

void ClientWithAgent::TearDown() {
  client_.reset();
  EXPECT_EQ(agent_.fault(), "");
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
      return one.connection == connection && isSubscription(one.image);
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

int ClientWithAgent::emptyImages() const {
  const auto received = agent_.received();
  return static_cast<int>(
      std::count_if(received.begin(), received.end(), [](const auto& one) { return one.image.empty(); }));
}

}  // namespace zal::test
