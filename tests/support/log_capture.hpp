// Collects what the process writes to its standard error (and so the library's log lines) while it lives.
#pragma once

#include <string>

namespace zal::test {

class LogCapture {
 public:
  /// Redirects the descriptor (2 by default) to an unnamed file.
  explicit LogCapture(int descriptor = 2);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Everything written so far.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] bool contains(const std::string& part) const;
  /// How often `part` occurs.
  [[nodiscard]] int count(const std::string& part) const;

 private:
  int descriptor_;
  int saved_;
  int file_;
};

}  // namespace zal::test
