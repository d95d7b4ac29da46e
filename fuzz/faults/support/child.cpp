#include "support/child.hpp"

#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <system_error>
#include <utility>

#include "support/fault.hpp"
#include "support/sanitizer.hpp"

namespace faults {

namespace {

constexpr unsigned kDeadlineSeconds = 30;
constexpr int kEngineStatus = 255;
constexpr int kWrongStatus = 101;
constexpr int kLeakedStatus = 102;

Report* ownReport = nullptr;

bool isIn(const Dl_info& place, std::string_view library) noexcept {
  return place.dli_fname != nullptr && std::string_view{place.dli_fname}.find(library) != std::string_view::npos;
}

/// The exported function that holds an address; null inside one that is not exported.
const char* exportedAt(void* address, Dl_info& place) noexcept {
  const ElfW(Sym)* symbol = nullptr;
  if (dladdr1(address, &place, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT) == 0)
    return nullptr;
  const auto offset = reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(place.dli_saddr);
  return symbol != nullptr && place.dli_sname != nullptr && offset <= symbol->st_size ? place.dli_sname : nullptr;
}

/// Who called abort(): libuv, by the function that was called of it, or somebody else.
void onAbort(int /*signal*/) {
  const Aside aside;
  std::array<void*, 32> frames{};
  const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  const char* name = nullptr;
  bool isInLibuv = false;
  constexpr int kOwnFrames = 2;  // this function, and where the signal came in
  for (int i = kOwnFrames; i < count; ++i) {
    Dl_info place{};
    const char* const function = exportedAt(frames[static_cast<std::size_t>(i)], place);
    if (isIn(place, "libuv")) {
      isInLibuv = true;
      if (function != nullptr) name = function;
    } else if (!isIn(place, "libc.so")) {
      break;  // where libuv was called; it goes through the C library for what is done once
    }
  }
  if (isInLibuv)
    std::strncpy(ownReport->libuvName.data(), name != nullptr ? name : "(a thread of its pool)",
                 ownReport->libuvName.size() - 1);
  if (isTracing()) backtrace_symbols_fd(frames.data(), count, STDERR_FILENO);
  signal(SIGABRT, SIG_DFL);
  raise(SIGABRT);
}

[[noreturn]] void runChild(const Children::Body& body, Report& report, int output) {
  ownReport = &report;
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  std::setvbuf(stdout, nullptr, _IONBF, 0);  // a buffer would be made at the first line
  signal(SIGABRT, onAbort);
  alarm(kDeadlineSeconds);
  try {
    body();
  } catch (const std::exception& failure) {
    wrong("an exception came through: ", failure.what());
  }
  std::fflush(nullptr);
  if (std::getenv("LLVM_PROFILE_FILE") != nullptr) std::exit(0);  // an instrumented program writes its counts
  _exit(0);
}

Outcome outcomeOf(int status, const Report& report, std::string_view output) {
  if (WIFEXITED(status)) {
    switch (WEXITSTATUS(status)) {
      case 0:
        return Outcome::kPassed;
      case kEngineStatus:
        return output.find("out of memory\n") != std::string_view::npos ? Outcome::kEngineEnd : Outcome::kDied;
      case kWrongStatus:
        return Outcome::kWrong;
      case kLeakedStatus:
        return Outcome::kLeaked;
      default:
        return Outcome::kDied;
    }
  }
  if (WTERMSIG(status) == SIGALRM) return Outcome::kHung;
  return WTERMSIG(status) == SIGABRT && report.libuvName[0] != '\0' ? Outcome::kLibuvAbort : Outcome::kDied;
}

std::string contentOf(int file) {
  std::string text(static_cast<std::size_t>(std::max<off_t>(lseek(file, 0, SEEK_END), 0)), '\0');
  const ssize_t count = pread(file, text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

}  // namespace

void wrong(const char* text, const char* more) noexcept {
  std::snprintf(ownReport->text.data(), ownReport->text.size(), "%s%s", text, more);
  _exit(kWrongStatus);
}

void leaked(const char* text, std::size_t size) noexcept {
  std::snprintf(ownReport->text.data(), ownReport->text.size(), "%s: a block of %zu bytes", text, size);
  _exit(kLeakedStatus);
}

Report& report() noexcept {
  return *ownReport;
}

Children::~Children() {
  for (const Child& child : running_) {
    kill(child.pid, SIGKILL);
    waitpid(child.pid, nullptr, 0);
    close(child.output);
  }
}

void Children::start(Body body, Done done) {
  while (running_.size() >= most_) waitForOne();
  auto report = std::make_unique<Shared<Report>>();
  const int output = memfd_create("output", MFD_CLOEXEC);
  if (output < 0) throw std::system_error{errno, std::generic_category(), "memfd_create"};
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::system_error{errno, std::generic_category(), "fork"};
  if (pid == 0) runChild(body, **report, output);
  running_.push_back({pid, output, std::move(report), std::move(done)});
}

void Children::finish() {
  while (!running_.empty()) waitForOne();
}

void Children::waitForOne() {
  for (;;) {
    for (auto child = running_.begin(); child != running_.end(); ++child) {
      int status = 0;
      if (waitpid(child->pid, &status, WNOHANG) != child->pid) continue;
      const Child ended = std::move(*child);
      running_.erase(child);
      const std::string output = contentOf(ended.output);
      close(ended.output);
      ended.done(outcomeOf(status, **ended.report, output), **ended.report, output);
      return;
    }
    constexpr useconds_t kMoment = 500;
    usleep(kMoment);
  }
}

int runProgram(const std::function<int()>& run) {
  {
    const LeaksAllowed allowed;
    std::array<void*, 1> frame{};
    backtrace(frame.data(), 1);  // what it loads at its first call is loaded now
  }
  try {
    return run();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}

}  // namespace faults
