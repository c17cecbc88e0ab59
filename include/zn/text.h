/* text */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API i32 ZnlstrlenA(const char* s);
ZN_API i32 ZnlstrlenW(const ZnWChar* s);
ZN_API char* ZnlstrcpyA(char* dst, const char* src);
ZN_API ZnWChar* ZnlstrcpyW(ZnWChar* dst, const ZnWChar* src);
ZN_API char* ZnlstrncpyA(char* dst, const char* src, i32 count);
ZN_API ZnWChar* ZnlstrncpyW(ZnWChar* dst, const ZnWChar* src, i32 count);
ZN_API char* ZnlstrcatA(char* dst, const char* src);
ZN_API ZnWChar* ZnlstrcatW(ZnWChar* dst, const ZnWChar* src);
ZN_API i32 ZnlstrcmpA(const char* a, const char* b);
ZN_API i32 ZnlstrcmpW(const ZnWChar* a, const ZnWChar* b);
ZN_API char* ZnlstruprA(char* s);
ZN_API ZnWChar* ZnlstruprW(ZnWChar* s);
ZN_API u32 Znmbstowcs(ZnWChar* out, const char* in, u32 count);
ZN_API u32 Znwcstombs(char* out, const ZnWChar* in, u32 count);
ZN_API u32 Znwcslen(const ZnWChar* s);
ZN_API i32 Znwcscmp(const ZnWChar* a, const ZnWChar* b);
ZN_API const char* ZnSysGetErrorString(u32 reserved, u32 code);
ZN_API u32 StrTokenizerA(const char* text, char delimiter, Vector* out);
ZN_API u32 StrTokenizerW(const ZnWChar* text, ZnWChar delimiter, Vector* out);

ZN_EXTERN_C_END
