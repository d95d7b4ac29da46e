// The application that is attacked: a client with methods, and threads that send, ask and read all the time.
#pragma once

#include <zal/zal.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zal::campaign {

/// How often a method ran for each request id.
class RunCounter {
 public:
  void count(int id) { ++runs_[static_cast<std::size_t>(id) % runs_.size()]; }
  /// The id that ran more than once, or -1. All start from 0 again.
  int check();

 private:
  std::array<std::atomic<unsigned char>, 65536> runs_{};
};

class Application {
 public:
  explicit Application(const std::string& url);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  static constexpr int kIntervalMs = 1;
  static constexpr int kSenders = 2;

  /// Asked of itself so far.
  [[nodiscard]] long ownRequests() const noexcept { return ownRequests_; }
  /// Gateway requests so far, and those whose callback has not been called.
  [[nodiscard]] long questions() const noexcept { return questions_; }
  [[nodiscard]] long openQuestions() const noexcept { return questions_ - answeredQuestions_; }
  /// Throws when a method ran twice for a request, or a callback twice or with the answer of another request.
  void check();

  /// The threads rest from when pause() returns until resume().
  void pause();
  void resume();

 private:
  static int echo(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self);
  static int echoSlowly(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self);
  static int echoAndTalk(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self);
  static int probe(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle sameResponse);
  static void onAnswer(ZAL_ObjectHandle response, void* question);

  void every(std::function<void(int turn)> act);
  void sendEvent(const char* service, int sender, int number);
  void ask();
  void read(int turn);

  struct Question {
    Application* application;
    long number;
    std::atomic<bool> isOpen;
  };

  ZAL_ClientHandle client_ = nullptr;
  ZAL_ServiceHandle service_ = nullptr;
  std::atomic<long> ownRequests_ = 0;
  std::atomic<long> questions_ = 0;
  std::atomic<long> answeredQuestions_ = 0;
  std::atomic<bool> isFaulty_ = false;

  RunCounter runs_;
  std::vector<Question> table_ = std::vector<Question>(65536);

  std::mutex mutex_;
  std::condition_variable changed_;
  bool isPaused_ = false;
  bool isOver_ = false;
  int resting_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace zal::campaign
