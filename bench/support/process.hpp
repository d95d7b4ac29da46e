// A child process that is measured from outside: started, timed, weighed, and killed at the end of the scope.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace bench {

class Process {
 public:
  /// Starts a program with its arguments; the program's path comes first.
  explicit Process(std::vector<std::string> command);
  ~Process();
  Process(Process&& other) noexcept : pid_{std::exchange(other.pid_, -1)} {}
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  Process& operator=(Process&&) = delete;

  /// Seconds of processor time that all its threads have used.
  [[nodiscard]] double cpuSeconds() const;
  /// Resident memory, MB of 10^6 bytes.
  [[nodiscard]] double residentMegabytes() const;

 private:
  pid_t pid_;
};

}  // namespace bench
