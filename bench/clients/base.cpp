// The floor: a plain socket with a length in front of each message, the work on one worker thread that a condition
// variable wakes, the answers back to the socket's thread over an eventfd.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "support/socket.hpp"
#include "support/work.hpp"

namespace {

/// Texts from one thread to another.
class Queue {
 public:
  void push(std::string text) {
    {
      const std::lock_guard hold{mutex_};
      texts_.push_back(std::move(text));
    }
    filled_.notify_one();
  }
  std::string waitAndPop() {
    std::unique_lock hold{mutex_};
    filled_.wait(hold, [this] { return !texts_.empty(); });
    std::string text = std::move(texts_.front());
    texts_.pop_front();
    return text;
  }
  std::deque<std::string> popAll() {
    const std::lock_guard hold{mutex_};
    return std::exchange(texts_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable filled_;
  std::deque<std::string> texts_;
};

void sendEvents(const bench::Descriptor& socket, std::string_view request) {
  const int count = bench::eventsWanted(request);
  for (int i = 0; i < count; ++i) {
    std::string frame;
    bench::appendFrame(frame, 'v', bench::eventText(i));
    bench::writeAll(socket, frame);
  }
}

}  // namespace

int main(int, char** argv) {
  const bench::Descriptor socket = bench::connectTo(argv[1]);
  const bench::Descriptor answered{eventfd(0, EFD_CLOEXEC)};
  Queue requests;
  Queue answers;
  std::thread{[&] {
    for (;;) {
      const std::string request = requests.waitAndPop();
      std::string frame;
      bench::appendFrame(frame, 'r', bench::answer(request));
      answers.push(std::move(frame));
      const std::uint64_t one = 1;
      static_cast<void>(write(answered.get(), &one, sizeof one));
    }
  }}.detach();

  bench::Inbox inbox;
  for (;;) {
    pollfd ready[] = {{socket.get(), POLLIN, 0}, {answered.get(), POLLIN, 0}};
    if (poll(ready, 2, -1) < 0) return 1;
    if (ready[0].revents != 0) {
      if (!inbox.fill(socket)) _exit(0);
      for (std::string_view frame; !(frame = bench::firstFrame(inbox.bytes())).empty();) {
        if (frame.front() == static_cast<char>(bench::Kind::kEvents)) {
          sendEvents(socket, frame.substr(1));
        } else {
          requests.push(std::string{frame});
        }
        inbox.take(frame.size() + sizeof(std::uint32_t));
      }
    }
    if (ready[1].revents != 0) {
      std::uint64_t count = 0;
      static_cast<void>(read(answered.get(), &count, sizeof count));
      for (const std::string& frame : answers.popAll()) bench::writeAll(socket, frame);
    }
  }
}
