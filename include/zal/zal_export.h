/* Markers that the public headers share: linkage, visibility and the exception promise of every function. */
#ifndef ZAL_EXPORT_H
#define ZAL_EXPORT_H

#ifdef __cplusplus
/** Begins declarations with C linkage. */
#define ZAL_BEGIN_DECLS extern "C" {
/** Ends what ZAL_BEGIN_DECLS began. */
#define ZAL_END_DECLS }
/** No exception leaves the library. */
#define ZAL_NOEXCEPT noexcept
/** Fails the compile, with the name, when the condition does not hold. */
#define ZAL_STATIC_ASSERT(condition, name) static_assert(condition, #name)
#else
#define ZAL_BEGIN_DECLS
#define ZAL_END_DECLS
#define ZAL_NOEXCEPT
/* __extension__ keeps it valid where the language is older than C11. */
#define ZAL_STATIC_ASSERT(condition, name) __extension__ _Static_assert(condition, #name)
#endif

/** Freezes the size of a record that callers allocate, for 32-bit and for 64-bit pointers. A compiler option that packs
 *  or pads records then fails the compile instead of the program. */
#define ZAL_FROZEN_SIZE(record, size32, size64)                                                                 \
  ZAL_STATIC_ASSERT(                                                                                            \
      (sizeof(void*) == 4 && sizeof(record) == (size32)) || (sizeof(void*) == 8 && sizeof(record) == (size64)), \
      record##_has_its_frozen_size)

/** Makes a function or variable visible outside the library. */
#define ZAL_EXPORT __attribute__((visibility("default")))

/** Lets the compiler check a printf-style call: positions of the format and of its first argument, counted from 1. */
#define ZAL_PRINTF_LIKE(text, arguments) __attribute__((__format__(__printf__, text, arguments)))

#endif
