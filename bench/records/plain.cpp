// The floor: the library's own image, written and read by hand for its one format, with every length checked.
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "records/codec.hpp"

namespace bench {

namespace {

constexpr std::string_view kFront{"tpl\0", 4};
constexpr std::string_view kFormat{"A(iBBBBi)\0", 10};
constexpr std::size_t kFrontSize = kFront.size() + sizeof(std::uint32_t) + kFormat.size() + sizeof(std::uint32_t);

char* put(char* to, std::string_view bytes) {
  std::memcpy(to, bytes.data(), bytes.size());
  return to + bytes.size();
}

char* put(char* to, std::uint32_t number) {
  std::memcpy(to, &number, sizeof number);
  return to + sizeof number;
}

char* putBlob(char* to, std::string_view bytes) {
  return put(put(to, static_cast<std::uint32_t>(bytes.size())), bytes);
}

/// A text with its terminator.
std::string_view terminated(const char* text) {
  return {text, std::strlen(text) + 1};
}

std::size_t sizeOf(const ZAL_IpcCommand& record) {
  return 6 * sizeof(std::uint32_t) + terminated(record.service).size() + terminated(record.name).size() +
         terminated(record.optionalParam).size() + record.payloadSize;
}

Encoded encode(const Records& records) {
  std::size_t size = kFrontSize;
  for (const ZAL_IpcCommand* record = records.chain; record != nullptr; record = record->next) size += sizeOf(*record);

  auto* block = static_cast<char*>(std::malloc(size));
  if (block == nullptr) throw std::bad_alloc{};
  char* to = put(put(block, kFront), static_cast<std::uint32_t>(size));
  to = put(put(to, kFormat), static_cast<std::uint32_t>(records.count));
  for (const ZAL_IpcCommand* record = records.chain; record != nullptr; record = record->next) {
    to = put(to, static_cast<std::uint32_t>(record->code));
    to = putBlob(to, terminated(record->service));
    to = putBlob(to, terminated(record->name));
    to = putBlob(to, terminated(record->optionalParam));
    to = putBlob(to, payloadOf(*record));
    to = put(to, record->requestId);
  }
  return {{block, std::free}, {block, size}};
}

std::string_view take(std::string_view& rest, std::size_t size) {
  if (size > rest.size()) throw std::runtime_error{"the image is cut short"};
  const std::string_view taken = rest.substr(0, size);
  rest.remove_prefix(size);
  return taken;
}

std::uint32_t takeNumber(std::string_view& rest) {
  std::uint32_t number = 0;
  std::memcpy(&number, take(rest, sizeof number).data(), sizeof number);
  return number;
}

std::string_view takeBlob(std::string_view& rest) {
  return take(rest, takeNumber(rest));
}

std::string_view takeText(std::string_view& rest) {
  const std::string_view blob = takeBlob(rest);
  return {blob.data(), strnlen(blob.data(), blob.size())};
}

void decode(std::string_view image, const Visit& visit) {
  std::string_view rest = image;
  if (take(rest, kFront.size()) != kFront || takeNumber(rest) != image.size() || take(rest, kFormat.size()) != kFormat)
    throw std::runtime_error{"no image of records"};
  Chain chain;
  for (std::uint32_t left = takeNumber(rest); left > 0; --left) {
    RecordPtr record = newRecord();
    record->code = static_cast<std::int32_t>(takeNumber(rest));
    setText(record->service, takeText(rest));
    setText(record->name, takeText(rest));
    setText(record->optionalParam, takeText(rest));
    setPayload(*record, takeBlob(rest));
    record->requestId = static_cast<std::uint16_t>(takeNumber(rest));
    chain.push(std::move(record));
  }
  drain(std::move(chain), visit);
}

}  // namespace

void RecordFree::operator()(ZAL_IpcCommand* record) const noexcept {
  std::free(record->payload);
  std::free(record);
}

Chain::~Chain() {
  while (pop()) {
  }
}

void Chain::push(RecordPtr record) noexcept {
  record->next = head_;
  head_ = record.release();
}

RecordPtr Chain::pop() noexcept {
  return RecordPtr{head_ == nullptr ? nullptr : std::exchange(head_, head_->next)};
}

RecordPtr newRecord() {
  RecordPtr record{static_cast<ZAL_IpcCommand*>(std::calloc(1, sizeof(ZAL_IpcCommand)))};
  if (!record) throw std::bad_alloc{};
  return record;
}

void setPayload(ZAL_IpcCommand& record, std::string_view payload) {
  if (payload.empty()) return;
  record.payload = std::malloc(payload.size());
  if (record.payload == nullptr) throw std::bad_alloc{};
  std::memcpy(record.payload, payload.data(), payload.size());
  record.payloadSize = static_cast<std::uint32_t>(payload.size());
}

void drain(Chain chain, const Visit& visit) {
  while (const RecordPtr record = chain.pop()) visit(*record);
}

Codec plainCodec() {
  return {"by hand", encode, decode};
}

}  // namespace bench
