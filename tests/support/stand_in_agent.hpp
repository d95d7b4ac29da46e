// A scripted agent for tests: it listens on a Unix-domain path, decodes what clients send, and sends what the test
// tells it to. It knows the wire alone, nothing of the library. Bytes that are no image of records are a failure of the
// test that runs.
//
// One thread of its own accepts, reads and closes; every public function may be called from any thread, but for die()
// and listen(), which are the test's. Waiting functions end after a minute with a result that says so.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/wire_image.hpp"

namespace zal::test {

/// A descriptor that listens on a path, whose stale socket file is removed.
int listenAtPath(const std::string& path);
/// One that listens on a port of 127.0.0.1; 0 becomes the number of a free one.
int listenAtPort(int& port);

class StandInAgent {
 public:
  /// One image that a client sent, and by which connection: they count from 1.
  struct Received {
    int connection;
    WireImage image;
  };

  /// Listens on a path, whose stale socket file is removed.
  explicit StandInAgent(std::string socketPath);
  ~StandInAgent() { die(); }
  StandInAgent(const StandInAgent&) = delete;
  StandInAgent& operator=(const StandInAgent&) = delete;

  /// What a client connects to.
  [[nodiscard]] std::string url() const { return "file://" + path_; }

  /// From now on, each code 7 is answered with a code 8 that carries this payload (which may be empty).
  void answerConfiguration(std::string json);

  /// Waits until no connection is open.
  [[nodiscard]] bool waitForEnd() const;
  /// What arrived so far, in order.
  [[nodiscard]] std::vector<Received> received() const;
  /// Waits until `condition` holds for what arrived; false when the deadline passes first.
  [[nodiscard]] bool waitFor(const std::function<bool(const std::vector<Received>&)>& condition) const;
  /// The first record that fits, arrived already or yet to come.
  [[nodiscard]] std::optional<WireRecord> waitForRecord(const std::function<bool(const WireRecord&)>& fits) const;

  /// Sends to the client; false when there is no connection or it broke.
  bool send(const WireImage& image) { return sendBytes(encodeImage(image)); }
  bool sendBytes(std::string_view bytes);

  /// As if the agent's process had died (the socket file stays) and come back.
  void die();
  void listen();

 private:
  void serve(int socket);
  [[nodiscard]] bool takeImages(std::string& pending);

  const std::string path_;
  int listener_ = -1;

  mutable std::mutex mutex_;  // guards everything below, also while bytes are sent
  bool isDead_ = false;
  int socket_ = -1;  // of the present connection
  int connections_ = 0;
  std::vector<Received> received_;
  std::optional<std::string> configuration_;

  std::thread thread_;
};

}  // namespace zal::test
