// One point is one child process: whatever becomes of it, the next one starts from the same state. Several run at a
// time.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "memory/allocator.hpp"
#include "support/shared.hpp"

namespace faults {

/// What a child tells, as far as it comes.
struct Report {
  std::uint64_t events;
  std::uint64_t strikes;
  LiveBlocks live;
  std::array<char, 256> text;      // what was not as documented
  std::array<char, 64> libuvName;  // the function of libuv in which libuv aborted
};

enum class Outcome : std::uint8_t {
  kPassed,
  kEngineEnd,   // the engine's fatal text and exit status 255
  kLibuvAbort,  // libuv called abort()
  kWrong,       // a result that is not the documented one
  kLeaked,
  kHung,
  kDied,
};

/// Ends the child: something was not as documented. It takes no memory.
[[noreturn]] void wrong(const char* text, const char* more = "") noexcept;
[[noreturn]] void leaked(const char* text, std::size_t size) noexcept;
/// The child's own report.
Report& report() noexcept;

/// What a program of children does: its run, told when it fails. The status of the program.
int runProgram(const std::function<int()>& run);

/// Runs children side by side.
class Children {
 public:
  using Body = std::function<void()>;
  using Done = std::function<void(Outcome, const Report&, const std::string& output)>;

  explicit Children(std::size_t most) : most_{most} {}
  ~Children();
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  /// Has a child run `body`, and calls `done` here when it has ended; waits for a place.
  void start(Body body, Done done);
  /// Waits for all of them.
  void finish();

 private:
  struct Child {
    pid_t pid;
    int output;  // a file in memory
    std::unique_ptr<Shared<Report>> report;
    Done done;
  };
  void waitForOne();

  std::size_t most_;
  std::vector<Child> running_;
};

}  // namespace faults
