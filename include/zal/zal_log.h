/* Logging: levels, lines to standard error or to rotating log files, and the environment that configures them. */
#ifndef ZAL_LOG_H
#define ZAL_LOG_H

#include <stdarg.h>
#include <stdio.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Levels of a log line; a higher one is more severe. */
enum {
  ZAL_LOG_VERBOSE = 0,
  ZAL_LOG_TRACE = 1,
  ZAL_LOG_DEBUG = 2,
  ZAL_LOG_INFO = 3, /**< the threshold of a new process */
  ZAL_LOG_WARNING = 4,
  ZAL_LOG_ERROR = 5
};

/** Names of the environment variables that ZAL_Log_CheckEnv reads: level, directory, maximum bytes, maximum files. */
extern ZAL_EXPORT const char* debugEnvNames[4];

ZAL_EXPORT int Log_PrintMessage(int level, const char* file, int line, const char* function, const char* format,
                                ...) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(5, 6);
ZAL_EXPORT int zal_fprintf(FILE* stream, const char* format, ...) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(2, 3);
ZAL_EXPORT int zal_vfprintf(FILE* stream, const char* format, va_list arguments) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(2, 0);
ZAL_EXPORT void Log_HexDump(const void* data, int length) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Log_SetLevel(int level) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Log_GetLevel(void) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Log_SetDirectory(const char* directory) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Log_SetFileMaxBytes(int bytes) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Log_SetFileMaxFiles(int count) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Log_FileClose(const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Log_CheckEnv(void) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
