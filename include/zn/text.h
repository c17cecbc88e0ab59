/* Strings, and the text of a status. Narrow text is UTF-8 and wide text UTF-16, whatever the
 * locale; what is not well formed counts as U+FFFD. Lengths and counts are in units: bytes of
 * narrow text, ZnWChar of wide text. A null text counts as the empty one unless told otherwise.
 * Buffers are the caller's. Any thread.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Length without the terminator. */
ZN_API i32 ZnlstrlenA(const char* s);
ZN_API i32 ZnlstrlenW(const ZnWChar* s);
ZN_API u32 Znwcslen(const ZnWChar* s);

/* Copies with the terminator; the caller sees to the room. The result is `dst`. */
ZN_API char* ZnlstrcpyA(char* dst, const char* src);
ZN_API ZnWChar* ZnlstrcpyW(ZnWChar* dst, const ZnWChar* src);

/* Copies at most `count` units and fills the rest of them with zeros: a source of `count` units or
 * more leaves no terminator. The result is `dst`. */
ZN_API char* ZnlstrncpyA(char* dst, const char* src, i32 count);
ZN_API ZnWChar* ZnlstrncpyW(ZnWChar* dst, const ZnWChar* src, i32 count);

/* Appends; the caller sees to the room. The result is `dst`. */
ZN_API char* ZnlstrcatA(char* dst, const char* src);
ZN_API ZnWChar* ZnlstrcatW(ZnWChar* dst, const ZnWChar* src);

/* -1, 0 or 1 without regard to case: characters are compared by their simple capitals, by Unicode's
 * tables and no locale (characters beyond U+FFFF as they are). Both forms order a text alike. */
ZN_API i32 ZnlstrcmpA(const char* a, const char* b);
ZN_API i32 ZnlstrcmpW(const ZnWChar* a, const ZnWChar* b);

/* -1, 0 or 1 with regard to case, unit by unit. */
ZN_API i32 Znwcscmp(const ZnWChar* a, const ZnWChar* b);

/* Makes capitals in place, by the same tables; a character whose capital is longer or shorter in
 * UTF-8 stays in the narrow form. The result is `s`. */
ZN_API char* ZnlstruprA(char* s);
ZN_API ZnWChar* ZnlstruprW(ZnWChar* s);

/* Converts. With a null `out`: the units needed, without a terminator. Else writes whole characters
 * while they fit into `count` units, and a terminator when room is left; the result is the number
 * of units written without it, so a result equal to `count` (or less than was needed) was cut
 * short. 0xFFFFFFFF for a null `in`. */
ZN_API u32 Znmbstowcs(ZnWChar* out, const char* in, u32 count);
ZN_API u32 Znwcstombs(char* out, const ZnWChar* in, u32 count);

/* Splits at a delimiter. White space, by the C library in the process's locale, is removed
 * everywhere in a token, and tokens that end up empty are dropped: "a b,,c" at ',' gives "ab" and
 * "c". `*out` receives the tokens; each item and the array of items are ZnAlloc blocks that the
 * caller frees with ZnFree (no tokens: count 0, items null). 0; ZNE_INVALID_ARGUMENTS for a bad
 * pointer; ZNE_OUT_OF_MEMORY. On failure `*out` is as it was. */
ZN_API u32 StrTokenizerA(const char* text, char delimiter, Vector* out);
ZN_API u32 StrTokenizerW(const ZnWChar* text, ZnWChar delimiter, Vector* out);

/* The English text of a status, "Unknown" for a code without one (0 among them). `reserved` has no
 * effect. Constant storage, never null, not to be freed. */
ZN_API const char* ZnSysGetErrorString(u32 reserved, u32 code);

ZN_EXTERN_C_END
