// What the request dispatcher needs of a message beyond the exported functions.
#pragma once

#include <zal/zal_message.h>

namespace zal {

/// Sets the request's path and query, which govern ZAL_Message_SetData and the telemetry objects made for the message.
/// `filter` is borrowed: it outlives the message and what was made for it. Null removes it; a null message is ignored.
void setMessageFilter(ZAL_MessageHandle message, const char* filter) noexcept;

}  // namespace zal
