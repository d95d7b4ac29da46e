// The commands of the program. Each has a file of its own in commands/ and a row in the table.
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <functional>

#include "status.hpp"

namespace zalctl {

/// Runs a command with the options that were parsed.
using Run = std::function<Status()>;

struct Command {
  const char* name;
  const char* help;
  Run (*declare)(CLI::App& app);  // adds the command's options
};

Run declareAgent(CLI::App& app);
Run declareBench(CLI::App& app);
Run declareCall(CLI::App& app);
Run declareConfig(CLI::App& app);
Run declareDecode(CLI::App& app);
Run declareList(CLI::App& app);
Run declareListen(CLI::App& app);
Run declareMonitor(CLI::App& app);
Run declareReplay(CLI::App& app);

inline constexpr std::array kCommands{
    Command{"agent", "stand in for the agent: show what clients send, and call them", declareAgent},
    Command{"call", "call a method and print the answer", declareCall},
    Command{"list", "print the clients and what they subscribed", declareList},
    Command{"listen", "print events and replies as they come", declareListen},
    Command{"config", "give clients a configuration document", declareConfig},
    Command{"monitor", "stand between clients and their agent: print what they say, record it", declareMonitor},
    Command{"decode", "print what a recording or a capture holds", declareDecode},
    Command{"replay", "play the agent's part of a recording to a client", declareReplay},
    Command{"bench", "load a client: requests per second and a histogram of latencies", declareBench},
};

}  // namespace zalctl
