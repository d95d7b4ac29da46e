#include "support/process.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

extern char** environ;

namespace bench {

Process::Process(std::vector<std::string> command) : pid_{-1} {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const int error = posix_spawn(&pid_, arguments[0], nullptr, nullptr, arguments.data(), environ);
  if (error != 0) throw std::system_error{error, std::generic_category(), command.front()};
}

Process::~Process() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

double Process::cpuSeconds() const {
  clockid_t clock{};
  timespec used{};
  if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &used) != 0)
    throw std::runtime_error{"the client has ended"};
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

double Process::residentMegabytes() const {
  std::ifstream status{"/proc/" + std::to_string(pid_) + "/status"};
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes * 1024 / 1e6;
  }
  throw std::runtime_error{"the client has ended"};
}

}  // namespace bench
