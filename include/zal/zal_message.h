/* Messages: what a method handler receives and fills, what an application sends as an event, and their envelope. */
#ifndef ZAL_MESSAGE_H
#define ZAL_MESSAGE_H

#include <stdint.h>

#include <zal/zal_export.h>
#include <zal/zal_object.h>

ZAL_BEGIN_DECLS

ZAL_EXPORT ZAL_MessageHandle ZAL_Message_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetName(ZAL_MessageHandle message, const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_Message_GetName(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetOptionalParam(ZAL_MessageHandle message, const char* text) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_Message_GetOptionalParam(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetVersion(ZAL_MessageHandle message, uint32_t version) ZAL_NOEXCEPT;
ZAL_EXPORT const char* ZAL_Message_GetFilter(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle ZAL_Message_GetData(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetData(ZAL_MessageHandle message, ZAL_ObjectHandle data) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetError(ZAL_MessageHandle message, int32_t code, const char* source,
                                     const char* text) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_SetPayload(ZAL_MessageHandle message, const void* bytes, uint32_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_GetPayload(ZAL_MessageHandle message, uint8_t** bytes, uint32_t* size) ZAL_NOEXCEPT;
ZAL_EXPORT char* ZAL_Message_DumpOutput(ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Message_Destroy(ZAL_MessageHandle message) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
