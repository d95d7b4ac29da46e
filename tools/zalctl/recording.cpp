#include "recording.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "frames.hpp"
#include "wire.hpp"

namespace zalctl {
namespace {

constexpr const char* kFormat = "IuuB";  // microseconds, connection, way, bytes

struct EngineFree {
  void operator()(void* block) const noexcept { tpl_hook.free_fn(block); }
};
struct MapFree {
  void operator()(tpl_map_node* map) const noexcept { tpl_free(map); }
};

/// An entry as the engine sees it.
struct Fields {
  std::int64_t time = 0;
  std::uint32_t connection = 0;
  std::uint32_t way = 0;
  tpl_blob bytes{};

  [[nodiscard]] std::unique_ptr<tpl_map_node, MapFree> map() {
    return std::unique_ptr<tpl_map_node, MapFree>{tpl_map(kFormat, &time, &connection, &way, &bytes)};
  }
};

std::optional<Entry> unpack(std::string_view image) {
  Fields fields;
  const auto map = fields.map();
  if (!map || tpl_load(map.get(), TPL_VIA_MEM, image.data(), image.size()) != 0) return std::nullopt;
  if (tpl_unpack(map.get(), 0) != 1) return std::nullopt;
  const std::unique_ptr<void, EngineFree> bytes{fields.bytes.address};
  if (fields.way < static_cast<std::uint32_t>(Way::kToAgent) || fields.way > static_cast<std::uint32_t>(Way::kClosed)) {
    return std::nullopt;
  }
  Entry entry{std::chrono::microseconds{fields.time}, fields.connection, static_cast<Way>(fields.way), {}};
  if (bytes) entry.bytes.assign(static_cast<const char*>(bytes.get()), fields.bytes.length);
  return entry;
}

/// An image of a capture: which way it went is told by what it says.
Entry captured(std::string_view image) {
  const auto records = decode(image.data(), static_cast<std::uint32_t>(image.size()));
  const bool isToClient = records && !records->empty() && wayOf(records->front().code) == Way::kToClient;
  return {{}, 1, isToClient ? Way::kToClient : Way::kToAgent, std::string{image}};
}

bool isEntry(std::string_view image) {
  const std::unique_ptr<char, EngineFree> format{tpl_peek(TPL_VIA_MEM, image.data(), image.size())};
  return format && std::string_view{format.get()} == kFormat;
}

}  // namespace

Way wayOf(std::int32_t code) {
  switch (code) {
    case ZAL_IPC_CMD_REQUEST:
    case ZAL_IPC_CMD_NOTIFY:
    case ZAL_IPC_CMD_CONFIG:
    case ZAL_IPC_CMD_GATEWAY_RESPONSE:
      return Way::kToClient;
    default:
      return Way::kToAgent;
  }
}

bool readEntries(std::string_view bytes, const std::function<void(const Entry&)>& take) {
  bool isClean = true;
  const auto takeGarbage = [&](std::string_view garbage) {
    isClean = false;
    take({{}, 1, Way::kToAgent, std::string{garbage}});
  };
  const auto takeImage = [&](std::string_view image) {
    if (!isEntry(image)) return take(captured(image));
    const auto entry = unpack(image);
    if (entry) return take(*entry);
    takeGarbage(image);
  };
  while (!bytes.empty()) {
    std::size_t taken = 0;
    Frames frames{bytes.size()};
    const std::size_t dropped = frames.feed(bytes, [&](std::string_view image) {
      taken += image.size();
      takeImage(image);
    });
    bytes.remove_prefix(taken);
    if (bytes.empty()) break;
    // What is left is no image, or one that is cut off. Where it is none, the next one is looked for.
    const std::size_t next = dropped == 0 ? bytes.npos : bytes.find(std::string_view{"tpl"}, 1);
    takeGarbage(bytes.substr(0, next));
    bytes.remove_prefix(std::min(next, bytes.size()));
  }
  return isClean;
}

RecordingWriter::RecordingWriter(const std::string& path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor >= 0) file_.reset(fdopen(descriptor, "wb"));
  if (file_) return;
  const std::string why = std::generic_category().message(errno);
  if (descriptor >= 0) close(descriptor);
  throw std::runtime_error{"cannot write " + path + ": " + why};
}

bool RecordingWriter::write(const Entry& entry) {
  Fields fields{entry.time.count(),
                entry.connection,
                static_cast<std::uint32_t>(entry.way),
                {const_cast<char*>(entry.bytes.data()), static_cast<std::uint32_t>(entry.bytes.size())}};
  const auto map = fields.map();
  void* image = nullptr;
  std::size_t size = 0;
  if (!map || tpl_pack(map.get(), 0) != 0 || tpl_dump(map.get(), TPL_VIA_MEM, &image, &size) != 0) return false;
  const std::unique_ptr<void, EngineFree> owned{image};
  return std::fwrite(image, 1, size, file_.get()) == size && std::fflush(file_.get()) == 0;
}

}  // namespace zalctl
