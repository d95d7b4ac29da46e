// SIGPIPE around a running loop. libuv leaves the signal to the program, and a peer that closes its socket would end a
// program that keeps the default disposition. The disposition is the program's; the mask of the loop thread is ours.
#pragma once

namespace zal::eventloop {

/// Blocks SIGPIPE on this thread for the length of a scope. A signal that was held back meanwhile is dropped with it.
class SigpipeBlock {
 public:
  SigpipeBlock() noexcept;
  ~SigpipeBlock();
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;

 private:
  bool isOurs_;  ///< false when the thread had the signal blocked before
};

/// Lifts the thread's SigpipeBlock, if it has one, for the length of a scope in which libuv's pool may be started: the
/// pool's threads inherit the mask, and pass it on to the programs that handlers start there.
class SigpipeLift {
 public:
  SigpipeLift() noexcept;
  ~SigpipeLift();
  SigpipeLift(const SigpipeLift&) = delete;
  SigpipeLift& operator=(const SigpipeLift&) = delete;

 private:
  bool isLifted_;
};

}  // namespace zal::eventloop
