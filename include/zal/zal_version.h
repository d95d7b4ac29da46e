/* The version: of these headers, which a program is compiled with, and of the library that it runs with. */
#ifndef ZAL_VERSION_H
#define ZAL_VERSION_H

#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Rises when programs have to be compiled anew, which the library's file name then says as well. */
#define ZAL_VERSION_MAJOR 1
/** Rises when something is added: programs need at least the one that they were compiled with. */
#define ZAL_VERSION_MINOR 1
/** Rises when something is mended. */
#define ZAL_VERSION_PATCH 0

/** A version as one number, for comparisons. */
#define ZAL_VERSION_NUMBER(major, minor, patch) (((major) << 16) | ((minor) << 8) | (patch))
/** The version of the headers, as one number. */
#define ZAL_VERSION ZAL_VERSION_NUMBER(ZAL_VERSION_MAJOR, ZAL_VERSION_MINOR, ZAL_VERSION_PATCH)

/** Makes a text of numbers alone; ZAL_VERSION_TEXT is the one to use. */
#define ZAL_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
/** A version as text; its numbers may be macros. */
#define ZAL_VERSION_TEXT(major, minor, patch) ZAL_VERSION_TEXT_(major, minor, patch)
/** The version of the headers as text, such as "1.1.0". */
#define ZAL_VERSION_STRING ZAL_VERSION_TEXT(ZAL_VERSION_MAJOR, ZAL_VERSION_MINOR, ZAL_VERSION_PATCH)

/**
 * Tells the version of the library that runs, which may be newer than the headers.
 *
 * Threads: any thread.
 *
 * @return the version as ZAL_VERSION_NUMBER makes it: the major version above bit 16, the minor one above bit 8
 */
ZAL_EXPORT uint32_t ZAL_GetVersion(void) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
