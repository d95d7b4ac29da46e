#include "viewer.hpp"

#include <array>
#include <cstdio>
#include <utility>

#include "news.hpp"
#include "report.hpp"

namespace zalctl {
namespace {

/// The bytes as hexadecimal digits and as characters, 16 a line.
std::string hexDump(std::string_view bytes) {
  constexpr std::size_t kWidth = 16;
  std::string out;
  for (std::size_t start = 0; start < bytes.size(); start += kWidth) {
    const std::string_view row = bytes.substr(start, kWidth);
    std::array<char, 24> cell{};
    std::snprintf(cell.data(), cell.size(), "%08zx ", start);
    std::string line = cell.data();
    std::string text;
    for (std::size_t i = 0; i < kWidth; ++i) {
      const unsigned byte = i < row.size() ? static_cast<unsigned char>(row[i]) : 0;
      std::snprintf(cell.data(), cell.size(), " %02x", byte);
      line += i < row.size() ? cell.data() : "   ";
      if (i < row.size()) text += byte >= 0x20 && byte < 0x7f ? row[i] : '.';
    }
    if (start != 0) out += '\n';
    out.append(line).append("  |").append(text).append("|");
  }
  return out;
}

std::string hexDigits(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string out;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += kDigits[byte >> 4U];
    out += kDigits[byte & 0xfU];
  }
  return out;
}

void addTook(cJSON& message, const std::optional<OpenCall>& call, Clock::time_point time) {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  if (call && time > call->sentAt) add(message, "milliseconds", Milliseconds{time - call->sentAt}.count());
}

}  // namespace

std::vector<JsonPtr> Conversation::read(const Entry& entry) {
  const Clock::time_point time{entry.time};
  std::vector<JsonPtr> messages;
  const auto begin = [&](std::string_view kind) -> cJSON& {
    JsonPtr message = newObject();
    if (entry.time.count() != 0) add(*message, "time", static_cast<double>(entry.time.count()) / 1e6);
    add(*message, "client", entry.connection);
    if (entry.way == Way::kToAgent || entry.way == Way::kToClient) {
      add(*message, "to", entry.way == Way::kToAgent ? "agent" : "client");
    }
    add(*message, "kind", kind);
    return *messages.emplace_back(std::move(message));
  };
  if (entry.way == Way::kOpened || entry.way == Way::kClosed) {
    begin(entry.way == Way::kOpened ? kClientCame : kClientGone);
    return messages;
  }
  const auto records = decode(entry.bytes.data(), static_cast<std::uint32_t>(entry.bytes.size()));
  if (!records) {
    add(begin(kMalformed), "bytes", static_cast<double>(entry.bytes.size()));
  } else if (records->empty()) {
    addEmpty(begin(kEmpty), time);
  } else {
    for (const Record& record : *records) addRecord(begin(kindOf(record)), record, time);
  }
  return messages;
}

void Conversation::addRecord(cJSON& message, const Record& record, Clock::time_point time) {
  add(message, record);
  switch (record.code) {
    case ZAL_IPC_CMD_SUBSCRIBE:
      return calls_.subscribe(record.service, record.name);
    case ZAL_IPC_CMD_REQUEST:
      return calls_.open({record.requestId, record.service, record.name, time, {}});
    case ZAL_IPC_CMD_RESPONSE:
      return addTook(message, calls_.close(record.requestId), time);
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      return gateway_.open({record.requestId, record.service, record.name, time, {}});
    case ZAL_IPC_CMD_GATEWAY_RESPONSE:
      return addTook(message, gateway_.close(record.requestId), time);
    default:
      return;
  }
}

void Conversation::addEmpty(cJSON& message, Clock::time_point time) {
  const auto call = calls_.closeNameless();
  if (call) add(message, {ZAL_IPC_CMD_REQUEST, call->service, call->name, {}, call->id});
  addTook(message, call, time);
}

void Viewer::show(const Entry& entry) {
  const auto conversation = conversations_.try_emplace(entry.connection, entry.connection).first;
  std::string_view bytes = entry.bytes;
  for (const JsonPtr& message : conversation->second.read(entry)) {
    if (options_.filter.passes(*message)) print(*message, std::exchange(bytes, {}));
  }
  if (entry.way == Way::kClosed) conversations_.erase(conversation);
}

void Viewer::print(cJSON& message, std::string_view bytes) {
  if (options_.isJson) {
    if (options_.isHex && !bytes.empty()) add(message, "hex", hexDigits(bytes));
    return printer_.print(Tone::kPlain, jsonLine(message));
  }
  showMessage(printer_, message);
  if (options_.isHex && !bytes.empty()) printer_.print(Tone::kDim, hexDump(bytes));
}

void declareView(CLI::App& app, ViewOptions& options) {
  declareFilter(app, options.filter, {kClientCame, kClientGone});
  app.add_flag("--hex", options.isHex, "show the bytes of each image as well");
}

}  // namespace zalctl
