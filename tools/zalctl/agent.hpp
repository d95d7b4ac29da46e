// A stand-in for the agent: the server side of the transport on a loop of its own. It answers what clients ask of an
// agent by itself, prints what they send, and calls them at the command thread's wish.
// Public functions are for the command thread; the private on...() handlers run on the loop thread. What both touch is
// guarded by one lock, under which the transport may be called: it never calls back with a lock held.
#pragma once

#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "printer.hpp"
#include "session.hpp"
#include "waiter.hpp"
#include "wire.hpp"

namespace zalctl {

enum class Outcome { kAnswered, kNoSuchMethod, kNoReply, kDisconnected, kNotConnected, kInterrupted };

struct Answer {
  Outcome outcome = Outcome::kNoReply;
  std::string payload;
  std::chrono::duration<double, std::milli> took{};
};

class Agent {
 public:
  Agent(Waiter& waiter, Printer& printer);
  /// Drops every client and releases the socket.
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  /// Binds the address, "file://PATH" or "tcp://HOST:PORT", and serves it. Throws std::runtime_error when it cannot.
  void listen(const std::string& url);

  /// Replaces the document that clients get when they ask for their configuration.
  void setConfiguration(std::string document);
  /// Sends the configuration to every client. Returns their number.
  std::size_t sendConfiguration();
  /// Sends a notification, with the configuration, to every client. Returns their number.
  std::size_t notify(const std::string& name, const std::string& service);
  /// Sends a request to the newest client that offers the method, to the newest one at all when none does, and waits
  /// for the answer.
  Answer call(const std::string& service, const std::string& name, const std::string& payload,
              std::chrono::milliseconds timeout);
  /// Waits until a client offers the method.
  [[nodiscard]] bool waitFor(const std::string& service, const std::string& method, std::chrono::milliseconds timeout);
  /// Ends every connection. Returns their number.
  std::size_t dropClients();
  /// One block of text per client, with a line for each subscription.
  [[nodiscard]] std::vector<std::string> describeClients() const;

 private:
  void onConnect(ZAL_IpcClientContext context);
  void onDisconnect(ZAL_IpcClientContext context);
  void onImage(const void* image, std::uint32_t size, ZAL_IpcClientContext context);
  void onRecord(Session& session, const Record& record);
  void onSubscribe(Session& session, const Record& record);
  void onReply(Session& session, const Record& record);
  void onEmptyImage(Session& session);
  void onEvent(Session& session, const Record& record);
  void onConfigurationRequest(Session& session);
  void onGatewayRequest(Session& session, const Record& record);

  // With the lock held.
  Session& sessionLocked(ZAL_IpcClientContext context);
  Session* sessionForLocked(const std::string& service, const std::string& method);
  std::uint16_t openCallLocked(Session& session, const std::string& service, const std::string& name);
  /// Hands an answer to the caller that waits for the call; false when nobody does any more.
  bool deliverLocked(const OpenCall& call, Outcome outcome, const std::string& payload);
  bool sendLocked(const Session& session, const Record& record);
  std::size_t broadcastLocked(const Record& record);

  /// Lets the loop write what is queued for the clients: a connection that ends drops it.
  void settle();
  std::size_t closeSessions();

  Waiter& waiter_;
  Printer& printer_;
  ZAL_EventLoopContext loop_;
  ZAL_IpcHandle ipc_;

  mutable std::mutex mutex_;
  std::list<Session> sessions_;  // in the order of connection; elements are added and removed on the loop thread alone
  std::string configuration_ = "{}";
  unsigned lastSession_ = 0;
  std::uint16_t lastRequestId_ = 0;
  std::optional<std::uint16_t> awaited_;  // the call whose caller waits
  std::optional<Answer> answer_;          // and its answer
  int turnsLeft_ = 0;                     // of the loop, until settle() goes on
};

}  // namespace zalctl
