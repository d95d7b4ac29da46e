// The commands of the stand-in agent: from text to calls of Agent, and from results to output and an exit status.
// The command thread only.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "agent.hpp"
#include "printer.hpp"
#include "waiter.hpp"

namespace zalctl {

/// What the exit status of the program says, from good to bad: a run ends with the worst that it met.
enum class Status {
  kDone = 0,
  kUnanswered = 1,  // a call got no answer or there is no such method, or nobody was there to hear a command
  kUsage = 2        // a command that cannot be understood or carried out
};

class Commands {
 public:
  Commands(Agent& agent, Printer& printer, Waiter& waiter, std::chrono::milliseconds timeout);

  /// Runs one command line, "# ..." and a blank one being none. False when the run ends: after quit or a signal.
  /// `place`, if there is one, leads the error messages.
  bool run(const std::string& line, const std::string& place = {});
  /// Runs every line of a file, each of them shown before its results.
  bool runFile(const std::string& path);
  /// Runs what comes from standard input.
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
  void report(const std::string& title, const Answer& answer, std::chrono::milliseconds timeout);

  Agent& agent_;
  Printer& printer_;
  Waiter& waiter_;
  std::chrono::milliseconds timeout_;
  Status status_ = Status::kDone;
  bool isQuitting_ = false;
};

/// The whole content of a file. Throws std::runtime_error that names the file and the reason.
[[nodiscard]] std::string readFile(const std::string& path);

}  // namespace zalctl
