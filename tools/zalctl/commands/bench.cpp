// zalctl bench: loads a client through one of its methods.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "agent.hpp"
#include "command.hpp"
#include "histogram.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "report.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

struct Options {
  std::string url = kDefaultUrl;
  std::string service;
  std::string name;
  std::string text;
  unsigned requests = 0;
  double seconds = 0;
  unsigned inFlight = 1;
  unsigned waitMs = 10000;
  unsigned timeoutMs = 5000;
  bool isRaw = false;
  bool isJson = false;
};

constexpr double kDefaultSeconds = 5;

/// What came of the requests so far.
struct Tally {
  Histogram latencies;
  std::uint64_t sent = 0;
  std::uint64_t refused = 0;     // answered with an error of the method's own
  std::uint64_t unanswered = 0;  // no such method, or the client went away
  [[nodiscard]] std::uint64_t ended() const { return latencies.count() + unanswered; }
};

/// Keeps so many requests in flight: the answer to one sends the next, on the loop thread.
class Load : public std::enable_shared_from_this<Load> {
 public:
  Load(const Options& options, std::string payload, Agent& agent, Waiter& waiter)
      : options_{options}, payload_{std::move(payload)}, agent_{agent}, waiter_{waiter} {}

  void start() {
    for (unsigned i = 0; i < options_.inFlight; ++i) sendNext();
  }
  /// Sends no more.
  void stop() {
    const std::lock_guard hold{mutex_};
    isStopped_ = true;
  }
  [[nodiscard]] bool isIdle() const {
    const std::lock_guard hold{mutex_};
    return tally_.ended() == tally_.sent && (isStopped_ || isEnough());
  }
  [[nodiscard]] Tally tally() const {
    const std::lock_guard hold{mutex_};
    return tally_;
  }

 private:
  [[nodiscard]] bool isEnough() const { return options_.requests != 0 && tally_.sent >= options_.requests; }

  void sendNext() {
    {
      const std::lock_guard hold{mutex_};
      if (isStopped_ || isEnough()) return waiter_.notify();
      ++tally_.sent;
    }
    const auto done = [self = shared_from_this()](const Answer& answer) {
      self->count(answer);
      self->sendNext();
    };
    if (agent_.request(options_.service, options_.name, payload_, done) != 0) return;
    const std::lock_guard hold{mutex_};
    ++tally_.unanswered;
    isStopped_ = true;  // there is no client any more
    waiter_.notify();
  }

  void count(const Answer& answer) {
    const bool isAnswered = answer.outcome == Outcome::kAnswered;
    const JsonPtr payload = isAnswered ? parsePayload(answer.payload) : nullptr;
    const std::lock_guard hold{mutex_};
    if (!isAnswered) {
      ++tally_.unanswered;
      isStopped_ = isStopped_ || answer.outcome == Outcome::kDisconnected;
      return;
    }
    tally_.latencies.add(std::chrono::duration_cast<std::chrono::nanoseconds>(answer.took));
    if (payload && isError(*payload)) ++tally_.refused;
  }

  const Options& options_;
  const std::string payload_;
  Agent& agent_;
  Waiter& waiter_;
  mutable std::mutex mutex_;
  Tally tally_;
  bool isStopped_ = false;
};

std::string decimal(double number, int digits) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, number);
  return text.data();
}

std::string timeText(Histogram::Microseconds time) {
  const double micros = time.count();
  if (micros < 1000) return decimal(micros, 1) + " us";
  return micros < 1e6 ? decimal(micros / 1e3, 2) + " ms" : decimal(micros / 1e6, 2) + " s";
}

std::string padded(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

struct Quantile {
  const char* name;
  double share;
};
constexpr std::array<Quantile, 5> kQuantiles{{{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"p999", 0.999}, {"max", 1}}};

void showText(Printer& printer, const Tally& tally, double seconds) {
  const Histogram& latencies = tally.latencies;
  printer.print(Tone::kGood, counted(static_cast<std::size_t>(tally.sent), "request") + " in " + decimal(seconds, 3) +
                                 " s: " + decimal(static_cast<double>(tally.ended()) / seconds, 0) + " a second");
  if (tally.refused != 0) printer.print(Tone::kBad, std::to_string(tally.refused) + " answered with an error");
  if (tally.unanswered != 0) printer.print(Tone::kBad, std::to_string(tally.unanswered) + " not answered");
  if (latencies.count() == 0) return;
  std::string line = "latency: mean " + timeText(latencies.mean());
  for (const Quantile& q : kQuantiles) line += std::string{", "} + q.name + ' ' + timeText(latencies.quantile(q.share));
  std::string body;
  const auto rows = latencies.rows();
  std::uint64_t most = 1;
  for (const auto& row : rows) most = std::max(most, row.count);
  for (const auto& row : rows) {
    constexpr std::uint64_t kWidth = 50;
    body += (body.empty() ? "" : "\n") + padded(timeText(row.from), 10) + " to " + padded(timeText(row.to), 10) +
            padded(std::to_string(row.count), 10) + ' ' +
            std::string(static_cast<std::size_t>(row.count * kWidth / most), '#');
  }
  printer.print(Tone::kPlain, line, body);
}

JsonPtr toJson(const Options& options, const Tally& tally, double seconds) {
  JsonPtr object = newObject();
  add(*object, "service", options.service);
  add(*object, "name", options.name);
  add(*object, "inFlight", options.inFlight);
  add(*object, "seconds", seconds);
  add(*object, "requests", static_cast<double>(tally.sent));
  add(*object, "refused", static_cast<double>(tally.refused));
  add(*object, "unanswered", static_cast<double>(tally.unanswered));
  add(*object, "perSecond", static_cast<double>(tally.ended()) / seconds);
  JsonPtr micros = newObject();
  add(*micros, "mean", tally.latencies.mean().count());
  for (const Quantile& q : kQuantiles) add(*micros, q.name, tally.latencies.quantile(q.share).count());
  add(*object, "microseconds", std::move(micros));
  JsonPtr histogram{cJSON_CreateArray()};
  for (const auto& row : tally.latencies.rows()) {
    JsonPtr entry = newObject();
    add(*entry, "from", row.from.count());
    add(*entry, "to", row.to.count());
    add(*entry, "count", static_cast<double>(row.count));
    cJSON_AddItemToArray(histogram.get(), entry.release());
  }
  add(*object, "histogram", std::move(histogram));
  return object;
}

/// Figures on one line of the terminal while the load lasts; nothing elsewhere.
class LiveLine {
 public:
  explicit LiveLine(bool isWanted) : isWanted_{isWanted && isatty(STDERR_FILENO) == 1} {}
  ~LiveLine() {
    if (isWanted_) std::fputs("\r\033[K", stderr);
  }
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;
  void show(const Tally& tally, double seconds) const {
    if (!isWanted_) return;
    const std::string rate = decimal(static_cast<double>(tally.ended()) / seconds, 0);
    std::fprintf(stderr, "\r\033[K%llu answered, %s a second, p99 %s", static_cast<unsigned long long>(tally.ended()),
                 rate.c_str(), timeText(tally.latencies.quantile(0.99)).c_str());
    std::fflush(stderr);
  }

 private:
  const bool isWanted_;
};

/// Waits until the load has ended: with its last request, its time, a signal, or when nothing is answered any more.
/// Returns the seconds that it took.
double awaitEnd(Load& load, const Options& options, Waiter& waiter) {
  using Seconds = std::chrono::duration<double>;
  constexpr std::chrono::milliseconds kGlance{250};
  const std::chrono::milliseconds patience{options.timeoutMs};
  const auto start = Clock::now();
  const bool isTimed = options.seconds > 0 || options.requests == 0;
  const Seconds limit{options.seconds > 0 ? options.seconds : kDefaultSeconds};
  const auto deadline = isTimed ? start + std::chrono::duration_cast<Clock::duration>(limit) : kForever;
  const auto elapsed = [&] { return Seconds{Clock::now() - start}.count(); };

  const LiveLine live{!options.isJson};
  std::uint64_t ended = 0;
  auto lastAnswer = start;
  while (!waiter.interrupted() && Clock::now() < deadline && Clock::now() - lastAnswer < patience) {
    if (waiter.until(std::min(deadline, Clock::now() + kGlance), [&] { return load.isIdle(); })) break;
    const Tally tally = load.tally();
    live.show(tally, elapsed());
    if (std::exchange(ended, tally.ended()) != tally.ended()) lastAnswer = Clock::now();
  }
  load.stop();
  // What is in flight still counts.
  static_cast<void>(waiter.until(Clock::now() + patience, [&] { return load.isIdle(); }));
  return elapsed();
}

Status run(const Options& options) {
  const std::string payload = requestPayload(options.text, options.isRaw);
  Waiter waiter;
  Printer printer;
  Agent agent{waiter, [](const News&) {}};
  agent.listen(options.url);
  agent.run();
  const std::string method = methodOf(options.name);
  if (!agent.waitFor(options.service, method, std::chrono::milliseconds{options.waitMs})) {
    printer.error("no client has subscribed " + options.service + ' ' + method);
    return Status::kUnanswered;
  }
  const auto load = std::make_shared<Load>(options, payload, agent, waiter);
  load->start();
  const double seconds = awaitEnd(*load, options, waiter);
  agent.stop();

  Tally tally = load->tally();
  tally.unanswered = tally.sent - tally.latencies.count();
  if (options.isJson) {
    printer.print(Tone::kPlain, jsonLine(*toJson(options, tally, seconds)));
  } else {
    showText(printer, tally, seconds);
  }
  if (tally.unanswered != 0) return Status::kUnanswered;
  return tally.refused != 0 ? Status::kRefused : Status::kDone;
}

}  // namespace

Run declareBench(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("SERVICE", options->service, "the service")->required();
  app.add_option("NAME", options->name, "the method, METHOD[/PATH][?QUERY]")->required();
  app.add_option("JSON", options->text, "the data of each request");
  app.add_flag("--raw", options->isRaw, "send the JSON as it is, without a message's envelope");
  app.add_option("--url", options->url, "address to listen at for the client")->capture_default_str();
  app.add_option("--requests", options->requests, "end after so many requests");
  app.add_option("--seconds", options->seconds, "end after so many seconds (default: 5, without --requests)")
      ->check(CLI::Range(0.0, 86400.0));
  constexpr unsigned kMaxInFlight = 1000;
  app.add_option("--in-flight", options->inFlight, "requests at a time")
      ->check(CLI::Range(1U, kMaxInFlight))
      ->capture_default_str();
  app.add_option("--wait", options->waitMs, "milliseconds to wait for a client that has subscribed")
      ->capture_default_str();
  app.add_option("--timeout", options->timeoutMs, "give up after so many milliseconds without an answer")
      ->capture_default_str();
  app.add_flag("--json", options->isJson, "print JSON");
  return [options] { return run(*options); };
}

}  // namespace zalctl
