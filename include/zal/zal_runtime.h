/* Runtime foundation: mutexes, latched conditions, time, bounded strings, files, host helpers and base64. */
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
/** A latched signal: one signal is kept until one wait consumes it. */
typedef struct ZAL_CondHandle_* ZAL_CondHandle;

ZAL_EXPORT ZAL_MutexHandle ZAL_Mutex_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Mutex_Lock(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Mutex_Unlock(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Mutex_Destroy(ZAL_MutexHandle mutex) ZAL_NOEXCEPT;

ZAL_EXPORT ZAL_CondHandle ZAL_Cond_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Cond_Signal(ZAL_CondHandle cond) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Cond_Wait(ZAL_CondHandle cond, uint64_t timeoutMs) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Cond_Destroy(ZAL_CondHandle cond) ZAL_NOEXCEPT;

ZAL_EXPORT double ZAL_GetTimestamp(void) ZAL_NOEXCEPT;
ZAL_EXPORT int64_t ZAL_GetUnsignedTimestamp(void) ZAL_NOEXCEPT;
ZAL_EXPORT double timevalToDouble(struct timeval time) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_GetDateString(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Sleep(unsigned int milliseconds) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Uname(uv_utsname_t* name) ZAL_NOEXCEPT;

ZAL_EXPORT size_t zalstrlcpy(char* destination, const char* source, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT size_t zalstrlcat(char* destination, const char* source, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void* ZAL_GetFileContentBinary(const char* path, size_t* count) ZAL_NOEXCEPT;
ZAL_EXPORT char* ZAL_GetFileContent(const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT char* ZAL_GetFileContentProc(const char* path, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_IsRegularFile(const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT uint32_t ZAL_GetFileSize(const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_GetTempDir(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_PrependTempDir(char* destination, size_t size, const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_TrimLine(char* line) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_CheckForSpecialTag(const char* tag) ZAL_NOEXCEPT;
ZAL_EXPORT uint64_t ZAL_RoundUp512(uint64_t bytes) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_GetIpFromIfName(const char* name, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_ReadRandom(void* buffer, int length) ZAL_NOEXCEPT;
ZAL_EXPORT int sysfs_set(const char* directory, const char* attribute, int value) ZAL_NOEXCEPT;
ZAL_EXPORT int sysfs_get(const char* directory, const char* attribute, uint32_t* value) ZAL_NOEXCEPT;

ZAL_EXPORT int32_t zbase64_encode(const void* input, uint32_t inputLength, char* output,
                                  uint32_t capacity) ZAL_NOEXCEPT;
ZAL_EXPORT int32_t zbase64_decode(const char* input, uint32_t inputLength, void* output,
                                  uint32_t capacity) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
