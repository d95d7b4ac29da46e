#include "stream.hpp"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

namespace zalctl {
namespace {

constexpr int kBacklog = 16;

union Socket {
  uv_handle_t handle;
  uv_stream_t stream;
  uv_pipe_t pipe;
  uv_tcp_t tcp;
};

Socket& socketOf(uv_stream_t& stream) {
  return reinterpret_cast<Socket&>(stream);
}

UvStreamPtr openSocket(uv_loop_t& loop, bool isPath) {
  auto socket = std::make_unique<Socket>();
  check(isPath ? uv_pipe_init(&loop, &socket->pipe, 0) : uv_tcp_init(&loop, &socket->tcp), "cannot open a socket");
  return UvStreamPtr{&socket.release()->stream};
}

struct Write {
  uv_write_t request{};
  std::string bytes;
  std::shared_ptr<Stream> stream;  // lives as long as libuv may call back
};

/// A file creation mask for as long as this lives.
class Mask {
 public:
  explicit Mask(mode_t mask) : before_{umask(mask)} {}
  ~Mask() { umask(before_); }
  Mask(const Mask&) = delete;
  Mask& operator=(const Mask&) = delete;

 private:
  mode_t before_;
};

/// Removes the socket that an earlier run left, and nothing else: neither another file nor what a link leads to.
void removeStaleSocket(const std::string& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return;
  if (!S_ISSOCK(found.st_mode))
    throw std::runtime_error{"cannot listen at " + path + ": there is a file that is no socket"};
  static_cast<void>(unlink(path.c_str()));
}

}  // namespace

Address::Address(const std::string& url) {
  constexpr std::string_view kFile = "file://";
  constexpr std::string_view kTcp = "tcp://";
  const auto fail = [&](const char* why) { throw std::runtime_error{"no address: " + url + ": " + why}; };
  if (url.rfind("file:///", 0) == 0) {
    path_ = url.substr(kFile.size());
    if (path_.size() >= sizeof(sockaddr_un::sun_path)) fail("the path is longer than a socket address holds");
    return;
  }
  const std::size_t colon = url.rfind(':');
  if (url.rfind(kTcp, 0) != 0 || colon < kTcp.size()) fail("it is file:///PATH or tcp://HOST:PORT");
  const std::string host = url.substr(kTcp.size(), colon - kTcp.size());
  unsigned short port = 0;
  const auto [end, error] = std::from_chars(url.data() + colon + 1, url.data() + url.size(), port);
  if (error != std::errc{} || end != url.data() + url.size() || port == 0) fail("the port is from 1 to 65535");
  if (uv_ip4_addr(host.c_str(), port, &internet_) != 0) fail("the host is an IPv4 address");
}

void check(int result, const std::string& what) {
  if (result < 0) throw std::runtime_error{what + ": " + uv_strerror(result)};
}

void UvClose::operator()(uv_stream_t* handle) const noexcept {
  handle->data = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(handle),
           [](uv_handle_t* closed) { delete reinterpret_cast<Socket*>(closed); });
}

Stream::Stream(UvStreamPtr handle) : handle_{std::move(handle)} {
  handle_->data = this;
}

std::shared_ptr<Stream> Stream::connect(uv_loop_t& loop, const Address& address, std::function<void(int)> done) {
  struct Connect {
    uv_connect_t request{};
    std::shared_ptr<Stream> stream;
    std::function<void(int)> done;
  };
  const auto connected = [](uv_connect_t* request, int status) {
    const std::unique_ptr<Connect> connect{reinterpret_cast<Connect*>(request)};
    if (connect->stream->handle_) connect->done(status);
  };
  auto stream = std::make_shared<Stream>(openSocket(loop, address.isPath()));
  auto connect = std::make_unique<Connect>(Connect{{}, stream, std::move(done)});
  Socket& socket = socketOf(*stream->handle_);
  if (address.isPath()) {
    uv_pipe_connect(&connect->request, &socket.pipe, address.path().c_str(), connected);
  } else {
    check(uv_tcp_connect(&connect->request, &socket.tcp, address.socketAddress(), connected), "cannot connect");
  }
  static_cast<void>(connect.release());  // the callback's now
  return stream;
}

void Stream::start(Handlers handlers) {
  handlers_ = std::move(handlers);
  readOn();
}

void Stream::readOn() {
  const auto allocate = [](uv_handle_t*, std::size_t, uv_buf_t* buffer) {
    // libuv reads into it and hands it back before it asks again, always on one thread.
    static thread_local std::array<char, 65536> block;
    *buffer = uv_buf_init(block.data(), static_cast<unsigned>(block.size()));
  };
  const auto read = [](uv_stream_t* handle, ssize_t count, const uv_buf_t* buffer) {
    auto* self = static_cast<Stream*>(handle->data);
    if (self == nullptr || count == 0) return;
    const auto keep = self->shared_from_this();  // its owner may let go of it
    if (count < 0) return self->finish();
    self->handlers_.data({buffer->base, static_cast<std::size_t>(count)});
  };
  isReading_ = uv_read_start(handle_.get(), allocate, read) == 0;
  if (!isReading_) finish();
}

void Stream::pauseReading() {
  if (handle_ && std::exchange(isReading_, false)) uv_read_stop(handle_.get());
}

void Stream::resumeReading() {
  if (handle_ && !hasEnded_ && !isReading_) readOn();
}

std::size_t Stream::waiting() const {
  return handle_ && !isBroken_ ? uv_stream_get_write_queue_size(handle_.get()) : 0;
}

void Stream::write(std::string bytes) {
  if (!handle_ || isBroken_) return;
  auto pending = std::make_unique<Write>(Write{{}, std::move(bytes), shared_from_this()});
  const auto written = [](uv_write_t* request, int status) {
    const std::unique_ptr<Write> write{reinterpret_cast<Write*>(request)};
    Stream& self = *write->stream;
    if (!self.handle_) return;
    if (status < 0) {
      self.isBroken_ = true;
      self.finish();
    }
    if (self.handle_ && self.waiting() == 0 && self.handlers_.drained) self.handlers_.drained();
  };
  const uv_buf_t buffer = uv_buf_init(pending->bytes.data(), static_cast<unsigned>(pending->bytes.size()));
  // Refused at once only when the stream has ended, which its reader is told.
  if (uv_write(&pending->request, handle_.get(), &buffer, 1, written) == 0) static_cast<void>(pending.release());
}

void Stream::shutdown() {
  if (!handle_) return;
  auto request = std::make_unique<uv_shutdown_t>();
  const auto done = [](uv_shutdown_t* ended, int) { delete ended; };
  if (uv_shutdown(request.get(), handle_.get(), done) == 0) static_cast<void>(request.release());
}

void Stream::finish() {
  if (std::exchange(hasEnded_, true)) return;
  pauseReading();
  if (handlers_.end) handlers_.end();
}

Listener::Listener(uv_loop_t& loop, const Address& address, std::function<void(std::shared_ptr<Stream>)> accepted,
                   bool isPrivate)
    : handle_{openSocket(loop, address.isPath())}, accepted_{std::move(accepted)} {
  handle_->data = this;
  Socket& socket = socketOf(*handle_);
  const std::string what = "cannot listen at " + (address.isPath() ? address.path() : "that address");
  if (address.isPath()) {
    removeStaleSocket(address.path());
    std::optional<Mask> ownerOnly;
    if (isPrivate) ownerOnly.emplace(0177);
    check(uv_pipe_bind(&socket.pipe, address.path().c_str()), what);
  } else {
    check(uv_tcp_bind(&socket.tcp, address.socketAddress(), 0), what);
  }
  const auto incoming = [](uv_stream_t* listener, int status) {
    auto* self = static_cast<Listener*>(listener->data);
    if (self == nullptr || status != 0) return;
    UvStreamPtr peer = openSocket(*listener->loop, listener->type == UV_NAMED_PIPE);
    if (uv_accept(listener, peer.get()) == 0) self->accepted_(std::make_shared<Stream>(std::move(peer)));
  };
  check(uv_listen(handle_.get(), kBacklog, incoming), what);
}

}  // namespace zalctl
