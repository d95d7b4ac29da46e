// The C++ face: what its owners release, how long captures live, and what an agent gets to see of exceptions.
#include <unistd.h>
#include <zal/zal.hpp>

#include <future>
#include <limits>

#include "tests/integration/client_with_agent.hpp"
#include "tests/support/log_capture.hpp"

namespace zal::test {
namespace {

using namespace std::chrono_literals;

TEST(CppData, IsReadAsWhatItIs) {
  const Object read = Object::parse(R"({"text":"t","yes":true,"big":9007199254740991,"minus":-1,"part":2.5,
                                        "ports":[{"name":"a"},7,{"name":"b"}],"inner":{"deep":{"n":3}}})");

  EXPECT_EQ(read.get<std::string>("text"), "t");
  EXPECT_EQ(read.get<std::string_view>("ports[2]:name"), "b");
  EXPECT_EQ(read.get<bool>("yes"), true);
  EXPECT_EQ(read.get<std::int64_t>("big"), 9007199254740991);
  EXPECT_EQ(read.get<std::uint32_t>("minus"), std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(read.get<long long>("minus"), -1);
  EXPECT_EQ(read.get<double>("part"), 2.5);
  EXPECT_EQ(read.get<Object>("inner")->get<int>("deep:n"), 3);
  EXPECT_EQ(read.all<Object>("ports").size(), 3U);
  EXPECT_EQ(read.all<int>("ports"), std::vector{7});
  EXPECT_EQ(read.get<int>("none"), std::nullopt);
  EXPECT_EQ(read.get<int>("text:deeper"), std::nullopt);
  EXPECT_EQ(Node{}.get<Object>("none"), std::nullopt);
  EXPECT_FALSE(Object::parse("{"));
}

TEST(CppData, IsBuiltAndMovedWithoutASecondOwner) {
  Object made;
  made.add("s", "c").add("v", std::string_view{"view"}.substr(1)).add("b", true).add("n", -1L).add("d", 0.5F);
  made.add("blob", Blob{"hi", 2}).add("none", nullptr).addArray("list").append(1).append("two").appendObject();
  Object moved = std::move(made);
  Object tree = Object::parse(R"({"k":[1]})");
  const Node leaf = tree.addObject("leaf");
  moved.add("tree", std::move(tree)).add("view", *Object::parse("{\"k\":1}").get<Object>("k"));
  leaf.add("late", 1);
  EXPECT_EQ(moved.dump(), R"({"s":"c","v":"iew","b":true,"n":-1,"d":0.500000,"blob":"aGk=","none":null,)"
                          R"("list":[1,"two",{}],"tree":{"k":[1]}})");
  moved = Object::array();
  moved.append(false);
  EXPECT_EQ(moved.dump(), "[false]");
}

/// The fixture's own client, in C, is not started.
class CppClient : public ClientWithAgent {
 protected:
  void start() {
    client->start();
    ASSERT_TRUE(waitForSubscription(1));
  }
  /// The payload of the answer to a request; it begins with the time when there is data.
  std::string ask(const std::string& name, const std::string& service = "s") {
    static int id = 100;
    const auto answer = call(requestOf(name, ++id, R"({"data":{"n":4}})", service));
    return answer ? answer->payload : "(none)";
  }

  std::optional<Client> client{std::in_place, agent_.url(), 1ms};
};

TEST_F(CppClient, AnswersWithDataOrWithWhatItsHandlerThrew) {
  client->service("s")
      .method("double",
              [two = std::make_unique<int>(2)](const Request& request, Response& response) {
                response.data().add("n", *two * request.data().get<int>("n").value_or(0)).add("name", request.name());
              })
      .method("list", [](const Request&, Response& response) { response.array().append(1); })
      .method("bytes",
              [](const Request&, Response& response) {
                response.setPayload({"hi", 2});
              })
      .method("refuse",
              [](const Request&, Response& response) {
                response.data().add("lost", true);
                throw Error{404, "no such door"};
              })
      .method("fail", [](const Request&, Response&) { throw std::out_of_range{"beyond"}; })
      .method("throw", [](const Request&, Response&) { throw 1; });
  client->dataset("set", [](const Request& request, Response& response) {
    EXPECT_EQ(request.filter(), "a?exclude=c");
    response.data().addObject("a").add("b", 1).add("c", 2);
    EXPECT_FALSE(response.data().wants("other"));
  });
  start();

  EXPECT_EQ(dataOf(ask("double")), R"({"n":8,"name":"double"})");
  EXPECT_EQ(dataOf(ask("list")), "[1]");
  EXPECT_EQ(dataOf(ask("bytes")), R"("aGk=")");
  EXPECT_EQ(ask("refuse"), R"({"error":{"code":404,"source":"s","message":"no such door"}})");
  EXPECT_EQ(ask("fail"), R"({"error":{"code":500,"source":"s","message":"beyond"}})");
  EXPECT_EQ(ask("throw"), R"({"error":{"code":500,"source":"s","message":"exception of an unknown type"}})");
  EXPECT_EQ(dataOf(ask("set/a?exclude=c", "telemetry")), R"({"a":{"b":1}})");
}

TEST_F(CppClient, KeepsCapturesUntilTheLastCallOfTheirHandler) {
  auto capture = std::make_shared<int>(0);
  std::promise<void> begun;
  std::promise<void> go;
  const auto handler = [&, capture](const Request&, Response& response) { response.data().add("uses", *capture); };
  client->service("s").method("slow", [&, capture](const Request&, Response& response) {
    begun.set_value();
    go.get_future().wait();
    response.data().add("uses", capture.use_count() > 1);
  });
  client->service("s").method("removed", handler);
  client->dataset("set", handler);
  client->dataset("removed", handler);
  client->onConnect([capture](unsigned) {});
  client->ask("peer", "never answered", Object{}, [capture](Node) {});
  start();
  ASSERT_TRUE(agent_.send({requestOf("slow", 1, {}, "s")}));
  begun.get_future().wait();

  EXPECT_EQ(capture.use_count(), 8) << "one here and one in `handler`";
  client->service("s").method("slow", [](const Request&, Response&) {});
  EXPECT_EQ(capture.use_count(), 8) << "the call that runs still has it";
  go.set_value();
  EXPECT_EQ(dataOf(waitForResponse(1)->payload), R"({"uses":true})");
  EXPECT_TRUE(waitUntil([&] { return capture.use_count() == 7; }));
  client->service("s").removeMethod("removed");
  client->removeDataset("removed");
  EXPECT_EQ(capture.use_count(), 5);
  client.reset();
  EXPECT_EQ(capture.use_count(), 2);
}

TEST_F(CppClient, MayEndInItsOwnHandler) {
  std::promise<void> ended;
  std::shared_ptr<void> capture{nullptr, [&](void*) { ended.set_value(); }};
  client->service("s").method("end", [this, capture](const Request&, Response&) { client.reset(); });
  capture.reset();
  start();

  ASSERT_TRUE(agent_.send({requestOf("end", 1, {}, "s")}));

  EXPECT_EQ(ended.get_future().wait_for(1min), std::future_status::ready);
}

TEST_F(CppClient, TellsAndAsksAndReadsItsConfiguration) {
  agent_.answerConfiguration(R"({"events":{"settings":{"hot":{"enabled":true,"limit":90}}}})");
  std::promise<unsigned> connected;
  std::promise<std::string> answered;
  client->onConnect([&](unsigned flag) { connected.set_value(flag); });
  client->onConfigurationChange([](std::string_view) { throw std::out_of_range{"a profile"}; });
  Service service = client->service("s").method("m", [](const Request&, Response&) {});
  Object question;
  question.add("n", 1);
  start();
  EXPECT_EQ(connected.get_future().get(), 0U);

  EXPECT_TRUE(client->isEnabled("hot"));
  EXPECT_EQ(client->eventSettings("hot").get<int>("limit"), 90);
  EXPECT_FALSE(client->configuration("none"));
  Event event{"hot"};
  event.data().add("degrees", 91);
  service.send(std::move(event));
  const auto sent = agent_.waitForRecord([](const WireRecord& record) { return record.name == "hot"; });
  EXPECT_EQ(sent->service + dataOf(sent->payload), R"(s{"degrees":91})");

  client->ask("peer", "q", question, [&](Node answer) { answered.set_value(answer.dump()); });
  const auto asked = agent_.waitForRecord([](const WireRecord& record) { return record.name == "q"; });
  agent_.send({{.code = ZAL_IPC_CMD_GATEWAY_RESPONSE, .payload = "[2]", .requestId = asked->requestId}});
  EXPECT_EQ(answered.get_future().get(), "[2]");

  LogCapture log;
  agent_.send({{.code = ZAL_IPC_CMD_NOTIFY, .service = "s", .name = "onProfileChanged"}});
  EXPECT_TRUE(waitUntil([&] { return log.contains("configuration(): unexpected failure: a profile\n"); }));
}

TEST(CppLoop, FiresUntilItsWatchEndsAndKeepsCapturesUntilThen) {
  const auto capture = std::make_shared<int>();
  std::promise<void> fired[4];
  std::atomic<int> ticks = 0;
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  auto loop = std::make_shared<EventLoop>("cpp loop");
  Watch tick = loop->every(1ms, [&, capture] {
    if (++ticks == 3) fired[0].set_value();
  });
  Watch readable;
  readable = loop->onReadable(pipe[0], [&, capture] {
    readable.stop();
    fired[1].set_value();
  });
  loop->work([&, capture] { fired[2].set_value(); });
  loop->run();
  EXPECT_EQ(::write(pipe[1], "", 1), 1);
  for (int i = 0; i < 3; ++i) fired[i].get_future().wait();

  tick = Watch{};
  EXPECT_TRUE(waitUntil([&] { return capture.use_count() == 1; }));
  const Watch last = loop->after(0ms, [&] {
    loop.reset();
    fired[3].set_value();
  });
  fired[3].get_future().wait();
  EventLoop replaced{"replaced"};
  replaced.run();
  replaced = EventLoop{"another"};
  for (const int end : pipe) ::close(end);
}

}  // namespace
}  // namespace zal::test
