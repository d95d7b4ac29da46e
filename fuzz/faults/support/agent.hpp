// The agent that clients live with: a process of its own, so that nothing it does counts as the client's. It answers
// what clients ask, tells them of a changed profile, and calls the method "get" of their service "svc" without end: the
// next request follows the answer, or 50 ms without one. Each request tells how many were answered on its connection.
#pragma once

#include <sys/types.h>

#include <string>

namespace faults {

class Agent {
 public:
  enum class Transport { kUnixDomain, kTcp };

  explicit Agent(Transport transport);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  [[nodiscard]] const std::string& url() const noexcept { return url_; }

 private:
  std::string path_;  // empty for TCP
  std::string url_;
  pid_t pid_;
};

}  // namespace faults
