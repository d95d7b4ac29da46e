#include <systemd/sd-bus.h>

#include <deque>
#include <stdexcept>

#include "agents/agent.hpp"
#include "support/socket.hpp"

namespace bench {

namespace {

void check(int result) {
  if (result < 0) throw std::runtime_error{"sd-bus fails"};
}

class SdBusAgent : public Agent {
 public:
  explicit SdBusAgent(const std::string& path) : listener_{listenAt(path)} {}
  ~SdBusAgent() override { sd_bus_close_unref(bus_); }

  void meet() override {
    socket_ = acceptFrom(listener_);
    sd_id128_t id{};
    check(sd_id128_randomize(&id));
    check(sd_bus_new(&bus_));
    check(sd_bus_set_fd(bus_, socket_.get(), socket_.get()));
    check(sd_bus_set_close_on_exit(bus_, 0));
    check(sd_bus_set_server(bus_, 1, id));
    check(sd_bus_set_anonymous(bus_, 1));
    check(sd_bus_start(bus_));
    check(sd_bus_match_signal(bus_, nullptr, nullptr, "/bench", "bench.Client", "Event", onEvent, this));
    while (sd_bus_is_ready(bus_) == 0) turn();
  }

  void send(Kind kind, std::string_view request) override {
    text_.assign(1, static_cast<char>(kind)).append(request);
    const char* path = "/bench";
    const char* interface = "bench.Client";
    if (kind == Kind::kEvents) {
      sd_bus_message* call = nullptr;
      check(sd_bus_message_new_method_call(bus_, &call, nullptr, path, interface, "Events"));
      check(sd_bus_message_append(call, "s", text_.c_str()));
      check(sd_bus_message_set_expect_reply(call, 0));
      check(sd_bus_send(bus_, call, nullptr));
      sd_bus_message_unref(call);
    } else {
      check(
          sd_bus_call_method_async(bus_, nullptr, nullptr, path, interface, "Call", onReply, this, "s", text_.c_str()));
    }
    check(sd_bus_flush(bus_));
  }

  std::string_view receive() override {
    while (received_.empty()) turn();
    current_ = std::move(received_.front());
    received_.pop_front();
    return std::string_view{current_}.substr(1);
  }

 private:
  void turn() {
    const int result = sd_bus_process(bus_, nullptr);
    check(result);
    if (result == 0) check(sd_bus_wait(bus_, UINT64_MAX));
  }

  void keep(sd_bus_message* message) {
    const char* text = nullptr;
    check(sd_bus_message_read(message, "s", &text));
    received_.emplace_back(text);
  }

  static int onReply(sd_bus_message* message, void* agent, sd_bus_error*) {
    check(sd_bus_message_is_method_error(message, nullptr) != 0 ? -1 : 0);
    static_cast<SdBusAgent*>(agent)->keep(message);
    return 0;
  }
  static int onEvent(sd_bus_message* message, void* agent, sd_bus_error*) {
    static_cast<SdBusAgent*>(agent)->keep(message);
    return 0;
  }

  Descriptor listener_;
  Descriptor socket_;
  sd_bus* bus_ = nullptr;
  std::deque<std::string> received_;
  std::string current_;
  std::string text_;
};

}  // namespace

std::unique_ptr<Agent> listenSdBus(const std::string& path) {
  return std::make_unique<SdBusAgent>(path);
}

}  // namespace bench
