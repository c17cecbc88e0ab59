/* The settings store: a tree of keys with named, typed values, kept in one text file, whose form
 * docs/settings.md tells. Names are compared without case and kept as first written; in a path
 * both '\\' and '/' separate names, and empty names count for nothing. A change reaches the file
 * before the call returns, and a change that another process made shows at the next call. Any
 * thread.
 *
 * Keys are handles of a kind of their own, closed with ZnRegCloseKey; a closed or foreign one is
 * ZNE_INVALID_ARGUMENTS everywhere. A key that was deleted while a handle to it is open answers
 * ZNE_UNEXPECTED, and ZNE_UNEXPECTED is also what every call answers while the file cannot be read
 * or parsed (the trace has the line and column) and what a writing call answers when the file
 * cannot be written. Every call may answer ZNE_OUT_OF_MEMORY.
 *
 * Values have the types below. Their bytes are counted with the terminators of the texts: "ab" is 6
 * bytes, the list "a", "b" is 10.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Types of values. */
#define ZN_REG_SZ 1u        /* zero-terminated UTF-16 */
#define ZN_REG_EXPAND_SZ 2u /* the same; stored and read back as ZN_REG_SZ, nothing is expanded */
#define ZN_REG_BINARY 3u    /* bytes */
#define ZN_REG_DWORD 4u     /* four bytes, a u32 */
#define ZN_REG_MULTI_SZ 7u  /* terminated texts one after the other, then an empty one */

/* The root of this library's settings; null while the file cannot be read or parsed. The handle is
 * the library's and stays open: closing it does nothing. There is no other root. */
ZN_API ZnHandle HkeyMiraRoot(void);

/* Opens the key `subKey` below `key`; a null or empty path opens `key` once more. `options` and
 * `access` have no effect. `*result` is the caller's to close. ZNE_HASH_LOOKUP_FAILED when there is
 * no such key, ZNE_INVALID_ARGUMENTS for a bad `result` or a path of more than 512 names. */
ZN_API u32 ZnRegOpenKeyEx(ZnHandle key, const ZnWChar* subKey, u32 options, u32 access,
                          ZnHandle* result);

/* The same, but makes what is missing of the path. ZNE_INVALID_ARGUMENTS where a value of that name
 * stands: a name is a key or a value, never both. */
ZN_API u32 ZnRegCreateKey(ZnHandle key, const ZnWChar* subKey, ZnHandle* result);

ZN_API u32 ZnRegCloseKey(ZnHandle key);

/* Deletes the key `subKey` below `key` with its values. ZNE_HASH_LOOKUP_FAILED when there is none,
 * ZNE_UNEXPECTED when it still has keys below it, ZNE_INVALID_ARGUMENTS for a null or empty path.
 */
ZN_API u32 ZnRegDeleteKey(ZnHandle key, const ZnWChar* subKey);

/* Deletes a value; a null name is that of the key's unnamed value here and below.
 * ZNE_HASH_LOOKUP_FAILED when there is none. */
ZN_API u32 ZnRegDeleteValue(ZnHandle key, const ZnWChar* name);

/* The name of the key number `index` below `key`, in the order of their names without case.
 * `*nameLen` has the room at `name` in units, the terminator counted, and receives the length
 * without it. ZNE_BUFFER_TOO_SMALL leaves the room that is needed in it and writes no name.
 * ZNE_NO_MORE_PROPERTIES behind the last one. Keys have no class: `cls`, if given with room, is
 * made empty. `reserved` and `lastWrite` are not touched. */
ZN_API u32 ZnRegEnumKeyEx(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32* reserved,
                          ZnWChar* cls, u32* clsLen, void* lastWrite);

/* The same for values; `type`, `data` and `dataLen` as in ZnRegQueryValueEx. When only the data
 * does not fit, the name is given all the same. */
ZN_API u32 ZnRegEnumValue(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32* reserved,
                          u32* type, u8* data, u32* dataLen);

/* Reads a value. `type` (may be null) receives its type. `*dataLen` has the room at `data` in bytes
 * and receives the size; with a null `data` only the size is told. ZNE_BUFFER_TOO_SMALL when the
 * room is short: type and size are given, the data is not. ZNE_HASH_LOOKUP_FAILED when there is no
 * such value, ZNE_INVALID_ARGUMENTS for data without a length. */
ZN_API u32 ZnRegQueryValueEx(ZnHandle key, const ZnWChar* name, u32* reserved, u32* type, u8* data,
                             u32* dataLen);

/* Writes a value in place of one of that name, whatever its type was. A text ends at its first zero
 * or at its end, a list at its first empty text. ZNE_INVALID_ARGUMENTS for an unknown type, a DWORD
 * that is not 4 bytes, text of an odd number of bytes, and where a key of that name stands. */
ZN_API u32 ZnRegSetValueEx(ZnHandle key, const ZnWChar* name, u32 reserved, u32 type,
                           const u8* data, u32 dataLen);

ZN_EXTERN_C_END
