#include <zmq.h>

#include <stdexcept>

#include "agents/agent.hpp"

namespace bench {

namespace {

class ZeroMqAgent : public Agent {
 public:
  explicit ZeroMqAgent(const std::string& path) {
    const int endless = 0;
    zmq_setsockopt(socket_, ZMQ_RCVHWM, &endless, sizeof endless);
    zmq_setsockopt(socket_, ZMQ_LINGER, &endless, sizeof endless);
    if (zmq_bind(socket_, ("ipc://" + path).c_str()) != 0) throw std::runtime_error{"zmq_bind"};
    zmq_msg_init(&message_);
  }
  ~ZeroMqAgent() override {
    zmq_msg_close(&message_);
    zmq_close(socket_);
    zmq_ctx_term(context_);
  }

  void meet() override {}  // a send waits for the client

  void send(Kind kind, std::string_view request) override {
    text_.assign(1, static_cast<char>(kind)).append(request);
    if (zmq_send(socket_, text_.data(), text_.size(), 0) < 0) throw std::runtime_error{"zmq_send"};
  }

  std::string_view receive() override {
    if (zmq_msg_recv(&message_, socket_, 0) < 1) throw std::runtime_error{"zmq_msg_recv"};
    return {static_cast<const char*>(zmq_msg_data(&message_)) + 1, zmq_msg_size(&message_) - 1};
  }

 private:
  void* context_ = zmq_ctx_new();
  void* socket_ = zmq_socket(context_, ZMQ_PAIR);
  zmq_msg_t message_;
  std::string text_;
};

}  // namespace

std::unique_ptr<Agent> listenZeroMq(const std::string& path) {
  return std::make_unique<ZeroMqAgent>(path);
}

}  // namespace bench
