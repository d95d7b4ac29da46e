// A stand-in for the agent: the server side of the transport on a loop of its own. It answers what clients ask of an
// agent by itself, tells what they send, and calls them at somebody's wish.
// Public functions are for the command thread, some of them for the loop thread too; the private on...() handlers run
// on the loop thread. What both touch is guarded by one lock, under which the transport may be called: it never calls
// back with a lock held.
#pragma once

#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "answers.hpp"
#include "news.hpp"
#include "session.hpp"
#include "waiter.hpp"
#include "wire.hpp"

namespace zalctl {

/// A client and what it has subscribed.
struct ClientInfo {
  unsigned number;
  std::set<std::pair<std::string, std::string>> subscriptions;  // service and method
};

class Agent {
 public:
  Agent(Waiter& waiter, NewsSink sink);
  /// Stops, drops every client and releases the socket.
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  /// Binds the address, "file://PATH" or "tcp://HOST:PORT". Throws std::runtime_error when it cannot.
  void listen(const std::string& url);
  /// Adds a second sink, or takes it away. While the loop does not run.
  void setListener(NewsSink listener) { listener_ = std::move(listener); }
  /// Has nothing answered: what clients ask is only told. While the loop does not run.
  void setSilent() { isSilent_ = true; }
  /// Sets what answers gateway requests; one that no rule fits is answered with its own data. While the loop does not
  /// run.
  void setAnswers(Answers answers) { answers_ = std::move(answers); }
  /// Serves clients on the loop thread from now on.
  void run() { ZAL_EventLoop_Run(loop_); }
  /// Lets the loop write what is queued, then ends its thread. For good.
  void stop();
  /// The loop, for what else is to run on its thread.
  [[nodiscard]] ZAL_EventLoopContext loop() const { return loop_; }

  // ---- The command thread and the loop thread --------------------------------------------------------------------

  /// Replaces the document that clients get when they ask for their configuration.
  void setConfiguration(std::string document);
  /// Sends the configuration to every client. Returns their number.
  std::size_t sendConfiguration();
  /// Sends a notification, with the configuration, to every client. Returns their number.
  std::size_t notify(const std::string& name, const std::string& service);
  /// Sends an image to a client as it is; false when the client is gone.
  bool sendImage(unsigned client, std::string_view image);
  /// Sends a request to the newest client that offers the method, to the newest one at all when none does. `done` is
  /// called once on the loop thread, with no lock held, unless the call is abandoned before. Returns the call's id, 0
  /// when no client is connected: then it is not called.
  std::uint16_t request(const std::string& service, const std::string& name, const std::string& payload,
                        std::function<void(const Answer&)> done);
  /// Nobody waits for the call any more: an answer that still comes is news.
  void abandon(std::uint16_t id);
  [[nodiscard]] std::vector<ClientInfo> clients() const;

  // ---- The command thread ----------------------------------------------------------------------------------------

  /// Makes a request and waits for the answer.
  Answer call(const std::string& service, const std::string& name, const std::string& payload,
              std::chrono::milliseconds timeout);
  /// Waits until a client offers the method; any method of any service when both are empty.
  [[nodiscard]] bool waitFor(const std::string& service, const std::string& method, std::chrono::milliseconds timeout);
  /// Ends every connection. Returns their number.
  std::size_t dropClients();

 private:
  /// An answer that waits for its time, of the loop thread alone.
  struct Delayed {
    Agent& agent;
    unsigned client;
    Record answer;
    uv_timer_t* timer;
  };

  void tell(const News& news) const;
  void onConnect(ZAL_IpcClientContext context);
  void onDisconnect(ZAL_IpcClientContext context);
  void onImage(const void* image, std::uint32_t size, ZAL_IpcClientContext context);
  void onRecord(Session& session, const Record& record);
  void onReply(Session& session, const Record& record);
  void onEmptyImage(Session& session);
  void onEvent(Session& session, const Record& record);
  void onConfigurationRequest(Session& session, const Record& record);
  void onGatewayRequest(Session& session, const Record& record);
  /// Sends an answer after a while, if the client is still there.
  void sendLater(unsigned client, const Record& answer, std::chrono::milliseconds delay);

  // With the lock held.
  Session& sessionLocked(ZAL_IpcClientContext context);
  Session* sessionForLocked(const std::string& service, const std::string& method);
  /// An id that no open call has; 0 when there is none.
  std::uint16_t nextIdLocked();
  bool sendLocked(const Session& session, const Record& record);
  std::size_t broadcastLocked(const Record& record);

  /// Lets the loop write what is queued for the clients: a connection that ends drops it.
  void settle();
  std::size_t closeSessions();

  Waiter& waiter_;
  const NewsSink sink_;
  NewsSink listener_;
  Answers answers_;
  bool isSilent_ = false;
  ZAL_EventLoopContext loop_;
  ZAL_IpcHandle ipc_;

  mutable std::mutex mutex_;
  std::list<Session> sessions_;  // in the order of connection; elements are added and removed on the loop thread alone
  std::string configuration_ = "{}";
  unsigned lastSession_ = 0;
  std::uint16_t lastRequestId_ = 0;
  bool isStopped_ = false;  // the command thread's own
  std::list<Delayed> delayed_;
  int turnsLeft_ = 0;  // of the loop, until settle() goes on
};

}  // namespace zalctl
