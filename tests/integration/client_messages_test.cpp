// What a client sends of its own accord: events, and requests to others through the agent.
#include <algorithm>
#include <array>

#include "tests/integration/client_with_agent.hpp"

namespace zal::test {
namespace {

class ClientMessages : public ClientWithAgent {
 protected:
  static ZAL_MessageHandle makeEvent() {
    ZAL_MessageHandle event = ZAL_Message_Create();
    ZAL_Message_SetName(event, "alarm");
    ZAL_Message_SetOptionalParam(event, "opt");
    respond(event, "level", 3);
    return event;
  }

  /// Asks the service "peer" through the agent; the answer's member "value" arrives in `answer`.
  void ask(int question, std::atomic<int>& answer) {
    const auto take = [](ZAL_ObjectHandle response, void* where) {
      int32_t value = -1;
      ZAL_Object_GetInt32(response, "value", &value);
      *static_cast<std::atomic<int>*>(where) = value;
    };
    ZAL_ObjectHandle data = ZAL_Object_Create();
    ZAL_Object_AddInt32(data, "question", question);
    ZAL_Client_Command_Request_Gateway(client_.get(), "peer", "ask", data, take, &answer);
    ZAL_Object_Destroy(data);
  }
};
ZAL_OVER_BOTH_TRANSPORTS(ClientMessages);

TEST_P(ClientMessages, EventsCarryTheNameOfTheSystemOrOfTheirService) {
  start();

  ZAL_Client_SendEvent(client_.get(), makeEvent());
  ZAL_Service_SendEvent(client_.get(), service_, makeEvent());

  for (const char* service : {"system", "svc"}) {
    const auto event = agent_.waitForRecord(
        [&](const WireRecord& record) { return record.code == ZAL_IPC_CMD_EVENT && record.service == service; });
    ASSERT_TRUE(event) << service;
    const WireRecord expected{.code = ZAL_IPC_CMD_EVENT,
                              .service = service,
                              .name = "alarm",
                              .optionalParam = "opt",
                              .payload = event->payload};
    EXPECT_EQ(*event, expected);
    EXPECT_EQ(dataOf(event->payload), R"({"level":3})");
  }
}

TEST_P(ClientMessages, GatewayRequestsGetTheirOwnAnswersInAnyOrder) {
  constexpr int kCount = 6;
  static int nextId = 65531;  // where a process begins; its clients share one counter
  std::array<int, kCount> ids{};
  std::array<std::atomic<int>, kCount> answers{};
  start();

  for (size_t i = 0; i < kCount; ++i) {
    ids[i] = nextId;
    nextId = (nextId + 1) % 65536;
    const int question = static_cast<int>(i);
    ask(question, answers[i]);
    const WireRecord expected{.code = ZAL_IPC_CMD_GATEWAY_REQUEST,
                              .service = "peer",
                              .name = "ask",
                              .payload = R"({"question":)" + std::to_string(question) + std::string{"}\0", 2},
                              .requestId = ids[i]};
    ASSERT_TRUE(agent_.waitForRecord([&](const WireRecord& record) { return record == expected; })) << ids[i];
  }
  const auto answer = [&](int id) {
    return agent_.send({{.code = ZAL_IPC_CMD_GATEWAY_RESPONSE,
                         .payload = R"({"value":)" + std::to_string(id + 1) + "}",
                         .requestId = id}});
  };
  ASSERT_TRUE(answer(12345)) << "an answer that nobody waits for";
  for (size_t i = kCount; i-- > 0;) ASSERT_TRUE(answer(ids[i]));

  for (size_t i = 0; i < kCount; ++i) ASSERT_TRUE(waitUntil([&] { return answers[i] == ids[i] + 1; })) << ids[i];
}

}  // namespace
}  // namespace zal::test
