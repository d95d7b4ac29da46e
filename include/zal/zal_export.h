/* Markers that the public headers share: linkage, visibility and the exception promise of every function. */
#ifndef ZAL_EXPORT_H
#define ZAL_EXPORT_H

#ifdef __cplusplus
#define ZAL_BEGIN_DECLS extern "C" {
#define ZAL_END_DECLS }
/* No exception leaves the library. */
#define ZAL_NOEXCEPT noexcept
#else
#define ZAL_BEGIN_DECLS
#define ZAL_END_DECLS
#define ZAL_NOEXCEPT
#endif

#define ZAL_EXPORT __attribute__((visibility("default")))

/* Lets the compiler check a printf-style call: positions of the format and of its first argument, counted from 1. */
#define ZAL_PRINTF_LIKE(text, arguments) __attribute__((__format__(__printf__, text, arguments)))

#endif
