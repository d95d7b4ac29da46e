#include "support/reached.hpp"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace faults {

namespace {

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr bool kCanWatch = true;
#else
constexpr bool kCanWatch = false;
#endif

/// The names before ";", between "global:" and "local:".
std::vector<std::string> namesIn(const std::string& versionScript) {
  std::ifstream file{versionScript};
  if (!file) throw std::runtime_error{"cannot read " + versionScript};
  std::vector<std::string> names;
  bool isGlobal = false;
  for (std::string word; file >> word && word != "local:";) {
    if (isGlobal && word.ends_with(';')) names.push_back(word.substr(0, word.size() - 1));
    if (word == "global:") isGlobal = true;
  }
  return names;
}

bool isFunction(void* address) {
  Dl_info place{};
  const ElfW(Sym)* symbol = nullptr;
  if (dladdr1(address, &place, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT) == 0)
    return false;
  return (symbol->st_info & 0xfU) == STT_FUNC;
}

#if defined(__x86_64__)

/// What the handler of the breakpoints needs, in one child.
struct Breakpoint {
  unsigned char* code;
  unsigned char original;
};
std::vector<Breakpoint> breakpoints;
bool* isEntered = nullptr;

/// Threads may meet the same breakpoint at once: each goes back to the instruction that now stands there.
void onBreakpoint(int /*signal*/, siginfo_t* /*info*/, void* context) {
  auto& instruction = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
  auto* const code = reinterpret_cast<unsigned char*>(instruction - 1);
  for (std::size_t i = 0; i < breakpoints.size(); ++i) {
    if (breakpoints[i].code != code) continue;
    isEntered[i] = true;
    *static_cast<volatile unsigned char*>(code) = breakpoints[i].original;
    instruction -= 1;
    return;
  }
  signal(SIGTRAP, SIG_DFL);
}

void makeWritable(unsigned char* code) {
  const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  auto* const page = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(code) / pageSize * pageSize);
  if (mprotect(page, pageSize, PROT_READ | PROT_WRITE | PROT_EXEC) != 0)
    throw std::system_error{errno, std::generic_category(), "mprotect"};
}

#endif

}  // namespace

Reached::Reached(const std::string& versionScript) {
  if (versionScript.empty()) return;
  for (const std::string& name : namesIn(versionScript)) {
    void* const address = dlsym(RTLD_DEFAULT, name.c_str());
    if (address == nullptr) throw std::runtime_error{"the library has no " + name};
    if (isFunction(address)) functions_.push_back({name, static_cast<unsigned char*>(address)});
  }
  if (functions_.size() > kMost) throw std::runtime_error{"more functions than there is room for"};
}

void Reached::watch() const {
#if defined(__x86_64__)
  if (!kCanWatch) return;
  constexpr unsigned char kBreak = 0xcc;
  isEntered = entered_->data();
  for (const Function& function : functions_) {
    makeWritable(function.code);
    breakpoints.push_back({function.code, *function.code});
  }
  struct sigaction action {};
  action.sa_sigaction = onBreakpoint;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGTRAP, &action, nullptr);
  for (const Function& function : functions_) *function.code = kBreak;
#endif
}

bool Reached::print() const {
  if (!kCanWatch || functions_.empty()) {
    std::printf("which exported functions are reached was not measured\n");
    return true;
  }
  std::size_t count = 0;
  for (std::size_t i = 0; i < functions_.size(); ++i) {
    if ((*entered_)[i]) {
      ++count;
    } else {
      std::printf("not reached: %s\n", functions_[i].name.c_str());
    }
  }
  std::printf("%zu of %zu exported functions are reached\n", count, functions_.size());
  return count == functions_.size();
}

}  // namespace faults
