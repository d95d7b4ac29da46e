// What this process lacked of processors, so that what is done late can be told from what the machine made late.
#pragma once

#include <chrono>
#include <map>
#include <string>

namespace zal::campaign {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// How long the threads of this process have been ready to run, and did not, since this was made.
class ProcessorWait {
 public:
  /// Of all threads together, which is more than any chain of them had to wait. A limit that is never reached where the
  /// kernel does not count.
  [[nodiscard]] Milliseconds sum() const;

 private:
  using Waits = std::map<std::string, std::chrono::nanoseconds>;  // by thread
  static Waits waits();

  Waits before_ = waits();
};

}  // namespace zal::campaign
