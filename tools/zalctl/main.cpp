// zalctl, for people who write clients of the agent.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "command.hpp"
#include "frames.hpp"
#include "printer.hpp"
#include "status.hpp"

namespace {

using namespace zalctl;

Status run(const Run& command) {
  printEngineReports();
  Status status = Status::kUsage;
  std::string message;
  try {
    return command();
  } catch (const NoAgent& error) {
    status = Status::kNoAgent;
    message = error.what();
  } catch (const std::exception& error) {
    message = error.what();
  }
  std::fprintf(stderr, "zalctl: %s\n", printable(message).c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app{"zalctl: for people who write clients of the agent", "zalctl"};
    app.require_subcommand(1);
    app.footer("\"zalctl COMMAND --help\" tells more.");
    std::vector<std::pair<CLI::App*, Run>> commands;
    for (const Command& command : kCommands) {
      CLI::App& declared = *app.add_subcommand(command.name, command.help);
      declared.footer(std::string{"Examples:\n"} + command.notes + kExitStatus);
      commands.emplace_back(&declared, command.declare(declared));
    }
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? 0 : static_cast<int>(Status::kUsage);
    }
    for (const auto& [declared, command] : commands) {
      if (declared->parsed()) return static_cast<int>(run(command));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zalctl: %s\n", error.what());
  }
  return static_cast<int>(Status::kUsage);
}
