#include "proxy.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "frames.hpp"

namespace zalctl {

/// A client and its own connection to the agent.
class Proxy::Pair : public std::enable_shared_from_this<Pair> {
 public:
  Pair(Proxy& proxy, std::uint32_t number, std::shared_ptr<Stream> client)
      : proxy_{proxy}, number_{number}, sides_{{{Way::kToAgent, std::move(client)}, {Way::kToClient, nullptr}}} {}
  ~Pair() {
    for (const Side& side : sides_) {
      if (side.stream) side.stream->close();
    }
  }

  void connect(uv_loop_t& loop) {
    const auto done = [this](int status) {
      if (status != 0) {
        proxy_.complain_("client " + std::to_string(number_) + " cannot reach its agent: " + uv_strerror(status));
        return proxy_.drop(*this);
      }
      tell(Way::kOpened, {});
      start(sides_[0], sides_[1]);
      start(sides_[1], sides_[0]);
    };
    sides_[1].stream = Stream::connect(loop, proxy_.agent_, done);
  }

 private:
  struct Side {
    Way way;  // of what comes from it
    std::shared_ptr<Stream> stream;
    Frames frames{};
    bool hasEnded = false;
  };

  void start(Side& from, Side& to) {
    const auto data = [this, &from, &to](std::string_view bytes) { forward(from, to, bytes); };
    const auto end = [this, &from, &to] {
      from.hasEnded = true;
      to.stream->shutdown();
      endIfDone();
    };
    const auto drained = [this, &to] {
      to.stream->resumeReading();
      endIfDone();
    };
    from.stream->start({data, end, drained});
  }

  void forward(Side& from, const Side& to, std::string_view bytes) {
    // One side is read no faster than the other reads.
    constexpr std::size_t kMaxWaiting = 1U << 20U;
    to.stream->write(std::string{bytes});
    if (to.stream->waiting() > kMaxWaiting) from.stream->pauseReading();
    const std::size_t lost = from.frames.feed(bytes, [&](std::string_view image) { tell(from.way, image); });
    if (lost != 0) tell(from.way, bytes.substr(bytes.size() - std::min(lost, bytes.size())));
  }

  void endIfDone() {
    for (const Side& side : sides_) {
      if (!side.hasEnded || side.stream->waiting() != 0) return;
    }
    tell(Way::kClosed, {});
    proxy_.drop(*this);
  }

  void tell(Way way, std::string_view bytes) const {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    proxy_.sink_({std::chrono::duration_cast<std::chrono::microseconds>(now), number_, way, std::string{bytes}});
  }

  Proxy& proxy_;
  const std::uint32_t number_;
  std::array<Side, 2> sides_;
};

Proxy::Proxy(const Address& place, const Address& agent, Sink sink, Complaint complain)
    : agent_{agent}, sink_{std::move(sink)}, complain_{std::move(complain)}, loop_{ZAL_EventLoop_Create(0, "zalctl")} {
  if (!loop_) throw std::runtime_error{"cannot create an event loop"};
  const auto accepted = [this](std::shared_ptr<Stream> client) { welcome(std::move(client)); };
  listener_ = std::make_unique<Listener>(*ZAL_EventLoop_GetLoop(loop_.get()), place, accepted);
  ZAL_EventLoop_Run(loop_.get());
}

Proxy::~Proxy() {
  // Then the streams close; their memory goes when the loop is destroyed.
  ZAL_EventLoop_Stop(loop_.get());
}

void Proxy::welcome(std::shared_ptr<Stream> client) {
  const auto pair = pairs_.emplace_back(std::make_shared<Pair>(*this, ++lastPair_, std::move(client)));
  try {
    pair->connect(*ZAL_EventLoop_GetLoop(loop_.get()));
  } catch (const std::runtime_error& error) {
    complain_(error.what());
    drop(*pair);
  }
}

void Proxy::drop(const Pair& pair) {
  pairs_.remove_if([&](const auto& other) { return other.get() == &pair; });
}

}  // namespace zalctl
