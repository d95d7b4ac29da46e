/* The data model: handles over a JSON tree, typed members, member paths, arrays, and the filters of a request. */
#ifndef ZAL_OBJECT_H
#define ZAL_OBJECT_H

#include <cjson/cJSON.h>
#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Handle of a node of a JSON tree: an object, an array, or a view of a member. */
typedef struct ZAL_ObjectHandle_* ZAL_ObjectHandle;
/** A message (zal_message.h); named here because telemetry objects take their filter from one. */
typedef struct ZAL_MessageHandle_* ZAL_MessageHandle;

ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_CreateFromJson(const char* text, size_t length) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_CreateFromcJSON(cJSON* node) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_TelemetryObject_Create(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT cJSON* ZAL_Object_GetInternal(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_IsArray(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT char* ZAL_Object_DumpOutput(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Object_Destroy(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_CheckFilter(ZAL_ObjectHandle handle, const char* key, int strictness) ZAL_NOEXCEPT;

ZAL_EXPORT int ZAL_Object_AddString(ZAL_ObjectHandle handle, const char* key, const char* text) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddInt32(ZAL_ObjectHandle handle, const char* key, int32_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddUint32(ZAL_ObjectHandle handle, const char* key, uint32_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddInt64(ZAL_ObjectHandle handle, const char* key, int64_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddUint64(ZAL_ObjectHandle handle, const char* key, uint64_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddDouble(ZAL_ObjectHandle handle, const char* key, double value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddBool(ZAL_ObjectHandle handle, const char* key, int value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddNull(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_AddBlob(ZAL_ObjectHandle handle, const char* key, const void* bytes,
                                  uint32_t length) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Object_AddSecureBlob(ZAL_ObjectHandle handle, const char* key, const void* bytes,
                                         uint32_t length) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_AddObject(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_AddArray(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Object_AddJson(ZAL_ObjectHandle handle, const char* key, cJSON* node) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Object_AppendObject(ZAL_ObjectHandle parent, const char* key, ZAL_ObjectHandle child) ZAL_NOEXCEPT;

ZAL_EXPORT int ZAL_Object_GetUint64(ZAL_ObjectHandle handle, const char* path, uint64_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_GetInt64(ZAL_ObjectHandle handle, const char* path, int64_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_GetUint32(ZAL_ObjectHandle handle, const char* path, uint32_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_GetInt32(ZAL_ObjectHandle handle, const char* path, int32_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_GetDouble(ZAL_ObjectHandle handle, const char* path, double* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Object_GetBool(ZAL_ObjectHandle handle, const char* path, uint8_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_Object_GetString(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_GetObject(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_GetArray(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;

ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_TelemetryArray_Create(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT char* ZAL_Array_DumpOutput(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Array_Destroy(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetSubArray(ZAL_ObjectHandle handle, int32_t start, int32_t count) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_Prune(ZAL_ObjectHandle handle, int32_t start, int32_t count) ZAL_NOEXCEPT;

ZAL_EXPORT int ZAL_Array_AddString(ZAL_ObjectHandle handle, const char* text) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddNumber(ZAL_ObjectHandle handle, double value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddInt32(ZAL_ObjectHandle handle, int32_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddUint32(ZAL_ObjectHandle handle, uint32_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddInt64(ZAL_ObjectHandle handle, int64_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddUint64(ZAL_ObjectHandle handle, uint64_t value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddDouble(ZAL_ObjectHandle handle, double value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddBool(ZAL_ObjectHandle handle, int value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_AddJson(ZAL_ObjectHandle handle, cJSON* node) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Array_AddBlob(ZAL_ObjectHandle handle, const void* bytes, uint32_t length) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_AddObject(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_AddArray(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

ZAL_EXPORT int ZAL_Array_GetSize(ZAL_ObjectHandle handle, uint32_t* size) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_GetInt32(ZAL_ObjectHandle handle, int32_t index, int32_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_GetDouble(ZAL_ObjectHandle handle, int32_t index, double* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_GetBool(ZAL_ObjectHandle handle, int32_t index, uint8_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Array_GetString(ZAL_ObjectHandle handle, int32_t index, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetObject(ZAL_ObjectHandle handle, int32_t index) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetArray(ZAL_ObjectHandle handle, int32_t index) ZAL_NOEXCEPT;

ZAL_EXPORT int checkFilter(ZAL_ObjectHandle handle, const char* key, int strictness) ZAL_NOEXCEPT;
ZAL_EXPORT int filterTest(const char* filter, const char* identifier, int strictness) ZAL_NOEXCEPT;
ZAL_EXPORT int queryTestInclude(const char* include, const char* path, const char* identifier,
                                int strictness) ZAL_NOEXCEPT;
ZAL_EXPORT int queryTestExclude(const char* exclude, const char* path, const char* identifier) ZAL_NOEXCEPT;
ZAL_EXPORT void filterPruneTree(const char* filter, cJSON* top, cJSON** node, cJSON* parent) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
