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
  const char* notes;              // below them
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
    Command{"agent", "stand in for the agent: show what clients send, and call them", declareAgent,
            ""},  // it has notes of its own
    Command{"call", "call a method and print the answer", declareCall,
            "  zalctl call network getStatus '{\"name\": \"eth0\"}'\n"
            "  zalctl call --json --url file:///tmp/zalIPC.sock telemetry 'device/system?include=cpu'\n"},
    Command{"list", "print the clients and what they subscribed", declareList,
            "  zalctl list --json\n\n"
            "Without a client the status is 1.\n"},
    Command{"listen", "print events and replies as they come", declareListen,
            "  zalctl listen --service system --kind event --count 3\n\n"
            "It ends with SIGINT or SIGTERM. With --timeout, fewer messages than --count give status 1.\n"},
    Command{"config", "give clients a configuration document", declareConfig,
            "  zalctl config profile.json\n\n"
            "The agent sends it to every client now, and to those that ask for it later.\n"},
    Command{
        "monitor", "stand between clients and their agent: print what they say, record it", declareMonitor,
        "  zalctl monitor --url file:///tmp/watch.sock --kind request,response --record session.rec\n\n"
        "Clients are started with the monitor's address. Their bytes are forwarded untouched, whatever they are. A\n"
        "request and its answer are told by their id; the answer shows the time between them, as seen here.\n"},
    Command{"decode", "print what a recording or a capture holds", declareDecode,
            "  zalctl decode session.rec | jq 'select(.milliseconds > 100)'\n"
            "  zalctl decode --text --hex session.rec\n\n"
            "What is no image is shown as malformed, the next one is looked for, and the status is 2.\n"},
    Command{
        "replay", "play the agent's part of a recording to a client", declareReplay,
        "  zalctl replay session.rec --speed 0 --strict\n\n"
        "Before each message of the agent it waits for what the client had said by then, events apart. Answers are\n"
        "compared but for their timestamp. One that is missing, or a client that goes away, gives status 1.\n"},
    Command{"bench", "load a client: requests per second and a histogram of latencies", declareBench,
            "  zalctl bench system getInfo --in-flight 16 --seconds 10\n\n"
            "A latency lasts from the request's being queued to its answer's being decoded.\n"},
};

}  // namespace zalctl
