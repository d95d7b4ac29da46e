// The log file of the process: its directory, its name, its size limits and its rotation. Every function is for any
// thread and takes the one lock of this room; none is called with it held. Levels, line prefixes and the environment
// are the front door's, zal_log.cpp.
#pragma once

#include <zal/zal_export.h>

#include <cstdarg>

namespace zal::logfile {

/// True once a directory was set. It never becomes false again.
[[nodiscard]] bool isOn() noexcept;

/// Appends one formatted text and rotates a file that has grown too large. False when no file could be opened, or not
/// all of it was written, as on a full disk. `arguments` are untouched.
[[nodiscard]] bool append(const char* format, std::va_list arguments) noexcept ZAL_PRINTF_LIKE(1, 0);

/// Takes the name of the log file from the process's command name.
void nameAfterProcess() noexcept;

/// ZAL_Log_SetDirectory.
[[nodiscard]] int setDirectory(const char* directory) noexcept;

/// ZAL_Log_SetFileMaxBytes and ZAL_Log_SetFileMaxFiles.
void setMaxBytes(int bytes) noexcept;
void setMaxFiles(int count) noexcept;

/// ZAL_Log_FileClose.
void close(const char* name) noexcept;

}  // namespace zal::logfile
