// The records as tables of FlatBuffers, by the code that flatc makes of records.fbs.
#include <flatbuffers/flatbuffers.h>

#include <stdexcept>

#include "records/codec.hpp"
#include "records_generated.h"

namespace bench {

namespace {

void deleteBytes(void* block) {
  delete[] static_cast<std::uint8_t*>(block);
}

Encoded encode(const Records& records) {
  flatbuffers::FlatBufferBuilder builder;
  std::vector<flatbuffers::Offset<flat::Record>> all;
  all.reserve(records.count);
  for (const ZAL_IpcCommand* record = records.chain; record != nullptr; record = record->next) {
    const auto service = builder.CreateString(record->service);
    const auto name = builder.CreateString(record->name);
    const auto optionalParam = builder.CreateString(record->optionalParam);
    const auto payload = builder.CreateVector(static_cast<const std::uint8_t*>(record->payload), record->payloadSize);
    all.push_back(flat::CreateRecord(builder, record->code, service, name, optionalParam, payload, record->requestId));
  }
  builder.Finish(flat::CreateRecords(builder, builder.CreateVector(all)));
  std::size_t size = 0;
  std::size_t offset = 0;
  std::uint8_t* block = builder.ReleaseRaw(size, offset);
  return {{block, deleteBytes}, {reinterpret_cast<const char*>(block) + offset, size - offset}};
}

void decode(std::string_view bytes, const Visit& visit) {
  constexpr flatbuffers::uoffset_t kDepth = 64;
  constexpr flatbuffers::uoffset_t kMostTables = 1 << 24;
  const auto* start = reinterpret_cast<const std::uint8_t*>(bytes.data());
  flatbuffers::Verifier verifier{start, bytes.size(), kDepth, kMostTables};
  if (!flat::VerifyRecordsBuffer(verifier)) throw std::runtime_error{"no records"};
  Chain chain;
  for (const flat::Record* each : *flat::GetRecords(start)->all()) {
    RecordPtr record = newRecord();
    record->code = each->code();
    setText(record->service, each->service()->string_view());
    setText(record->name, each->name()->string_view());
    setText(record->optionalParam, each->optional_param()->string_view());
    setPayload(*record, {reinterpret_cast<const char*>(each->payload()->data()), each->payload()->size()});
    record->requestId = each->request_id();
    chain.push(std::move(record));
  }
  drain(std::move(chain), visit);
}

}  // namespace

Codec flatbuffersCodec() {
  return {"flatbuffers", encode, decode};
}

}  // namespace bench
