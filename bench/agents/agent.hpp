// The agent's side of a candidate: started first, then joined by one client process.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/work.hpp"

namespace bench {

class Agent {
 public:
  Agent() = default;
  virtual ~Agent() = default;
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  /// Waits until the client serves requests.
  virtual void meet() = 0;
  virtual void send(Kind kind, std::string_view request) = 0;
  /// Waits for the next answer or event; the text is valid until the next call.
  virtual std::string_view receive() = 0;
};

/// One candidate: its name, its client's program, and its agent listening at a path.
struct Peer {
  std::string name;
  std::string client;
  std::unique_ptr<Agent> (*listen)(const std::string& path);
};

/// The hand-written floor first, then the library, then those whose packages were there at the build.
const std::vector<Peer>& peers();

std::unique_ptr<Agent> listenPlain(const std::string& path);
std::unique_ptr<Agent> listenZal(const std::string& path);
/// One that asks for `status` by Kind::kStatus.
std::unique_ptr<Agent> listenZalAskingFor(const std::string& status, const std::string& path);
std::unique_ptr<Agent> listenSdBus(const std::string& path);
std::unique_ptr<Agent> listenZeroMq(const std::string& path);
std::unique_ptr<Agent> listenNng(const std::string& path);

}  // namespace bench
