// Any bytes as images in a file and behind a descriptor, and any course of the system calls that carry them: in pieces,
// interrupted, failing. Memory tells what must come of it; a call that fails may refuse it, and changes nothing else.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/descriptor.hpp"
#include "support/engine.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::EngineHook;
using zal::fuzz::ImageSink;
using zal::fuzz::Input;
using zal::fuzz::Text;

/// What the engine's next system calls do, a byte each; when there is none left, what they should.
struct Course {
  std::string_view steps;
  bool isOn = false;
  bool hasFailed = false;
  bool canRewind = true;
  bool isAtEnd = false;
  std::vector<std::string> blocks;  // that were read
} course;

enum Step : std::uint8_t { kFails, kInterrupted, kNotReady, kNothing, kPieces, kWhole = 0x80 };

std::uint8_t takeStep() {
  if (!course.isOn || course.steps.empty()) return kWhole;
  const auto step = static_cast<std::uint8_t>(course.steps.front());
  course.steps.remove_prefix(1);
  return step;
}

bool fails(int error) {
  if (takeStep() != kFails) return false;
  course.hasFailed = true;
  errno = error;
  return true;
}

/// How much of a transfer goes through, or -1.
ssize_t admitted(std::size_t size, int error) {
  const std::uint8_t step = takeStep();
  if (step >= kWhole) return static_cast<ssize_t>(size);
  if (step >= kNothing) return static_cast<ssize_t>(std::min<std::size_t>(size, step - kNothing));
  course.hasFailed |= step == kFails;
  errno = step == kFails ? error : step == kInterrupted ? EINTR : EAGAIN;
  return -1;
}

}  // namespace

// The linker has the library call these instead of the system's.
extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int file, void* to, std::size_t size);
ssize_t __real_write(int file, const void* from, std::size_t size);
int __real_fstat(int file, struct stat* status);
void* __real_mmap(void* wish, std::size_t size, int protection, int flags, int file, off_t offset);
int __real_munmap(void* address, std::size_t size);
int __real_msync(void* address, std::size_t size, int flags);
int __real_ftruncate(int file, off_t size);
int __real_posix_fallocate(int file, off_t offset, off_t size);
off_t __real_lseek(int file, off_t offset, int from);

/// The mode is there or not; its register or place on the stack holds something in any case.
int __wrap_open(const char* path, int flags, mode_t mode) {
  return fails(EMFILE) ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int file, void* to, std::size_t size) {
  if (!course.isOn) return __real_read(file, to, size);
  const ssize_t most = admitted(size, EIO);
  if (most < 0) return -1;
  const ssize_t count = __real_read(file, to, std::max<std::size_t>(static_cast<std::size_t>(most), 1));
  FUZZ_CHECK(count >= 0);
  course.isAtEnd |= count == 0;
  if (count > 0) course.blocks.emplace_back(static_cast<const char*>(to), static_cast<std::size_t>(count));
  return count;
}

ssize_t __wrap_write(int file, const void* from, std::size_t size) {
  const ssize_t most = admitted(size, ENOSPC);
  return most < 0 ? -1 : __real_write(file, from, static_cast<std::size_t>(most));
}

int __wrap_fstat(int file, struct stat* status) {
  if (!fails(EIO)) return __real_fstat(file, status);
  course.canRewind = false;
  return -1;
}

void* __wrap_mmap(void* wish, std::size_t size, int protection, int flags, int file, off_t offset) {
  return fails(ENOMEM) ? MAP_FAILED : __real_mmap(wish, size, protection, flags, file, offset);
}

/// It reports a failure, and has done its work.
int __wrap_munmap(void* address, std::size_t size) {
  const int result = __real_munmap(address, size);
  return fails(EINVAL) ? -1 : result;
}

int __wrap_msync(void* address, std::size_t size, int flags) {
  return fails(EIO) ? -1 : __real_msync(address, size, flags);
}

int __wrap_ftruncate(int file, off_t size) {
  if (!fails(EIO)) return __real_ftruncate(file, size);
  course.canRewind = false;
  return -1;
}

int __wrap_posix_fallocate(int file, off_t offset, off_t size) {
  if (course.isOn && course.steps.starts_with(char{kInterrupted})) {
    static_cast<void>(takeStep());
    return EINTR;
  }
  return fails(ENOSPC) ? ENOSPC : __real_posix_fallocate(file, offset, size);
}

off_t __wrap_lseek(int file, off_t offset, int from) {
  if (!fails(EIO)) return __real_lseek(file, offset, from);
  course.canRewind = false;
  return -1;
}

}  // extern "C"

namespace {

/// Runs a call of the engine's in the course of the input.
template <class Call>
auto inCourse(Call call) {
  course.isOn = true;
  const auto result = call();
  course.isOn = false;
  return result;
}

/// The file of the target, by descriptor and by name.
class File {
 public:
  File() : file_{memfd_create("image", MFD_CLOEXEC)}, path_{"/proc/self/fd/" + std::to_string(file_.get())} {
    FUZZ_CHECK(file_.isOpen());
  }
  void set(std::string_view bytes) const {
    FUZZ_CHECK(ftruncate(file_.get(), 0) == 0);
    FUZZ_CHECK(pwrite(file_.get(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    seek(0);
  }
  void seek(std::size_t position) const { FUZZ_CHECK(lseek(get(), static_cast<off_t>(position), SEEK_SET) >= 0); }
  [[nodiscard]] std::size_t position() const { return static_cast<std::size_t>(lseek(get(), 0, SEEK_CUR)); }
  [[nodiscard]] std::string content() const {
    struct stat status {};
    FUZZ_CHECK(fstat(get(), &status) == 0);
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    FUZZ_CHECK(pread(get(), bytes.data(), bytes.size(), 0) == status.st_size);
    return bytes;
  }
  [[nodiscard]] int get() const { return file_.get(); }
  [[nodiscard]] const char* path() const { return path_.c_str(); }

 private:
  zal::Descriptor file_;
  std::string path_;
};

const File& file() {
  static const File only;
  return only;
}

/// Nothing but a failed call makes a difference, and none makes a success of a failure.
void checkResult(bool isGood, bool isGoodInMemory) {
  FUZZ_CHECK(isGood ? isGoodInMemory : !isGoodInMemory || course.hasFailed);
}

/// The variables of every format.
struct Values {
  std::int32_t i[3]{};
  std::uint64_t U = 0;
  char* s = nullptr;
  tpl_blob B{};

  void release() {
    tpl_hook.free_fn(std::exchange(s, nullptr));
    tpl_hook.free_fn(std::exchange(B.address, nullptr));
  }
};

using MakeMap = tpl_map_node* (*)(Values&);
constexpr MakeMap kMaps[] = {
    [](Values& at) { return tpl_map("iUs", &at.i[0], &at.U, &at.s); },
    [](Values& at) { return tpl_map("A(is)U", &at.i[0], &at.s, &at.U); },
    [](Values& at) { return tpl_map("Bi#A(s)", &at.B, &at.i[0], 3, &at.s); },
};

/// The values that a map has after loading, as an image; none when the load was refused.
template <class Load>
std::optional<std::string> imageBy(MakeMap makeMap, Load load) {
  Values at;
  tpl_map_node* const from = makeMap(at);
  tpl_map_node* const to = makeMap(at);
  std::optional<std::string> copy;
  if (load(from) == 0) {
    FUZZ_CHECK(tpl_unpack(from, 0) == 1 && tpl_pack(to, 0) == 0);
    for (at.release(); tpl_unpack(from, 1) > 0; at.release()) FUZZ_CHECK(tpl_pack(to, 1) == 0);
    void* image = nullptr;
    std::size_t size = 0;
    FUZZ_CHECK(tpl_dump(to, TPL_VIA_MEM, &image, &size) == 0);
    copy.emplace(static_cast<const char*>(image), size);
    tpl_hook.free_fn(image);
  } else {
    FUZZ_CHECK(tpl_unpack(from, 0) == -1);
  }
  tpl_free(from);
  tpl_free(to);
  return copy;
}

std::vector<std::string> imagesOf(std::string_view stream) {
  ImageSink sink;
  tpl_gather_state* state = nullptr;
  static_cast<void>(tpl_gather(TPL_GATHER_FROM_MEM, stream.data(), stream.size(), &state, &ImageSink::take, &sink));
  zal::fuzz::freePending(state);
  return sink.images;
}

void loadFile(Input& input) {
  const MakeMap makeMap = kMaps[input.below(std::size(kMaps))];
  const int excess = input.byte() % 2 == 0 ? 0 : TPL_ALLOW_EXCESS;
  const std::string_view bytes = input.rest();
  file().set(bytes);
  const auto expected = imageBy(
      makeMap, [&](tpl_map_node* map) { return tpl_load(map, TPL_VIA_MEM | excess, bytes.data(), bytes.size()); });
  const auto image = inCourse([&] {
    return imageBy(makeMap, [&](tpl_map_node* map) { return tpl_load(map, TPL_VIA_FILE | excess, file().path()); });
  });
  checkResult(image.has_value(), expected.has_value());
  FUZZ_CHECK(!image || image == expected);
}

void loadDescriptor(Input& input) {
  const MakeMap makeMap = kMaps[input.below(std::size(kMaps))];
  file().set(input.rest());
  const std::vector<std::string> images = imagesOf(input.rest());
  const auto expected = imageBy(makeMap, [&](tpl_map_node* map) {
    return images.empty() ? -1 : tpl_load(map, TPL_VIA_MEM, images[0].data(), images[0].size());
  });
  const auto image = inCourse(
      [&] { return imageBy(makeMap, [](tpl_map_node* map) { return tpl_load(map, TPL_VIA_FD, file().get()); }); });
  checkResult(image.has_value(), expected.has_value());
  FUZZ_CHECK(!image || (image == expected && file().position() == images[0].size()));
}

void gatherOneByOne(Input& input) {
  constexpr std::size_t kLimits[] = {0, 9, 64};
  tpl_hook.gather_limit = kLimits[input.below(std::size(kLimits))];
  file().set(input.rest());
  std::vector<std::string> images;
  int result = 1;
  while (result == 1) {
    void* image = nullptr;
    std::size_t size = 0;
    result = inCourse([&] { return tpl_gather(TPL_GATHER_FD_BLOCKING, file().get(), &image, &size); });
    if (result == 1) images.emplace_back(static_cast<const char*>(image), size);
    tpl_hook.free_fn(image);
  }
  std::vector<std::string> expected = imagesOf(input.rest());
  const auto isTooLong = [](const auto& one) {
    return tpl_hook.gather_limit != 0 && one.size() > tpl_hook.gather_limit;
  };
  expected.erase(std::find_if(expected.begin(), expected.end(), isTooLong), expected.end());
  if (course.hasFailed) {
    FUZZ_CHECK(result == -1 && images.size() <= expected.size());
    expected.resize(images.size());
  }
  FUZZ_CHECK(images == expected);
}

/// Each block that is read does to a stream what it does from memory.
void gatherAll(Input& input) {
  constexpr std::size_t kLimits[] = {0, 9, 64, 4096};
  tpl_hook.gather_limit = kLimits[input.below(std::size(kLimits))];
  const std::uint8_t choice = input.byte();
  ImageSink sink{choice % 4 == 0 ? choice / 4U : SIZE_MAX, {}};
  ImageSink plainSink = sink;
  tpl_gather_state* state = nullptr;
  tpl_gather_state* plainState = nullptr;
  file().set(input.rest());
  for (int result = 1; result == 1;) {
    course.blocks.clear();
    result = inCourse([&] { return tpl_gather(TPL_GATHER_FD_NOWAIT, file().get(), &state, &ImageSink::take, &sink); });
    int expected = 1;
    for (const std::string& block : course.blocks) {
      expected = tpl_gather(TPL_GATHER_FROM_MEM, block.data(), block.size(), &plainState, &ImageSink::take, &plainSink);
      if (expected != 1) break;
    }
    if (expected == 1 && course.hasFailed) expected = -1;
    if (expected == 1 && course.isAtEnd) expected = 0;
    FUZZ_CHECK(result == expected);
    FUZZ_CHECK(zal::fuzz::pendingBytes(state) == (result == 1 ? zal::fuzz::pendingBytes(plainState) : ""));
  }
  FUZZ_CHECK(state == nullptr && sink.images == plainSink.images);
  zal::fuzz::freePending(plainState);
}

void peekFile(Input& input) {
  const bool wantsCounts = input.byte() % 2 == 0;
  const std::string_view bytes = input.rest();
  file().set(bytes);
  struct Peeked {
    std::string format;
    std::vector<std::uint32_t> counts;
    std::int32_t i = 0;
  };
  const auto peek = [&](int mode, auto... image) {
    Peeked peeked;
    std::uint32_t total = 0;
    std::uint32_t* counts = nullptr;
    char* const format = wantsCounts ? tpl_peek(mode | TPL_FXLENS, image..., &total, &counts)
                                     : tpl_peek(mode | TPL_DATAPEEK, image..., "i", &peeked.i);
    peeked.counts.assign(counts, counts + total);
    if (format != nullptr) peeked.format = format;
    tpl_hook.free_fn(format);
    tpl_hook.free_fn(counts);
    return peeked;
  };
  const Peeked expected = peek(TPL_VIA_MEM, bytes.data(), bytes.size());
  const Peeked peeked = inCourse([&] { return peek(TPL_VIA_FILE, file().path()); });
  checkResult(!peeked.format.empty(), !expected.format.empty());
  if (peeked.format.empty()) return;
  FUZZ_CHECK(peeked.format == expected.format && peeked.counts == expected.counts && peeked.i == expected.i);
}

void dump(Input& input) {
  const bool isByPath = input.byte() % 2 == 0;
  const std::string before{isByPath ? std::string_view{} : input.take(input.byte())};
  const Text text{input.rest()};
  const char* address = text.get();
  void* image = nullptr;
  std::size_t size = 0;
  FUZZ_CHECK(tpl_jot(TPL_VIA_MEM, &image, &size, "s", &address) == 0);
  const std::string expected = before + std::string{static_cast<const char*>(image), size};
  tpl_hook.free_fn(image);

  file().set(before);
  file().seek(before.size());
  const bool isDumped = inCourse([&] {
                          return isByPath ? tpl_jot(TPL_VIA_FILE, file().path(), "s", &address)
                                          : tpl_jot(TPL_VIA_FD, file().get(), "s", &address);
                        }) == 0;
  checkResult(isDumped, true);
  if (isDumped) FUZZ_CHECK(file().content() == expected);
  if (!isDumped && !isByPath && course.canRewind)
    FUZZ_CHECK(file().content() == before && file().position() == before.size());
}

constexpr void (*kWays[])(Input&) = {loadFile, loadDescriptor, gatherOneByOne, gatherAll, peekFile, dump};

/// The number that the next descriptor gets: a higher one when one is left open.
int nextDescriptor() {
  const zal::Descriptor next{dup(file().get())};
  return next.get();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input{data, size};
  const EngineHook hook;
  const int before = nextDescriptor();
  const auto way = kWays[input.below(std::size(kWays))];
  course = {};
  course.steps = input.take(input.below(32));
  way(input);
  FUZZ_CHECK(EngineHook::blocks() == 0);
  FUZZ_CHECK(nextDescriptor() == before);
  return 0;
}
