// The agents over a plain socket: frames for the client written by hand, images for the library's.
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "agents/agent.hpp"
#include "support/image.hpp"
#include "support/socket.hpp"

namespace bench {

namespace {

class PlainAgent : public Agent {
 public:
  explicit PlainAgent(const std::string& path) : listener_{listenAt(path)} {}

  void meet() override { socket_ = acceptFrom(listener_); }

  void send(Kind kind, std::string_view request) override {
    out_.clear();
    appendFrame(out_, static_cast<char>(kind), request);
    writeAll(socket_, out_);
  }

  std::string_view receive() override {
    inbox_.take(taken_);
    std::string_view frame;
    while ((frame = firstFrame(inbox_.bytes())).empty())
      if (!inbox_.fill(socket_)) throw std::runtime_error{"the client has ended"};
    taken_ = frame.size() + sizeof(std::uint32_t);
    return frame.substr(1);
  }

 private:
  Descriptor listener_;
  Descriptor socket_;
  Inbox inbox_;
  std::string out_;
  std::size_t taken_ = 0;
};

class ZalAgent : public Agent {
 public:
  ZalAgent(std::string status, const std::string& path) : status_{std::move(status)}, listener_{listenAt(path)} {}

  void meet() override {
    constexpr std::size_t kMethods = 3;
    client_ = ImageStream{acceptFrom(listener_)};
    client_.greet();
    for (std::size_t subscribed = 0; subscribed < kMethods;) subscribed += client_.expect(Code::kSubscribe);
  }

  void send(Kind kind, std::string_view request) override {
    const std::string_view name = kind == Kind::kStatus     ? std::string_view{status_}
                                  : kind == Kind::kDocument ? "document"
                                                            : "events";
    client_.write({.code = Code::kRequest, .service = "telemetry", .name = name, .payload = request});
  }

  std::string_view receive() override {
    for (;;) {
      const Record record = firstOf(client_.next());
      if (record.code == Code::kEvent) return record.payload;
      if (record.code != Code::kResponse) throw std::runtime_error{"an image that is neither answer nor event"};
      if (record.payload.find("\"data\"") != std::string_view::npos)
        return record.payload;  // that of "events" has none
    }
  }

 private:
  std::string status_;
  Descriptor listener_;
  ImageStream client_;
};

}  // namespace

std::unique_ptr<Agent> listenPlain(const std::string& path) {
  return std::make_unique<PlainAgent>(path);
}

std::unique_ptr<Agent> listenZal(const std::string& path) {
  return listenZalAskingFor("system/cpu?include=load", path);
}

std::unique_ptr<Agent> listenZalAskingFor(const std::string& status, const std::string& path) {
  return std::make_unique<ZalAgent>(status, path);
}

}  // namespace bench
