// zalctl, for people who write clients: "zalctl agent" stands in for the agent at the desk.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "agent.hpp"
#include "commands.hpp"
#include "printer.hpp"
#include "waiter.hpp"
#include "wire.hpp"

namespace {

using namespace zalctl;

struct AgentOptions {
  std::string url = "file:///tmp/zalIPC.sock";
  std::string configuration;
  std::string script;
  std::vector<std::string> commands;
  unsigned timeoutMs = 5000;
  bool stays = false;
};

constexpr const char* kExitStatus =
    "\n\nExit status, the worst of the run:\n"
    "  0  every call was answered, with data or with the method's own error\n"
    "  1  a call had no answer or there is no such method, a wait-for ran out, or nobody was connected to notify\n"
    "  2  wrong usage: an option, an unknown command, JSON that is none, a missing file, an address in use\n\n"
    "A request that a client does not know is answered by an image without records, which bears no id. It is taken\n"
    "for the oldest open call to a method that the client has not subscribed, or else for its oldest open call.";

void declareAgent(CLI::App& app, AgentOptions& options) {
  app.add_option("--url", options.url, "address to listen at, file:///PATH or tcp://HOST:PORT")->capture_default_str();
  app.add_option("--config", options.configuration, "configuration document for the clients (default: {})");
  app.add_option("--script", options.script, "file of commands to run instead of reading standard input");
  app.add_option("-c,--command", options.commands, "command to run, after the script; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--timeout", options.timeoutMs, "milliseconds that call and wait-for wait")->capture_default_str();
  app.add_flag("--stay", options.stays, "after the commands go on until SIGINT or SIGTERM");
  app.footer(Commands::help() + kExitStatus);
}

/// False when a quit or a signal ended the run.
bool runCommands(Commands& commands, const AgentOptions& options) {
  if (!options.script.empty() && !commands.runFile(options.script)) return false;
  const auto run = [&](const std::string& command) { return commands.runShown(command, {}); };
  return std::all_of(options.commands.begin(), options.commands.end(), run);
}

Status runAgent(const AgentOptions& options) {
  Waiter waiter;  // first: it blocks signals for the threads that follow
  Printer printer;
  try {
    Agent agent{waiter, printer};
    if (!options.configuration.empty()) {
      std::string document = readFile(options.configuration);
      static_cast<void>(parseText(document));
      agent.setConfiguration(std::move(document));
    }
    agent.listen(options.url);
    Commands commands{agent, printer, waiter, std::chrono::milliseconds{options.timeoutMs}};
    const bool hasCommands = !options.script.empty() || !options.commands.empty();
    const bool goesOn = runCommands(commands, options);
    if (goesOn && options.stays) waiter.untilInterrupted();
    if (goesOn && !options.stays && !hasCommands) commands.runInput();
    return commands.status();
  } catch (const std::exception& error) {
    printer.error(error.what());
    return Status::kUsage;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app{"zalctl: for people who write clients of the agent", "zalctl"};
    app.require_subcommand(1);
    AgentOptions options;
    CLI::App& agent = *app.add_subcommand("agent", "stand in for the agent: show what clients send, and call them");
    declareAgent(agent, options);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? 0 : static_cast<int>(Status::kUsage);
    }
    return static_cast<int>(runAgent(options));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zalctl: %s\n", error.what());
    return static_cast<int>(Status::kUsage);
  }
}
