// What the exit status of the program says. An agent's run ends with the worst that it met, a single command with its
// own.
#pragma once

#include <stdexcept>

namespace zalctl {

enum class Status {
  kDone = 0,
  kUnanswered = 1,  // no answer, no such method, or nobody was there to hear a command
  kUsage = 2,       // a command or an input that cannot be understood or carried out
  kRefused = 3,     // the method answered with an error of its own; an agent's run does not count it
  kNoAgent = 4      // there is no agent to speak to, or it went away
};

constexpr const char* kExitStatus =
    "\nExit status:\n"
    "  0  done; a call was answered with data\n"
    "  1  no answer in time, no such method, or no client came\n"
    "  2  wrong usage, or an input that cannot be read or understood; an address in use\n"
    "  3  the method answered with an error of its own\n"
    "  4  no agent at the control socket, or it went away";

/// There is no agent to speak to.
struct NoAgent : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace zalctl
