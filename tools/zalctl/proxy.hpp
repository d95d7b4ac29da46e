// Stands between clients and their agent: forwards the bytes of both untouched, and tells what passes.
#pragma once

#include <zal/zal_eventloop.h>

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "recording.hpp"
#include "stream.hpp"

namespace zalctl {

class Proxy {
 public:
  /// Takes an entry; on the loop thread, after its bytes were forwarded.
  using Sink = std::function<void(const Entry&)>;

  /// Takes a client that could not be connected to its agent, by what is wrong; on the loop thread.
  using Complaint = std::function<void(const std::string&)>;

  /// Listens for clients at one address and connects each to the agent at the other. Throws std::runtime_error.
  Proxy(const Address& place, const Address& agent, Sink sink, Complaint complain);
  ~Proxy();
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

 private:
  class Pair;
  void welcome(std::shared_ptr<Stream> client);
  void drop(const Pair& pair);

  struct LoopDestroy {
    using pointer = ZAL_EventLoopContext;
    void operator()(ZAL_EventLoopContext loop) const noexcept { ZAL_EventLoop_Destroy(loop); }
  };

  const Address agent_;
  const Sink sink_;
  const Complaint complain_;
  std::unique_ptr<ZAL_EventLoopContext, LoopDestroy> loop_;
  std::list<std::shared_ptr<Pair>> pairs_;
  std::unique_ptr<Listener> listener_;
  std::uint32_t lastPair_ = 0;
};

}  // namespace zalctl
