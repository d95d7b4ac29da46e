#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <stdexcept>

#include "agents/agent.hpp"

namespace bench {

namespace {

void check(int result) {
  if (result != 0) throw std::runtime_error{nng_strerror(result)};
}

class NngAgent : public Agent {
 public:
  explicit NngAgent(const std::string& path) {
    check(nng_pair0_open(&socket_));
    check(nng_socket_set_size(socket_, NNG_OPT_RECVMAXSZ, 0));
    check(nng_listen(socket_, ("ipc://" + path).c_str(), nullptr, 0));
  }
  ~NngAgent() override {
    if (message_ != nullptr) nng_msg_free(message_);
    nng_close(socket_);
  }

  void meet() override {}  // a send waits for the client

  void send(Kind kind, std::string_view request) override {
    text_.assign(1, static_cast<char>(kind)).append(request);
    check(nng_send(socket_, text_.data(), text_.size(), 0));
  }

  std::string_view receive() override {
    if (message_ != nullptr) nng_msg_free(message_);
    message_ = nullptr;
    check(nng_recvmsg(socket_, &message_, 0));
    return {static_cast<const char*>(nng_msg_body(message_)) + 1, nng_msg_len(message_) - 1};
  }

 private:
  nng_socket socket_{};
  nng_msg* message_ = nullptr;
  std::string text_;
};

}  // namespace

std::unique_ptr<Agent> listenNng(const std::string& path) {
  return std::make_unique<NngAgent>(path);
}

}  // namespace bench
