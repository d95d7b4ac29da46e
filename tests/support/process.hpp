// Other processes, what /proc counts of them and of this one, and a process that can open nothing.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

namespace zal::test {

inline long entriesOf(const std::string& directory) {
  return std::distance(std::filesystem::directory_iterator{directory}, {});
}

/// A process that has run `body`, with async-signal-safe calls alone, and then does `rest`, by itself nothing, again
/// and again until the test is over.
class Child {
 public:
  explicit Child(
      const std::function<void()>& body, void (*rest)() = [] { pause(); }) {
    int ready[2]{};
    EXPECT_EQ(pipe(ready), 0);
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      body();
      close(ready[1]);
      while (true) rest();
    }
    close(ready[1]);
    EXPECT_EQ(read(ready[0], ready, sizeof ready), 0);
    close(ready[0]);
  }
  ~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::string file(const std::string& name) const { return "/proc/" + std::to_string(pid_) + "/" + name; }

 private:
  pid_t pid_ = 0;
};

/// Runs `body` while this process can open no descriptor.
inline void withoutDescriptors(const std::function<void()>& body) {
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none{0, usual.rlim_max};
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  body();
  setrlimit(RLIMIT_NOFILE, &usual);
}

}  // namespace zal::test
