// What passed over connections, and when: a recording is a file of the engine's own images, one an entry. A capture,
// the bytes of a connection as they were on the socket, is read as well. Nothing here keeps state but the writer; one
// thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace zalctl {

enum class Way : std::uint32_t { kToAgent = 1, kToClient = 2, kOpened = 3, kClosed = 4 };

struct Entry {
  std::chrono::microseconds time{};  // since 1970; 0 when it is not known
  std::uint32_t connection = 0;      // counted from 1
  Way way = Way::kToAgent;
  std::string bytes;  // one image, or what is none
};

/// Reads the whole of a recording or a capture, entry by entry. What is no image becomes an entry of its own, and the
/// reading goes on at the next one. Returns false when there was such.
[[nodiscard]] bool readEntries(std::string_view bytes, const std::function<void(const Entry&)>& take);

class RecordingWriter {
 public:
  /// Makes or replaces the file, for this user alone. Throws std::runtime_error.
  explicit RecordingWriter(const std::string& path);
  /// False when the entry could not be written.
  [[nodiscard]] bool write(const Entry& entry);

 private:
  struct Close {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Close> file_;
};

/// Which way a message of this code goes.
[[nodiscard]] Way wayOf(std::int32_t code);

}  // namespace zalctl
