// Records as the client writes them: straight from where their texts lie, without a list in between. Any thread.
#pragma once

#include <zal/zal_ipccommand.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "support/memory.hpp"

namespace zal {

/// One record of an image; it borrows its texts. Those but the payload are cut to what a record's fields hold.
struct CommandView {
  std::int32_t code;
  std::string_view service{};
  std::string_view name{};
  std::string_view optionalParam{};
  std::string_view payload{};
  std::int32_t requestId = 0;
};

struct Image {
  CPtr<void> bytes;
  std::uint32_t size = 0;
};

/// The record as it is written.
CommandView viewOf(const ZAL_IpcCommand& command) noexcept;

/// The image in which the records stand in this order. Empty when it would be too large; when memory runs out the
/// serialization engine ends the process.
Image encode(std::span<const CommandView> commands) noexcept;

}  // namespace zal
