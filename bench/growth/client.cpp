// A client in this process and its agent on the measuring thread.
#include <zal/zal.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

#include "growth/growth.hpp"
#include "support/image.hpp"
#include "support/socket.hpp"
#include "support/temp_directory.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

int ignoreRequest(ZAL_MessageHandle, ZAL_MessageHandle, void*) {
  return 0;
}

std::string serviceName(int number) {
  return "service-" + std::to_string(number);
}

std::string methodName(int number) {
  return "method-" + std::to_string(number);
}

/// A client that is connected and has subscribed its services, each with as many methods.
class Client {
 public:
  Client(const std::string& path, int services, int methods) : services_{services}, methods_{methods} {
    ZAL_ClientOptions options;
    ZAL_Client_GetDefaultOptions(&options);
    zalstrlcpy(options.url, ("file://" + path).c_str(), sizeof options.url);
    options.interval = 1;
    handle_ = ZAL_Client_Create(&options);
    addServices();
    connect(path);
  }
  ~Client() { ZAL_Client_Destroy(handle_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// One request to the method of this number, of all services' methods.
  void ask(int number) {
    const std::string service = serviceName(number / methods_);
    const std::string name = methodName(number % methods_);
    agent_.write({.code = Code::kRequest, .service = service, .name = name});
    const Record answer = firstOf(agent_.next());
    if (answer.code != Code::kResponse || answer.service != service || answer.name != name)
      throw std::runtime_error{"a wrong answer"};
  }

  [[nodiscard]] ZAL_ClientHandle handle() const { return handle_; }
  [[nodiscard]] ImageStream& agent() { return agent_; }

  double secondsToAdd = 0;
  double secondsToSubscribe = 0;
  double bytesOfServices = 0;

 private:
  void addServices() {
    const double heapBefore = heapBytes();
    const auto start = Clock::now();
    for (int i = 0; i < services_; ++i) {
      ZAL_ServiceHandle service = ZAL_Service_Create(serviceName(i).c_str());
      for (int j = 0; j < methods_; ++j) ZAL_Service_AddMethod(service, methodName(j).c_str(), ignoreRequest, nullptr);
      ZAL_Client_AddService(handle_, service);
    }
    secondsToAdd = secondsSince(start);
    bytesOfServices = heapBytes() - heapBefore;
  }

  void connect(const std::string& path) {
    const Descriptor listener = listenAt(path);
    ZAL_Client_Start(handle_);
    agent_ = ImageStream{acceptFrom(listener)};
    const auto start = Clock::now();
    agent_.greet();
    if (agent_.expect(Code::kSubscribe) != static_cast<std::size_t>(services_) * static_cast<std::size_t>(methods_))
      throw std::runtime_error{"a subscription is missing"};
    secondsToSubscribe = secondsSince(start);
  }

  int services_;
  int methods_;
  ZAL_ClientHandle handle_ = nullptr;
  ImageStream agent_;
};

/// How `size` methods are spread.
struct Shape {
  const char* name;
  std::unique_ptr<Client> (*make)(const std::string& path, int size);
};
constexpr Shape kShapes[] = {
    {"methods of a service", [](const std::string& path, int size) { return std::make_unique<Client>(path, 1, size); }},
    {"services of a method", [](const std::string& path, int size) { return std::make_unique<Client>(path, size, 1); }},
};

void measureShape(const Shape& shape, const Settings& settings, Report& report) {
  TempDirectory sockets;
  const std::vector<int> counts = sizes(10, 10000, settings);
  const auto table = [&](const char* what, const char* unit) {
    return Measure{std::string{shape.name} + ": " + what, unit, settings.rounds};
  };
  const auto figure = [&](double Client::*member, double scale) {
    return atEach(counts,
                  [&, member, scale](int size) { return (*shape.make(sockets.next(), size)).*member / size * scale; });
  };
  report.add(table("added, each", "us"), figure(&Client::secondsToAdd, 1e6));
  report.add(table("subscribed, each", "us"), figure(&Client::secondsToSubscribe, 1e6));
  report.add(table("heap of each", "bytes"), figure(&Client::bytesOfServices, 1));

  std::map<int, std::unique_ptr<Client>> clients;
  const auto requestTo = [&](auto number) {
    return atEach(counts, [&, number](int size) {
      return medianMicroseconds(scaled(1000, settings.effort), [&] { clients.at(size)->ask(number(size)); });
    });
  };
  for (const int size : counts) clients[size] = shape.make(sockets.next(), size);
  report.add(table("request to the oldest", "us"), requestTo([](int) { return 0; }));
  report.add(table("request to the newest", "us"), requestTo([](int size) { return size - 1; }));
}

/// Requests of a client that are sent and, later, answered.
class Gateway {
 public:
  explicit Gateway(const std::string& path) : client_{path, 1, 1} {}

  /// Seconds in which `count` requests were sent.
  double send(int count) {
    constexpr int kAhead = 64;
    const std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, decltype(&ZAL_Object_Destroy)> data{
        ZAL_Object_Create(), ZAL_Object_Destroy};
    ids_.clear();
    ids_.reserve(static_cast<std::size_t>(count));
    const auto start = Clock::now();
    for (int i = 0; i < count + kAhead; ++i) {
      if (i < count)
        ZAL_Client_Command_Request_Gateway(client_.handle(), "peer", "ask", data.get(), countAnswer, &answered_);
      if (i >= kAhead) takeRequest();
    }
    return secondsSince(start);
  }

  /// Seconds in which the requests were answered, in the order in which they came or backwards.
  double answer(bool isBackwards) {
    if (isBackwards) std::reverse(ids_.begin(), ids_.end());
    answered_ = 0;
    const auto start = Clock::now();
    for (const std::uint32_t id : ids_)
      client_.agent().write({.code = Code::kGatewayResponse, .payload = "{}", .requestId = id});
    awaitCount(answered_, static_cast<int>(ids_.size()));
    return secondsSince(start);
  }

 private:
  static void countAnswer(ZAL_ObjectHandle, void* counter) { ++*static_cast<std::atomic<int>*>(counter); }

  void takeRequest() {
    const Record request = firstOf(client_.agent().next());
    if (request.code != Code::kGatewayRequest) throw std::runtime_error{"a request was expected"};
    ids_.push_back(request.requestId);
  }

  std::atomic<int> answered_{0};
  Client client_;
  std::vector<std::uint32_t> ids_;
};

}  // namespace

void measureServiceGrowth(const Settings& settings, Report& report) {
  for (const Shape& shape : kShapes) measureShape(shape, settings, report);
}

void measureGatewayGrowth(const Settings& settings, Report& report) {
  TempDirectory sockets;
  Gateway gateway{sockets.next()};
  const auto table = [&](const char* what, const char* unit) {
    return Measure{std::string{"gateway requests: "} + what, unit, settings.rounds};
  };
  const auto perItem = [&](auto measure) {
    return atEach(sizes(100, 60000, settings), [&gateway, measure](int size) { return measure(gateway, size) / size; });
  };
  report.add(table("sent, each", "us"), perItem([](Gateway& requests, int size) {
               const double seconds = requests.send(size);
               requests.answer(true);
               return seconds * 1e6;
             }));
  report.add(table("answered in order, each", "us"), perItem([](Gateway& requests, int size) {
               requests.send(size);
               return requests.answer(false) * 1e6;
             }));
  report.add(table("answered backwards, each", "us"), perItem([](Gateway& requests, int size) {
               requests.send(size);
               return requests.answer(true) * 1e6;
             }));
  report.add(table("heap of each", "bytes"), perItem([](Gateway& requests, int size) {
               requests.send(size);
               const double pending = heapBytes();
               requests.answer(true);
               return pending - heapBytes();
             }));
}

}  // namespace bench
