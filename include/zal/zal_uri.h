/*
 * URIs, in two ways: a handle over uriparser, which is strict and decodes nothing, and a self-contained parser that
 * percent-decodes a text and splits it into fields of fixed size, which accepts everything.
 *
 * All functions may be called from any thread; a handle or a record belongs to one thread at a time. None of them
 * logs. A buffer's size counts its terminator, and a null buffer or a size of 0 stores nothing. Where a comment says
 * "clears", all `size` bytes are set to 0 before anything else, so the buffer may not overlap any text that is read.
 */
#ifndef ZAL_URI_H
#define ZAL_URI_H

#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A parsed URI. It points into the text that was parsed, which must stay alive and unchanged until it is destroyed. */
typedef struct ZAL_UriParserHandle_* ZAL_UriParserHandle;

/** Result codes of ZAL_UriParser_GetPortNumber. */
enum { ZAL_URI_OK = 0, ZAL_URI_NOT_AVAILABLE = 11 };

/** What vorn_uri_parse found; every text is terminated, and empty when the URI has no such part. */
typedef struct vorn_uri_parts {
  char scheme[16];     /**< what stands before "://", or "file" */
  char host[1024];     /**< the authority, without ":" and the port */
  int32_t port;        /**< the number after the host's first ":", else the scheme's TCP port, else 0 */
  char path[1024];     /**< up to "?" or "#", with its leading "/" */
  char query[1024];    /**< what follows the "?", up to "#" */
  char fragment[1024]; /**< what follows the "#" */
} vorn_uri_parts;
ZAL_FROZEN_SIZE(vorn_uri_parts, 4116, 4116);

/**
 * Parses a URI or a relative reference, such as a request's name.
 *
 * Ownership: the caller destroys the handle with ZAL_UriParser_Destroy; the text stays the caller's and outlives it.
 * Errors:    a null text, a text that is no URI, memory ran out: null.
 * Source:    RFC 3986.
 *
 * @return the handle, or null
 */
ZAL_EXPORT ZAL_UriParserHandle ZAL_UriParser_Create(const char* uri) ZAL_NOEXCEPT;

/**
 * Copies the host, without brackets and port, cut to size - 1 characters.
 *
 * Errors: null handle or no host: the buffer is left as it was. An empty host, as in "file:///x", gives an empty text.
 */
ZAL_EXPORT void ZAL_UriParser_GetHost(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Gives the port number.
 *
 * Units:  the number as it is written, 0 for an empty one ("tcp://host:"); more than 2147483647 gives 2147483647. That
 *         it is a TCP port is not checked.
 * Errors: null handle or no port: `*port` is 0.
 *
 * @return ZAL_URI_OK, or ZAL_URI_NOT_AVAILABLE without a port, with a null handle or a null `port`
 */
ZAL_EXPORT int ZAL_UriParser_GetPortNumber(ZAL_UriParserHandle handle, int32_t* port) ZAL_NOEXCEPT;

/**
 * Clears the buffer and copies the first path segment: of a request's name, the method.
 *
 * Errors: null handle, no path, or a segment of size - 1 characters or more: the buffer stays empty.
 */
ZAL_EXPORT void ZAL_UriParser_GetRootName(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Clears the buffer and copies the path without its leading "/": "file:///tmp/a/" gives "tmp/a/".
 *
 * Errors: null handle or no path: the buffer stays empty. A longer path is cut to size - 1 characters.
 */
ZAL_EXPORT void ZAL_UriParser_GetPath(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Clears the buffer and copies what follows the first path segment and its "/", to the end of the URI: of a request's
 * name, the filter. "svc/a/b?x=1#f" gives "a/b?x=1#f", "svc//x" gives "/x", "svc/?x=1" and "svc?x=1" give "?x=1".
 *
 * Errors: null handle, no path, or neither a second segment nor a query: the buffer stays empty. A longer text is cut
 *         to size - 2 characters.
 */
ZAL_EXPORT void ZAL_UriParser_GetPathQuery(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Clears the buffer and copies the value of a tag in the query. The first occurrence counts, wherever it stands, also
 * inside a longer key or a value; the one character after it is skipped, and the value ends at "&" or with the query.
 *
 * Errors: null handle, null tag, no query or no occurrence: the buffer stays empty. A value that would begin behind the
 *         query (the tag ends it, or stands in the fragment) is empty. A longer value is cut to size - 1 characters.
 *
 * @return 1 the tag occurs, 0 it does not
 */
ZAL_EXPORT int ZAL_UriParser_FindTagValue(ZAL_UriParserHandle handle, const char* tag, char* buffer,
                                          size_t size) ZAL_NOEXCEPT;

/** Releases a handle; null is allowed. The parsed text stays the caller's. */
ZAL_EXPORT void ZAL_UriParser_Destroy(ZAL_UriParserHandle handle) ZAL_NOEXCEPT;

/**
 * Clears the output and writes the source with each "%" and the two characters after it turned into one byte. Only
 * those two are read, as a hexadecimal number that ends before the first other character (a blank and a sign among
 * them): "%4z" gives the byte 4, "%z4", "%-1" and "%00" are dropped. A "%" with fewer than two characters after it
 * stays as it is. The time is linear in what fits the output.
 *
 * Errors: what does not fit size - 1 characters is dropped; a null source gives an empty text.
 *
 * @return 0
 */
ZAL_EXPORT int vorn_uri_decode(const char* source, char* output, size_t size) ZAL_NOEXCEPT;

/**
 * Decodes a URI, turns each "\" into "/", and splits it. Every field is written.
 *
 * The "?" decides before the "#": in "a#b?c" the path is "a#b", the fragment "b?c", the query "c". A "file:" URI has no
 * host; without "//" it has only its scheme. The port is read as strtol does, and saturates at the limits of int32_t.
 *
 * Threads: any; reads the services database when a host follows a scheme and has no port of its own.
 * Errors:  every text is a URI; a null one is empty. The decoded text is cut to 2046 characters, each field to what it
 *          holds. A null `parts` does nothing.
 * Source:  /etc/services, services(5).
 *
 * @return 0
 */
ZAL_EXPORT int vorn_uri_parse(const char* uri, vorn_uri_parts* parts) ZAL_NOEXCEPT;

/**
 * Copies the first segment of the path that vorn_uri_parse finds, cut to size - 1 characters: "tcp://10.0.0.1/svc/x"
 * and "svc/x?a=1" give "svc". Without a path the text is empty.
 *
 * @return 0
 */
ZAL_EXPORT int vorn_uri_get_plugin_name(const char* uri, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Tells whether the query has a key. A key runs from "?" or "&" to the next "=", so the first key of "?a&b=1" is "a&b".
 *
 * Units:  key and tag are compared in their first 127 characters; the decoded URI is cut to 1022 characters.
 * Errors: null URI or null tag: 0.
 *
 * @return 1 the key is there, 0 it is not
 */
ZAL_EXPORT int vorn_uri_find_tag(const char* uri, const char* tag) ZAL_NOEXCEPT;

/**
 * Finds a key as vorn_uri_find_tag does, clears the buffer and copies its value, up to the next "&" or the end of the
 * URI (a fragment included), cut to size - 1 characters. The URI is decoded first, so "%26" ends a value too.
 *
 * Errors: key not found, null URI or null tag: the buffer is left as it was.
 *
 * @return 1 the key is there, 0 it is not
 */
ZAL_EXPORT int vorn_uri_find_tagvalue(const char* uri, const char* tag, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Clears the buffer and writes the record's path, decoded once more, then "?" and the query when there is one, cut to
 * size - 1 characters.
 *
 * Errors: null `parts`: the buffer is empty. Null buffer or size 0: nothing is written, 0.
 *
 * @return without a query 0, else the length of what was written before the query plus the query's whole length
 */
ZAL_EXPORT int vorn_uri_getPathQuery(const vorn_uri_parts* parts, char* buffer, size_t size) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
