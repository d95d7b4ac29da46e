#include "fuzz/campaigns/threads/polite_agent.hpp"

#include <zal/zal_ipccommand.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zal::campaign {

namespace {

using std::chrono::milliseconds;
using test::encodeImage;
using test::WireImage;

constexpr milliseconds kPatienceWithin{20};
const std::string kConfiguration =
    R"({"events":{"settings":{"alarm":{"enabled":true,"limit":3,"level":1.5,"unit":"dB","steps":[{"at":1}]}}}})";

}  // namespace

PoliteAgent::PoliteAgent(Listener& listener, std::vector<std::string> methods, int requestsAtATime)
    : listener_{listener}, methods_{std::move(methods)}, requestsAtATime_{requestsAtATime}, thread_{[this] {
        run();
      }} {}

PoliteAgent::~PoliteAgent() {
  isOver_ = true;
  thread_.join();
}

void PoliteAgent::run() {
  while (!isOver_) {
    auto connection = listener_.acceptWithin(kPatienceWithin);
    if (!connection) continue;
    try {
      serve(*connection);
    } catch (const Gone&) {
      continue;  // as every client does in the end
    } catch (const Failure& failure) {
      std::fprintf(stderr, "the agent: %s\n", failure.what());
      std::abort();
    }
  }
}

void PoliteAgent::serve(Connection& connection) {
  while (!isOver_) {
    connection.receive(kPatienceWithin);
    while (const auto image = connection.takeImage()) take(connection, *image);
  }
}

void PoliteAgent::take(const Connection& connection, const WireImage& image) {
  if (image.empty()) return;
  switch (image.front().code) {
    case ZAL_IPC_CMD_GET_CONFIG:
      return connection.send(encodeImage({{.code = ZAL_IPC_CMD_CONFIG, .payload = kConfiguration}}));
    case ZAL_IPC_CMD_SUBSCRIBE:
      return ask(connection);
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      return connection.send(encodeImage(
          {{.code = ZAL_IPC_CMD_GATEWAY_RESPONSE, .payload = "{\"fine\":1}", .requestId = image.front().requestId}}));
    case ZAL_IPC_CMD_RESPONSE:
      ++answers_;
      return;
    default:
      return;
  }
}

void PoliteAgent::ask(const Connection& connection) {
  WireImage image;
  for (int i = 0; i < requestsAtATime_; ++i) {
    lastId_ = (lastId_ + 1) % 65535;
    image.push_back({.code = ZAL_IPC_CMD_REQUEST,
                     .service = "svc",
                     .name = methods_[static_cast<std::size_t>(lastId_) % methods_.size()],
                     .payload = "{\"value\":" + std::to_string(lastId_) + "}",
                     .requestId = lastId_});
  }
  for (const char* notice : {"onProfileChanged", "onDisconnect"})
    image.push_back({.code = ZAL_IPC_CMD_NOTIFY, .service = "svc", .name = notice, .payload = kConfiguration});
  connection.send(encodeImage(image));
}

}  // namespace zal::campaign
