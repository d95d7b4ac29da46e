// zalctl call: calls one method and prints the answer.
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
  std::string service;
  std::string name;
  std::string text;
  unsigned timeoutMs = 5000;
  bool isRaw = false;
};

Status run(const Options& options) {
  const std::string payload = requestPayload(options.text, options.isRaw);
  Waiter waiter;
  Printer printer;
  const auto link = openLink(options.link, waiter);
  if (!link->awaitClient(options.service, methodOf(options.name))) {
    printer.error("no client has subscribed " + options.service + ' ' + methodOf(options.name));
    return Status::kUnanswered;
  }
  const JsonPtr request = newObject();
  add(*request, "service", options.service);
  add(*request, "name", options.name);
  add(*request, "payload", JsonPtr{cJSON_CreateString(payload.c_str())});
  add(*request, "timeout", options.timeoutMs);
  constexpr std::chrono::seconds kGrace{5};  // in which the agent tells that there is no answer
  const auto deadline = Clock::now() + std::chrono::milliseconds{options.timeoutMs} + kGrace;
  const JsonPtr result = ask(*link, "call", *request, deadline);
  if (!result) return Status::kUnanswered;
  if (options.link.isJson) {
    printer.print(Tone::kPlain, jsonLine(*result));
  } else {
    showResult(printer, *result);
  }
  return statusOf(*result);
}

}  // namespace

Run declareCall(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  const auto fits =
      CLI::Validator{[](const std::string& name) { return name.size() > kMaxName ? "longer than 255 bytes" : ""; }, ""};
  app.add_option("SERVICE", options->service, "the service")->required()->check(fits);
  app.add_option("NAME", options->name, "the method, METHOD[/PATH][?QUERY]")->required()->check(fits);
  app.add_option("JSON", options->text, "the data of the request");
  app.add_flag("--raw", options->isRaw, "send the JSON as it is, without a message's envelope");
  app.add_option("--timeout", options->timeoutMs, "milliseconds to wait for the answer")->capture_default_str();
  declareLink(app, options->link);
  return [options] { return run(*options); };
}

}  // namespace zalctl
