// What is typed at the stand-in agent, or read from a script: from text to calls of Agent, and from results to output
// and an exit status. The command thread only.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "agent.hpp"
#include "printer.hpp"
#include "status.hpp"
#include "waiter.hpp"

namespace zalctl {

class Console {
 public:
  Console(Agent& agent, Printer& printer, Waiter& waiter, std::chrono::milliseconds timeout);

  /// Runs one command line, "# ..." and a blank one being none. False when the run ends: after quit or a signal.
  /// `place`, if there is one, leads the error messages.
  bool run(const std::string& line, const std::string& place = {});
  /// Runs every line of a file, each of them shown before its results.
  bool runFile(const std::string& path);
  /// Runs what comes from standard input, edited and with a history on a terminal.
  void runInput();
  /// Shows a command, then runs it.
  bool runShown(const std::string& line, const std::string& place);

  [[nodiscard]] Status status() const { return status_; }

  /// The list of the commands, for --help.
  [[nodiscard]] static std::string help();

 private:
  class Arguments;
  struct Command;
  static const Command kTable[];

  void call(Arguments& arguments);
  void config(Arguments& arguments);
  void notify(Arguments& arguments);
  void list(Arguments& arguments);
  void waitFor(Arguments& arguments);
  void kill(Arguments& arguments);
  void showHelp(Arguments& arguments);
  void quit(Arguments& arguments);

  void dispatch(const std::string& line);
  void worsen(Status status);
  void fail(const std::string& line);

  Agent& agent_;
  Printer& printer_;
  Waiter& waiter_;
  std::chrono::milliseconds timeout_;
  Status status_ = Status::kDone;
  bool isQuitting_ = false;
};

}  // namespace zalctl
