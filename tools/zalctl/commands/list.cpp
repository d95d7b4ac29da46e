// zalctl list: prints the clients and what they subscribed.
#include <chrono>
#include <memory>

#include "command.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "report.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

Status run(const LinkOptions& options) {
  Waiter waiter;
  Printer printer;
  const auto link = openLink(options, waiter);
  // Without a client there is an answer as well.
  static_cast<void>(link->awaitClient({}, {}));
  const JsonPtr answer = ask(*link, "list", *newObject(), Clock::now() + kAnswerTime);
  if (!answer) return Status::kUnanswered;
  const cJSON* clients = cJSON_GetObjectItemCaseSensitive(answer.get(), "clients");
  const cJSON* client = nullptr;
  cJSON_ArrayForEach(client, clients) {
    if (options.isJson) {
      printer.print(Tone::kPlain, jsonLine(*client));
    } else {
      showClient(printer, *client);
    }
  }
  if (cJSON_GetArraySize(clients) != 0) return Status::kDone;
  if (!options.isJson) printer.print(Tone::kPlain, kNoClient);
  return Status::kUnanswered;
}

}  // namespace

Run declareList(CLI::App& app) {
  const auto options = std::make_shared<LinkOptions>();
  declareLink(app, *options);
  return [options] { return run(*options); };
}

}  // namespace zalctl
