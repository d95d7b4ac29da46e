// What the candidates of the records suite are: each encodes a ready chain of records into one block, and decodes that
// into a list of zeroed records which own their payloads, hands out each of them and frees them.
#pragma once

#include <zal/zal_ipccommand.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

struct RecordFree {
  void operator()(ZAL_IpcCommand* record) const noexcept;
};
using RecordPtr = std::unique_ptr<ZAL_IpcCommand, RecordFree>;

/// Records linked by their `next`, which it owns.
class Chain {
 public:
  Chain() = default;
  ~Chain();
  Chain(Chain&& other) noexcept : head_{std::exchange(other.head_, nullptr)} {}
  Chain& operator=(Chain&&) = delete;

  void push(RecordPtr record) noexcept;
  RecordPtr pop() noexcept;
  [[nodiscard]] const ZAL_IpcCommand* head() const noexcept { return head_; }

 private:
  ZAL_IpcCommand* head_ = nullptr;
};

RecordPtr newRecord();
void setPayload(ZAL_IpcCommand& record, std::string_view payload);

/// Copies a text into a field of a zeroed record.
template <std::size_t Size>
void setText(char (&field)[Size], std::string_view text) {
  text.copy(field, Size - 1);
}

inline std::string_view payloadOf(const ZAL_IpcCommand& record) {
  return {static_cast<const char*>(record.payload), record.payloadSize};
}

/// The same records as a list of the library's and as a chain.
struct Records {
  ZAL_IpcCommandList list;
  const ZAL_IpcCommand* chain;
  std::size_t count;
};

struct Encoded {
  std::unique_ptr<void, void (*)(void*)> block;
  std::string_view bytes;
};

using Visit = std::function<void(const ZAL_IpcCommand&)>;

struct Codec {
  const char* name;
  Encoded (*encode)(const Records& records);
  /// Throws when the bytes are wrong.
  void (*decode)(std::string_view bytes, const Visit& visit);
};

/// Visits the records of a chain from the head on, freeing each.
void drain(Chain chain, const Visit& visit);

Codec plainCodec();
Codec zalCodec();
Codec msgpackCodec();
Codec flatbuffersCodec();

}  // namespace bench
