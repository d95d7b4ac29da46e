/* The serialization engine: C variables described by a format text, packed into self-describing images and back.
 *
 * A format is a sequence of
 *   i u   int32_t, uint32_t         I U   int64_t, uint64_t        c   char
 *   j v   int16_t, uint16_t         f     double                   s   char* to a terminated text, or null
 *   B     tpl_blob                  A(...)  an array, one element per tpl_pack
 *   S(...)  one C structure of the single values above, $(...) a structure inside it
 *   #     behind a single value or an S(...): a fixed count of it; several in a row multiply
 *
 * tpl_map is given the address of a variable for each item, in order: of the first value where '#' follows; of a
 * structure once, for all its members; none for A and $; and one int for each '#'. Then tpl_pack and tpl_dump lead to
 * an image, tpl_load and tpl_unpack back. An image tells its format, its length and its byte order, and is read on
 * machines of either order.
 *
 * The engine takes no locks: a map, or a gather state with its stream, belongs to one thread at a time; different ones
 * may be used at once. It says what is wrong through tpl_hook.report_fn, and a failed allocation or a misuse that
 * leaves nothing to go on with ends the process through tpl_hook.fatal_fn. Sizes among variable arguments are size_t: a
 * bare number must be cast.
 */
#ifndef ZAL_TPL_H
#define ZAL_TPL_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A map, by the root of its tree. The tree is the engine's own. */
typedef struct tpl_map_node tpl_map_node;

/**
 * The caller's descriptor of a B item. Packing copies `length` bytes; unpacking fills in a new block of alloc_fn's, or
 * a null address for no bytes.
 */
typedef struct tpl_blob {
  void* address;   /**< where they stand */
  uint32_t length; /**< in bytes */
} tpl_blob;
ZAL_FROZEN_SIZE(tpl_blob, 8, 16);

/**
 * The pending partial image of one byte stream, kept between tpl_gather calls. Only tpl_gather makes one, and no one
 * else changes it. The caller keeps a pointer to it, null at first; a stream that ends early is cleaned up by freeing
 * `bytes` and then the record, both with tpl_hook.free_fn.
 */
typedef struct tpl_gather_state {
  void* bytes;    /**< what has arrived of the image */
  int32_t length; /**< of it, in bytes */
} tpl_gather_state;
ZAL_FROZEN_SIZE(tpl_gather_state, 8, 16);

/**
 * Receives one whole image, valid during the call only; a negative result ends the gathering. The stream's pending
 * state is null meanwhile.
 */
typedef int (*tpl_gather_callback)(void* image, size_t length, void* data);

/**
 * Where the engine's reports, allocations and fatal ends go. The program sets it, if at all, before the first map is
 * made; the library only reads it. No function may throw or jump out of the engine.
 *
 * Images and payloads that pass through the ZAL_Ipc functions are freed with free(), so a program that uses those
 * replaces the allocating functions only by what free() can take back.
 */
typedef struct tpl_hook_record {
  /** Prints to standard error by default; its result is not used. */
  int (*report_fn)(const char* format, ...) ZAL_PRINTF_LIKE(1, 2);
  void* (*alloc_fn)(size_t size);                /**< malloc */
  void* (*realloc_fn)(void* block, size_t size); /**< realloc */
  void (*free_fn)(void* block);                  /**< free */
  /** Must not return, and abort() follows when it does; by default reports at most 99 characters and ends the process
   *  with status -1 and without exit handlers, which would wait for other threads. */
  void (*fatal_fn)(const char* format, ...) ZAL_PRINTF_LIKE(1, 2);
  /** The longest image, or pending image with the block that continues it, that tpl_gather accepts; 0 accepts any. To
   *  be set wherever a peer is not trusted: the length in a header decides how much is kept for it. At most twice what
   *  has arrived, or 64 KiB, is reserved before the rest comes, and never more than the limit. A client that expects no
   *  image above 1 MiB says so before it starts: tpl_hook.gather_limit = 1 << 20; */
  size_t gather_limit;
} tpl_hook_record;
ZAL_FROZEN_SIZE(tpl_hook_record, 24, 48);

/** The hook record of the process. */
extern ZAL_EXPORT tpl_hook_record tpl_hook;

/** Mode flags of tpl_dump, tpl_load, tpl_jot and tpl_peek. */
enum {
  TPL_VIA_FILE = 0x1,     /**< a file named by a path */
  TPL_VIA_MEM = 0x2,      /**< memory */
  TPL_INTO_BUFFER = 0x4,  /**< with TPL_VIA_MEM, dump into the caller's buffer */
  TPL_ALLOW_EXCESS = 0x8, /**< load accepts bytes behind the image */
  TPL_VIA_FD = 0x10,      /**< an open descriptor */
  TPL_OWN_IMAGE = 0x20,   /**< the map takes over the memory image that it loads */
  TPL_DATAPEEK = 0x40,    /**< peek at the leading values */
  TPL_FXLENS = 0x80,      /**< peek at the '#' counts */
  TPL_SIZE_QUERY = 0x100  /**< dump only tells the size */
};

/** Modes of tpl_gather. */
enum { TPL_GATHER_FD_BLOCKING = 1, TPL_GATHER_FD_NOWAIT = 2, TPL_GATHER_FROM_MEM = 3 };

/**
 * Makes an empty map of a format and the addresses of the caller's variables.
 *
 * Ownership: the map is the caller's, for tpl_free; it copies the format. The variables must live as long as the map is
 *            packed from or unpacked into.
 * Errors:    a rejected format, with "failed to parse %s\n" reported; besides what the grammar forbids these are a '#'
 *            behind an A(...) or a $(...), and counts whose product exceeds an int32_t or the memory. A count below 1
 *            and more than ten '#' in a row are fatal.
 *
 * @return the map, or null
 */
ZAL_EXPORT tpl_map_node* tpl_map(const char* format, ...) ZAL_NOEXCEPT;

/** tpl_map with a list of arguments, which is copied and stays the caller's to end. */
ZAL_EXPORT tpl_map_node* tpl_map_va(const char* format, va_list arguments) ZAL_NOEXCEPT;

/**
 * Copies the caller's variables into the map: index 0 the items outside of arrays (replacing what was packed before),
 * index n the items of the n-th 'A' as one more element. The elements of a nested array are packed before the element
 * that holds them. A loaded map is emptied first.
 *
 * Errors: an index without array, or no map: "invalid index %d to tpl_pack\n"; the map is unchanged.
 *
 * @return 0, or -1
 */
ZAL_EXPORT int tpl_pack(tpl_map_node* map, int index) ZAL_NOEXCEPT;

/**
 * Writes the image of what is packed; what is not counts as zero, null or no elements. The map stays as it is. The mode
 * is the first of
 *   TPL_VIA_FILE                   path; the file is created (0664) or replaced. Its space is reserved before it is
 *                                  written, so a full disk is an error
 *   TPL_VIA_FD                     int descriptor; one that does not wait is waited for, a regular file is set back to
 *                                  its length and position before a failed call. SIGPIPE is the program's affair
 *   TPL_VIA_MEM | TPL_INTO_BUFFER  void* buffer, size_t capacity
 *   TPL_VIA_MEM                    address of a void*, address of a size_t
 *   TPL_SIZE_QUERY                 address of a size_t
 *
 * Ownership: the image of TPL_VIA_MEM is the caller's, for tpl_hook.free_fn.
 * Errors:    reported; a loaded map, an image of more than 2^32 - 1 bytes, a buffer that is too small (nothing is
 *            written), an unknown mode, the system's errors. No output is touched. A null map is fatal.
 *
 * @return 0, or -1
 */
ZAL_EXPORT int tpl_dump(tpl_map_node* map, int mode, ...) ZAL_NOEXCEPT;

/** Frees a map in any state, with all it owns; null is a no-op. What was unpacked is the caller's and stays. */
ZAL_EXPORT void tpl_free(tpl_map_node* map) ZAL_NOEXCEPT;

/**
 * Maps, packs index 0, dumps and frees in one call: the target (TPL_VIA_FILE: path; TPL_VIA_MEM: address of a void*,
 * address of a size_t; TPL_VIA_FD: int descriptor; tested in this order, other flags are ignored), then the arguments
 * of tpl_map. A mode without target is fatal.
 *
 * @return the result of tpl_dump, or -1 for a rejected format
 */
ZAL_EXPORT int tpl_jot(int mode, ...) ZAL_NOEXCEPT;

/**
 * Where a structure's next member lies: behind the last child of `parent`, aligned for `type` (8 for f, I and U, else
 * the size of the type). The first member (`ordinal` 1), and any member of a parent without children, lies at `base`.
 * The types are numbered 1 i, 2 u, 3 c, 4 s, 5 A, 6 B, 7 f, 8 I, 9 U, 10 j, 11 v, 12 #; another number is fatal.
 */
ZAL_EXPORT char* calc_field_addr(tpl_map_node* parent, int type, char* base, int ordinal) ZAL_NOEXCEPT;

/**
 * Attaches an image to a map and checks it against the map's format to its last byte; what the map held is dropped
 * first. The mode is one of
 *   TPL_VIA_FILE  path; the file stays mapped and must not be shortened meanwhile
 *   TPL_VIA_MEM   void* image, size_t size; unless TPL_OWN_IMAGE is added the image is borrowed, and stays valid and
 *                 unchanged until the map is loaded again, packed or freed
 *   TPL_VIA_FD    int descriptor, from which one image is read, waiting for it
 * tested in this order. TPL_ALLOW_EXCESS accepts bytes behind the image of a file or in memory.
 *
 * Ownership: a memory image is taken over (for tpl_hook.free_fn) only with TPL_OWN_IMAGE and only on success.
 * Errors:    reported; the map is left empty and can be loaded again.
 *
 * @return 0, or -1
 */
ZAL_EXPORT int tpl_load(tpl_map_node* map, int mode, ...) ZAL_NOEXCEPT;

/**
 * Copies values of a loaded image into the caller's variables: index 0 all items outside of arrays, which also sets
 * every outermost array back to its first element; index n the next element of the n-th 'A', in the order of packing.
 * An element's nested arrays are ready once it is unpacked. A packed map is dumped and loaded from there first.
 *
 * Ownership: every text and blob is a new block of the caller's, for tpl_hook.free_fn; what the variables held before
 *            is overwritten.
 * Errors:    an index without array, or no map: "invalid index %d to tpl_unpack\n" and -1; index 0 of an empty map: -1.
 *
 * @return 1 for index 0; for an array the elements that were left before the call (INT_MAX for more), 0 when there were
 *         none; or -1
 */
ZAL_EXPORT int tpl_unpack(tpl_map_node* map, int index) ZAL_NOEXCEPT;

/**
 * Tells how many elements an array still holds (INT_MAX for more).
 *
 * Errors: as tpl_unpack, with its text; index 0 gives -1 without report.
 *
 * @return the count, or -1
 */
ZAL_EXPORT int tpl_Alen(tpl_map_node* map, int index) ZAL_NOEXCEPT;

/**
 * Cuts a byte stream into whole images.
 *   TPL_GATHER_FD_BLOCKING  int descriptor, address of a void*, address of a size_t: waits for one image, which is then
 *                           the caller's, for tpl_hook.free_fn
 *   TPL_GATHER_FD_NOWAIT    int descriptor, address of a tpl_gather_state*, tpl_gather_callback, void* data: reads all
 *                           there is, to the end of the stream if the descriptor waits
 *   TPL_GATHER_FROM_MEM     const void* bytes, size_t size, address of a tpl_gather_state*, tpl_gather_callback,
 *                           void* data: takes the next bytes of the stream; images that lie whole in them are delivered
 *                           from there, without a copy
 * The callback runs inside the call, once for each image, in their order. Another mode is fatal.
 *
 * Errors: reported; the pending state is null afterwards and what was not delivered is gone. A header with a length
 *         below 9, the shortest image, is no header. More than INT32_MAX pending bytes are too many whatever the limit.
 *
 * @return 1; 0 at the end of the file; -1 for a failed read (and, waiting, for what is no image); -2 above
 *         gather_limit; -3 for what is no image; -4 when the callback ended it
 */
ZAL_EXPORT int tpl_gather(int mode, ...) ZAL_NOEXCEPT;

/**
 * Reads the format of an image without a map, and with a flag more:
 *   TPL_VIA_FILE  path, or TPL_VIA_MEM  const void* image, size_t size; then with
 *   TPL_FXLENS    address of a uint32_t, which becomes the number of '#' counts, and address of a uint32_t*, which
 *                 becomes an array of them (null for none)
 *   TPL_DATAPEEK  a format of "iucsfIUjv" characters, and the address of a variable for each. The image's format must
 *                 begin with it, apart from leading S, "(" and ")"
 *
 * Ownership: format, array and texts are the caller's, for tpl_hook.free_fn.
 * Errors:    what is no image, or has no room for its counts, gives null without a word; others are reported. No
 *            variable is touched unless all values are there.
 *
 * @return the format, or null
 */
ZAL_EXPORT char* tpl_peek(int mode, ...) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
