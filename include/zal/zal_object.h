/*
 * The data model: JSON documents built and read through handles, with typed members, member paths, arrays, and the
 * filter of a request, which lets only those members into an answer that were asked for.
 *
 * A handle stands for one node of a cJSON tree. There are three sorts:
 *  - A top handle owns its tree and all handles made through it. It comes from a Create function or from
 *    ZAL_Array_GetSubArray, and is released with ZAL_Object_Destroy or, for an array, ZAL_Array_Destroy.
 *  - A sub-handle comes from an AddObject or AddArray function, or was given to ZAL_Object_AppendObject. It lives as
 *    long as the top handle (or the view) above it, and is never released on its own.
 *  - A view comes from GetObject or GetArray and borrows a node. It is valid while the top handle of that tree and the
 *    node live; the caller releases it, before or after them. Members and elements may be added through a view, but no
 *    filter is applied to them, and sub-handles made through a view are released with the view.
 *
 * Pruning (AddJson, AppendObject, Prune) deletes nodes. A sub-handle whose node was deleted stays a valid handle
 * without node: it adds nothing, finds nothing, prints nothing. Views of deleted nodes may only be released. Nodes that
 * handles stand for are not to be deleted, or moved to another tree, with cJSON's own functions.
 *
 * Null handles, null keys and null results are allowed everywhere: such a call adds, finds and stores nothing. Members
 * are added to objects and arrays only, elements to arrays only, and neither to a cJSON reference, whose children
 * belong to another tree. An addition costs the same however large the tree is.
 *
 * Numbers are doubles. An integer that is added becomes the nearest double, exact up to 2^53. cJSON prints 15 digits of
 * it, or 17 where it finds a difference: of integers beyond 10^15 the last digit may be lost in print. Infinities and
 * NaN, which JSON cannot express, are added as null. Decimal texts have a "." whatever the locale.
 *
 * Threads: no locks. A tree and its handles are used by one thread at a time, each on any thread. No function of the
 * model itself recurses; cJSON's parsing and deleting do, and a tree of the 1000 levels that the parser admits needs
 * less than 256 KiB of stack for each of them.
 */
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

/* ---- Making, printing and releasing --------------------------------------------------------------------------- */

/**
 * Makes a top handle over a new empty object.
 *
 * Ownership: the caller destroys it with ZAL_Object_Destroy, or hands it on.
 * Errors:    memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_Create(void) ZAL_NOEXCEPT;

/**
 * Makes a top handle over a parsed JSON text. What follows the first JSON value is ignored.
 *
 * Ownership: the text is only read. The caller destroys the handle with ZAL_Object_Destroy, also when it is an array.
 * Units:     `length` in bytes; the text need not be terminated.
 * Errors:    null text, no JSON, more than 1000 levels, memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_CreateFromJson(const char* text, size_t length) ZAL_NOEXCEPT;

/**
 * Makes a top handle over a cJSON tree.
 *
 * Ownership: takes `node`, which must stand in no other tree, when a handle is returned; destroying the handle calls
 *            cJSON_Delete. Null is allowed and gives a handle without node.
 * Errors:    memory ran out: null, and a log line; the node stays the caller's.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_CreateFromcJSON(cJSON* node) ZAL_NOEXCEPT;

/**
 * Makes a top handle over a new empty object that lets in only what a message's request asked for.
 *
 * Ownership: as ZAL_Object_Create. The filter text is borrowed from the message: both live, unchanged, as long as
 *            members are added. It is read once, when the first member is added. A null message has no filter.
 * Errors:    memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_TelemetryObject_Create(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/**
 * Gives the handle's node.
 *
 * Ownership: borrowed from the tree.
 *
 * @return the node, or null for a null handle and one whose node is gone
 */
ZAL_EXPORT cJSON* ZAL_Object_GetInternal(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Tells whether the handle was made as an array: by ZAL_Array_Create, ZAL_TelemetryArray_Create, ZAL_Array_GetSubArray
 * or an AddArray function. Views and parsed documents are not, whatever they hold.
 *
 * @return 1 or 0
 */
ZAL_EXPORT int ZAL_Object_IsArray(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Prints the node as JSON text without white space.
 *
 * Ownership: the caller frees the text with free(), also when the program has given cJSON an allocator of its own.
 * Errors:    null handle: null, and a log line. No node, memory ran out: null.
 */
ZAL_EXPORT char* ZAL_Object_DumpOutput(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Releases a top handle with its tree and all its sub-handles, or a view.
 *
 * A sub-handle given here is left alone. Of an array's top handle (ZAL_Object_IsArray) only the handles are released
 * and the tree stays as it is: ZAL_Array_Destroy releases both.
 *
 * Errors: null handle: a log line.
 */
ZAL_EXPORT void ZAL_Object_Destroy(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Tells whether a member of that key, added through this handle, would pass the filter of its tree; see checkFilter.
 *
 * @return 1 it would, 0 it would not, or the handle has no node
 */
ZAL_EXPORT int ZAL_Object_CheckFilter(ZAL_ObjectHandle handle, const char* key, int strictness) ZAL_NOEXCEPT;

/* ---- Adding members ------------------------------------------------------------------------------------------- */
/*
 * Each member is tested with the filter of the tree's top handle first; one that was not asked for is not added. Keys
 * and texts are copied. A key that is there already is added once more. Unless it says otherwise, a function returns 1
 * when the member was added, and 0 when the filter rejected it, an argument makes no sense, or memory ran out.
 */

/** Adds a string. A null text adds nothing. */
ZAL_EXPORT int ZAL_Object_AddString(ZAL_ObjectHandle handle, const char* key, const char* text) ZAL_NOEXCEPT;

/** Adds a number. With a null key it is appended to an array as an element, unfiltered; so with the next five. */
ZAL_EXPORT int ZAL_Object_AddInt32(ZAL_ObjectHandle handle, const char* key, int32_t value) ZAL_NOEXCEPT;
/** Adds a number. */
ZAL_EXPORT int ZAL_Object_AddUint32(ZAL_ObjectHandle handle, const char* key, uint32_t value) ZAL_NOEXCEPT;
/** Adds a number: the double nearest to the value. */
ZAL_EXPORT int ZAL_Object_AddInt64(ZAL_ObjectHandle handle, const char* key, int64_t value) ZAL_NOEXCEPT;
/** Adds a number: the double nearest to the value. */
ZAL_EXPORT int ZAL_Object_AddUint64(ZAL_ObjectHandle handle, const char* key, uint64_t value) ZAL_NOEXCEPT;

/**
 * Adds a number printed with six decimals, such as 2.500000.
 *
 * The text is cut to 17 characters (1e20 prints as 10000000000000000), and a "." that the cut leaves last is dropped.
 * It is a raw node, which the getters do not read. Added with a key to an array it is an ordinary number instead.
 * Infinities and NaN are added as null.
 */
ZAL_EXPORT int ZAL_Object_AddDouble(ZAL_ObjectHandle handle, const char* key, double value) ZAL_NOEXCEPT;

/** Adds true for a value other than 0, else false. */
ZAL_EXPORT int ZAL_Object_AddBool(ZAL_ObjectHandle handle, const char* key, int value) ZAL_NOEXCEPT;
/** Adds null. */
ZAL_EXPORT int ZAL_Object_AddNull(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;

/**
 * Adds bytes as a string of base64.
 *
 * Units:  `length` in bytes; 0 adds an empty string.
 * Errors: null bytes with a length, or more than the text could hold in 2^31 - 1 characters: 0.
 * Source: RFC 4648.
 */
ZAL_EXPORT int ZAL_Object_AddBlob(ZAL_ObjectHandle handle, const char* key, const void* bytes,
                                  uint32_t length) ZAL_NOEXCEPT;

/** Adds nothing and logs that security is not supported; no argument is read. */
ZAL_EXPORT void ZAL_Object_AddSecureBlob(ZAL_ObjectHandle handle, const char* key, const void* bytes,
                                         uint32_t length) ZAL_NOEXCEPT;

/**
 * Adds an empty object. It also passes a filter that asks for something beneath it.
 *
 * Ownership: the sub-handle belongs to `handle`.
 *
 * @return the sub-handle, or null when nothing was added
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_AddObject(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;

/** Adds an empty array; otherwise as ZAL_Object_AddObject. */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_AddArray(ZAL_ObjectHandle handle, const char* key) ZAL_NOEXCEPT;

/**
 * Adds what the filter leaves of a ready-made tree; see filterPruneTree. A node without a name gets the key as its name
 * before it is pruned; a node that has a name is tested by that and then added under the key.
 *
 * Empty objects and arrays vanish, also without a filter: an empty one adds nothing.
 *
 * Ownership: takes `node`, which must stand in no other tree, on every path, and deletes it when nothing of it is
 * added. The handle's own tree is refused and stays as it is.
 */
ZAL_EXPORT void ZAL_Object_AddJson(ZAL_ObjectHandle handle, const char* key, cJSON* node) ZAL_NOEXCEPT;

/**
 * Moves a top handle's tree into another tree, pruned as by ZAL_Object_AddJson. The child and the handles made through
 * it become sub-handles of the parent's tree, under its filter. Those whose nodes were pruned away have none any more.
 *
 * Ownership: the parent takes the child, also when nothing of its tree could be added (a null key, no node in the
 *            parent, memory ran out): the tree is deleted then, the handle stays valid without node. A child appended
 *            through a view is released with the view.
 * Errors:    null parent, a child that is no top handle, a child whose own tree the parent stands in: nothing changes,
 *            the child stays the caller's.
 */
ZAL_EXPORT void ZAL_Object_AppendObject(ZAL_ObjectHandle parent, const char* key, ZAL_ObjectHandle child) ZAL_NOEXCEPT;

/* ---- Reading members ------------------------------------------------------------------------------------------ */
/*
 * A member path names a member by steps joined with ":", each a key or, as in "ports[2]", an element of an array:
 * "interfaces[0]:name". Empty steps are skipped; a path of nothing but ":" finds nothing. Keys are compared without
 * regard to the case of ASCII letters, and the first one that fits counts. A key that holds ":" or a pair of brackets
 * cannot be named. An element step on a member that is no array, or is not there, finds nothing and logs.
 *
 * A typed getter returns 1 when it stored a value, else 0 and stores nothing. A handle without node, a null result and
 * a null or empty path are logged; a member that is not there, or of another type, is not.
 *
 * The 64-bit value of a number is its double without the fraction; beyond the limits of int64_t it is the limit, and 0
 * for NaN. Texts are read as strtoll, strtol and strtod read them: what they can, 0 when there is no number.
 */

/** Reads a number, or a string that holds one, as a signed 64-bit value and stores its bits: -1 gives UINT64_MAX. */
ZAL_EXPORT int ZAL_Object_GetUint64(ZAL_ObjectHandle handle, const char* path, uint64_t* value) ZAL_NOEXCEPT;
/** Reads a number, or a string that holds one. */
ZAL_EXPORT int ZAL_Object_GetInt64(ZAL_ObjectHandle handle, const char* path, int64_t* value) ZAL_NOEXCEPT;
/** Reads as ZAL_Object_GetInt32 and stores the bits. */
ZAL_EXPORT int ZAL_Object_GetUint32(ZAL_ObjectHandle handle, const char* path, uint32_t* value) ZAL_NOEXCEPT;
/** Reads the low 32 bits of a number's 64-bit value, or a string, whose number is limited to int32_t on all machines.
 */
ZAL_EXPORT int ZAL_Object_GetInt32(ZAL_ObjectHandle handle, const char* path, int32_t* value) ZAL_NOEXCEPT;
/** Reads a number, or a string that holds one. Members of ZAL_Object_AddDouble are raw text and are not read. */
ZAL_EXPORT int ZAL_Object_GetDouble(ZAL_ObjectHandle handle, const char* path, double* value) ZAL_NOEXCEPT;
/** Reads true or false as 1 or 0, or a string that begins with one of these words. */
ZAL_EXPORT int ZAL_Object_GetBool(ZAL_ObjectHandle handle, const char* path, uint8_t* value) ZAL_NOEXCEPT;

/**
 * Gives the text of a string member.
 *
 * Ownership: borrowed from the tree.
 *
 * @return the text, or null
 */
ZAL_EXPORT const char* ZAL_Object_GetString(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;

/**
 * Gives a view of a member of any type.
 *
 * Ownership: the caller releases the view with ZAL_Object_Destroy; the node stays the tree's.
 * Errors:    member not there: null. No node, null or empty path, memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_GetObject(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;

/**
 * Gives a view of an array member; with a null or empty path, of the handle's own array.
 *
 * Ownership: the caller releases the view with ZAL_Array_Destroy or ZAL_Object_Destroy; the node stays the tree's.
 * Errors:    member not there: null. No node, no array, memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Object_GetArray(ZAL_ObjectHandle handle, const char* path) ZAL_NOEXCEPT;

/* ---- Arrays --------------------------------------------------------------------------------------------------- */

/** Makes a top handle over a new empty array, to be destroyed with ZAL_Array_Destroy; else as ZAL_Object_Create. */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_Create(void) ZAL_NOEXCEPT;

/** The same under a message's filter, which tests the members of the array's objects; as ZAL_TelemetryObject_Create. */
ZAL_EXPORT ZAL_ObjectHandle ZAL_TelemetryArray_Create(ZAL_MessageHandle message) ZAL_NOEXCEPT;

/** Prints the node, as ZAL_Object_DumpOutput does. */
ZAL_EXPORT char* ZAL_Array_DumpOutput(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/** Releases a top handle of any kind with its tree and all its sub-handles, or a view. Sub-handles and null are
 * ignored. */
ZAL_EXPORT void ZAL_Array_Destroy(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Copies an array and cuts the copy as ZAL_Array_Prune does. The copy is printed and parsed again, so numbers with six
 * decimals become ordinary ones. It has no filter.
 *
 * Ownership: the caller destroys the copy with ZAL_Array_Destroy; the source is unchanged.
 * Errors:    no array, a start or count that ZAL_Array_Prune refuses, memory ran out: null, and log lines.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetSubArray(ZAL_ObjectHandle handle, int32_t start, int32_t count) ZAL_NOEXCEPT;

/**
 * Cuts an array down to `count` elements from index `start` on, in linear time. A negative count keeps all from there;
 * a negative start keeps the last `count`, or all when there are not so many. Both negative keep everything.
 *
 * Errors: no array, start beyond the last element, start and count beyond the end: nothing changes, and a log line.
 *
 * @return 1 cut, 0 refused
 */
ZAL_EXPORT int ZAL_Array_Prune(ZAL_ObjectHandle handle, int32_t start, int32_t count) ZAL_NOEXCEPT;

/*
 * Each of these appends one element; no filter is applied. They return 1 when it was appended, 0 when the handle's node
 * is no array, an argument makes no sense, or memory ran out.
 */

/** Appends a string, which is copied. */
ZAL_EXPORT int ZAL_Array_AddString(ZAL_ObjectHandle handle, const char* text) ZAL_NOEXCEPT;
/** Appends a number. */
ZAL_EXPORT int ZAL_Array_AddNumber(ZAL_ObjectHandle handle, double value) ZAL_NOEXCEPT;
/** Appends a number. */
ZAL_EXPORT int ZAL_Array_AddInt32(ZAL_ObjectHandle handle, int32_t value) ZAL_NOEXCEPT;
/** Appends a number. */
ZAL_EXPORT int ZAL_Array_AddUint32(ZAL_ObjectHandle handle, uint32_t value) ZAL_NOEXCEPT;
/** Appends a number: the double nearest to the value. */
ZAL_EXPORT int ZAL_Array_AddInt64(ZAL_ObjectHandle handle, int64_t value) ZAL_NOEXCEPT;
/** Appends a number: the double nearest to the value. */
ZAL_EXPORT int ZAL_Array_AddUint64(ZAL_ObjectHandle handle, uint64_t value) ZAL_NOEXCEPT;
/** The same as ZAL_Array_AddNumber. */
ZAL_EXPORT int ZAL_Array_AddDouble(ZAL_ObjectHandle handle, double value) ZAL_NOEXCEPT;
/** Appends true for a value other than 0, else false. */
ZAL_EXPORT int ZAL_Array_AddBool(ZAL_ObjectHandle handle, int value) ZAL_NOEXCEPT;

/**
 * Appends a ready-made tree as it is; nothing is pruned.
 *
 * Ownership: takes `node`, which must stand in no other tree, on every path: when it cannot be appended it is deleted.
 *            The handle's own tree is refused and stays as it is.
 */
ZAL_EXPORT int ZAL_Array_AddJson(ZAL_ObjectHandle handle, cJSON* node) ZAL_NOEXCEPT;

/** Appends bytes as a string of base64, as ZAL_Object_AddBlob does. */
ZAL_EXPORT void ZAL_Array_AddBlob(ZAL_ObjectHandle handle, const void* bytes, uint32_t length) ZAL_NOEXCEPT;

/**
 * Appends an empty object. Members added through it are filtered; an element adds nothing to their identifiers.
 *
 * Ownership: the sub-handle belongs to `handle`.
 *
 * @return the sub-handle, or null when nothing was appended
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_AddObject(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/** Appends an empty array; otherwise as ZAL_Array_AddObject. */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_AddArray(ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/*
 * Elements are read by their index, the first is 0. A getter returns 1 when it stored a value, else 0. A null handle, a
 * null result and a node that is no array are logged; an index that is not there is not. The time grows with the index.
 */

/** Stores the number of elements. */
ZAL_EXPORT int ZAL_Array_GetSize(ZAL_ObjectHandle handle, uint32_t* size) ZAL_NOEXCEPT;
/** Reads the low 32 bits of a number's 64-bit value. Any other element, a string among them, is logged and gives 0. */
ZAL_EXPORT int ZAL_Array_GetInt32(ZAL_ObjectHandle handle, int32_t index, int32_t* value) ZAL_NOEXCEPT;
/** Reads a number, or a string that holds one. */
ZAL_EXPORT int ZAL_Array_GetDouble(ZAL_ObjectHandle handle, int32_t index, double* value) ZAL_NOEXCEPT;
/**
 * Reads true and false as 1 and 0, a number as 1 when its 64-bit value is not 0, a string when it begins with "true" or
 * "false". Any other element gives 0 and stores nothing.
 */
ZAL_EXPORT int ZAL_Array_GetBool(ZAL_ObjectHandle handle, int32_t index, uint8_t* value) ZAL_NOEXCEPT;

/**
 * Copies the text of a string element.
 *
 * Units:  `size` counts the terminator.
 * Errors: no string: 0, and a log line. A text that does not fit is cut to size - 1 characters: 0, and a log line.
 */
ZAL_EXPORT int ZAL_Array_GetString(ZAL_ObjectHandle handle, int32_t index, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Gives a view of an element that is an object.
 *
 * Ownership: the caller releases the view with ZAL_Object_Destroy; the node stays the tree's.
 * Errors:    index not there: null. No array, no object, memory ran out: null, and a log line.
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetObject(ZAL_ObjectHandle handle, int32_t index) ZAL_NOEXCEPT;

/** Gives a view of an element that is an array, released with ZAL_Array_Destroy; otherwise as ZAL_Array_GetObject. */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Array_GetArray(ZAL_ObjectHandle handle, int32_t index) ZAL_NOEXCEPT;

/* ---- Filters -------------------------------------------------------------------------------------------------- */
/*
 * A filter is the path and query of a request, such as "system?include=cpu+memory/free&exclude=cpu/temp": the path and,
 * below it, the paths to include or exclude, joined by "+". A member is known by its identifier: the keys from the top
 * node down to it, joined by "/", where an element of an array adds nothing. Of a path, a key that would make it 1024
 * bytes long or longer is left out; an identifier is cut to 2047 characters. The path of a filter and the values of
 * include and exclude are read up to 511 characters each.
 *
 * Strict (non-zero) passes an identifier on or below a path, loose (0) also one above it. Leaves are tested strict,
 * objects and arrays loose. Each test logs what it compares at ZAL_LOG_TRACE and ZAL_LOG_DEBUG.
 */

/**
 * Tests a member that would be added to the handle's node with the filter of the handle's tree.
 *
 * A tree without filter, an empty filter, the filter "/", a null key and a handle without `root` (a view) pass.
 *
 * @return 1 pass, 0 fail, or no node, or memory ran out
 */
ZAL_EXPORT int checkFilter(ZAL_ObjectHandle handle, const char* key, int strictness) ZAL_NOEXCEPT;

/**
 * Tests an identifier with a filter. A null or empty filter and "/" pass; so does one that is no URI, after an error
 * report on standard error and a log line.
 *
 * Source: RFC 3986.
 *
 * @return 1 pass, 0 fail
 */
ZAL_EXPORT int filterTest(const char* filter, const char* identifier, int strictness) ZAL_NOEXCEPT;

/**
 * Tests an identifier with the value of a filter's include part, whose paths lie below `path`. Null texts are empty.
 *
 * @return 1 when one of the paths passes, 0 otherwise and when there is none
 */
ZAL_EXPORT int queryTestInclude(const char* include, const char* path, const char* identifier,
                                int strictness) ZAL_NOEXCEPT;

/**
 * Tests an identifier with the value of a filter's exclude part, whose paths lie below `path`. Null texts are empty.
 *
 * @return 0 when the identifier lies on or below one of the paths, else 1
 */
ZAL_EXPORT int queryTestExclude(const char* exclude, const char* path, const char* identifier) ZAL_NOEXCEPT;

/**
 * Deletes what the filter rejects of a ready-made tree, and the objects and arrays that are or become empty.
 *
 * Identifiers begin with the key of `top`, which is also the whole identifier of `top` itself; nodes without a key are
 * not tested. Strings are tested loose here. `*node` is `top` or lies below it, and only it and what is below it is
 * pruned; when it lies elsewhere, its path begins with its own key. A null `top` stands for `*node`. The children of a
 * cJSON reference belong to another tree and stay as they are.
 *
 * Ownership: a node that fails is detached from its parent and deleted; when that is `*node` itself, it becomes null.
 *            `parent` is the parent of `*node`, null only for a node that stands in no tree.
 * Errors:    memory ran out: `*node` is deleted, since what cannot be tested is not shown.
 */
ZAL_EXPORT void filterPruneTree(const char* filter, cJSON* top, cJSON** node, cJSON* parent) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
