/* URIs: a handle over uriparser, and a self-contained parser into fixed-size fields. */
#ifndef ZAL_URI_H
#define ZAL_URI_H

#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A parsed URI. Its ranges point into the text that was parsed, which must outlive it. */
typedef struct ZAL_UriParserHandle_* ZAL_UriParserHandle;

/** Result codes of the getters that can find nothing. */
enum { ZAL_URI_OK = 0, ZAL_URI_NOT_AVAILABLE = 11 };

typedef struct vorn_uri_parts {
  char scheme[16];
  char host[1024];
  int32_t port;
  char path[1024];
  char query[1024];
  char fragment[1024];
} vorn_uri_parts;

ZAL_EXPORT ZAL_UriParserHandle ZAL_UriParser_Create(const char* uri) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_UriParser_GetHost(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_UriParser_GetPortNumber(ZAL_UriParserHandle handle, int32_t* port) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_UriParser_GetRootName(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_UriParser_GetPath(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_UriParser_GetPathQuery(ZAL_UriParserHandle handle, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_UriParser_FindTagValue(ZAL_UriParserHandle handle, const char* tag, char* buffer,
                                          size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_UriParser_Destroy(ZAL_UriParserHandle handle) ZAL_NOEXCEPT;

ZAL_EXPORT int vorn_uri_decode(const char* source, char* output, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int vorn_uri_parse(const char* uri, vorn_uri_parts* parts) ZAL_NOEXCEPT;
ZAL_EXPORT int vorn_uri_get_plugin_name(const char* uri, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int vorn_uri_find_tag(const char* uri, const char* tag) ZAL_NOEXCEPT;
ZAL_EXPORT int vorn_uri_find_tagvalue(const char* uri, const char* tag, char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int vorn_uri_getPathQuery(const vorn_uri_parts* parts, char* buffer, size_t size) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
