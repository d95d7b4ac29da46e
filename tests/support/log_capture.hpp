// Collects what the process writes to its standard error (and so the library's log lines) while it lives.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace zal::test {

class LogCapture {
 public:
  /// Redirects the descriptor (2 by default) to an unnamed file.
  explicit LogCapture(int descriptor = 2)
      : descriptor_{descriptor}, saved_{dup(descriptor)}, file_{memfd_create("log-capture", 0)} {
    // Appending keeps the lines of threads that write at once; at a shared offset one overwrites the other.
    if (file_ >= 0) fcntl(file_, F_SETFL, O_APPEND);
    if (saved_ < 0 || file_ < 0) throw std::runtime_error("cannot capture the log");
    std::fflush(nullptr);
    dup2(file_, descriptor_);
  }
  ~LogCapture() {
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    close(saved_);
    close(file_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Everything written so far.
  [[nodiscard]] std::string text() const {
    std::fflush(nullptr);
    std::string all;
    char block[4096];
    for (ssize_t n = 0; (n = pread(file_, block, sizeof block, static_cast<off_t>(all.size()))) > 0;)
      all.append(block, static_cast<std::size_t>(n));
    return all;
  }
  [[nodiscard]] bool contains(const std::string& part) const { return text().find(part) != std::string::npos; }
  /// How often `part` occurs.
  [[nodiscard]] int count(const std::string& part) const {
    const std::string all = text();
    int found = 0;
    for (std::size_t at = all.find(part); at != std::string::npos; at = all.find(part, at + part.size())) ++found;
    return found;
  }

 private:
  int descriptor_;
  int saved_;
  int file_;
};

}  // namespace zal::test
