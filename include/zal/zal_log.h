/*
 * Logging: levels, lines to standard error or to rotating log files, and the environment that configures them.
 *
 * Every function may be called from any thread, and writing a line leaves errno alone. A line is written in two pieces
 * (prefix and message), so lines of concurrent callers may interleave between the pieces. Log files belong to the
 * process: one lock guards their name, writing and rotation, and it is not held while a text goes to a stream.
 *
 * The environment variables named by debugEnvNames are read when the first text passes zal_fprintf or zal_vfprintf,
 * and override what was set before. The first Log_PrintMessage is filtered by the level in force before that, and a
 * thread that logs while another one reads them goes on with the settings of that moment.
 */
#ifndef ZAL_LOG_H
#define ZAL_LOG_H

#include <stdarg.h>
#include <stdio.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Levels of a log line; a higher one is more severe. */
enum {
  ZAL_LOG_VERBOSE = 0, /**< no marker; not used by the library itself */
  ZAL_LOG_TRACE = 1,   /**< marker "..."; changes of state */
  ZAL_LOG_DEBUG = 2,   /**< marker "..."; progress */
  ZAL_LOG_INFO = 3,    /**< marker "---"; notices, and the threshold of a new process */
  ZAL_LOG_WARNING = 4, /**< marker "***", with file, line and function */
  ZAL_LOG_ERROR = 5    /**< marker "###", with file, line and function */
};

/**
 * Names of the environment variables that ZAL_Log_CheckEnv reads: level, directory, maximum bytes, maximum files.
 *
 * A program may put its own names here before its first line; a null entry is skipped. Not to be written while another
 * thread logs its first line.
 */
extern ZAL_EXPORT const char* debugEnvNames[4];

/**
 * Writes one line: "<marker> <stamp>: " and the message, from ZAL_LOG_WARNING on
 * "<marker> <stamp> <file>(<line>):<function>(): " and the message. The message brings its own newline.
 *
 * A level above ZAL_LOG_ERROR or below the threshold writes nothing. A level below 0 that passes the threshold looks
 * like ZAL_LOG_VERBOSE.
 *
 * Units:  the stamp is the monotonic clock, hours:minutes:seconds.milliseconds, empty when it cannot be read.
 * Errors: a log file that cannot be opened or written: the text goes to standard error.
 *
 * @return without meaning
 */
ZAL_EXPORT int Log_PrintMessage(int level, const char* file, int line, const char* function, const char* format,
                                ...) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(5, 6);

/**
 * Writes a formatted text to the log file once a log directory is set, else to `stream`, whatever the level.
 *
 * The text goes to the stream's descriptor, past what the stream has buffered, and then the stream is flushed. A stream
 * without a descriptor gets the text through its buffer. A null stream drops the text unless a log file takes it; a
 * null format writes nothing.
 *
 * Errors: a log file that cannot be opened: the text goes to the stream.
 *
 * @return 0
 */
ZAL_EXPORT int zal_fprintf(FILE* stream, const char* format, ...) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(2, 3);

/** zal_fprintf with its arguments in a va_list. */
ZAL_EXPORT int zal_vfprintf(FILE* stream, const char* format, va_list arguments) ZAL_NOEXCEPT ZAL_PRINTF_LIKE(2, 0);

/**
 * Dumps bytes to where log lines go, 16 to a line, as hexadecimal digits and as characters, whatever the level.
 *
 * Units:  `length` in bytes; nothing happens when it is 0 or less, or when `data` is null.
 */
ZAL_EXPORT void Log_HexDump(const void* data, int length) ZAL_NOEXCEPT;

/** Sets the threshold. Any value is accepted: above ZAL_LOG_ERROR nothing passes, at 0 or below every level from there
 * on. */
ZAL_EXPORT void ZAL_Log_SetLevel(int level) ZAL_NOEXCEPT;

/** @return the threshold */
ZAL_EXPORT int ZAL_Log_GetLevel(void) ZAL_NOEXCEPT;

/**
 * Sends all further lines to "<directory>/<process name>.log". Logging to a file stays on for the life of the process;
 * a further call moves the current file to the new directory, replacing a file of that name.
 *
 * A directory of more than 62 characters is ignored. One trailing "/" is removed, so that "/" itself cannot be opened.
 * The log file must be a regular file: where a symbolic link or a FIFO has its name, text goes to the stream instead.
 * The process name is that of proc(5)'s comm, or the program's file name when comm cannot be read.
 *
 * Errors: a directory that cannot be opened is reported on standard output; nothing changes.
 *
 * @return 0 set or ignored, -1 null, empty or not to be opened
 */
ZAL_EXPORT int ZAL_Log_SetDirectory(const char* directory) ZAL_NOEXCEPT;

/**
 * Sets the size above which a log file is rotated (1000000 at first). Values below 1 and 2147483647 are ignored.
 *
 * Units:  bytes.
 * Errors: a warning on standard error when bytes times files exceed a gigabyte; the value holds all the same.
 */
ZAL_EXPORT void ZAL_Log_SetFileMaxBytes(int bytes) ZAL_NOEXCEPT;

/** Sets how many rotated files are kept (2 at first). Values below 1 are ignored; warns as ZAL_Log_SetFileMaxBytes
 * does. */
ZAL_EXPORT void ZAL_Log_SetFileMaxFiles(int count) ZAL_NOEXCEPT;

/**
 * With null: rotates the current log file if it is larger than the maximum. With a name: rotates
 * "<directory>/<name>.log" unless it is empty, and lines go on to the process's own file.
 *
 * A rotated file gets the local time as suffix, ".20240131-23:59:59"; a second rotation in the same second replaces the
 * first one's file. When the maximum of files exist whose names begin with the log file's and a dot, the first of them
 * by name is removed. Directories, and what has another ".log" in the rest of its name, are not counted: those are the
 * logs of others.
 *
 * Errors: ignored; a file that cannot be renamed grows on.
 */
ZAL_EXPORT void ZAL_Log_FileClose(const char* name) ZAL_NOEXCEPT;

/**
 * Reads the process name and the variables of debugEnvNames, and rotates a log file that an earlier run left too large.
 *
 * Numbers beyond an int count as the nearest int, and a text without a number as 0. Variables that are not set change
 * nothing, and in a program that runs with more rights than its caller (secure_getenv(3)) none is read.
 *
 * Threads: any, as long as none changes the environment meanwhile.
 */
ZAL_EXPORT void ZAL_Log_CheckEnv(void) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
