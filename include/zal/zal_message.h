/*
 * Messages: what a method handler receives and fills, what an application sends as an event, and the JSON envelope in
 * which both travel.
 *
 * A message owns its data, its payload and its error texts. Its name and its optional parameter are no part of the
 * envelope; they travel beside it. A null message is allowed everywhere: nothing happens, and a getter gives null.
 *
 * Threads: no locks. A message is used by one thread at a time.
 */
#ifndef ZAL_MESSAGE_H
#define ZAL_MESSAGE_H

#include <stdint.h>

#include <zal/zal_export.h>
#include <zal/zal_object.h>

ZAL_BEGIN_DECLS

/**
 * Makes an empty message, stamped with the current time.
 *
 * Ownership: the caller destroys it with ZAL_Message_Destroy, or gives it to a send function.
 * Errors:    memory ran out: null.
 */
ZAL_EXPORT ZAL_MessageHandle ZAL_Message_Create(void) ZAL_NOEXCEPT;

/** Sets the name of the method or event, cut to 255 characters; null is an empty name. */
ZAL_EXPORT void ZAL_Message_SetName(ZAL_MessageHandle message, const char* name) ZAL_NOEXCEPT;

/** Gives the name, borrowed from the message; never null but for a null message. */
ZAL_EXPORT const char* ZAL_Message_GetName(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/** Sets the optional parameter, cut to 15 characters; null is an empty text. */
ZAL_EXPORT void ZAL_Message_SetOptionalParam(ZAL_MessageHandle message, const char* text) ZAL_NOEXCEPT;

/** Gives the optional parameter, borrowed from the message; never null but for a null message. */
ZAL_EXPORT const char* ZAL_Message_GetOptionalParam(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/** Sets the version that is printed; 0 prints none. */
ZAL_EXPORT void ZAL_Message_SetVersion(ZAL_MessageHandle message, uint32_t version) ZAL_NOEXCEPT;

/**
 * Gives the path and query of the telemetry request that the message belongs to.
 *
 * Ownership: borrowed; valid during the dataset callback that received the message.
 *
 * @return the text, or null when there is none
 */
ZAL_EXPORT const char* ZAL_Message_GetFilter(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/**
 * Gives the data: of a request, the document that arrived.
 *
 * Ownership: stays the message's.
 *
 * @return the handle, or null when there is none
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Message_GetData(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/**
 * Replaces the data, and cuts it as the message's filter asks: with a "range" part, the array that its "include=" part
 * names (the data itself without one) is cut as by ZAL_Array_Prune. "range=10:5" keeps five elements from index 10 on,
 * "range=3:" all from index 3 on, "range=:5" the last five; the value may stand in double quotes. A bound that does not
 * fit an int32_t is taken as the nearest that does.
 *
 * Ownership: takes `data`, an object's or array's top handle, on every path; with a null message it is destroyed. The
 *            data that it replaces is destroyed. Giving the data that the message has already changes nothing.
 * Errors:    a range for no array, or one that the array does not have: a log line, the data stays set and whole.
 */
ZAL_EXPORT void ZAL_Message_SetData(ZAL_MessageHandle message, ZAL_ObjectHandle data) ZAL_NOEXCEPT;

/**
 * Makes the message report an error instead of data.
 *
 * Ownership: copies both texts. A null text, or one that no memory was left for, is printed as an empty string.
 * Units:     a code of 0 is no error: nothing of it is printed.
 */
ZAL_EXPORT void ZAL_Message_SetError(ZAL_MessageHandle message, int32_t code, const char* source,
                                     const char* text) ZAL_NOEXCEPT;

/**
 * Replaces the binary payload, which is printed instead of the data.
 *
 * Ownership: copies the bytes, which may be those of the present payload.
 * Units:     `size` in bytes.
 * Errors:    null bytes, a size of 0, memory ran out: the message has no payload.
 */
ZAL_EXPORT void ZAL_Message_SetPayload(ZAL_MessageHandle message, const void* bytes, uint32_t size) ZAL_NOEXCEPT;

/**
 * Decodes the payload of a received message, the base64 text in the member "data" of its data. It replaces a payload
 * that the message holds.
 *
 * Ownership: the bytes stay the message's, until its payload is replaced or it is destroyed.
 * Units:     `*size` in bytes.
 * Errors:    no data, no such text: null and 0, and a log line; a payload that is held stays. Text that holds no byte
 *            or is no base64, memory ran out: null and 0. A null `bytes` or `size` is left out.
 * Source:    RFC 4648.
 */
ZAL_EXPORT void ZAL_Message_GetPayload(ZAL_MessageHandle message, uint8_t** bytes, uint32_t* size) ZAL_NOEXCEPT;

/**
 * Prints the envelope as JSON without white space: "version" (unless 0), "timestamp" (seconds since the epoch) and
 * "data", which is the payload in base64, or else the data, or else missing. After ZAL_Message_SetError it holds
 * "error" alone, with "code", "source" and "message".
 *
 * A message is printed once: printing it again adds all members once more. "data" then shows the present data each
 * time.
 *
 * Ownership: the caller frees the text with free().
 * Errors:    memory ran out, null message: null.
 */
ZAL_EXPORT char* ZAL_Message_DumpOutput(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/** Releases a message with its data, its payload and its texts; null is allowed. */
ZAL_EXPORT void ZAL_Message_Destroy(ZAL_MessageHandle message) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
