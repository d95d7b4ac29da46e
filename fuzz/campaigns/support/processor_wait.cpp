#include "fuzz/campaigns/support/processor_wait.hpp"

#include <filesystem>
#include <fstream>
#include <limits>

namespace zal::campaign {

Milliseconds ProcessorWait::sum() const {
  if (before_.empty()) return Milliseconds{std::numeric_limits<double>::infinity()};
  std::chrono::nanoseconds sum{0};
  for (const auto& [thread, wait] : waits()) {
    const auto before = before_.find(thread);
    sum += before == before_.end() ? wait : wait - before->second;
  }
  return sum;
}

ProcessorWait::Waits ProcessorWait::waits() {
  Waits waits;
  for (const auto& thread : std::filesystem::directory_iterator{"/proc/self/task"}) {
    std::ifstream statistics{thread.path() / "schedstat"};  // of a thread that ends meanwhile it cannot be read
    long long run = 0;
    long long wait = 0;
    if (statistics >> run >> wait) waits[thread.path().filename()] = std::chrono::nanoseconds{wait};
  }
  return waits;
}

}  // namespace zal::campaign
