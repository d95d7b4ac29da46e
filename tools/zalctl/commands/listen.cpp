// zalctl listen: prints what clients send as it comes.
#include <chrono>
#include <memory>

#include "command.hpp"
#include "filter.hpp"
#include "link.hpp"
#include "news.hpp"
#include "printer.hpp"
#include "report.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

struct Options {
  LinkOptions link;
  Filter filter{{"event", "response", std::string{kEmpty}}, {}};
  unsigned count = 0;
  unsigned timeoutMs = 0;
};

Status run(const Options& options) {
  Waiter waiter;
  Printer printer;
  const auto link = openLink(options.link, waiter);
  if (!ask(*link, "listen", *newObject(), Clock::now() + kAnswerTime)) return Status::kDone;
  const std::chrono::milliseconds timeout{options.timeoutMs};
  const auto deadline = options.timeoutMs == 0 ? kForever : Clock::now() + timeout;
  unsigned seen = 0;
  while (!printer.isBroken() && (options.count == 0 || seen < options.count)) {
    const auto record = link->receive(deadline);
    if (!record) break;
    const JsonPtr news = parsePayload(record->payload);
    if (!news || !options.filter.passes(*news)) continue;
    ++seen;
    if (options.link.isJson) {
      printer.print(Tone::kPlain, jsonLine(*news));
    } else {
      showMessage(printer, *news);
    }
  }
  return seen < options.count ? Status::kUnanswered : Status::kDone;
}

}  // namespace

Run declareListen(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  declareFilter(app, options->filter, {kClientCame, kClientGone});
  app.add_option("--count", options->count, "end after so many; 0 for no end")->capture_default_str();
  app.add_option("--timeout", options->timeoutMs, "end after so many milliseconds; 0 for no end")
      ->capture_default_str();
  declareLink(app, options->link);
  app.get_option("--wait")->group("");  // a client is not waited for: whatever comes is printed
  return [options] { return run(*options); };
}

}  // namespace zalctl
