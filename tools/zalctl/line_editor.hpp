// Line editing and history at the prompt of a terminal. The command thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "printer.hpp"
#include "waiter.hpp"

namespace zalctl {

class LineEditor {
 public:
  virtual ~LineEditor() = default;
  /// The next line; nothing at the end of input or after a signal. What is printed meanwhile goes above the line.
  [[nodiscard]] virtual std::optional<std::string> readLine() = 0;

  /// Null without a terminal, and in a build without libedit.
  [[nodiscard]] static std::unique_ptr<LineEditor> open(Waiter& waiter, Printer& printer);
};

}  // namespace zalctl
