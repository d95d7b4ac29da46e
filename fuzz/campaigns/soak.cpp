// zal_soak: requests on one connection, many in flight, until there were very many. What the client holds must not
// grow.
#include <zal/zal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/campaigns/support/endpoint.hpp"
#include "fuzz/campaigns/support/vitals.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wire_image.hpp"

namespace zal::campaign {
namespace {

using std::chrono::milliseconds;
using test::encodeImage;
using test::WireImage;

constexpr long kIds = 65536;
constexpr long kResidentSlackKib = 1024;
constexpr std::size_t kCodeAt = 22;  // in an image of one record
constexpr std::size_t kIdSize = 4;

struct ClientDestroy {
  void operator()(ZAL_ClientHandle client) const { ZAL_Client_Destroy(client); }
};
using ClientPtr = std::unique_ptr<ZAL_ClientHandle_, ClientDestroy>;

int echo(ZAL_MessageHandle request, ZAL_MessageHandle response, void*) {
  int32_t value = -1;
  ZAL_Object_GetInt32(ZAL_Message_GetData(request), "value", &value);
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, "value", value);
  ZAL_Message_SetData(response, data);
  return 0;
}

ClientPtr startClient(const std::string& url) {
  ZAL_ClientOptions options{};
  url.copy(options.url, sizeof options.url - 1);
  options.interval = 1;
  ClientPtr client{ZAL_Client_Create(&options)};
  ZAL_ServiceHandle service = ZAL_Service_Create("svc");
  ZAL_Service_AddMethod(service, "echo", echo, nullptr);
  ZAL_Client_AddService(client.get(), service);
  ZAL_Client_Start(client.get());
  return client;
}

std::uint32_t numberAt(std::string_view bytes, std::size_t at) {
  std::uint32_t number = 0;
  std::memcpy(&number, bytes.data() + at, sizeof number);  // both sides are little-endian
  return number;
}

/// Keeps a number of requests in flight, each under an id of its own.
class Pump {
 public:
  Pump(Connection& connection, long inFlight) : connection_{connection}, inFlight_{inFlight} {
    image_ =
        encodeImage({{.code = ZAL_IPC_CMD_REQUEST, .service = "svc", .name = "echo", .payload = R"({"value":7})"}});
  }

  /// Sends and receives until so many requests are answered.
  void runTo(long answers) {
    while (answered_ < answers) {
      send(std::min(inFlight_ - (sent_ - answered_), answers - sent_));
      if (!connection_.receive(kPatience)) throw Failure{"an answer is missing"};
      while (const auto image = connection_.takeBytes()) take(*image);
    }
  }

 private:
  void send(long count) {
    out_.clear();
    for (; count > 0; --count, ++sent_) {
      const auto id = static_cast<std::uint32_t>(sent_ % kIds);
      isOpen_[id] = true;
      std::memcpy(image_.data() + image_.size() - kIdSize, &id, kIdSize);
      out_ += image_;
    }
    connection_.send(out_);
  }

  void take(std::string_view image) {
    const std::uint32_t id = numberAt(image, image.size() - kIdSize);
    const std::string_view front = image.substr(0, image.size() - kIdSize);
    if (numberAt(image, kCodeAt) != ZAL_IPC_CMD_RESPONSE || !front.ends_with(R"({"value":7}})") || id >= kIds ||
        !isOpen_[id])
      throw Failure{"what came is not the one answer to a request"};
    isOpen_[id] = false;
    ++answered_;
  }

  Connection& connection_;
  const long inFlight_;
  std::string image_;
  std::string out_;
  std::vector<bool> isOpen_ = std::vector<bool>(kIds);
  long sent_ = 0;
  long answered_ = 0;
};

void greet(Connection& connection) {
  const auto await = [&](std::int32_t code) {
    for (;;) {
      if (!connection.receive(kPatience)) throw Failure{"the client is silent"};
      while (const auto image = connection.takeImage())
        if (!image->empty() && image->front().code == code) return;
    }
  };
  await(ZAL_IPC_CMD_GET_CONFIG);
  connection.send(encodeImage({{.code = ZAL_IPC_CMD_CONFIG, .payload = "{}"}}));
  await(ZAL_IPC_CMD_SUBSCRIBE);
}

void run(long requests, long inFlight) {
  const test::TempDir directory;
  Listener listener{directory.file("agent.sock")};
  const ClientPtr client = startClient(listener.url());
  Connection connection = listener.accept();
  greet(connection);

  const long step = std::max(requests / 10, 1L);
  Pump pump{connection, inFlight};
  Vitals early{};
  for (long answered = step; answered <= requests; answered += step) {
    const auto begin = Clock::now();
    pump.runTo(answered);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const Vitals now = vitals();
    std::printf("%9ld requests, %7.0f/s: %s\n", answered, static_cast<double>(step) / seconds, now.text().c_str());
    std::fflush(stdout);
    if (answered == step) early = now;
    if (hasGrown(early, now, kResidentSlackKib)) throw Failure{"the client grows"};
  }
}

}  // namespace
}  // namespace zal::campaign

int main(int argc, char** argv) {
  long requests = 10'000'000;
  long inFlight = 256;
  CLI::App app{"Asks a client very many times on one connection. What it holds after the first tenth must not grow."};
  app.add_option("--requests", requests, "Requests")->check(CLI::Range(10L, 1'000'000'000L))->capture_default_str();
  app.add_option("--in-flight", inFlight, "Requests in flight")->check(CLI::Range(1L, 60'000L))->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    zal::campaign::run(requests, inFlight);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zal_soak: %s\n", e.what());
    return 1;
  }
}
