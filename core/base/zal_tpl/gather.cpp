// Cutting a byte stream into whole images. What is incomplete waits in the stream's pending state, which is taken away
// from the caller while images are delivered: a callback that ends its stream finds nothing to free twice.
#include "base/zal_tpl/rooms.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <limits>

namespace zal::tpl {
namespace {

enum Result { kFailed = -1, kTooLong = -2, kBroken = -3, kAborted = -4, kEndOfFile = 0, kGathered = 1 };

constexpr std::size_t kReadSize = 8192;
constexpr std::size_t kFreelyReserved = 64 << 10;  // for an image of which little has arrived
constexpr std::size_t kLongestPending = std::numeric_limits<std::int32_t>::max();  // tpl_gather_state.length

/// A pending image as far as it has arrived. The caller keeps the address of the first member, and sees no more of it.
struct PendingImage {
  tpl_gather_state shown;
  std::size_t size;      ///< shown.length once the call is over
  std::size_t capacity;  ///< of shown.bytes
  std::size_t wanted;    ///< the size of the image, or of the smallest one until its header is there
};
static_assert(std::is_standard_layout_v<PendingImage> && offsetof(PendingImage, shown) == 0);

struct PendingFree {
  void operator()(PendingImage* pending) const noexcept {
    release(pending->shown.bytes);
    release(pending);
  }
};
using Pending = std::unique_ptr<PendingImage, PendingFree>;

PendingImage* pendingOf(tpl_gather_state* state) noexcept {
  return reinterpret_cast<PendingImage*>(state);
}

Pending takeFrom(tpl_gather_state** state) noexcept {
  return Pending{pendingOf(std::exchange(*state, nullptr))};
}

int refuse(std::size_t limit) noexcept {
  tpl_hook.report_fn("tpl exceeds max length %d\n", static_cast<int>(limit));
  return kTooLong;
}

/// The length of the image that begins with these bytes; absent when none can: no image is shorter than the smallest.
std::optional<std::uint32_t> imageLength(std::string_view bytes) noexcept {
  const auto header = readHeader(bytes);
  if (!header || header->length < kSmallestImage) return std::nullopt;
  return header->length;
}

int refuseBroken() noexcept {
  tpl_hook.report_fn("tpl prefix invalid\n");
  return kBroken;
}

/// Where the images of a block go, and who says so when the stream is ended there.
struct Outlet {
  GatherSink sink;
  const char* speaker;

  [[nodiscard]] int deliver(const void* image, std::size_t length) const noexcept {
    if (sink.callback(const_cast<void*>(image), length, sink.data) >= 0) return kGathered;
    tpl_hook.report_fn("%s aborted by app callback\n", speaker);
    return kAborted;
  }
};

/// Hands over the whole images in front of a block, which keeps what follows them.
int deliverFrom(std::string_view& block, const Outlet& outlet) noexcept {
  while (block.size() > kHeaderSize) {
    const auto length = imageLength(block);
    if (!length) return refuseBroken();
    if (*length > block.size()) break;
    if (const int result = outlet.deliver(block.data(), *length); result != kGathered) return result;
    block.remove_prefix(*length);
  }
  return kGathered;
}

/// The most that an image may take: what its header says, as far as the limit allows.
std::size_t mostOf(const PendingImage& pending) noexcept {
  const std::size_t limit = tpl_hook.gather_limit;
  return limit != 0 ? std::min(pending.wanted, limit) : pending.wanted;
}

/// Makes room for `size` bytes. More than twice what has arrived is not reserved on the word of a header, so that
/// growing costs little and lying gains little.
void reserve(PendingImage& pending, std::size_t size) noexcept {
  if (pending.shown.bytes != nullptr && size <= pending.capacity) return;
  const std::size_t most = mostOf(pending);
  const std::size_t twice = size > most / 2 ? most : size * 2;
  pending.capacity = std::max(size, std::min(most, std::max(kFreelyReserved, twice)));
  void*& bytes = pending.shown.bytes;
  bytes = bytes == nullptr ? allocate(pending.capacity) : tpl_hook.realloc_fn(bytes, pending.capacity);
  if (bytes == nullptr) ZAL_TPL_FATAL("out of memory\n");
}

void append(PendingImage& pending, std::string_view bytes) noexcept {
  if (bytes.empty()) return;
  reserve(pending, pending.size + bytes.size());
  ZAL_INVARIANT(bytes.size() <= pending.capacity - pending.size);
  std::memcpy(static_cast<char*>(pending.shown.bytes) + pending.size, bytes.data(), bytes.size());
  pending.size += bytes.size();
}

/// Makes ready for the next image. A large block is not kept for what may be a small one.
void restart(PendingImage& pending) noexcept {
  pending.size = 0;
  pending.wanted = kSmallestImage;
  if (pending.capacity <= kFreelyReserved) return;
  pending.capacity = 0;
  release(std::exchange(pending.shown.bytes, nullptr));
}

/// Goes on with a pending image: takes from the front of a block what belongs to it, and delivers it when it is whole.
int complete(PendingImage& pending, std::string_view& block, const Outlet& outlet) noexcept {
  ZAL_INVARIANT(pending.size < pending.wanted && pending.size <= pending.capacity);
  while (block.size() >= pending.wanted - pending.size) {
    const std::string_view missing = block.substr(0, pending.wanted - pending.size);
    append(pending, missing);
    block.remove_prefix(missing.size());
    const auto length = imageLength({static_cast<const char*>(pending.shown.bytes), pending.size});
    if (!length) return refuseBroken();
    if (*length == pending.size) {
      const int result = outlet.deliver(pending.shown.bytes, pending.size);
      restart(pending);
      return result;
    }
    pending.wanted = *length;
  }
  append(pending, std::exchange(block, {}));
  return kGathered;
}

bool exceedsLimit(std::size_t pending, std::size_t added) noexcept {
  const std::size_t limit = tpl_hook.gather_limit;
  return limit != 0 && (pending > limit || added > limit - pending);
}

/// Leaves what is pending to the caller until the next call.
int keep(Pending pending, tpl_gather_state** state) noexcept {
  ZAL_INVARIANT(pending->size < pending->wanted && *state == nullptr);
  if (pending->size > kLongestPending) return refuse(kLongestPending);
  pending->shown.length = static_cast<std::int32_t>(pending->size);
  *state = &pending.release()->shown;
  return kGathered;
}

/// Keeps a block that neither completes the pending image nor makes it too long, and so changes nothing else.
bool keepWhole(PendingImage* pending, std::string_view block) noexcept {
  if (pending == nullptr || block.size() >= pending->wanted - pending->size) return false;
  ZAL_INVARIANT(static_cast<std::size_t>(pending->shown.length) == pending->size);
  if (exceedsLimit(pending->size, block.size()) || block.size() > kLongestPending - pending->size) return false;
  append(*pending, block);
  pending->shown.length = static_cast<std::int32_t>(pending->size);
  return true;
}

[[gnu::noinline]] int cutBlock(std::string_view block, tpl_gather_state** state, const Outlet& outlet) noexcept {
  Pending pending = takeFrom(state);
  if (pending) {
    if (exceedsLimit(pending->size, block.size())) return refuse(tpl_hook.gather_limit);
    if (const int result = complete(*pending, block, outlet); result != kGathered) return result;
  }
  if (const int result = deliverFrom(block, outlet); result != kGathered) return result;
  if (!block.empty()) {  // the front of the next image
    if (!pending) {
      pending.reset(make<PendingImage>());
      restart(*pending);
    }
    static_cast<void>(complete(*pending, block, outlet));
  }
  return pending && pending->size != 0 ? keep(std::move(pending), state) : kGathered;
}

int gatherBlock(std::string_view block, tpl_gather_state** state, GatherSink sink, const char* speaker) noexcept {
  return keepWhole(pendingOf(*state), block) ? kGathered : cutBlock(block, state, {sink, speaker});
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
      if (takeFrom(state)) tpl_hook.report_fn("tpl_gather: partial tpl image precedes EOF\n");
      return kEndOfFile;
    } else if (errno == EAGAIN) {
      return kGathered;  // what there is has been read
    } else if (errno != EINTR) {
      tpl_hook.report_fn("tpl_gather failed: %s\n", systemError());
      takeFrom(state).reset();
      return kFailed;
    }
  }
}

int tpl_gather_fd_blocking(int descriptor, void** image, std::size_t* size) noexcept {
  char front[kHeaderSize];
  if (const int result = readExactly(descriptor, front, sizeof front); result != kGathered) return result;
  const auto length = imageLength({front, sizeof front});
  if (!length) {
    tpl_hook.report_fn("tpl_gather_fd_blocking: non-tpl input\n");
    return kFailed;
  }
  if (tpl_hook.gather_limit != 0 && *length > tpl_hook.gather_limit) return refuse(tpl_hook.gather_limit);
  Pending pending{make<PendingImage>()};
  pending->wanted = *length;
  append(*pending, {front, sizeof front});
  while (pending->size < *length) {  // a header that lies gains no more here than in the other ways
    reserve(*pending, pending->size + 1);
    char* const end = static_cast<char*>(pending->shown.bytes) + pending->size;
    const int result = readExactly(descriptor, end, pending->capacity - pending->size);
    if (result != kGathered) return result;
    pending->size = pending->capacity;
  }
  *image = std::exchange(pending->shown.bytes, nullptr);
  *size = *length;
  return kGathered;
}

}  // namespace zal::tpl
