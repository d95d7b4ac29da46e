#include "control.hpp"

#include <algorithm>
#include <utility>

#include "frames.hpp"

namespace zalctl {

std::string controlPath(const std::string& url) {
  const Address address{url};
  if (address.isPath()) return address.path() + ".ctl";
  std::string place = url.substr(url.rfind('/') + 1);
  std::replace(place.begin(), place.end(), ':', '-');
  return "/tmp/zalctl-" + place + ".ctl";
}

class Control::Peer : public Visitor, public std::enable_shared_from_this<Peer> {
 public:
  Peer(Control& control, std::shared_ptr<Stream> stream) : control_{control}, stream_{std::move(stream)} {}
  ~Peer() override { stream_->close(); }

  void start() {
    stream_->start({[this](std::string_view bytes) { onData(bytes); }, [this] { control_.drop(*this); }, {}});
  }

  void receive(const Record& record) override {
    // A peer that does not read what it asked for is cut off: the agent keeps no more for it than this.
    constexpr std::size_t kMaxWaiting = 16U << 20U;
    if (stream_->waiting() > kMaxWaiting) return control_.drop(*this);
    const Image image = encode(record);
    if (image.bytes) stream_->write({static_cast<const char*>(image.bytes.get()), image.size});
  }

 private:
  void onData(std::string_view bytes) {
    const auto keep = shared_from_this();  // until the last image is served
    const auto serve = [&](std::string_view image) {
      const auto records = decode(image.data(), static_cast<std::uint32_t>(image.size()));
      for (const Record& record : records.value_or(std::vector<Record>{})) control_.desk_.serve(record, keep);
    };
    if (frames_.feed(bytes, serve) != 0) control_.drop(*this);
  }

  Control& control_;
  std::shared_ptr<Stream> stream_;
  Frames frames_;
};

Control::Control(Agent& agent, const std::string& path)
    : listener_{*ZAL_EventLoop_GetLoop(agent.loop()), Address{"file://" + path},
                [this](std::shared_ptr<Stream> stream) { welcome(std::move(stream)); }, true},
      desk_{agent} {}

void Control::welcome(std::shared_ptr<Stream> stream) {
  constexpr std::size_t kMaxPeers = 64;
  if (peers_.size() == kMaxPeers) return;  // closes it
  peers_.push_back(std::make_shared<Peer>(*this, std::move(stream)));
  peers_.back()->start();
}

void Control::drop(const Peer& peer) {
  peers_.remove_if([&](const auto& other) { return other.get() == &peer; });
}

}  // namespace zalctl
