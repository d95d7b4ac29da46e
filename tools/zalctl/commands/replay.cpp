// zalctl replay: plays the agent's part of a recording to a client, and compares the answers.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "agent.hpp"
#include "command.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "recording.hpp"
#include "report.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

struct Options {
  std::string file;
  std::string url = kDefaultUrl;
  unsigned connection = 0;
  double speed = 1;
  unsigned waitMs = 10000;
  unsigned timeoutMs = 5000;
  bool isStrict = false;
  bool isJson = false;
};

/// A message of the client, recorded or here and now.
struct Said {
  std::string kind;
  Record record;
};

/// What the client says: filled on the loop thread, emptied on the command thread.
class Heard {
 public:
  explicit Heard(Waiter& waiter) : waiter_{waiter} {}

  void add(const News& news) {
    const std::lock_guard hold{mutex_};
    if (news.kind == kClientCame && client_ == 0) client_ = news.client;
    if (news.kind == kClientGone && news.client == client_) isGone_ = true;
    if (news.client == client_) said_.push_back({news.kind, news.record != nullptr ? *news.record : Record{}});
    waiter_.notify();
  }
  /// The client's number; 0 until it comes.
  [[nodiscard]] unsigned client() {
    const std::lock_guard hold{mutex_};
    return client_;
  }
  [[nodiscard]] bool isGone() {
    const std::lock_guard hold{mutex_};
    return isGone_;
  }
  /// Takes the first message that is the same as the recorded one but for its payload, and for an id that the client
  /// chooses.
  std::optional<Said> take(const Said& recorded) {
    const std::lock_guard hold{mutex_};
    const auto isIt = [&](const Said& said) {
      const bool hasOwnId = recorded.record.code == ZAL_IPC_CMD_GATEWAY_REQUEST;
      return said.kind == recorded.kind && said.record.service == recorded.record.service &&
             said.record.name == recorded.record.name &&
             (hasOwnId || said.record.requestId == recorded.record.requestId);
    };
    const auto found = std::find_if(said_.begin(), said_.end(), isIt);
    if (found == said_.end()) return std::nullopt;
    Said taken = std::move(*found);
    said_.erase(found);
    return taken;
  }

 private:
  Waiter& waiter_;
  std::mutex mutex_;
  unsigned client_ = 0;
  bool isGone_ = false;
  std::deque<Said> said_;
};

/// The recorded messages of a client that the agent's next ones may depend on.
std::vector<Said> awaitedIn(const Entry& entry) {
  const auto records = decode(entry.bytes.data(), static_cast<std::uint32_t>(entry.bytes.size()));
  std::vector<Said> awaited;
  if (!records) return awaited;
  if (records->empty()) awaited.push_back({std::string{kEmpty}, {}});
  for (const Record& record : *records) {
    if (record.code != ZAL_IPC_CMD_EVENT) awaited.push_back({kindOf(record), record});
  }
  return awaited;
}

/// An answer without what differs by nature.
JsonPtr comparable(const std::string& payload) {
  JsonPtr json = parsePayload(payload);
  if (json) cJSON_DeleteItemFromObjectCaseSensitive(json.get(), "timestamp");
  return json;
}

bool isSame(const std::string& one, const std::string& other) {
  const JsonPtr first = comparable(one);
  const JsonPtr second = comparable(other);
  return first && second ? cJSON_Compare(first.get(), second.get(), 1) != 0 : one == other;
}

std::string titleOf(const Said& said) {
  std::string title = said.kind;
  for (const std::string& part : {said.record.service, said.record.name}) {
    if (!part.empty()) title += ' ' + printable(part);
  }
  return title;
}

class Player {
 public:
  Player(const Options& options, Waiter& waiter, Printer& printer)
      : options_{options}, waiter_{waiter}, printer_{printer}, heard_{waiter}, agent_{waiter, [this](const News& news) {
                                                                                        heard_.add(news);
                                                                                      }} {
    agent_.setSilent();
    agent_.listen(options.url);
    agent_.run();
  }

  Status play(const std::vector<Entry>& entries) {
    const auto cameBy = Clock::now() + std::chrono::milliseconds{options_.waitMs};
    if (!waiter_.until(cameBy, [&] { return heard_.client() != 0; })) {
      printer_.error("no client came");
      return Status::kUnanswered;
    }
    std::chrono::microseconds before = entries.front().time;
    for (const Entry& entry : entries) {
      if (entry.way == Way::kToAgent) {
        for (Said& said : awaitedIn(entry)) awaited_.push_back(std::move(said));
      } else if (entry.way == Way::kToClient) {
        awaitAll();
        pause(entry.time - before);
        send(entry);
      }
      before = entry.time;
      if (waiter_.interrupted()) return Status::kUnanswered;
    }
    awaitAll();
    return summary();
  }

 private:
  /// Waits for what the client said at this place of the recording.
  void awaitAll() {
    const auto deadline = Clock::now() + std::chrono::milliseconds{options_.timeoutMs};
    for (const Said& recorded : awaited_) {
      std::optional<Said> said;
      static_cast<void>(waiter_.until(deadline, [&] {
        said = heard_.take(recorded);
        return said || heard_.isGone();
      }));
      report(recorded, said);
    }
    awaited_.clear();
  }

  void report(const Said& recorded, const std::optional<Said>& said) {
    const bool isAnswer = recorded.record.code == ZAL_IPC_CMD_RESPONSE || recorded.kind == kEmpty;
    const char* outcome = "missing";
    if (!said) {
      ++missing_;
    } else if (!isAnswer) {
      if (recorded.record.code == ZAL_IPC_CMD_GATEWAY_REQUEST) ids_[recorded.record.requestId] = said->record.requestId;
      return;
    } else {
      const bool same = isSame(recorded.record.payload, said->record.payload);
      outcome = same ? "same" : "different";
      ++(same ? same_ : different_);
    }
    const JsonPtr message = newObject();
    add(*message, "outcome", outcome);
    add(*message, "client", heard_.client());
    add(*message, "kind", recorded.kind);
    add(*message, said ? said->record : recorded.record);
    if (options_.isJson) return printer_.print(Tone::kPlain, jsonLine(*message));
    const bool isSame = std::string_view{outcome} == "same";
    printer_.print(isSame ? Tone::kGood : Tone::kBad, std::string{outcome} + ": " + titleOf(recorded),
                   said && !isSame ? payloadText(said->record.payload) : std::string{});
  }

  void pause(std::chrono::microseconds time) {
    if (options_.speed <= 0 || time.count() <= 0) return;
    constexpr std::chrono::duration<double> kLongest{3600};
    const auto scaled = std::min(std::chrono::duration<double>{time} / options_.speed, kLongest);
    const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(scaled);
    static_cast<void>(waiter_.until(until, [&] { return heard_.isGone(); }));
  }

  void send(const Entry& entry) {
    auto records = decode(entry.bytes.data(), static_cast<std::uint32_t>(entry.bytes.size()));
    const bool isGatewayAnswer =
        records && records->size() == 1 && records->front().code == ZAL_IPC_CMD_GATEWAY_RESPONSE;
    const auto id = isGatewayAnswer ? ids_.find(records->front().requestId) : ids_.end();
    Image image;
    std::string_view bytes = entry.bytes;
    if (id != ids_.end()) {
      records->front().requestId = id->second;
      image = encode(records->front());
      bytes = {static_cast<const char*>(image.bytes.get()), image.size};
    }
    if (agent_.sendImage(heard_.client(), bytes)) ++sent_;
  }

  Status summary() {
    if (options_.isJson) {
      const JsonPtr object = newObject();
      add(*object, "sent", sent_);
      add(*object, "same", same_);
      add(*object, "different", different_);
      add(*object, "missing", missing_);
      printer_.print(Tone::kPlain, jsonLine(*object));
    } else {
      printer_.print(Tone::kPlain, "sent " + counted(sent_, "message") + "; answers: " + std::to_string(same_) +
                                       " the same, " + std::to_string(different_) + " different; " +
                                       std::to_string(missing_) + " missing");
    }
    if (heard_.isGone()) printer_.error("the client went away");
    const bool isWell = missing_ == 0 && !heard_.isGone() && !(options_.isStrict && different_ != 0);
    return isWell ? Status::kDone : Status::kUnanswered;
  }

  const Options& options_;
  Waiter& waiter_;
  Printer& printer_;
  Heard heard_;
  Agent agent_;
  std::vector<Said> awaited_;
  std::map<std::uint16_t, std::uint16_t> ids_;  // of gateway requests, from the recorded to the present one
  unsigned sent_ = 0;
  unsigned same_ = 0;
  unsigned different_ = 0;
  unsigned missing_ = 0;
};

/// The entries of the connection that was asked for, or of the first one.
std::vector<Entry> entriesOf(const Options& options) {
  std::vector<Entry> entries;
  unsigned connection = options.connection;
  const auto take = [&](const Entry& entry) {
    if (connection == 0) connection = entry.connection;
    if (entry.connection == connection) entries.push_back(entry);
  };
  if (!readEntries(readFile(options.file), take))
    throw std::runtime_error{options.file + ": not all of it is a recording"};
  if (entries.empty()) throw std::runtime_error{options.file + ": there is no such connection"};
  return entries;
}

Status run(const Options& options) {
  const std::vector<Entry> entries = entriesOf(options);
  Waiter waiter;
  Printer printer;
  return Player{options, waiter, printer}.play(entries);
}

}  // namespace

Run declareReplay(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("FILE", options->file, "a recording of zalctl monitor")->required();
  app.add_option("--url", options->url, "address to listen at for the client")->capture_default_str();
  app.add_option("--connection", options->connection, "number of the recorded connection (default: the first one)");
  app.add_option("--speed", options->speed, "how much faster than recorded; 0 without any pause")
      ->capture_default_str();
  app.add_option("--wait", options->waitMs, "milliseconds to wait for the client")->capture_default_str();
  app.add_option("--timeout", options->timeoutMs, "milliseconds to wait for what the client said before")
      ->capture_default_str();
  app.add_flag("--strict", options->isStrict, "end with status 1 when an answer is different, too");
  app.add_flag("--json", options->isJson, "print JSON, one object a line");
  return [options] { return run(*options); };
}

}  // namespace zalctl
