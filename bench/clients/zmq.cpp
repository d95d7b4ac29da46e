// ZeroMQ: a pair of sockets, the work on the thread that receives.
#include <zmq.h>

#include <string>

#include "support/work.hpp"

int main(int, char** argv) {
  void* context = zmq_ctx_new();
  void* socket = zmq_socket(context, ZMQ_PAIR);
  const int endless = 0;
  zmq_setsockopt(socket, ZMQ_SNDHWM, &endless, sizeof endless);
  if (zmq_connect(socket, ("ipc://" + std::string{argv[1]}).c_str()) != 0) return 1;

  for (;;) {
    zmq_msg_t message;
    zmq_msg_init(&message);
    if (zmq_msg_recv(&message, socket, 0) < 0) return 1;
    const std::string_view text{static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message)};
    if (text.front() == static_cast<char>(bench::Kind::kEvents)) {
      const int count = bench::eventsWanted(text.substr(1));
      for (int i = 0; i < count; ++i) {
        const std::string event = 'v' + bench::eventText(i);
        zmq_send(socket, event.data(), event.size(), 0);
      }
    } else {
      const std::string answer = 'r' + bench::answer(text);
      zmq_send(socket, answer.data(), answer.size(), 0);
    }
    zmq_msg_close(&message);
  }
}
