/*
 * JSON documents on bare cJSON nodes: build an answer under the filters of a request, stamp it with a header or an
 * error, clean it, print it, and turn an empty or failed one into a status and a text. The same narrowing as in
 * zal_object.h, without handles.
 *
 * Adding. Each add takes the parent, two filters A and B (a request's path and query, either may be null), the top node
 * of the document and the key. A member is known by its identifier: the keys from the top node down to the parent, then
 * its own, joined by "/"; elements of arrays add nothing. Of a path, a key that would make it 1024 bytes long or longer
 * is left out; an identifier is cut to 2047 characters. It is the key alone when the top is null, the parent is the
 * top, or the parent does not lie below it. A member is added when its identifier passes filter B and then filter A, as
 * jsonFilterTest tests them: leaves strict, objects and arrays loose. A null key is not tested.
 *
 * Cost. While both filters pass everything (null, "" and "/"), an addition costs the same however large the document
 * is. Otherwise the parent is searched below the top, the newest members of each node first, and few of them before
 * many: an addition to what was made lately costs some steps for each level above it, also where several lists grow
 * side by side. An addition to a node that much was made after may cost a visit to the whole document.
 *
 * Arrays. An array takes a keyed member inside a new object of its own, so that it holds one-member objects; without a
 * key it takes strings, numbers, booleans and nulls as they are.
 *
 * Null arguments are allowed everywhere: a null node is read as an empty one, adds nothing and changes nothing, null
 * texts are empty unless a comment says otherwise. Adding to a null parent is an error that is reported, so look at the
 * result of json_AddObject before filling it. The children of a cJSON reference belong to another tree: nothing is
 * added to them, and they are neither pruned nor cut.
 *
 * Errors are reported on standard error as "ZAL ERROR: <text> - code:-1 at core/base/zal_json: <line>"; nothing is
 * logged but the traces of queryTestInclude and queryTestExclude. What a filter rejects is not reported.
 *
 * Ownership: nodes that are added belong to the tree they were added to. Texts are copied.
 * Threads:   no locks. A document is used by one thread at a time, each on any thread. No function here recurses as
 * deep as the document; cJSON's parsing, printing and deleting do, and a document of the 1000 levels that the parser
 *            admits needs less than 256 KiB of stack for each of them.
 */
#ifndef ZAL_JSON_H
#define ZAL_JSON_H

#include <cjson/cJSON.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/* ---- Documents ------------------------------------------------------------------------------------------------- */

/** Results of json_CheckPluginError. */
enum { ZAL_JSON_OK = 0, ZAL_JSON_BAD_REQUEST = 400, ZAL_JSON_NOT_FOUND = 404, ZAL_JSON_SERVER_ERROR = 500 };

/**
 * Makes cJSON use malloc and free, and makes an empty object.
 *
 * Ownership: the caller deletes it with json_Uninitialize.
 * Threads:   while no other thread uses cJSON, and no node from another allocator is left: the change of allocator is
 *            for the whole process.
 * Errors:    memory ran out: null, and "Unable to allocate cJSON object" is reported.
 */
ZAL_EXPORT cJSON* json_Initialize(void) ZAL_NOEXCEPT;

/** Deletes `*node` and makes it null. A null pointer and a null node do nothing. */
ZAL_EXPORT void json_Uninitialize(cJSON** node) ZAL_NOEXCEPT;

/**
 * Writes a time in UTC, such as 1970-01-01T00:00:00.000005Z.
 *
 * Units:  `size` counts the terminator. The fraction is cut when only the date fits.
 * Errors: the date does not fit, or null buffer: 0. Null time, or seconds that are no date: -1. The buffer is then left
 *         alone.
 * Source: ISO 8601.
 *
 * @return the length of the date and of the whole fraction, also when the fraction was cut; 0 or -1 on failure
 */
ZAL_EXPORT ssize_t json_FormatTimeval(const struct timeval* time, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Adds the members of a header, in this order: "version" unless it is 0, "description" unless it is empty, "timestamp",
 * and "metadata" unless it is empty. Metadata of three characters or more that begins with "{" and ends with "}" is
 * added as the JSON it holds, any other as a string.
 *
 * Units:  `time` null is now; "timestamp" is in seconds since the epoch, with microseconds. The second argument is not
 *         read.
 * Errors: reported: a member that cannot be added, and metadata that begins and ends like an object but is no JSON. The
 *         members before it stay.
 *
 * @return 0, -1 on failure
 */
ZAL_EXPORT int json_GenerateHeader(cJSON* object, const void* unused, const char* description,
                                   const struct timeval* time, uint32_t version, const char* metadata) ZAL_NOEXCEPT;

/**
 * Adds the member "error", an object with "code" and "message".
 *
 * Errors: no object, null message, memory ran out: -1, nothing is added, and "unable to add error json object" is
 *         reported.
 *
 * @return 0, -1 on failure
 */
ZAL_EXPORT int json_GenerateError(cJSON* object, int code, const char* message) ZAL_NOEXCEPT;

/**
 * Cleans an answer with json_PruneEmptyObjects and json_PruneArrayRangeObjects, and tells what to answer. The first
 * rule that holds decides:
 *
 *   `errors` above 0              500  Zimta API returned error,check plugin console log
 *   `message` not empty           400  the message
 *   null answer                   500  Plugin error - NULL object
 *   answer holds a value            0  nothing is written
 *   request without "?"           404  Invalid resource:<request>
 *   request with "?"              400  Invalid query:<request>, try help
 *   empty or null request         500  Plugin error - no data
 *
 * Units:  `size` counts the terminator; longer texts are cut. A null buffer or a size of 0 stores nothing. The other
 *         texts do not stand in the buffer.
 *
 * @param request the request's path and query
 * @param errors  errors that the platform's API returned
 * @param message the error text of the plugin
 * @return ZAL_JSON_OK, ZAL_JSON_BAD_REQUEST, ZAL_JSON_NOT_FOUND or ZAL_JSON_SERVER_ERROR
 */
ZAL_EXPORT int json_CheckPluginError(cJSON* answer, const char* request, int errors, const char* message, char* buffer,
                                     size_t size) ZAL_NOEXCEPT;

/**
 * Prints into the caller's buffer. The text has white space only when `plain` is 0 and the environment variable
 * FORMATTED_JSON begins with "y".
 *
 * Units:  `size` counts the terminator; cJSON asks for 5 bytes more than the text needs.
 * Errors: null node, null buffer, text does not fit: -1, the buffer holds an empty text, and "Failure printing JSON to
 *         allocated buffer" is reported.
 *
 * @param prune not 0: json_PruneEmptyObjects comes first
 * @return 0, -1 on failure
 */
ZAL_EXPORT int json_Print(cJSON* node, char* buffer, size_t size, int prune, int plain) ZAL_NOEXCEPT;

/* ---- Cleaning and looking -------------------------------------------------------------------------------------- */
/*
 * The time is linear in the document. When memory runs out in a walk, that is reported ("not enough memory to walk the
 * document"): what was changed by then stays changed, and json_IsEmptyObjects gives 0.
 */

/**
 * Deletes the objects and arrays that are empty, or become so. Leaves, nulls among them, stay.
 *
 * @param parent the node's parent, from which the node itself is deleted when it ends up empty; null for a top node,
 *               which stays
 */
ZAL_EXPORT void json_PruneEmptyObjects(cJSON* node, cJSON* parent) ZAL_NOEXCEPT;

/**
 * Cuts arrays as the range part of a request asks: the array that the request's path leads to, or those that its
 * include paths lead to, each written directly behind the request's path ("net/?include=a+b" names net/a and net/b).
 * Without a range part nothing changes.
 *
 * Units: the range is read up to 63 characters, the value of include up to 511.
 */
ZAL_EXPORT void json_PruneArrayRangeObjects(cJSON* node, const char* request) ZAL_NOEXCEPT;

/**
 * Goes from a node along the keys of a path, joined by "/", and cuts the array it ends at; an empty path ends at the
 * node. At an array it goes on in each element that has the key; where none has, the key is passed over. A node that is
 * no array at the end stays as it is.
 *
 * Units:  the path is read up to 511 characters.
 * Errors: an object, or a leaf, has no such member: "error given path does not match given object tree" is reported.
 *         Null node, null path, null or empty range: nothing happens.
 */
ZAL_EXPORT void pruneRangePath(cJSON* node, const char* path, const char* range) ZAL_NOEXCEPT;

/**
 * Keeps a run of an array's elements and deletes the others.
 *
 *   a:b   b elements from index a on        :b   the last b; any text before the ":" that is no number counts as none
 *   a:    all from index a on               a    element a alone
 *
 * A number begins with a decimal digit, what follows its digits is ignored, and one beyond the machine's is the
 * largest. Any other range, and a node that is no array, changes nothing.
 *
 * Units: the range is read up to 127 characters.
 */
ZAL_EXPORT void applyArrayRange(cJSON* array, const char* range) ZAL_NOEXCEPT;

/**
 * Replaces members by null. In an object, the first member of that key is deleted and a null is appended instead; below
 * the members before it, and below all members of an object without the key, the same is done.
 *
 * Errors: memory ran out: the member is deleted, and "Unable to create JSON Null" is reported.
 */
ZAL_EXPORT void json_NullObject(const char* key, cJSON* object) ZAL_NOEXCEPT;

/** @return 1 when the tree holds nothing but objects and arrays, or the node is null; else 0 */
ZAL_EXPORT int json_IsEmptyObjects(const cJSON* node) ZAL_NOEXCEPT;

/** @return 1 when the node is null or has no child, else 0 */
ZAL_EXPORT int json_IsEmpty(const cJSON* node) ZAL_NOEXCEPT;

/** @return the first direct child of exactly that key, borrowed; null when there is none */
ZAL_EXPORT cJSON* json_FindElement(const cJSON* node, const char* key) ZAL_NOEXCEPT;

/* ---- Filters --------------------------------------------------------------------------------------------------- */

/**
 * Tests an identifier with a filter, which is parsed by vorn_uri_parse. The first rule that holds decides:
 *
 *   null, empty or "/"            passes
 *   begins with "//"              fails
 *   has an include part           as queryTestInclude
 *   has an exclude part           as queryTestExclude
 *   has no path                   passes
 *   else                          strict: the identifier is the path or lies below it; loose: one of the two texts
 *                                 begins with the other, wherever a key ends
 *
 * @param strictness not 0 is strict, 0 is loose
 * @return 1 pass, 0 fail
 */
ZAL_EXPORT int jsonFilterTest(const char* filter, const char* identifier, int strictness) ZAL_NOEXCEPT;

/** @return 1 when a leaf of that key would pass both filters, else 0, also when memory runs out (reported) */
ZAL_EXPORT int json_CheckFilter(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                const char* key) ZAL_NOEXCEPT;

/** The same for an object or an array. */
ZAL_EXPORT int json_CheckFilterLoose(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                     const char* key) ZAL_NOEXCEPT;

/* ---- Adding ---------------------------------------------------------------------------------------------------- */
/*
 * An add gives the new member, which belongs to the document, or null: a filter rejected it (not reported), or it could
 * not be made or added ("Unable to create JSON string", "... number", "... bool", "... Null", "... object", "...
 * array" is reported). Nothing is left behind then. A bare element of an array (no key) gives null also when it was
 * appended; one that cannot be made is reported as "Unable to create JSON arrayItem object".
 */

/** Adds an empty object; in an array it needs a key like everywhere else. */
ZAL_EXPORT cJSON* json_AddObject(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                 const char* key) ZAL_NOEXCEPT;

/** Adds an empty array; in an array it needs a key like everywhere else. */
ZAL_EXPORT cJSON* json_AddArray(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                const char* key) ZAL_NOEXCEPT;

/**
 * Appends an empty object, unfiltered.
 *
 * Errors: no array, memory ran out: null, and "Unable to create JSON object" is reported.
 */
ZAL_EXPORT cJSON* json_AddArrayElement(cJSON* array) ZAL_NOEXCEPT;

/** Adds a string; a null text cannot be added. */
ZAL_EXPORT cJSON* json_AddString(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                                 const char* text) ZAL_NOEXCEPT;

/** Adds a number; infinities and NaN, which JSON cannot express, are added as null. */
ZAL_EXPORT cJSON* json_AddNumber(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                                 double value) ZAL_NOEXCEPT;

/** Adds true for a value other than 0, else false. */
ZAL_EXPORT cJSON* json_AddBool(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                               uint8_t value) ZAL_NOEXCEPT;

/** Adds a null. */
ZAL_EXPORT cJSON* json_AddNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                               const char* key) ZAL_NOEXCEPT;

/** Adds a string, or a null when the text is null or empty. */
ZAL_EXPORT cJSON* json_AddStringOrNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                       const char* key, const char* text) ZAL_NOEXCEPT;

/** Adds a count of 1 or more as a number, and any other as null. */
ZAL_EXPORT cJSON* json_AddCountingNumberOrNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                               const char* key, int32_t count) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
