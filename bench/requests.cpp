// Requests, events, documents and starts: two processes at a socket, the agent here, the client a child.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include "agents/agent.hpp"
#include "suites.hpp"
#include "support/process.hpp"
#include "support/temp_directory.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

void checkStatus(std::string_view answer) {
  if (answer.find(kStatusData) == std::string_view::npos)
    throw std::runtime_error{"a wrong answer: " + std::string{answer}};
}

/// An agent and its client, which has answered its first request.
class Session {
 public:
  Session(const Peer& peer, const Settings& settings, TempDirectory& sockets)
      : name{peer.name},
        path_{sockets.next()},
        agent{peer.listen(path_)},
        start_{Clock::now()},
        client{{settings.programs + "/" + peer.client, path_}} {
    agent->meet();
    roundTrip();
    secondsToFirstAnswer = secondsSince(start_);
  }

  void roundTrip() {
    agent->send(Kind::kStatus, request_);
    checkStatus(agent->receive());
  }

  std::string name;

 private:
  std::string path_;
  std::string request_ = statusRequest();

 public:
  std::unique_ptr<Agent> agent;

 private:
  Clock::time_point start_;

 public:
  Process client;
  double secondsToFirstAnswer = 0;
};

/// Sends `count` requests, so that `inFlight` of them are under way, and checks the answers.
template <class Check>
double exchange(Session& session, Kind kind, const std::string& request, int count, int inFlight, Check check) {
  const auto start = Clock::now();
  for (int sent = 0; sent < std::min(inFlight, count); ++sent) session.agent->send(kind, request);
  for (int received = 0; received < count; ++received) {
    check(session.agent->receive());
    if (received + inFlight < count) session.agent->send(kind, request);
  }
  return secondsSince(start);
}

double requestsPerSecond(Session& session, int count, double& cpuMicroseconds) {
  constexpr int kInFlight = 64;
  const double cpuBefore = session.client.cpuSeconds();
  const double seconds = exchange(session, Kind::kStatus, statusRequest(), count, kInFlight, checkStatus);
  cpuMicroseconds = (session.client.cpuSeconds() - cpuBefore) / count * 1e6;
  return count / seconds;
}

double eventsPerSecond(Session& session, int count) {
  const auto start = Clock::now();
  session.agent->send(Kind::kEvents, eventsRequest(count));
  for (int i = 0; i < count; ++i) {
    char expected[32];
    std::snprintf(expected, sizeof expected, "\"number\":%d,", i);
    if (session.agent->receive().find(expected) == std::string_view::npos)
      throw std::runtime_error{session.name + ": an event is missing"};
  }
  return count / secondsSince(start);
}

double megabytesPerSecond(Session& session, int count) {
  constexpr int kInFlight = 4;
  static const std::string document = documentRequest(1 << 20);
  static const std::string expected =
      "{\"readings\":" + std::to_string(std::count(document.begin(), document.end(), '{') - 1) + "}";
  const auto check = [&](std::string_view answer) {
    if (answer.find(expected) == std::string_view::npos) throw std::runtime_error{"a document was not read"};
  };
  const double seconds = exchange(session, Kind::kDocument, document, count, kInFlight, check);
  return static_cast<double>(document.size()) * count / seconds / 1e6;
}

class Sessions {
 public:
  explicit Sessions(const Settings& settings) : settings_{settings} {
    for (const Peer& peer : peers()) all_.push_back(std::make_unique<Session>(peer, settings, sockets_));
  }

  template <class Measurement>
  std::vector<Candidate> candidates(Measurement measurement) {
    std::vector<Candidate> made;
    for (const auto& session : all_)
      made.push_back({session->name, [&session, measurement] { return measurement(*session); }});
    return made;
  }

  [[nodiscard]] int times(int count) const { return std::max(1, static_cast<int>(count * settings_.effort)); }

 private:
  const Settings& settings_;
  TempDirectory sockets_;
  std::vector<std::unique_ptr<Session>> all_;
};

}  // namespace

void measureStarts(const Settings& settings, Report& report) {
  TempDirectory sockets;
  std::vector<Candidate> starts;
  for (const Peer& peer : peers())
    starts.push_back({peer.name, [&] { return Session{peer, settings, sockets}.secondsToFirstAnswer * 1e3; }});
  report.add({"exec to first answer", "ms", settings.rounds * 2}, starts);
}

void measureRequests(const Settings& settings, Report& report) {
  Sessions sessions{settings};
  report.add({"request latency, one in flight", "us", settings.rounds}, sessions.candidates([&](Session& session) {
    return medianMicroseconds(sessions.times(3000), [&] { session.roundTrip(); });
  }));

  std::map<std::string, std::vector<double>> cpu;
  report.add({"requests, 64 in flight", "1/s", settings.rounds}, sessions.candidates([&](Session& session) {
    double used = 0;
    const double rate = requestsPerSecond(session, sessions.times(20000), used);
    cpu[session.name].push_back(used);
    return rate;
  }));
  std::map<std::string, std::size_t> round;
  report.add({"client CPU a request, 64 in flight", "us", settings.rounds},
             sessions.candidates([&](Session& session) { return cpu[session.name][round[session.name]++]; }));
  report.add({"memory of the client under requests", "MB", 1},
             sessions.candidates([](Session& session) { return session.client.residentMegabytes(); }));
}

void measureEvents(const Settings& settings, Report& report) {
  Sessions sessions{settings};
  report.add({"events of 300 bytes", "1/s", settings.rounds},
             sessions.candidates([&](Session& session) { return eventsPerSecond(session, sessions.times(20000)); }));
}

void measureDocuments(const Settings& settings, Report& report) {
  Sessions sessions{settings};
  report.add({"documents of 1 MiB received", "MB/s", settings.rounds},
             sessions.candidates([&](Session& session) { return megabytesPerSecond(session, sessions.times(24)); }));
  report.add({"memory of the client after documents", "MB", 1},
             sessions.candidates([](Session& session) { return session.client.residentMegabytes(); }));
}

}  // namespace bench
