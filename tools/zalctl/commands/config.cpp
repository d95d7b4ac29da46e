// zalctl config: gives clients a configuration document, now and when they ask for it.
#include <chrono>
#include <memory>
#include <string>

#include "command.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "report.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

struct Options {
  LinkOptions link;
  std::string file;
};

Status run(const Options& options) {
  const std::string document = readFile(options.file);
  static_cast<void>(parseText(document));
  Waiter waiter;
  Printer printer;
  const auto link = openLink(options.link, waiter);
  if (!link->awaitClient({}, {})) {
    printer.error("no client has subscribed anything");
    return Status::kUnanswered;
  }
  const JsonPtr request = newObject();
  add(*request, "document", JsonPtr{cJSON_CreateString(document.c_str())});
  const JsonPtr answer = ask(*link, "config", *request, Clock::now() + kAnswerTime);
  if (!answer) return Status::kUnanswered;
  const auto clients = static_cast<std::size_t>(numberIn(*answer, "clients"));
  printer.print(Tone::kPlain, options.link.isJson ? jsonLine(*answer) : configurationSent(clients));
  return Status::kDone;
}

}  // namespace

Run declareConfig(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("FILE", options->file, "the configuration document, JSON")->required();
  declareLink(app, options->link);
  return [options] { return run(*options); };
}

}  // namespace zalctl
