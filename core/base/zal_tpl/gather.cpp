// Cutting a byte stream into whole images. What is incomplete waits in the stream's pending state, which is taken away
// from the caller while images are delivered: a callback that ends its stream finds nothing to free twice.
#include "base/zal_tpl/rooms.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

namespace zal::tpl {
namespace {

enum Result { kFailed = -1, kTooLong = -2, kBroken = -3, kAborted = -4, kEndOfFile = 0, kGathered = 1 };

constexpr std::size_t kReadSize = 8192;
constexpr std::size_t kLongestPending = std::numeric_limits<std::int32_t>::max();  // tpl_gather_state.length

struct PendingFree {
  void operator()(tpl_gather_state* state) const noexcept {
    release(state->bytes);
    release(state);
  }
};
using Pending = std::unique_ptr<tpl_gather_state, PendingFree>;

int refuse(std::size_t limit) noexcept {
  tpl_hook.report_fn("tpl exceeds max length %d\n", static_cast<int>(limit));
  return kTooLong;
}

/// The header of an image that can be one: no image is shorter than the smallest.
std::optional<ImageHeader> plausibleHeader(std::string_view bytes) noexcept {
  const auto header = readHeader(bytes);
  return header && header->length >= kSmallestImage ? header : std::nullopt;
}

/// Hands over the whole images in front of `rest`, which keeps what follows them.
int deliver(std::string_view& rest, GatherSink sink, const char* speaker) noexcept {
  while (rest.size() > kHeaderSize) {
    const auto header = plausibleHeader(rest);
    if (!header) {
      tpl_hook.report_fn("tpl prefix invalid\n");
      return kBroken;
    }
    if (header->length > rest.size()) break;
    if (sink.callback(const_cast<char*>(rest.data()), header->length, sink.data) < 0) {
      tpl_hook.report_fn("%s aborted by app callback\n", speaker);
      return kAborted;
    }
    rest.remove_prefix(header->length);
  }
  return kGathered;
}

/// Appends a block to the pending bytes; absent when they would become too many.
std::optional<std::string_view> join(tpl_gather_state& pending, std::string_view bytes) noexcept {
  const auto held = static_cast<std::size_t>(pending.length);
  const std::size_t limit =
      tpl_hook.gather_limit != 0 ? tpl_hook.gather_limit : std::numeric_limits<std::size_t>::max();
  if (held > limit || bytes.size() > limit - held) return std::nullopt;
  void* joined = tpl_hook.realloc_fn(pending.bytes, held + bytes.size());
  if (joined == nullptr) ZAL_TPL_FATAL("out of memory\n");
  pending.bytes = joined;
  if (!bytes.empty()) std::memcpy(static_cast<char*>(joined) + held, bytes.data(), bytes.size());
  return std::string_view{static_cast<char*>(joined), held + bytes.size()};
}

/// Keeps `rest` for the next call: in the block it stands at the front of, or in a new one.
Pending keep(Pending pending, std::string_view rest) noexcept {
  if (!pending) pending.reset(make<tpl_gather_state>());
  if (rest.data() != pending->bytes) {
    char* copy = allocate(rest.size());
    std::memcpy(copy, rest.data(), rest.size());
    release(std::exchange(pending->bytes, copy));
  }
  pending->length = static_cast<std::int32_t>(rest.size());
  return pending;
}

int gatherBlock(std::string_view bytes, tpl_gather_state** state, GatherSink sink, const char* speaker) noexcept {
  Pending pending{std::exchange(*state, nullptr)};
  std::string_view rest = bytes;
  if (pending) {
    const auto joined = join(*pending, bytes);
    if (!joined) return refuse(tpl_hook.gather_limit);
    rest = *joined;
  }
  const int result = deliver(rest, sink, speaker);
  if (result != kGathered || rest.empty()) return result;
  if (rest.size() > kLongestPending) return refuse(kLongestPending);
  *state = keep(std::move(pending), rest).release();
  return kGathered;
}

/// Ends a stream with what it still holds.
void dropPending(tpl_gather_state** state) noexcept {
  const Pending dropped{std::exchange(*state, nullptr)};
}

/// Fills `to`: kGathered when it is full, kEndOfFile when the stream ended before, kFailed (reported) otherwise.
int readExactly(int descriptor, char* to, std::size_t size) noexcept {
  while (size > 0) {
    const ssize_t count = read(descriptor, to, size);
    if (count == 0) return kEndOfFile;
    if (count > 0) {
      if (static_cast<std::size_t>(count) > size) {
        tpl_hook.report_fn("internal error\n");
        return kFailed;
      }
      to += count;
      size -= static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      awaitReady(descriptor, POLLIN);
    } else if (errno != EINTR) {
      tpl_hook.report_fn("tpl_gather_fd_blocking failed: %s\n", systemError());
      return kFailed;
    }
  }
  return kGathered;
}

}  // namespace

int tpl_mem_gather(std::string_view bytes, tpl_gather_state** state, GatherSink sink) noexcept {
  return gatherBlock(bytes, state, sink, "tpl_mem_gather");
}

int tpl_fd_gather(int descriptor, tpl_gather_state** state, GatherSink sink) noexcept {
  char block[kReadSize];
  for (;;) {
    const ssize_t count = read(descriptor, block, sizeof block);
    if (count > 0) {
      const int result = gatherBlock({block, static_cast<std::size_t>(count)}, state, sink, "tpl_fd_gather");
      if (result != kGathered) return result;
    } else if (count == 0) {
      if (*state != nullptr) tpl_hook.report_fn("tpl_gather: partial tpl image precedes EOF\n");
      dropPending(state);
      return kEndOfFile;
    } else if (errno == EAGAIN) {
      return kGathered;  // what there is has been read
    } else if (errno != EINTR) {
      tpl_hook.report_fn("tpl_gather failed: %s\n", systemError());
      dropPending(state);
      return kFailed;
    }
  }
}

int tpl_gather_fd_blocking(int descriptor, void** image, std::size_t* size) noexcept {
  char front[kHeaderSize];
  if (const int result = readExactly(descriptor, front, sizeof front); result != kGathered) return result;
  const auto header = plausibleHeader({front, sizeof front});
  if (!header) {
    tpl_hook.report_fn("tpl_gather_fd_blocking: non-tpl input\n");
    return kFailed;
  }
  if (tpl_hook.gather_limit != 0 && header->length > tpl_hook.gather_limit) return refuse(tpl_hook.gather_limit);
  HookPtr<char> block{allocate(header->length)};
  std::memcpy(block.get(), front, sizeof front);
  const int result = readExactly(descriptor, block.get() + sizeof front, header->length - sizeof front);
  if (result != kGathered) return result;
  *image = block.release();
  *size = header->length;
  return kGathered;
}

}  // namespace zal::tpl
