/* The serialization engine: C variables described by a format text, packed into self-describing images and back. */
#ifndef ZAL_TPL_H
#define ZAL_TPL_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A node of a map tree; a map handle points to the root. */
typedef struct tpl_map_node tpl_map_node;

/** The caller's descriptor of a B item. */
typedef struct tpl_blob {
  void* address;
  uint32_t length;
} tpl_blob;
ZAL_FROZEN_SIZE(tpl_blob, 8, 16);

/** The pending partial image of one byte stream, kept between tpl_gather calls. */
typedef struct tpl_gather_state {
  void* bytes;
  int32_t length;
} tpl_gather_state;
ZAL_FROZEN_SIZE(tpl_gather_state, 8, 16);

/** Receives one whole image, valid during the call only; a negative result ends the gathering. */
typedef int (*tpl_gather_callback)(void* image, size_t length, void* data);

/** Where the engine's reports, allocations and fatal ends go. Set, if at all, before the first map is made. */
typedef struct tpl_hook_record {
  int (*report_fn)(const char* format, ...) ZAL_PRINTF_LIKE(1, 2);
  void* (*alloc_fn)(size_t size);
  void* (*realloc_fn)(void* block, size_t size);
  void (*free_fn)(void* block);
  void (*fatal_fn)(const char* format, ...) ZAL_PRINTF_LIKE(1, 2);
  size_t gather_limit;
} tpl_hook_record;
ZAL_FROZEN_SIZE(tpl_hook_record, 24, 48);

extern ZAL_EXPORT tpl_hook_record tpl_hook;

/** Mode flags of tpl_dump, tpl_load, tpl_jot and tpl_peek. */
enum {
  TPL_VIA_FILE = 0x1,
  TPL_VIA_MEM = 0x2,
  TPL_INTO_BUFFER = 0x4,
  TPL_ALLOW_EXCESS = 0x8,
  TPL_VIA_FD = 0x10,
  TPL_OWN_IMAGE = 0x20,
  TPL_DATAPEEK = 0x40,
  TPL_FXLENS = 0x80,
  TPL_SIZE_QUERY = 0x100
};

/** Modes of tpl_gather. */
enum { TPL_GATHER_FD_BLOCKING = 1, TPL_GATHER_FD_NOWAIT = 2, TPL_GATHER_FROM_MEM = 3 };

ZAL_EXPORT tpl_map_node* tpl_map(const char* format, ...) ZAL_NOEXCEPT;
ZAL_EXPORT tpl_map_node* tpl_map_va(const char* format, va_list arguments) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_pack(tpl_map_node* map, int index) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_dump(tpl_map_node* map, int mode, ...) ZAL_NOEXCEPT;
ZAL_EXPORT void tpl_free(tpl_map_node* map) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_jot(int mode, ...) ZAL_NOEXCEPT;
ZAL_EXPORT char* calc_field_addr(tpl_map_node* parent, int type, char* base, int ordinal) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_load(tpl_map_node* map, int mode, ...) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_unpack(tpl_map_node* map, int index) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_Alen(tpl_map_node* map, int index) ZAL_NOEXCEPT;
ZAL_EXPORT int tpl_gather(int mode, ...) ZAL_NOEXCEPT;
ZAL_EXPORT char* tpl_peek(int mode, ...) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
