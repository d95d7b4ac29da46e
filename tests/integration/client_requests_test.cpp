// Requests: what a method sees, and what the agent gets back. And what a client sends of its own accord. Many requests
// at once are the business of zal_soak and zal_chaos.
#include <algorithm>
#include <future>
#include <stdexcept>

#include "tests/integration/client_with_agent.hpp"
#include "tests/support/log_capture.hpp"

namespace zal::test {
namespace {

using ClientRequests = ClientWithAgent;

TEST_F(ClientRequests, AreAnsweredWithTheirWholeNameAndId) {
  std::string seen;
  addMethod(service_, "look", [&](ZAL_MessageHandle request, ZAL_MessageHandle response) {
    seen = std::string{ZAL_Message_GetName(request)} + "," + ZAL_Message_GetOptionalParam(request);
    int32_t value = -1;
    EXPECT_EQ(ZAL_Object_GetInt32(ZAL_Message_GetData(request), "value", &value), 1);
    respond(response, "value", value);
  });
  start();

  WireRecord request = requestOf("look/interfaces?include=value", 65535, R"({"value":5})");
  request.optionalParam = "fifteen letters";
  const auto response = call(request);

  ASSERT_TRUE(response);
  EXPECT_EQ(seen, "look,fifteen letters");
  EXPECT_EQ(dataOf(response->payload), R"({"value":5})");
  EXPECT_EQ(*response, (WireRecord{ZAL_IPC_CMD_RESPONSE, "svc", request.name, "", response->payload, 65535}));
}

TEST_F(ClientRequests, ASlowHandlerBlocksNeitherOthersNorTheLoop) {
  std::promise<void> begun;
  std::promise<void> release;
  addMethod(service_, "slow", [&](ZAL_MessageHandle, ZAL_MessageHandle response) {
    begun.set_value();
    release.get_future().wait_for(std::chrono::seconds{60});
    respond(response, "released", 1);
  });
  start();

  ASSERT_TRUE(agent_.send({requestOf("slow", 1)}));
  begun.get_future().wait();
  for (int id = 2; id < 20; ++id) EXPECT_TRUE(call(requestOf("get", id))) << id;
  EXPECT_TRUE(agent_.send({{.code = ZAL_IPC_CMD_CONFIG, .payload = R"({"fresh":1})"}}));
  EXPECT_TRUE(waitUntil([&] {
    ZAL_ObjectHandle fresh = ZAL_Client_GetConfiguration(client_.get(), "fresh");
    if (fresh != nullptr) ZAL_Object_Destroy(fresh);
    return fresh != nullptr;
  })) << "the loop thread stores configurations";
  release.set_value();

  EXPECT_TRUE(waitForResponse(1));
}

TEST_F(ClientRequests, ThatOutliveTheirConnectionAreNotAnsweredOnTheNext) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> begun = 0;
  addMethod(service_, "slow", [&](ZAL_MessageHandle, ZAL_MessageHandle response) {
    ++begun;
    released.wait_for(std::chrono::seconds{60});
    respond(response, "late", 1);
    ZAL_Client_SendEvent(client_.get(), ZAL_Message_Create());
  });
  start();

  ASSERT_TRUE(agent_.send({requestOf("slow", 1), requestOf("slow", 2)}));
  ASSERT_TRUE(waitUntil([&] { return begun == 2; }));
  agent_.die();
  agent_.listen();
  ASSERT_TRUE(waitForSubscription(2));
  release.set_value();

  const auto lateEvents = [](const auto& received) {
    return std::count_if(received.begin(), received.end(), [](const StandInAgent::Received& one) {
      return !one.image.empty() && one.image[0].code == ZAL_IPC_CMD_EVENT;
    });
  };
  ASSERT_TRUE(agent_.waitFor([&](const auto& received) { return lateEvents(received) == 2; })) << "events do go there";
  for (int id = 3; id < 20; ++id) ASSERT_TRUE(call(requestOf("get", id)));
  for (const auto& one : agent_.received()) {
    const bool isResponse = !one.image.empty() && one.image[0].code == ZAL_IPC_CMD_RESPONSE;
    EXPECT_TRUE(!isResponse || one.image[0].requestId >= 3) << one.image[0].requestId;
  }
}

TEST_F(ClientRequests, WhatCannotBeServedIsAnsweredWithAnImageWithoutRecords) {
  ZAL_Service_AddMethod(service_, "empty", nullptr, nullptr);
  start();
  LogCapture log;

  ASSERT_TRUE(agent_.send({requestOf("no uri", 1), requestOf("get", 2, {}, "nobody"), requestOf("empty", 3)}));
  EXPECT_TRUE(waitUntil([&] { return log.contains("Invalid command name no uri\n"); }));
  // After the two images of the connection.
  EXPECT_TRUE(agent_.waitFor([](const auto& received) { return received.size() == 4; }));
  ASSERT_TRUE(call(requestOf("get", 4)));

  const auto received = agent_.received();
  EXPECT_EQ(received.size(), 5U) << "a name that is no URI is not answered";
  for (size_t i = 2; i < 4; ++i) EXPECT_EQ(received[i].image, WireImage{});
}

TEST_F(ClientRequests, AnExceptionOfAHandlerIsLoggedAndItsAnswerSentAsItIs) {
  addMethod(service_, "throw", [&](ZAL_MessageHandle, ZAL_MessageHandle response) {
    respond(response, "value", 1);
    throw std::runtime_error{"of the program, not of the library's C++ runtime"};
  });
  start();

  LogCapture log;
  const auto response = call(requestOf("throw", 1));
  ASSERT_TRUE(response);
  EXPECT_EQ(dataOf(response->payload), R"({"value":1})");
  EXPECT_TRUE(log.contains("unexpected failure: of the program, not of the library's C++ runtime\n"));
}

TEST_F(ClientRequests, EventsCarryTheNameOfTheSystemOrOfTheirService) {
  start();
  const auto makeEvent = [] {
    ZAL_MessageHandle event = ZAL_Message_Create();
    ZAL_Message_SetName(event, "alarm");
    ZAL_Message_SetOptionalParam(event, "opt");
    respond(event, "level", 3);
    return event;
  };

  ZAL_Client_SendEvent(client_.get(), makeEvent());
  ZAL_Service_SendEvent(client_.get(), service_, makeEvent());

  for (const char* service : {"system", "svc"}) {
    const auto event = agent_.waitForRecord(
        [&](const WireRecord& record) { return record.service == service && record.code == ZAL_IPC_CMD_EVENT; });
    ASSERT_TRUE(event) << service;
    EXPECT_EQ(*event, (WireRecord{ZAL_IPC_CMD_EVENT, service, "alarm", "opt", event->payload, 0}));
    EXPECT_EQ(dataOf(event->payload), R"({"level":3})");
  }
}

TEST_F(ClientRequests, ToOthersGetTheirAnswers) {
  std::promise<int> answered;
  start();
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, "question", 1);
  const auto take = [](ZAL_ObjectHandle response, void* promise) {
    int32_t value = -1;
    ZAL_Object_GetInt32(response, "value", &value);
    static_cast<std::promise<int>*>(promise)->set_value(value);
  };
  ZAL_Client_Command_Request_Gateway(client_.get(), "peer", "ask", data, take, &answered);
  ZAL_Object_Destroy(data);

  // The id is the one with which a process begins.
  const WireRecord expected{ZAL_IPC_CMD_GATEWAY_REQUEST, "peer", "ask", "", {"{\"question\":1}\0", 15}, 65531};
  EXPECT_TRUE(agent_.waitForRecord([&](const WireRecord& record) { return record == expected; }));
  for (const int id : {12345, 65531})  // nobody waits for the one
    EXPECT_TRUE(agent_.send({{.code = ZAL_IPC_CMD_GATEWAY_RESPONSE, .payload = R"({"value":7})", .requestId = id}}));
  EXPECT_EQ(answered.get_future().get(), 7);
}

}  // namespace
}  // namespace zal::test
