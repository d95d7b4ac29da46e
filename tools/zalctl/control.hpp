// The control socket of a running agent: the desk for visitors in other terminals, who have this user's rights.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "desk.hpp"
#include "stream.hpp"

namespace zalctl {

/// Where the control socket of an agent at this address lies.
[[nodiscard]] std::string controlPath(const std::string& url);

class Control {
 public:
  /// Listens at the path, before the agent runs. Throws std::runtime_error when it cannot.
  Control(Agent& agent, const std::string& path);
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

 private:
  class Peer;
  void welcome(std::shared_ptr<Stream> stream);
  void drop(const Peer& peer);

  std::list<std::shared_ptr<Peer>> peers_;
  Listener listener_;
  Desk desk_;  // the last one, so that the agent is stopped first
};

}  // namespace zalctl
