// zalctl agent: stands in for the agent at the desk.
#include "agent.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.hpp"
#include "console.hpp"
#include "control.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "waiter.hpp"
#include "wire.hpp"

namespace zalctl {
namespace {

struct Options {
  std::string url = kDefaultUrl;
  std::string control;
  std::string configuration;
  std::string answers;
  std::string script;
  std::vector<std::string> commands;
  unsigned timeoutMs = 5000;
  bool stays = false;
};

constexpr const char* kNotes =
    "\n\nExit status, the worst of the run:\n"
    "  0  every call was answered, with data or with the method's own error\n"
    "  1  a call had no answer or there is no such method, a wait-for ran out, or nobody was connected to notify\n"
    "  2  wrong usage: an option, an unknown command, JSON that is none, a missing file, an address in use\n\n"
    "A request that a client does not know is answered by an image without records, which bears no id. It is taken\n"
    "for the oldest open call to a method that the client has not subscribed, or else for its oldest open call.\n\n"
    "Gateway requests are answered by the first rule that fits, in a file such as\n"
    "  [{\"service\": \"cloud\", \"name\": \"get*\", \"when\": {\"id\": 1}, \"answer\": {\"found\": true}, \"delay\": "
    "200},\n"
    "   {\"service\": \"cloud\", \"drop\": true}]\n"
    "with patterns for service and name, members that the request's data must have, any JSON for the answer, and a\n"
    "delay in milliseconds; all but \"answer\" or \"drop\" may be missing.\n\n"
    "While it runs, the commands call, list, listen and config of other terminals reach it at its control socket: the\n"
    "path of its own socket and \".ctl\", or /tmp/zalctl-HOST-PORT.ctl for TCP. It is for the same user alone.";

/// An agent works without its control socket, too, unless the place was asked for.
std::unique_ptr<Control> openControl(Agent& agent, const Options& options, Printer& printer) {
  try {
    return std::make_unique<Control>(agent, options.control.empty() ? controlPath(options.url) : options.control);
  } catch (const std::exception& error) {
    if (!options.control.empty()) throw;
    printer.error(std::string{"no control socket: "} + error.what());
    return nullptr;
  }
}

/// False when a quit or a signal ended the run.
bool runCommands(Console& console, const Options& options) {
  if (!options.script.empty() && !console.runFile(options.script)) return false;
  const auto run = [&](const std::string& command) { return console.runShown(command, {}); };
  return std::all_of(options.commands.begin(), options.commands.end(), run);
}

Status run(const Options& options) {
  Waiter waiter;  // first: it blocks signals for the threads that follow
  Printer printer;
  Agent agent{waiter, showing(printer)};
  if (!options.configuration.empty()) {
    std::string document = readFile(options.configuration);
    static_cast<void>(parseText(document));
    agent.setConfiguration(std::move(document));
  }
  if (!options.answers.empty()) agent.setAnswers(Answers{options.answers});
  agent.listen(options.url);
  const auto control = openControl(agent, options, printer);
  agent.run();
  printer.print(Tone::kPlain, "listening at " + printable(options.url));
  Console console{agent, printer, waiter, std::chrono::milliseconds{options.timeoutMs}};
  const bool hasCommands = !options.script.empty() || !options.commands.empty();
  const bool goesOn = runCommands(console, options);
  if (goesOn && options.stays) waiter.untilInterrupted();
  if (goesOn && !options.stays && !hasCommands) console.runInput();
  return console.status();
}

}  // namespace

Run declareAgent(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("--url", options->url, "address to listen at, file:///PATH or tcp://HOST:PORT")->capture_default_str();
  app.add_option("--control", options->control, "control socket for other terminals (default: beside its own)");
  app.add_option("--config", options->configuration, "configuration document for the clients (default: {})");
  app.add_option("--answers", options->answers,
                 "rules that answer gateway requests, JSON (default: with their own data)");
  app.add_option("--script", options->script, "file of commands to run instead of reading standard input");
  app.add_option("-c,--command", options->commands, "command to run, after the script; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--timeout", options->timeoutMs, "milliseconds that call and wait-for wait")->capture_default_str();
  app.add_flag("--stay", options->stays, "after the commands go on until SIGINT or SIGTERM");
  app.footer(Console::help() + kNotes);
  return [options] { return run(*options); };
}

}  // namespace zalctl
