// The records as arrays of MessagePack, through the C library.
#include <msgpack.h>

#include <cstdlib>
#include <stdexcept>

#include "records/codec.hpp"

namespace bench {

namespace {

constexpr std::uint32_t kFields = 6;

void packText(msgpack_packer& packer, std::string_view text) {
  msgpack_pack_str(&packer, text.size());
  msgpack_pack_str_body(&packer, text.data(), text.size());
}

Encoded encode(const Records& records) {
  msgpack_sbuffer buffer;
  msgpack_sbuffer_init(&buffer);
  msgpack_packer packer;
  msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
  msgpack_pack_array(&packer, records.count);
  for (const ZAL_IpcCommand* record = records.chain; record != nullptr; record = record->next) {
    msgpack_pack_array(&packer, kFields);
    msgpack_pack_int32(&packer, record->code);
    packText(packer, record->service);
    packText(packer, record->name);
    packText(packer, record->optionalParam);
    msgpack_pack_bin(&packer, record->payloadSize);
    msgpack_pack_bin_body(&packer, record->payload, record->payloadSize);
    msgpack_pack_uint16(&packer, record->requestId);
  }
  return {{buffer.data, std::free}, {buffer.data, buffer.size}};
}

/// Owns what a decoder allocates.
struct Unpacked {
  Unpacked() { msgpack_unpacked_init(&value); }
  ~Unpacked() { msgpack_unpacked_destroy(&value); }
  Unpacked(const Unpacked&) = delete;
  Unpacked& operator=(const Unpacked&) = delete;

  msgpack_unpacked value{};
};

const msgpack_object& checked(const msgpack_object& object, msgpack_object_type type) {
  if (object.type != type) throw std::runtime_error{"no record"};
  return object;
}

std::string_view textOf(const msgpack_object& object) {
  const msgpack_object_str& text = checked(object, MSGPACK_OBJECT_STR).via.str;
  return {text.ptr, text.size};
}

RecordPtr recordOf(const msgpack_object& object) {
  const msgpack_object_array& fields = checked(object, MSGPACK_OBJECT_ARRAY).via.array;
  if (fields.size != kFields) throw std::runtime_error{"no record"};
  RecordPtr record = newRecord();
  record->code = static_cast<std::int32_t>(checked(fields.ptr[0], MSGPACK_OBJECT_POSITIVE_INTEGER).via.u64);
  setText(record->service, textOf(fields.ptr[1]));
  setText(record->name, textOf(fields.ptr[2]));
  setText(record->optionalParam, textOf(fields.ptr[3]));
  const msgpack_object_bin& payload = checked(fields.ptr[4], MSGPACK_OBJECT_BIN).via.bin;
  setPayload(*record, {payload.ptr, payload.size});
  record->requestId = static_cast<std::uint16_t>(checked(fields.ptr[5], MSGPACK_OBJECT_POSITIVE_INTEGER).via.u64);
  return record;
}

void decode(std::string_view bytes, const Visit& visit) {
  Unpacked unpacked;
  if (msgpack_unpack_next(&unpacked.value, bytes.data(), bytes.size(), nullptr) != MSGPACK_UNPACK_SUCCESS)
    throw std::runtime_error{"no records"};
  const msgpack_object_array& records = checked(unpacked.value.data, MSGPACK_OBJECT_ARRAY).via.array;
  Chain chain;
  for (std::uint32_t i = 0; i < records.size; ++i) chain.push(recordOf(records.ptr[i]));
  drain(std::move(chain), visit);
}

}  // namespace

Codec msgpackCodec() {
  return {"msgpack-c", encode, decode};
}

}  // namespace bench
