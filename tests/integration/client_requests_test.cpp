// Requests: what a method sees, what the agent gets back, and what many of them do to each other.
#include <set>
#include <thread>
#include <vector>

#include "tests/integration/client_with_agent.hpp"
#include "tests/support/log_capture.hpp"

namespace zal::test {
namespace {

class ClientRequests : public ClientWithAgent {};
ZAL_OVER_BOTH_TRANSPORTS(ClientRequests);

TEST_P(ClientRequests, AreAnsweredWithTheirWholeNameAndId) {
  std::string seen;
  addMethod(service_, "look", [&](ZAL_MessageHandle request, ZAL_MessageHandle response) {
    seen = std::string{ZAL_Message_GetName(request)} + "," + ZAL_Message_GetOptionalParam(request);
    ZAL_ObjectHandle data = ZAL_Message_GetData(request);
    int32_t value = -1;
    EXPECT_EQ(ZAL_Object_GetInt32(data, "value", &value), 1);
    respond(response, "value", value);
  });
  start();

  WireRecord request = requestOf("look/interfaces?include=value", 65535, R"({"value":5})");
  request.optionalParam = "fifteen letters";
  const auto response = call(request);

  ASSERT_TRUE(response);
  EXPECT_EQ(seen, "look,fifteen letters");
  EXPECT_EQ(dataOf(response->payload), R"({"value":5})");
  const WireRecord expected{.code = ZAL_IPC_CMD_RESPONSE,
                            .service = "svc",
                            .name = "look/interfaces?include=value",
                            .payload = response->payload,
                            .requestId = 65535};
  EXPECT_EQ(*response, expected);
}

TEST_P(ClientRequests, ArriveWholeWhenTheirImagesComeByteByByte) {
  start();

  const std::string images =
      encodeImage({requestOf("get", 1, R"({"value":1})"), requestOf("get", 2, R"({"value":2})")}) + encodeImage({}) +
      encodeImage({requestOf("get", 3, R"({"value":3})")});
  ASSERT_TRUE(agent_.sendByteByByte(images));

  for (int id : {1, 2, 3}) {
    const auto response = waitForResponse(id);
    ASSERT_TRUE(response);
    EXPECT_EQ(dataOf(response->payload), R"({"value":)" + std::to_string(id) + "}");
  }
}

TEST_P(ClientRequests, AThousandInFlightAreAnsweredEachWithItsOwnId) {
  constexpr int kCount = 1000;
  start();

  std::string images;
  for (int id = 0; id < kCount; ++id)
    images += encodeImage({requestOf("get", id, R"({"value":)" + std::to_string(7 * id) + "}")});
  ASSERT_TRUE(agent_.sendBytes(images));

  ASSERT_TRUE(agent_.waitFor([](const auto& received) { return received.size() == kCount + 2; }));
  std::set<int> answered;
  for (const auto& one : agent_.received()) {
    if (one.image.empty() || one.image[0].code != ZAL_IPC_CMD_RESPONSE) continue;
    const WireRecord& response = one.image[0];
    answered.insert(response.requestId);
    EXPECT_EQ(dataOf(response.payload), R"({"value":)" + std::to_string(7 * response.requestId) + "}");
  }
  EXPECT_EQ(answered.size(), static_cast<size_t>(kCount));
}

TEST_P(ClientRequests, ASlowHandlerBlocksNeitherOthersNorTheLoop) {
  const auto begun = std::make_shared<Latch>();
  const auto release = std::make_shared<Latch>();
  addMethod(service_, "slow", [begun, release](ZAL_MessageHandle, ZAL_MessageHandle response) {
    begun->open();
    respond(response, "released", release->wait() ? 1 : 0);
  });
  start();

  ASSERT_TRUE(agent_.send({requestOf("slow", 1)}));
  ASSERT_TRUE(begun->wait());
  for (int id = 2; id < 20; ++id) ASSERT_TRUE(call(requestOf("get", id, R"({"value":1})"))) << id;
  ASSERT_TRUE(agent_.send({{.code = ZAL_IPC_CMD_CONFIG, .payload = R"({"fresh":1})"}}));
  EXPECT_TRUE(waitUntil([&] {
    ZAL_ObjectHandle fresh = ZAL_Client_GetConfiguration(client_.get(), "fresh");
    if (fresh != nullptr) ZAL_Object_Destroy(fresh);
    return fresh != nullptr;
  })) << "the loop thread stores configurations";
  release->open();

  const auto response = waitForResponse(1);
  ASSERT_TRUE(response);
  EXPECT_EQ(dataOf(response->payload), R"({"released":1})");
}

TEST_P(ClientRequests, WhatCannotBeServedIsAnsweredWithAnImageWithoutRecords) {
  ZAL_Service_AddMethod(service_, "empty", nullptr, nullptr);
  start();
  const int before = emptyImages();

  const WireRecord unserved[] = {requestOf("get", 1, {}, "nobody"), requestOf("unknown", 2), requestOf("empty", 3),
                                 requestOf(std::string(128, 'm'), 4)};
  for (const WireRecord& request : unserved) ASSERT_TRUE(agent_.send({request}));
  EXPECT_TRUE(waitUntil([&] { return emptyImages() == before + 4; }));

  LogCapture log;
  ASSERT_TRUE(agent_.send({requestOf("no uri", 5)}));
  EXPECT_TRUE(waitUntil([&] { return log.contains("Invalid command name no uri\n"); }));
  ASSERT_TRUE(call(requestOf("get", 6)));
  EXPECT_EQ(emptyImages(), before + 4) << "a name that is no URI is not answered";
}

/// A dataset that adds everything it has, and leaves the choice to the filter.
int describeDevice(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle sameResponse) {
  EXPECT_EQ(response, sameResponse);
  EXPECT_STREQ(ZAL_Message_GetFilter(request), "system?include=cpu+memory/free&exclude=cpu/temp");
  ZAL_ObjectHandle data = ZAL_TelemetryObject_Create(response);
  ZAL_ObjectHandle system = ZAL_Object_AddObject(data, "system");
  ZAL_Object_AddString(system, "hostname", "gateway");
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(system, "cpu");
  ZAL_Object_AddInt32(cpu, "load", 12);
  ZAL_Object_AddInt32(cpu, "temp", 60);
  ZAL_ObjectHandle memory = ZAL_Object_AddObject(system, "memory");
  ZAL_Object_AddInt32(memory, "free", 100);
  ZAL_Object_AddInt32(memory, "total", 512);
  EXPECT_EQ(ZAL_Object_AddObject(data, "network"), nullptr);
  ZAL_Message_SetData(response, data);
  return 0;
}

TEST_P(ClientRequests, ADatasetAnswersTheMembersThatItsFilterLetsThrough) {
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  ZAL_TelemetryService_AddDataset(telemetry, "device", describeDevice);
  ZAL_Client_AddService(client_.get(), telemetry);
  start();

  const auto response = call(requestOf("device/system?include=cpu+memory/free&exclude=cpu/temp", 8, {}, "telemetry"));

  ASSERT_TRUE(response);
  EXPECT_EQ(dataOf(response->payload), R"({"system":{"cpu":{"load":12},"memory":{"free":100}}})");
}

TEST_P(ClientRequests, MadeByTheClientItselfAreAnsweredToTheAgent) {
  start();

  ZAL_Client_Command_Request(client_.get(), "svc", "get/local", "uid");

  const auto response = waitForResponse(65535);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->name, "get/local");
}

}  // namespace
}  // namespace zal::test
