#include "console.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "desk.hpp"
#include "line_editor.hpp"
#include "report.hpp"
#include "wire.hpp"

namespace zalctl {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view skipBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

}  // namespace

/// The words of a command line, taken from the left. A word that holds blanks or nothing stands in double quotes.
class Console::Arguments {
 public:
  explicit Arguments(std::string_view line) : rest_{skipBlanks(line)} {}

  [[nodiscard]] bool empty() const { return rest_.empty(); }

  std::string word(const char* what) {
    if (empty()) throw std::runtime_error{std::string{what} + " is missing"};
    const bool isQuoted = rest_.front() == '"';
    if (rest_.substr(0, 2) == "--") throw std::runtime_error{"unknown option " + rest()};
    if (isQuoted) rest_.remove_prefix(1);
    const std::size_t end = isQuoted ? rest_.find('"') : std::min(rest_.find_first_of(kBlanks), rest_.size());
    if (end == std::string_view::npos) throw std::runtime_error{"a quote is not closed"};
    std::string taken{rest_.substr(0, end)};
    rest_ = skipBlanks(rest_.substr(isQuoted ? end + 1 : end));
    return taken;
  }

  /// A word that becomes a service's or a method's name.
  std::string name(const char* what) {
    std::string taken = word(what);
    if (taken.size() > kMaxName) throw std::runtime_error{std::string{what} + " is longer than 255 bytes"};
    return taken;
  }

  bool flag(std::string_view option) {
    if (rest_.substr(0, rest_.find_first_of(kBlanks)) != option) return false;
    rest_ = skipBlanks(rest_.substr(option.size()));
    return true;
  }

  std::chrono::milliseconds milliseconds() {
    const std::string text = word("MS");
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) throw std::runtime_error{"no number: " + text};
    return std::chrono::milliseconds{value};
  }

  std::string rest() { return std::string{std::exchange(rest_, {})}; }

  void end() const {
    if (!empty()) throw std::runtime_error{"too much: " + std::string{rest_}};
  }

 private:
  std::string_view rest_;
};

struct Console::Command {
  std::string_view name;
  const char* usage;
  const char* help;
  void (Console::*run)(Arguments&);
};

const Console::Command Console::kTable[] = {
    {"call", "[--raw] [--timeout MS] SERVICE NAME[/PATH][?QUERY] [JSON]",
     "call a method with the JSON in a message's envelope, or as it is (--raw)", &Console::call},
    {"config", "FILE", "remember a configuration document and send it", &Console::config},
    {"notify", "onConnect|onDisconnect|onProfileChanged SERVICE", "notify every client, with the configuration",
     &Console::notify},
    {"list", "", "show the clients and what they subscribed", &Console::list},
    {"wait-for", "[--timeout MS] SERVICE METHOD", "wait until a client has subscribed the method", &Console::waitFor},
    {"kill", "", "end the connection of every client", &Console::kill},
    {"help", "", "show this list", &Console::showHelp},
    {"quit", "", "end the agent", &Console::quit},
};

Console::Console(Agent& agent, Printer& printer, Waiter& waiter, std::chrono::milliseconds timeout)
    : agent_{agent}, printer_{printer}, waiter_{waiter}, timeout_{timeout} {}

bool Console::run(const std::string& line, const std::string& place) {
  try {
    dispatch(line);
  } catch (const std::runtime_error& error) {
    printer_.error(place + error.what());
    worsen(Status::kUsage);
  }
  return !isQuitting_ && !waiter_.interrupted();
}

bool Console::runShown(const std::string& line, const std::string& place) {
  const bool isCommand = !skipBlanks(line).empty() && skipBlanks(line).front() != '#';
  if (isCommand) printer_.print(Tone::kDim, "> " + printable(skipBlanks(line)));
  return run(line, place);
}

bool Console::runFile(const std::string& path) {
  std::istringstream lines{readFile(path)};
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (!runShown(line, path + ':' + std::to_string(number) + ": ")) return false;
  }
  return true;
}

void Console::runInput() {
  const auto editor = LineEditor::open(waiter_, printer_);
  const auto readPlainLine = [&] {
    printer_.prompt();
    auto line = waiter_.readLine();
    printer_.promptTaken();
    return line;
  };
  while (const auto line = editor ? editor->readLine() : readPlainLine()) {
    if (!run(*line)) return;
  }
}

void Console::dispatch(const std::string& line) {
  Arguments arguments{line};
  if (arguments.empty() || line.at(line.find_first_not_of(kBlanks)) == '#') return;
  const std::string name = arguments.word("command");
  const auto* command =
      std::find_if(std::begin(kTable), std::end(kTable), [&](const Command& c) { return c.name == name; });
  if (command == std::end(kTable)) throw std::runtime_error{"unknown command " + name + " (help lists them)"};
  try {
    (this->*command->run)(arguments);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error{name + ": " + error.what()};
  }
}

void Console::call(Arguments& arguments) {
  bool isRaw = false;
  auto timeout = timeout_;
  for (;;) {
    if (arguments.flag("--raw")) {
      isRaw = true;
    } else if (arguments.flag("--timeout")) {
      timeout = arguments.milliseconds();
    } else {
      break;
    }
  }
  const std::string service = arguments.name("SERVICE");
  const std::string name = arguments.name("NAME");
  const std::string text = arguments.rest();
  const CallResult result{service, name, agent_.call(service, name, requestPayload(text, isRaw), timeout)};
  showResult(printer_, *toJson(result));
  if (result.answer.outcome != Outcome::kAnswered) worsen(Status::kUnanswered);
}

void Console::config(Arguments& arguments) {
  const std::string path = arguments.word("FILE");
  arguments.end();
  std::string document = readFile(path);
  static_cast<void>(parseText(document));
  agent_.setConfiguration(std::move(document));
  const std::size_t clients = agent_.sendConfiguration();
  printer_.print(Tone::kPlain, configurationSent(clients));
}

void Console::notify(Arguments& arguments) {
  constexpr std::array<std::string_view, 3> kNames{"onConnect", "onDisconnect", "onProfileChanged"};
  const std::string name = arguments.name("NAME");
  const std::string service = arguments.name("SERVICE");
  arguments.end();
  if (std::find(kNames.begin(), kNames.end(), name) == kNames.end()) {
    throw std::runtime_error{"unknown notification " + name + " (onConnect, onDisconnect or onProfileChanged)"};
  }
  const std::size_t clients = agent_.notify(name, service);
  if (clients == 0) return fail("notify: no client is connected");
  printer_.print(Tone::kPlain, "notified " + counted(clients, "client"));
}

void Console::list(Arguments& arguments) {
  arguments.end();
  const auto clients = agent_.clients();
  if (clients.empty()) printer_.print(Tone::kPlain, kNoClient);
  for (const ClientInfo& client : clients) showClient(printer_, *toJson(client));
}

void Console::waitFor(Arguments& arguments) {
  const auto timeout = arguments.flag("--timeout") ? arguments.milliseconds() : timeout_;
  const std::string service = arguments.name("SERVICE");
  const std::string method = arguments.name("METHOD");
  arguments.end();
  const std::string title = printable(service) + ' ' + printable(method);
  if (!agent_.waitFor(service, method, timeout)) {
    return fail(title + " is not subscribed after " + std::to_string(timeout.count()) + " ms");
  }
  printer_.print(Tone::kGood, title + " is subscribed");
}

void Console::kill(Arguments& arguments) {
  arguments.end();
  const std::size_t clients = agent_.dropClients();
  printer_.print(Tone::kPlain, "ended " + counted(clients, "connection"));
}

void Console::showHelp(Arguments& arguments) {
  arguments.end();
  printer_.print(Tone::kPlain, help());
}

void Console::quit(Arguments& arguments) {
  arguments.end();
  isQuitting_ = true;
}

std::string Console::help() {
  std::string text = "Commands:";
  for (const Command& command : kTable) {
    text += "\n  " + std::string{command.name} + (*command.usage == '\0' ? "" : " ") + command.usage;
    text += std::string{"\n      "} + command.help;
  }
  return text;
}

void Console::fail(const std::string& line) {
  printer_.print(Tone::kBad, line);
  worsen(Status::kUnanswered);
}

void Console::worsen(Status status) {
  status_ = std::max(status_, status);
}

}  // namespace zalctl
