/* GUIDs: making, printing, reading and comparing them. The same 16 bytes are the ids of objects,
 * providers, types, interfaces, catalogs and databases; see zn/ob.h for the same functions under
 * the names of object ids.
 *
 * The text form is exactly 38 characters, "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", written in
 * lower case and read in either.
 *
 * None of these touches a handle or a database, and none takes a lock that a caller may hold: they
 * may be called from any thread at any time. A bad pointer is refused. Results are written on
 * success only.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* A new random GUID (version 4) in `*out`. Returns ZN_OK, ZNE_INVALID_ARGUMENTS for a bad `out`, or
 * ZNE_UNEXPECTED when the system gives no random bytes. */
ZN_API u32 ZnGenerateGUID(GUID* out);

/* The text of `*in` with its terminator, 39 bytes in a new block that the caller frees with ZnFree.
 * Returns ZN_OK, ZNE_INVALID_ARGUMENTS for a bad pointer, or ZNE_OUT_OF_MEMORY. */
ZN_API u32 ZnGUIDToString(const GUID* in, char** out);

/* Reads the text form from the first 38 bytes of `text`; what stands behind them is not looked at.
 * Where a hex digit belongs any letter or digit is taken, and letters beyond "f" count as 0.
 * Returns ZN_OK, or ZNE_INVALID_ARGUMENTS for a bad pointer or another shape. */
ZN_API u32 ZnStringToGUID(const char* text, GUID* out);

/* Whether all 16 bytes agree. False for a bad pointer too. */
ZN_API bool ZnCompareGuid(const GUID* a, const GUID* b);

ZN_EXTERN_C_END
