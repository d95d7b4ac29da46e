// A scripted agent for tests: it listens on a Unix-domain path or on a loopback port, decodes what clients send, and
// sends what the test tells it to. It knows the wire alone, nothing of the library.
//
// One thread of its own accepts and reads; every public function may be called from any thread. Sending blocks the
// caller, for a minute at most. Waiting functions end after the deadline with a result that says so.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/wire_image.hpp"

namespace zal::test {

class StandInAgent {
 public:
  static constexpr int kNewest = 0;  // where a connection's number is asked for

  /// One image that a client sent, and by which connection: they count from 1.
  struct Received {
    int connection;
    WireImage image;
  };

  /// Listens on a path, whose stale socket file is removed, or without one on a free port of 127.0.0.1.
  explicit StandInAgent(std::string socketPath = {});
  ~StandInAgent();
  StandInAgent(const StandInAgent&) = delete;
  StandInAgent& operator=(const StandInAgent&) = delete;

  /// What a client connects to.
  [[nodiscard]] std::string url() const;

  /// From now on, each code 7 is answered with a code 8 that carries this payload (which may be empty).
  void answerConfiguration(std::string json);

  /// How many connections were accepted since the beginning, and how many of them are open.
  [[nodiscard]] int accepted() const;
  [[nodiscard]] int open() const;
  [[nodiscard]] bool waitForAccepted(int count) const;
  [[nodiscard]] bool waitForOpen(int count) const;

  /// What arrived so far, in order.
  [[nodiscard]] std::vector<Received> received() const;
  /// Waits until `condition` holds for what arrived; false when the deadline passes first.
  [[nodiscard]] bool waitFor(const std::function<bool(const std::vector<Received>&)>& condition) const;
  /// The first record that fits, arrived already or yet to come.
  [[nodiscard]] std::optional<WireRecord> waitForRecord(const std::function<bool(const WireRecord&)>& fits) const;

  /// What was wrong with the bytes of a client, empty when nothing was. Such a connection is ended.
  [[nodiscard]] std::string fault() const;

  /// Sends to one connection, or to the newest; false when there is none or it broke.
  bool send(const WireImage& image, int connection = kNewest);
  bool sendBytes(std::string_view bytes, int connection = kNewest);
  /// One byte at a time, each after the client's side has taken the one before.
  bool sendByteByByte(std::string_view bytes);

  /// Ends all connections, with an end of stream or with a reset; the listener stays.
  void dropConnections();
  void resetConnections();
  /// As if the agent's process had died (the socket file of a path stays) and come back. listen() takes the same URL.
  void die();
  void listen();

 private:
  class Descriptor;
  struct Connection;
  using DescriptorPtr = std::shared_ptr<const Descriptor>;
  using ConnectionPtr = std::shared_ptr<Connection>;

  void run();
  void wake() const;
  /// Returns when the agent's thread holds nothing of what was taken out of the members before the call.
  void finishRound();
  void acceptOne(const Descriptor& listener);
  void readFrom(Connection& connection);
  void takeImages(Connection& connection);
  void handle(Connection& connection, WireImage image);
  void reject(const Connection& connection);
  void forget(const Connection& connection);
  [[nodiscard]] ConnectionPtr find(int number) const;
  template <class Condition>
  bool waitUntilHolds(Condition condition) const;

  const std::string path_;  // empty for TCP
  int port_ = 0;            // TCP: fixed by the first listen()
  const DescriptorPtr wakeUp_;

  mutable std::mutex mutex_;  // guards everything below; never held while a socket call can block
  mutable std::condition_variable changed_;
  DescriptorPtr listener_;
  std::vector<ConnectionPtr> connections_;
  int accepted_ = 0;
  std::vector<Received> received_;
  std::optional<std::string> configuration_;
  std::string fault_;
  unsigned rounds_ = 0;  // how often the agent's thread has looked at the members
  bool isStopping_ = false;

  std::thread thread_;
};

}  // namespace zal::test
