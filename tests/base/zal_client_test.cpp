// The client runtime without a connection: its lists, its stored configuration and what its calls refuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal.h>

#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/zal_client/client.hpp"
#include "support/descriptor.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/process.hpp"
#include "tests/support/stand_in_agent.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;

/// A client that tries to connect every millisecond, unless told otherwise.
ZAL_ClientHandle makeClient(const std::string& url, int interval = 1) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  std::strcpy(options.url, url.c_str());
  options.interval = interval;
  return ZAL_Client_Create(&options);
}

/// A client that was never started. Nothing listens at its URL.
class IdleClient : public ::testing::Test {
 protected:
  ~IdleClient() override {
    if (client_ != nullptr) ZAL_Client_Destroy(client_);
  }

  /// Stores a document, and makes the client believe that it is connected, as reads of the configuration require.
  void configure(const std::string& text) {
    ASSERT_EQ(updateServerConfig(client_, text.data(), text.size()), 1);
    client_->flags.fetch_or(zal::kConnected);
  }

  std::string configAt(const char* path) {
    const HandlePtr copy{getServerConfig(client_, path)};
    return copy == nullptr ? "(none)" : textOf(copy.get());
  }

  ZAL_ClientHandle client_ = makeClient("file:///nonexistent/agent.sock");
};

int ignoreRequest(ZAL_MessageHandle, ZAL_MessageHandle, void*) {
  return 0;
}
int otherHandler(ZAL_MessageHandle, ZAL_MessageHandle, void*) {
  return 1;
}

std::vector<std::string> methodNames(ZAL_ServiceHandle service) {
  std::vector<std::string> names;
  const zal::LockGuard hold{service->methodsMutex};
  for (const auto* method = service->methods.head(); method != nullptr; method = method->next)
    names.emplace_back(method->name);
  return names;
}

TEST(ClientOptions, AnIntervalBelowOneCountsAsOneSecond) {
  for (const auto& [given, used] : {std::pair{1, 1}, {0, 1000}, {-5, 1000}}) {
    ZAL_ClientHandle client = makeClient("file:///nonexistent/agent.sock", given);
    EXPECT_EQ(client->retryInterval, used);
    ZAL_Client_Destroy(client);
  }
}

TEST(ClientOptions, NullHandlesAreLoggedOrRefusedInSilence) {
  const LogCapture log;
  ZAL_Client_GetDefaultOptions(nullptr);
  ZAL_Client_Start(nullptr);
  ZAL_Client_AddConnectCallback(nullptr, nullptr, nullptr);
  ZAL_Client_AddDisconnectCallback(nullptr, nullptr, nullptr);
  ZAL_Client_AddConfigurationChangeCallback(nullptr, nullptr, nullptr);
  ZAL_Client_AddService(nullptr, nullptr);
  ZAL_Client_SubscribeServices(nullptr);
  ZAL_Client_Command_Request(nullptr, "service", "method", nullptr);
  ZAL_Client_Command_Request_Gateway(nullptr, "service", "method", nullptr, nullptr, nullptr);
  EXPECT_EQ(ZAL_Service_Create(nullptr), nullptr);
  ZAL_Service_AddMethod(nullptr, "method", nullptr, nullptr);
  ZAL_TelemetryService_AddDataset(nullptr, "dataset", nullptr);
  EXPECT_EQ(ZAL_Client_GetService(nullptr, "service"), nullptr);
  EXPECT_EQ(ZAL_Client_GetConfiguration(nullptr, nullptr), nullptr);
  EXPECT_EQ(ZAL_Events_GetParamNumber(nullptr, "event", "parameter", nullptr), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(ZAL_Events_GetParamDouble(nullptr, "event", "parameter", nullptr), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(ZAL_Events_GetParamBool(nullptr, "event", "parameter", nullptr), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(ZAL_Events_GetParamString(nullptr, "event", "parameter", nullptr, 0), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(ZAL_Client_Create(nullptr), nullptr);
  ZAL_Client_Stop(nullptr);
  ZAL_Client_Destroy(nullptr);
  ZAL_Client_GetConfigurationRemote(nullptr);
  for (const char* line : {"ZAL_Client_Create(): invalid input options\n", "NULL pointer passed to ZAL_Client_Stop",
                           "NULL pointer passed to ZAL_Client_Destroy",
                           "ZAL_Client_GetConfigurationRemote(): Invalid handle client handle\n"})
    EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(IdleClient, StartWithoutAnAgentReturnsAndSaysThatItRetries) {
  const LogCapture log;

  ZAL_Client_Start(client_);
  ZAL_Client_Start(client_);  // started already: must not wait again
  EXPECT_EQ(log.count("ZAL_Client_Start"), 0);
  EXPECT_EQ(log.count("did not immediately connect to server, retrying...\n"), 1);

  ZAL_Client_Stop(client_);
  ZAL_Client_Stop(client_);
  EXPECT_EQ(uv_is_active(reinterpret_cast<uv_handle_t*>(&client_->connectTimer)), 0);
  EXPECT_FALSE(client_->isStarted());
}

TEST(ClientStop, AtAnyMomentOfAConnectLeavesNoConnectionOpen) {
  const TempDir directory;
  const zal::Descriptor listener{listenAtPath(directory.file("agent.sock"))};  // connects succeed, and nobody answers
  ZAL_ClientHandle client = makeClient("file://" + directory.file("agent.sock"));
  ZAL_Client_Start(client);
  ZAL_Client_Stop(client);
  const long atRest = entriesOf("/proc/self/fd");  // with what libuv opens for a loop's first stream, and keeps

  for (int step = 0; step < 300; ++step) {
    std::thread starter{[&] { ZAL_Client_Start(client); }};
    // Around the interval, finely: the connect begins somewhere in there.
    const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds{900 + 3 * step};
    while (std::chrono::steady_clock::now() < moment) std::this_thread::yield();
    ZAL_Client_Stop(client);
    ZAL_Cond_Signal(client->connectedCond.get());  // the start would wait for what the stop forestalled
    starter.join();
    ZAL_Client_Stop(client);

    ASSERT_EQ(entriesOf("/proc/self/fd"), atRest) << "in step " << step;
    ASSERT_FALSE(client->isConnected());
  }
  ZAL_Client_Destroy(client);
}

TEST_F(IdleClient, MethodsAreAddedReplacedAndRemovedByExactName) {
  ZAL_Log_SetLevel(ZAL_LOG_DEBUG);
  const LogCapture log;
  ZAL_ServiceHandle service = ZAL_Service_Create("svc");
  int mark = 0;

  ZAL_Service_AddMethod(service, "get", ignoreRequest, nullptr);
  ZAL_Service_AddMethod(service, "set", nullptr, nullptr);
  ZAL_Service_AddMethod(service, "get", otherHandler, &mark);

  EXPECT_THAT(methodNames(service), ::testing::ElementsAre("set", "get"));
  EXPECT_EQ(zal::findMethod(*service, "get")->handler, otherHandler);
  EXPECT_EQ(zal::findMethod(*service, "get")->userData, &mark);
  EXPECT_EQ(log.count("get is added to svc\n"), 1);

  ZAL_Service_AddMethod(service, "get", nullptr, nullptr);
  ZAL_Service_AddMethod(service, "Set", nullptr, nullptr);
  EXPECT_THAT(methodNames(service), ::testing::ElementsAre("Set", "set"));
  EXPECT_EQ(log.count("get is removed from svc\n"), 1);

  ZAL_Client_AddService(client_, service);
}

TEST(IndexedRecords, AreFoundNewestFirstHoweverManyComeAndGo) {
  constexpr int kRecords = 300;
  constexpr int kKeys = 100;
  zal::IndexedList<zal::PendingRequest> list;
  std::vector<zal::PendingRequest*> records;
  for (int i = 0; i < kRecords; ++i) {
    auto record = std::make_unique<zal::PendingRequest>();
    record->requestId = static_cast<uint16_t>(i % kKeys);
    list.push(std::move(record));
    records.push_back(list.head());
  }

  for (int i = 0; i < kKeys; i += 2) list.remove(*records[static_cast<size_t>(i)]);  // the oldest of its key
  for (int i = kRecords - 1; i >= 0; --i) {
    if (i < kKeys && i % 2 == 0) continue;
    zal::PendingRequest* const record = records[static_cast<size_t>(i)];
    ASSERT_EQ(list.head(), record);
    ASSERT_EQ(list.find(record->requestId), record);
    list.remove(*record);
  }
  EXPECT_EQ(list.head(), nullptr);
  EXPECT_EQ(list.find(7), nullptr);
}

TEST_F(IdleClient, AServiceIsFoundByTheNewestNameThatIsAPrefix) {
  ZAL_ServiceHandle a = ZAL_Service_Create("a");
  ZAL_ServiceHandle ab = ZAL_Service_Create("ab");
  ZAL_ServiceHandle twin = ZAL_Service_Create("a");
  ZAL_Client_AddService(client_, a);
  ZAL_Client_AddService(client_, ab);
  ZAL_Client_AddService(client_, twin);  // refused: it stays ours

  EXPECT_EQ(ZAL_Client_GetService(client_, "ab"), ab);
  EXPECT_EQ(ZAL_Client_GetService(client_, "abc"), ab);
  EXPECT_EQ(ZAL_Client_GetService(client_, "a"), a);
  EXPECT_EQ(ZAL_Client_GetService(client_, "b"), nullptr);

  delete twin;
}

TEST_F(IdleClient, ACallbackIsKeptOnceWithItsFirstUserData) {
  static std::vector<std::pair<void*, unsigned>> calls;
  calls.clear();
  const auto record = [](void* userData, unsigned flag) { calls.emplace_back(userData, flag); };
  const auto throwing = [](void*, unsigned) { throw std::runtime_error("from the application"); };
  const LogCapture log;
  int first = 0;
  int second = 0;
  ZAL_Client_AddConnectCallback(client_, record, &first);
  ZAL_Client_AddConnectCallback(client_, record, &second);
  ZAL_Client_AddConnectCallback(client_, throwing, nullptr);

  uv_work_t job{};
  job.data = client_;
  connectPortalCallbackWork(&job);

  EXPECT_THAT(calls, ::testing::ElementsAre(std::pair<void*, unsigned>(&first, 1)));
  EXPECT_TRUE(log.contains("from the application"));
  EXPECT_TRUE(log.contains("Subscribe services called when not connected to agent\n"));
}

TEST_F(IdleClient, TheLastValidConfigurationStays) {
  const LogCapture log;
  EXPECT_EQ(configAt(nullptr), "(none)");

  EXPECT_EQ(updateServerConfig(client_, R"({"a":{"b":[1,2]}}trailing)", 17), 1);
  EXPECT_EQ(updateServerConfig(client_, "{not json", 9), 0);
  EXPECT_EQ(updateServerConfig(client_, nullptr, 0), 0);

  EXPECT_EQ(configAt(""), R"({"a":{"b":[1,2]}})");
  EXPECT_EQ(configAt("a:b"), "[1,2]");
  EXPECT_EQ(configAt("a:missing"), "(none)");
  EXPECT_EQ(ZAL_Client_GetConfiguration(client_, nullptr), nullptr) << "a client without a connection has none";
  EXPECT_EQ(ZAL_Events_GetParamNumber(client_, "a", "b", nullptr), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(log.text(), "");
}

TEST_F(IdleClient, EventSettingsAreReadByType) {
  configure(R"({"events":{"settings":{"reading":{"enabled":true,"period":250,"factor":1.5,"strict":true,"unit":"abcd",
      "limits":[{"low":3,"on":true},{"other":1}]}}}})");
  int32_t number = -1;
  double factor = -1;
  uint8_t flag = 7;
  char text[8] = "before";

  EXPECT_EQ(ZAL_Events_GetEnabled(client_, "reading") - ZAL_Events_GetEnabled(client_, "other"), 1);
  EXPECT_EQ(ZAL_Events_GetParamNumber(client_, "reading", "period", &number), ZAL_CLIENT_OK);
  for (const char* event : {"reading", "other"})
    EXPECT_EQ(ZAL_Events_GetParamNumber(client_, event, "missing", &number), ZAL_CLIENT_NOT_AVAILABLE);
  EXPECT_EQ(number, 250);
  EXPECT_EQ(ZAL_Events_GetParamDouble(client_, "reading", "factor", &factor), ZAL_CLIENT_OK);
  EXPECT_EQ(factor, 1.5);
  for (const auto& [key, isSet] : {std::pair{"strict", 1}, {"missing", 0}}) {
    EXPECT_EQ(ZAL_Events_GetParamBool(client_, "reading", key, &flag), ZAL_CLIENT_OK);
    EXPECT_EQ(flag, isSet) << key;
  }
  EXPECT_EQ(ZAL_Events_GetParamString(client_, "reading", "unit", text, 4), ZAL_CLIENT_DOES_NOT_FIT);
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(ZAL_Events_GetParamString(client_, "reading", "unit", text, 5), ZAL_CLIENT_OK);
  EXPECT_STREQ(text, "abcd");

  for (const auto& [index, status] : {std::pair{0, ZAL_CLIENT_OK}, {1, ZAL_CLIENT_OK}, {2, ZAL_CLIENT_NOT_AVAILABLE}}) {
    EXPECT_EQ(ZAL_Events_GetParamNumberFromArray(client_, "reading", "limits", &number, "low", index), status);
    EXPECT_EQ(number, 3) << "a missing member leaves the value";
  }
  EXPECT_EQ(ZAL_Events_GetParamNumberFromArray(client_, "reading", "limits", nullptr, "low", 0), ZAL_CLIENT_OK);
  EXPECT_EQ(ZAL_Events_GetParamBoolFromArray(client_, "reading", "limits", &flag, "on", 0), ZAL_CLIENT_OK);
  EXPECT_EQ(flag, 1);
}

TEST_F(IdleClient, AnEventAndALocalRequestWithoutAConnectionAreDropped) {
  ZAL_Client_SendEvent(client_, ZAL_Message_Create());
  ZAL_Client_SendPriv(client_, nullptr, ZAL_Message_Create());
  ZAL_Client_Command_Request(client_, "svc", "get", "uid");
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Client_Command_Request_Gateway(client_, "svc", "get", data, nullptr, nullptr);
  ZAL_Object_Destroy(data);

  client_->jobs.closeAndWait();
  ASSERT_NE(client_->pendingRequests.head(), nullptr);
  EXPECT_EQ(client_->pendingRequests.head()->requestId, 65531);
}

TEST_F(IdleClient, TheShortTeardownLeavesTheTransportAndTheServicesToTheCaller) {
  ZAL_ServiceHandle service = ZAL_Service_Create("svc");
  ZAL_Client_AddService(client_, service);
  ZAL_IpcHandle ipc = client_->ipc;

  ZAL_Destroy(std::exchange(client_, nullptr));

  EXPECT_STREQ(service->name, "svc");
  delete service;
  ZAL_IPC_UnInit(ipc);
}

}  // namespace
