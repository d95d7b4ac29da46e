// Lists of command records, and their images as an encoder of the tests' own writes and reads them. What else a peer
// may send is tried by fuzz_command_decode.
#include <gtest/gtest.h>
#include <zal/zal_ipccommand.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/wire_image.hpp"

namespace zal::test {
namespace {

struct ListDestroy {
  void operator()(ZAL_IpcCommandList list) const { ZAL_IpcCommand_Destroy(list); }
};
using List = std::unique_ptr<ZAL_IpcCommandList_, ListDestroy>;

void add(const List& list, const WireRecord& record) {
  ZAL_IpcCommand command{};
  command.code = record.code;
  record.service.copy(command.service, sizeof command.service - 1);
  record.name.copy(command.name, sizeof command.name - 1);
  std::strcpy(command.uid, "uid");
  record.optionalParam.copy(command.optionalParam, sizeof command.optionalParam);
  std::string payload = record.payload;
  command.payload = payload.data();
  command.payloadSize = static_cast<std::uint32_t>(payload.size());
  command.requestId = static_cast<std::uint16_t>(record.requestId);
  ZAL_IpcCommand_Add(list.get(), &command);
}

WireRecord removed(const List& list, std::string_view uid) {
  ZAL_IpcCommand* command = ZAL_IpcCommand_Remove(list.get());
  if (command == nullptr) return {};
  const auto* payload = static_cast<const char*>(command->payload);
  WireRecord record{command->code,
                    command->service,
                    command->name,
                    command->optionalParam,
                    payload == nullptr ? "" : std::string{payload, command->payloadSize},
                    command->requestId};
  EXPECT_EQ(command->uid, uid);
  EXPECT_EQ(payload == nullptr, command->payloadSize == 0);
  std::free(command->payload);
  std::free(command);
  return record;
}

std::string encoded(const List& list) {
  void* buffer = nullptr;
  std::uint32_t size = 0;
  ZAL_IpcCommand_GetBuffer(list.get(), &buffer, &size);
  std::string image{static_cast<const char*>(buffer), size};
  std::free(buffer);
  return image;
}

List decoded(const std::string& image) {
  return List{ZAL_IpcCommand_Decode(image.data(), static_cast<std::uint32_t>(image.size()))};
}

const std::string kNul(1, '\0');

TEST(IpcCommandList, TravelsInReverseAndArrivesInOrder) {
  const WireRecord first{ZAL_IPC_CMD_SUBSCRIBE, "svc", "get", "", "", 0};
  const WireRecord second{ZAL_IPC_CMD_EVENT, "system", std::string(255, 'n'), "fifteen letters", "{\"a\":1}", 0};
  const WireRecord third{ZAL_IPC_CMD_GATEWAY_REQUEST, "svc", "get?x", "", "{}" + kNul, 65535};
  const List list{ZAL_IpcCommand_Create()};
  EXPECT_EQ(encoded(list), encodeImage({}));
  add(list, first);
  add(list, {second.code, second.service, second.name, second.optionalParam + '!', second.payload, 0});  // is cut
  add(list, third);

  const std::string image = encoded(list);

  EXPECT_EQ(decodeImage(image), (WireImage{third, second, first}));
  const List received = decoded(image);
  ASSERT_NE(received, nullptr);
  for (const WireRecord& record : {first, second, third, WireRecord{}}) EXPECT_EQ(removed(received, ""), record);
  for (const WireRecord& record : {third, second, first, WireRecord{}}) EXPECT_EQ(removed(list, "uid"), record);
}

TEST(IpcCommandDecode, RefusesWhatIsNoImageOfRecords) {
  std::int32_t i = 1;
  EXPECT_EQ(decoded(jot("i", &i)), nullptr);
  EXPECT_EQ(ZAL_IpcCommand_Decode(nullptr, 0), nullptr);
  EXPECT_EQ(ZAL_IpcCommand_Remove(nullptr), nullptr);
}

}  // namespace
}  // namespace zal::test
