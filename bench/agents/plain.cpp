// The agents over a plain socket: frames for the client written by hand, images for the library's.
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "agents/agent.hpp"
#include "support/socket.hpp"

namespace bench {

namespace {

class PlainAgent : public Agent {
 public:
  explicit PlainAgent(const std::string& path) : listener_{listenAt(path)} {}

  void meet() override { socket_ = acceptFrom(listener_); }

  void send(Kind kind, std::string_view request) override {
    out_.clear();
    appendFrame(out_, static_cast<char>(kind), request);
    writeAll(socket_, out_);
  }

  std::string_view receive() override {
    inbox_.take(taken_);
    std::string_view frame;
    while ((frame = firstFrame(inbox_.bytes())).empty())
      if (!inbox_.fill(socket_)) throw std::runtime_error{"the client has ended"};
    taken_ = frame.size() + sizeof(std::uint32_t);
    return frame.substr(1);
  }

 private:
  Descriptor listener_;
  Descriptor socket_;
  Inbox inbox_;
  std::string out_;
  std::size_t taken_ = 0;
};

// The image that client and agent exchange; docs/protocol.md describes it.
enum Code : std::uint32_t { kSubscribe = 1, kResponse = 3, kEvent = 4, kRequest = 5, kGetConfig = 7, kConfig = 8 };
constexpr std::string_view kFormat{"A(iBBBBi)\0", 10};
constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kHeaderSize = 8;

void appendNumber(std::string& out, std::uint32_t number) {
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  out.append(bytes, sizeof bytes);
}

void appendBytes(std::string& out, std::string_view bytes) {
  appendNumber(out, static_cast<std::uint32_t>(bytes.size()));
  out += bytes;
}

std::uint32_t numberAt(std::string_view bytes, std::size_t offset) {
  std::uint32_t number = 0;
  if (bytes.size() < offset + sizeof number) throw std::runtime_error{"an image is too short"};
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

/// One record in an image.
struct Record {
  std::uint32_t code = 0;
  std::string_view payload;
};

class ZalAgent : public Agent {
 public:
  ZalAgent(std::string status, const std::string& path) : status_{std::move(status)}, listener_{listenAt(path)} {}

  void meet() override {
    constexpr std::size_t kMethods = 3;
    socket_ = acceptFrom(listener_);
    expect(kGetConfig);
    write(kConfig, "", "", "{}");
    for (std::size_t subscribed = 0; subscribed < kMethods;) subscribed += expect(kSubscribe);
  }

  void send(Kind kind, std::string_view request) override {
    write(kRequest, "telemetry",
          kind == Kind::kStatus     ? status_
          : kind == Kind::kDocument ? "document"
                                    : "events",
          request);
  }

  std::string_view receive() override {
    for (;;) {
      const Record record = first(nextImage());
      if (record.code == kEvent) return record.payload;
      if (record.code != kResponse) throw std::runtime_error{"an image that is neither answer nor event"};
      if (record.payload.find("\"data\"") != std::string_view::npos)
        return record.payload;  // that of "events" has none
    }
  }

 private:
  void write(Code code, std::string_view service, std::string_view name, std::string_view payload) {
    out_.assign("tpl\0\0\0\0\0", kHeaderSize).append(kFormat);
    appendNumber(out_, 1);
    appendNumber(out_, code);
    for (const std::string_view text : {service, name, std::string_view{}}) appendBytes(out_, std::string{text} + '\0');
    appendBytes(out_, payload);
    appendNumber(out_, 0);
    const auto length = static_cast<std::uint32_t>(out_.size());
    std::memcpy(out_.data() + kLengthOffset, &length, sizeof length);
    writeAll(socket_, out_);
  }

  std::string_view nextImage() {
    inbox_.take(taken_);
    taken_ = 0;
    for (;;) {
      const std::string_view bytes = inbox_.bytes();
      const std::size_t length = bytes.size() < kHeaderSize ? 0 : numberAt(bytes, kLengthOffset);
      if (length != 0 && length <= bytes.size()) {
        taken_ = length;
        return bytes.substr(0, length);
      }
      if (!inbox_.fill(socket_)) throw std::runtime_error{"the client has ended"};
    }
  }

  static std::size_t countOf(std::string_view image) { return numberAt(image, kHeaderSize + kFormat.size()); }

  static Record first(std::string_view image) {
    std::size_t at = kHeaderSize + kFormat.size() + sizeof(std::uint32_t);
    if (countOf(image) == 0) throw std::runtime_error{"an image without records"};
    const std::uint32_t code = numberAt(image, at);
    at += sizeof code;
    constexpr int kTexts = 3;  // service, name, optional parameter
    for (int i = 0; i < kTexts; ++i) at += sizeof(std::uint32_t) + numberAt(image, at);
    return {code, image.substr(at + sizeof(std::uint32_t), numberAt(image, at))};
  }

  /// Waits for an image whose first record has this code; returns the number of its records.
  std::size_t expect(Code code) {
    const std::string_view image = nextImage();
    if (first(image).code != code) throw std::runtime_error{"an image of another kind was expected"};
    return countOf(image);
  }

  std::string status_;
  Descriptor listener_;
  Descriptor socket_;
  Inbox inbox_;
  std::string out_;
  std::size_t taken_ = 0;
};

}  // namespace

std::unique_ptr<Agent> listenPlain(const std::string& path) {
  return std::make_unique<PlainAgent>(path);
}

std::unique_ptr<Agent> listenZal(const std::string& path) {
  return listenZalAskingFor("system/cpu?include=load", path);
}

std::unique_ptr<Agent> listenZalAskingFor(const std::string& status, const std::string& path) {
  return std::make_unique<ZalAgent>(status, path);
}

}  // namespace bench
