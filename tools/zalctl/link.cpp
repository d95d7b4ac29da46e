#include "link.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

#include "agent.hpp"
#include "control.hpp"
#include "desk.hpp"
#include "frames.hpp"
#include "report.hpp"
#include "status.hpp"

namespace zalctl {
namespace {

std::string systemError() {
  return std::generic_category().message(errno);
}

/// A descriptor that is closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_{number} {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_;
};

/// What has come back and was not taken yet.
using Inbox = std::deque<Record>;

std::optional<Record> take(Inbox& inbox) {
  if (inbox.empty()) return std::nullopt;
  Record record = std::move(inbox.front());
  inbox.pop_front();
  return record;
}

class RemoteLink : public Link {
 public:
  RemoteLink(const std::string& path, Waiter& waiter)
      : waiter_{waiter}, path_{path}, socket_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
    const auto fail = [&](const std::string& why) { throw NoAgent{"no agent at " + path_ + ": " + why}; };
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail("the path is too long");
    path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    // Neither a link nor the socket of somebody else, who would be told what is meant for one's own agent.
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) fail(systemError());
    if (!S_ISSOCK(found.st_mode)) fail("it is no socket");
    if (found.st_uid != geteuid() && found.st_uid != 0 && geteuid() != 0) fail("it belongs to another user");
    if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(systemError());
  }

  bool awaitClient(const std::string& /*service*/, const std::string& /*method*/) override { return true; }

  void send(const Record& request) override {
    const Image image = encode(request);
    const char* bytes = static_cast<const char*>(image.bytes.get());
    for (std::size_t sent = 0; sent < image.size;) {
      const ssize_t count = write(socket_.get(), bytes + sent, image.size - sent);
      if (count < 0) throw NoAgent{"the agent at " + path_ + " went away: " + systemError()};
      sent += static_cast<std::size_t>(count);
    }
  }

  std::optional<Record> receive(Clock::time_point deadline) override {
    while (inbox_.empty()) {
      if (!waiter_.untilReadable(socket_.get(), deadline)) return std::nullopt;
      std::array<char, 65536> block{};
      const ssize_t count = read(socket_.get(), block.data(), block.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) throw NoAgent{"the agent at " + path_ + " ended the connection"};
      const std::string_view bytes{block.data(), static_cast<std::size_t>(count)};
      const auto keep = [&](std::string_view image) {
        auto records = decode(image.data(), static_cast<std::uint32_t>(image.size()));
        for (Record& record : records.value_or(std::vector<Record>{})) inbox_.push_back(std::move(record));
      };
      if (frames_.feed(bytes, keep) != 0) throw NoAgent{"no agent at " + path_ + ": it speaks another language"};
    }
    return take(inbox_);
  }

 private:
  Waiter& waiter_;
  const std::string path_;
  Descriptor socket_;
  Frames frames_;
  Inbox inbox_;
};

class OwnLink : public Link {
 public:
  OwnLink(const LinkOptions& options, Waiter& waiter)
      : waiter_{waiter}, wait_{options.waitMs}, agent_{waiter, [](const News&) {}}, desk_{agent_} {
    agent_.listen(options.url);
    agent_.run();
  }

  bool awaitClient(const std::string& service, const std::string& method) override {
    return agent_.waitFor(service, method, wait_);
  }

  // The desk is served on the loop thread, where a timer that is due at once leads.
  void send(const Record& request) override {
    {
      const std::lock_guard hold{mailbox_->mutex};
      mailbox_->outgoing.push_back(request);
    }
    const auto serve = [](uv_timer_t* timer) noexcept {
      auto& self = *static_cast<OwnLink*>(ZAL_EventLoop_GetTimerContext(timer));
      ZAL_EventLoop_StopTimer(self.agent_.loop(), timer);
      std::unique_lock hold{self.mailbox_->mutex};
      const auto next = take(self.mailbox_->outgoing);
      hold.unlock();
      if (next) self.desk_.serve(*next, self.mailbox_);
    };
    static_cast<void>(ZAL_EventLoop_StartTimer(agent_.loop(), serve, 0, 0, this));
  }

  std::optional<Record> receive(Clock::time_point deadline) override {
    const auto hasMail = [&] {
      const std::lock_guard hold{mailbox_->mutex};
      return !mailbox_->incoming.empty();
    };
    if (!waiter_.until(deadline, hasMail)) return std::nullopt;
    const std::lock_guard hold{mailbox_->mutex};
    return take(mailbox_->incoming);
  }

 private:
  struct Mailbox : Visitor {
    explicit Mailbox(Waiter& owner) : waiter{owner} {}
    void receive(const Record& record) override {
      {
        const std::lock_guard hold{mutex};
        incoming.push_back(record);
      }
      waiter.notify();
    }
    Waiter& waiter;
    std::mutex mutex;
    Inbox incoming;
    Inbox outgoing;
  };

  Waiter& waiter_;
  std::chrono::milliseconds wait_;
  std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>(waiter_);
  Agent agent_;
  Desk desk_;
};

}  // namespace

void declareLink(CLI::App& app, LinkOptions& options) {
  CLI::Option* control = app.add_option("--control", options.control, "control socket of a running zalctl agent")
                             ->default_str(controlPath(kDefaultUrl));
  CLI::Option* url =
      app.add_option("--url", options.url, "listen there for clients instead, file:///PATH or tcp://HOST:PORT");
  url->excludes(control);
  app.add_option("--wait", options.waitMs, "milliseconds to wait for a client that has subscribed")
      ->needs(url)
      ->capture_default_str();
  app.add_flag("--json", options.isJson, "print JSON, one object a line");
}

std::unique_ptr<Link> openLink(const LinkOptions& options, Waiter& waiter) {
  if (!options.url.empty()) return std::make_unique<OwnLink>(options, waiter);
  const std::string path = options.control.empty() ? controlPath(kDefaultUrl) : options.control;
  return std::make_unique<RemoteLink>(path, waiter);
}

JsonPtr ask(Link& link, const char* command, const cJSON& arguments, Clock::time_point deadline) {
  constexpr std::uint16_t kId = 1;
  link.send({ZAL_IPC_CMD_REQUEST, kDesk, command, jsonLine(arguments), kId});
  const auto record = link.receive(deadline);
  if (!record && Clock::now() >= deadline) throw NoAgent{"the agent does not answer"};
  if (!record) return nullptr;
  JsonPtr answer = parsePayload(record->payload);
  if (!answer || record->code != ZAL_IPC_CMD_RESPONSE) throw NoAgent{"the agent answers what nobody asked"};
  if (const std::string error = textIn(*answer, "error"); !error.empty()) throw std::runtime_error{error};
  return answer;
}

}  // namespace zalctl
