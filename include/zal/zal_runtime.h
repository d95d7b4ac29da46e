/*
 * Runtime foundation: mutexes, latched conditions, time, bounded strings, files, host helpers and base64.
 *
 * Every function may be called from any thread. Texts, handles and outputs are not null unless a comment says
 * otherwise.
 */
#ifndef ZAL_RUNTIME_H
#define ZAL_RUNTIME_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <uv.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A mutex that remembers its owning thread; not recursive. */
typedef struct ZAL_MutexHandle_* ZAL_MutexHandle;
/** A latched signal for one waiter at a time: one signal is kept until one wait consumes it. */
typedef struct ZAL_CondHandle_* ZAL_CondHandle;

/**
 * Makes a mutex.
 *
 * Ownership: the caller's, until ZAL_Mutex_Destroy.
 *
 * @return the mutex, null when memory runs out (logged)
 */
ZAL_EXPORT ZAL_MutexHandle ZAL_Mutex_Create(void) ZAL_NOEXCEPT;

/** Waits until the mutex is free and takes it. A thread that already holds it waits for ever. */
ZAL_EXPORT void ZAL_Mutex_Lock(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;

/** Gives the mutex back; for the thread that holds it. */
ZAL_EXPORT void ZAL_Mutex_Unlock(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;

/** Ends a mutex that no thread holds or waits for. Null does nothing. */
ZAL_EXPORT void ZAL_Mutex_Destroy(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;

/**
 * Makes a condition without a pending signal.
 *
 * Ownership: the caller's, until ZAL_Cond_Destroy.
 *
 * @return the condition, null when memory runs out (logged)
 */
ZAL_EXPORT ZAL_CondHandle ZAL_Cond_Create(void) ZAL_NOEXCEPT;

/** Wakes one waiter, or stays pending for the next wait. Signals do not count: two before one wait are one. */
ZAL_EXPORT void ZAL_Cond_Signal(ZAL_CondHandle cond) ZAL_NOEXCEPT;

/**
 * Waits for a signal and consumes it. A pending one is consumed at once.
 *
 * Units: `timeoutMs` in milliseconds; 0 only looks. More than 10^12 (some 31 years) count as 10^12.
 *
 * @return 0 a signal was consumed, -110 (UV_ETIMEDOUT) none came in time
 */
ZAL_EXPORT int ZAL_Cond_Wait(ZAL_CondHandle cond, uint64_t timeoutMs) ZAL_NOEXCEPT;

/** Ends a condition that no thread waits for. Null does nothing. */
ZAL_EXPORT void ZAL_Cond_Destroy(ZAL_CondHandle cond) ZAL_NOEXCEPT;

/**
 * Reads the wall clock.
 *
 * Units:  seconds since the epoch, with microseconds.
 * Errors: logged when the clock cannot be read.
 *
 * @return the time, 0 on failure
 */
ZAL_EXPORT double ZAL_GetTimestamp(void) ZAL_NOEXCEPT;

/** ZAL_GetTimestamp in whole seconds; what is beyond the second is dropped. */
ZAL_EXPORT int64_t ZAL_GetUnsignedTimestamp(void) ZAL_NOEXCEPT;

/** @return `time` in seconds, with microseconds */
ZAL_EXPORT double timevalToDouble(struct timeval time) ZAL_NOEXCEPT;

/**
 * Gives the local date and time as in 20240131-235959, for file names.
 *
 * Ownership: the text stays the library's; one buffer for all callers.
 * Threads:   calls do not disturb each other, but each rewrites the buffer: copy the text before another thread calls.
 *
 * @return the text, empty when the local time cannot be told; never null
 */
ZAL_EXPORT const char* ZAL_GetDateString(void) ZAL_NOEXCEPT;

/** Blocks the calling thread for some milliseconds. */
ZAL_EXPORT void ZAL_Sleep(unsigned int milliseconds) ZAL_NOEXCEPT;

/**
 * Fills in the names and versions of the system.
 *
 * Source: uv_os_uname, uname(2).
 *
 * @return 0, or a negative libuv error code (UV_EINVAL for null)
 */
ZAL_EXPORT int ZAL_Uname(uv_utsname_t* name) ZAL_NOEXCEPT;

/**
 * Copies at most `size` - 1 characters and terminates them; with a size of 0 writes nothing.
 *
 * Source: the contract of strlcpy(3) on BSD.
 *
 * @return the length of `source`; `size` or more means that the copy was cut short
 */
ZAL_EXPORT size_t zalstrlcpy(char* destination, const char* source, size_t size) ZAL_NOEXCEPT;

/**
 * Appends as much of `source` as fits into the `size` bytes of `destination`, and terminates it. A destination without
 * a terminator in its `size` bytes is left alone.
 *
 * Source: the contract of strlcat(3) on BSD.
 *
 * @return the length that the whole text would have; `size` or more means that it was cut short
 */
ZAL_EXPORT size_t zalstrlcat(char* destination, const char* source, size_t size) ZAL_NOEXCEPT;

/**
 * Reads a whole file. With `count` null the bytes get a terminator, else none.
 *
 * Ownership: the buffer is the caller's, who frees it with free().
 * Errors:    null for a null path, for a file that cannot be opened, is empty (as those of proc(5) seem to be) or does
 * not fit memory. A file that ends early is logged and what came is kept; one that cannot be read is logged.
 *            `*count` is stored on success only.
 *
 * @return the bytes, or null
 */
ZAL_EXPORT void* ZAL_GetFileContentBinary(const char* path, size_t* count) ZAL_NOEXCEPT;

/** ZAL_GetFileContentBinary for text: the bytes of the file and a terminator. */
ZAL_EXPORT char* ZAL_GetFileContent(const char* path) ZAL_NOEXCEPT;

/**
 * Reads a file whose size is not known beforehand, as those of proc(5).
 *
 * Ownership: the buffer is the caller's, who frees it with free().
 * Units:     at most `size` - 1 bytes are read, into `size` + 1 zeroed ones; the text is always terminated.
 * Errors:    null for a null path, for a file that cannot be opened and when memory runs out. When nothing could be
 *            read, that is logged and the text is empty.
 *
 * @return the text, or null
 */
ZAL_EXPORT char* ZAL_GetFileContentProc(const char* path, size_t size) ZAL_NOEXCEPT;

/**
 * Tells whether a path, links followed, is a regular file.
 *
 * Errors: a path that does not exist or cannot be looked at is logged; null is not.
 *
 * @return 1 a regular file, else 0
 */
ZAL_EXPORT int ZAL_IsRegularFile(const char* path) ZAL_NOEXCEPT;

/**
 * Gives the size of a file.
 *
 * Units:  bytes, the low 32 bits of them.
 * Errors: as ZAL_IsRegularFile.
 *
 * @return the size, 0 on failure
 */
ZAL_EXPORT uint32_t ZAL_GetFileSize(const char* path) ZAL_NOEXCEPT;

/**
 * Gives the directory for temporary files: "TMPDIR" when it names a directory, else "/tmp", else "/". Decided once, on
 * the first call; trailing "/" are removed. In a program with more rights than its caller (secure_getenv(3)) "TMPDIR"
 * does not count.
 *
 * Ownership: the text stays the library's and does not change.
 *
 * @return the directory, never null
 */
ZAL_EXPORT const char* ZAL_GetTempDir(void) ZAL_NOEXCEPT;

/** Writes "<temporary directory>/<name>", cut to `size` bytes with the terminator. A null destination does nothing. */
ZAL_EXPORT void ZAL_PrependTempDir(char* destination, size_t size, const char* name) ZAL_NOEXCEPT;

/** Removes one trailing newline, if there is one. Null does nothing. */
ZAL_EXPORT void ZAL_TrimLine(char* line) ZAL_NOEXCEPT;

/** @return 1 for "include", "exclude" and "range", else 0; null gives 0 */
ZAL_EXPORT int ZAL_CheckForSpecialTag(const char* tag) ZAL_NOEXCEPT;

/** @return the next multiple of 512 MiB above `bytes`; a multiple itself grows by 512 MiB, and the topmost one wraps to
 * 0 */
ZAL_EXPORT uint64_t ZAL_RoundUp512(uint64_t bytes) ZAL_NOEXCEPT;

/**
 * Writes the IPv4 address of an interface, as in "127.0.0.1".
 *
 * Errors: the buffer is left alone when the name is null, empty or unknown, when the interface has no address, and when
 *         the text with its terminator does not fit. That is how a caller tells.
 * Source: netdevice(7), SIOCGIFADDR.
 *
 * @return 0 in every case
 */
ZAL_EXPORT int ZAL_GetIpFromIfName(const char* name, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Fills a buffer with random bytes. A null buffer or a length below 1 does nothing.
 *
 * Units:  `length` in bytes; a read that a signal cut short is continued.
 * Errors: not reported; the buffer then keeps what it held.
 * Source: random(4), /dev/urandom.
 */
ZAL_EXPORT void ZAL_ReadRandom(void* buffer, int length) ZAL_NOEXCEPT;

/**
 * Writes a number to "<directory>/<attribute>".
 *
 * Errors: a path of 256 bytes or more is not opened. What the kernel says to the number is not reported.
 *
 * @return 0, -1 when the attribute cannot be opened
 */
ZAL_EXPORT int sysfs_set(const char* directory, const char* attribute, int value) ZAL_NOEXCEPT;

/**
 * Reads one number from "<directory>/<attribute>".
 *
 * Errors: `*value` is 0 when the attribute cannot be opened or does not begin with a number. A number beyond 32 bits
 *         counts as the largest. A path of 256 bytes or more is not opened.
 *
 * @return 0, -1 when the attribute cannot be opened
 */
ZAL_EXPORT int sysfs_get(const char* directory, const char* attribute, uint32_t* value) ZAL_NOEXCEPT;

/**
 * Writes bytes as base64: 4 characters for every 3 bytes begun, "=" as padding, no line breaks and no terminator.
 *
 * Ownership: input and output are the caller's, do not overlap, and may be null when their length is 0.
 * Units:     `inputLength` in bytes, `capacity` in characters.
 * Errors:    the capacity is too small: the groups that fit are written. The result would exceed 2147483647: nothing
 *            is written.
 * Source:    RFC 4648, section 4.
 *
 * @return the characters written, -1 on failure
 */
ZAL_EXPORT int32_t zbase64_encode(const void* input, uint32_t inputLength, char* output,
                                  uint32_t capacity) ZAL_NOEXCEPT;

/**
 * Reads base64 back, group by group of 4 characters, until the text, the capacity or 2147483647 bytes end, or a padded
 * group was read. What follows is ignored.
 *
 * Ownership: input and output are the caller's, do not overlap, and may be null when their length is 0.
 * Units:     `inputLength` in characters, `capacity` in bytes.
 * Errors:    a character outside the alphabet (blanks and line breaks too) or padding in the first half of a group: the
 *            groups before it are written. Of a last group only the bytes that it stands for are written.
 * Source:    RFC 4648, section 4.
 *
 * @return the bytes written, 0 for less than 4 characters or a capacity below 3, -1 on failure
 */
ZAL_EXPORT int32_t zbase64_decode(const char* input, uint32_t inputLength, void* output,
                                  uint32_t capacity) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
