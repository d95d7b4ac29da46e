// Lists of command records: encoded from a list that is ready into a block that is freed again, and decoded into a list
// of records that own their payloads, each of which is then taken off the list and freed.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "records/codec.hpp"
#include "suites.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

constexpr int kRecordsARound = 100'000;

/// A status answer as a service gives it, with a payload of about 300 bytes.
RecordPtr recordOf(std::size_t number) {
  RecordPtr record = newRecord();
  record->code = ZAL_IPC_CMD_RESPONSE;
  setText(record->service, "com.example.gateway.status");
  setText(record->name, "interfaces/" + std::to_string(number) + "/counters?include=received+sent&range=0-99");
  setText(record->uid, "7f3a90c24d1e");
  setText(record->optionalParam, "periodic");
  std::string payload = R"({"timestamp":1700000000.123456,"data":{"number":)" + std::to_string(number);
  payload += R"(,"hostname":"gateway-17","model":"GX-200","firmware":"4.12.7","uptime":350735,"load":0.420000,)"
             R"("memory":{"total":512000,"free":143360,"available":262144},"temperature":41.500000,)"
             R"("online":true,"region":"eu-central","remarks":"measured twice"}})";
  setPayload(*record, payload);
  record->requestId = static_cast<std::uint16_t>(number);
  return record;
}

class Input {
 public:
  explicit Input(std::size_t count) : list_{ZAL_IpcCommand_Create()}, count_{count} {
    for (std::size_t i = 0; i < count; ++i) {
      RecordPtr record = recordOf(i);
      ZAL_IpcCommand_Add(list_, record.get());
      chain_.push(std::move(record));
    }
  }
  ~Input() { ZAL_IpcCommand_Destroy(list_); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  [[nodiscard]] Records records() const { return {list_, chain_.head(), count_}; }

 private:
  ZAL_IpcCommandList list_;
  Chain chain_;
  std::size_t count_;
};

bool areEqual(const ZAL_IpcCommand& a, const ZAL_IpcCommand& b) {
  return a.code == b.code && std::string_view{a.service} == b.service && std::string_view{a.name} == b.name &&
         std::string_view{a.optionalParam} == b.optionalParam && payloadOf(a) == payloadOf(b) &&
         a.requestId == b.requestId;
}

/// What has been encoded from a chain comes back the other way round.
void check(const Codec& codec, std::size_t count) {
  const Input input{count};
  const Encoded encoded = codec.encode(input.records());
  std::size_t left = count;
  codec.decode(encoded.bytes, [&](const ZAL_IpcCommand& record) {
    const ZAL_IpcCommand* expected = input.records().chain;
    for (std::size_t i = 1; i < left; ++i) expected = expected->next;
    --left;
    if (!areEqual(record, *expected)) throw std::runtime_error{std::string{codec.name} + ": a record has changed"};
  });
  if (left != 0) throw std::runtime_error{std::string{codec.name} + ": records are missing"};
}

/// How often a list must be taken for about `total` records.
int timesFor(const Records& records, int total) {
  return std::max(1, total / static_cast<int>(records.count));
}

double nanosecondsToEncode(const Codec& codec, const Records& records, int total) {
  std::size_t size = 0;
  const int times = timesFor(records, total);
  const double time = nanosecondsOf(times, [&] { size += codec.encode(records).bytes.size(); });
  if (size != codec.encode(records).bytes.size() * static_cast<std::size_t>(times))
    throw std::runtime_error{"not all was encoded"};
  return time / static_cast<double>(records.count);
}

double nanosecondsToDecode(const Codec& codec, const Records& records, int total) {
  const Encoded encoded = codec.encode(records);
  std::size_t count = 0;
  const int times = timesFor(records, total);
  const double time = nanosecondsOf(times, [&] {
    codec.decode(encoded.bytes, [&](const ZAL_IpcCommand& record) { count += record.payloadSize != 0 ? 1U : 0U; });
  });
  if (count != records.count * static_cast<std::size_t>(times)) throw std::runtime_error{"records are missing"};
  return time / static_cast<double>(records.count);
}

std::vector<Codec> codecs() {
  return {
      plainCodec(),
      zalCodec(),
#ifdef BENCH_MSGPACK
      msgpackCodec(),
#endif
#ifdef BENCH_FLATBUFFERS
      flatbuffersCodec(),
#endif
  };
}

}  // namespace

void measureRecords(const Settings& settings, Report& report) {
  const int total = scaled(kRecordsARound, settings.effort);
  const auto measure = [&](const char* name, const std::vector<Candidate>& candidates) {
    report.add({name, "ns a record", settings.rounds}, candidates);
  };

  const Input hundred{100};
  std::vector<Candidate> encoders;
  std::vector<Candidate> decoders;
  for (const Codec& codec : codecs()) {
    check(codec, 100);
    encoders.push_back({codec.name, [&, codec] { return nanosecondsToEncode(codec, hundred.records(), total); }});
    decoders.push_back({codec.name, [&, codec] { return nanosecondsToDecode(codec, hundred.records(), total); }});
  }
  measure("encode lists of 100 records", encoders);
  measure("decode lists of 100 records", decoders);

  std::vector<std::unique_ptr<Input>> inputs;
  for (const Codec& codec : {plainCodec(), zalCodec()}) {
    encoders.clear();
    decoders.clear();
    for (const std::size_t count : {10U, 100U, 1000U, 10'000U, 100'000U}) {
      const Records records = inputs.emplace_back(std::make_unique<Input>(count))->records();
      const std::string name = std::to_string(count) + " records";
      encoders.push_back({name, [=] { return nanosecondsToEncode(codec, records, total); }});
      decoders.push_back({name, [=] { return nanosecondsToDecode(codec, records, total); }});
    }
    measure((std::string{"encode lists by size, "} + codec.name).c_str(), encoders);
    measure((std::string{"decode lists by size, "} + codec.name).c_str(), decoders);
  }
}

}  // namespace bench
