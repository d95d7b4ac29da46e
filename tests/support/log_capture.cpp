#include "tests/support/log_capture.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace zal::test {

LogCapture::LogCapture(int descriptor)
    : descriptor_{descriptor}, saved_{dup(descriptor)}, file_{memfd_create("log-capture", 0)} {
  // Appending keeps the lines of threads that write at once; at a shared offset one overwrites the other.
  if (file_ >= 0) fcntl(file_, F_SETFL, O_APPEND);
  if (saved_ < 0 || file_ < 0) throw std::runtime_error("cannot capture the log");
  std::fflush(nullptr);
  dup2(file_, descriptor_);
}

LogCapture::~LogCapture() {
  std::fflush(nullptr);
  dup2(saved_, descriptor_);
  close(saved_);
  close(file_);
}

std::string LogCapture::text() const {
  std::fflush(nullptr);
  std::string all;
  char block[4096];
  off_t at = 0;
  for (ssize_t n = 0; (n = pread(file_, block, sizeof block, at)) > 0; at += n)
    all.append(block, static_cast<size_t>(n));
  return all;
}

bool LogCapture::contains(const std::string& part) const {
  return text().find(part) != std::string::npos;
}

int LogCapture::count(const std::string& part) const {
  const std::string all = text();
  int found = 0;
  for (size_t at = all.find(part); at != std::string::npos; at = all.find(part, at + part.size())) ++found;
  return found;
}

}  // namespace zal::test
