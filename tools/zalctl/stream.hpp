// Byte streams of a loop: sockets that listen, connect and carry bytes both ways, as libuv sees them and owned as C++
// likes it. Where whole images are enough, the library's own transport serves better.
// The loop thread only, or while the loop does not run.
#pragma once

#include <uv.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace zalctl {

/// An address in the form of the library: "file:///PATH" or "tcp://HOST:PORT".
class Address {
 public:
  /// Throws std::runtime_error that tells what is wrong.
  explicit Address(const std::string& url);
  [[nodiscard]] bool isPath() const { return !path_.empty(); }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const sockaddr* socketAddress() const { return reinterpret_cast<const sockaddr*>(&internet_); }

 private:
  std::string path_;
  sockaddr_in internet_{};
};

/// Throws std::runtime_error when libuv's result is one.
void check(int result, const std::string& what);

/// Closes a handle; its memory goes when libuv lets go of it.
struct UvClose {
  void operator()(uv_stream_t* handle) const noexcept;
};
using UvStreamPtr = std::unique_ptr<uv_stream_t, UvClose>;

class Stream : public std::enable_shared_from_this<Stream> {
 public:
  struct Handlers {
    std::function<void(std::string_view)> data;
    std::function<void()> end;      // of the stream, or an error: once, and it is for the owner to close
    std::function<void()> drained;  // nothing waits to be written any more
  };

  explicit Stream(UvStreamPtr handle);
  /// Starts to connect; `done` gets libuv's result. Throws std::runtime_error.
  static std::shared_ptr<Stream> connect(uv_loop_t& loop, const Address& address, std::function<void(int)> done);

  /// Reads from now on.
  void start(Handlers handlers);
  void write(std::string bytes);
  /// The bytes that wait to be written.
  [[nodiscard]] std::size_t waiting() const;
  void pauseReading();
  void resumeReading();
  /// Sends the end of the stream behind what waits to be written.
  void shutdown();
  /// Closes at once: nothing is called any more, and what waits to be written is dropped.
  void close() { handle_.reset(); }

 private:
  void readOn();
  void finish();

  UvStreamPtr handle_;
  Handlers handlers_;
  bool isReading_ = false;
  bool hasEnded_ = false;  // nothing more comes
  bool isBroken_ = false;  // nothing more goes
};

class Listener {
 public:
  /// Listens; with `isPrivate` the socket file is for this user alone. Throws std::runtime_error.
  Listener(uv_loop_t& loop, const Address& address, std::function<void(std::shared_ptr<Stream>)> accepted,
           bool isPrivate = false);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

 private:
  UvStreamPtr handle_;
  std::function<void(std::shared_ptr<Stream>)> accepted_;
};

}  // namespace zalctl
