// nng: a pair of sockets, the work on the thread that receives.
#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <string>

#include "support/work.hpp"

int main(int, char** argv) {
  nng_socket socket;
  if (nng_pair0_open(&socket) != 0) return 1;
  nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0);
  if (nng_dial(socket, ("ipc://" + std::string{argv[1]}).c_str(), nullptr, 0) != 0) return 1;

  for (;;) {
    nng_msg* message = nullptr;
    if (nng_recvmsg(socket, &message, 0) != 0) return 1;
    const std::string_view text{static_cast<const char*>(nng_msg_body(message)), nng_msg_len(message)};
    if (text.front() == static_cast<char>(bench::Kind::kEvents)) {
      const int count = bench::eventsWanted(text.substr(1));
      for (int i = 0; i < count; ++i) {
        std::string event = 'v' + bench::eventText(i);
        if (nng_send(socket, event.data(), event.size(), 0) != 0) return 1;
      }
    } else {
      std::string answer = 'r' + bench::answer(text);
      if (nng_send(socket, answer.data(), answer.size(), 0) != 0) return 1;
    }
    nng_msg_free(message);
  }
}
