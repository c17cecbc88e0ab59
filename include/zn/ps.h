/* ps */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 PsCreatePropset(ZnHandle* out);
ZN_API u32 PsDestroyPropset(ZnHandle set);
ZN_API u32 PsAddProperty(ZnHandle set, const Property2* p);
ZN_API u32 PsSetProperty(ZnHandle set, const Property2* p);
ZN_API u32 PsDeleteProperty(ZnHandle set, const char* name);
ZN_API u32 PsFreeProperty(Property2* p);
ZN_API u32 PsFindProperty(ZnHandle set, const char* name, Property2** out);
ZN_API u32 PsCopyPropset(ZnHandle set, ZnHandle* out);
ZN_API u32 PsMergePropsets(ZnHandle target, ZnHandle source);
ZN_API u32 PsOpenPropset(ZnHandle set, ZnHandle* outIterator);
ZN_API u32 PsFindNextProperty(ZnHandle set, ZnHandle iterator, Property2** out);
ZN_API u32 PsMarshalPropset(ZnHandle set, void** out, u32* outLen);
ZN_API u32 PsUnmarshalPropset(const void* data, u32 len, ZnHandle* out);
ZN_API u32 PsSPrintf(u32 format, ZnHandle set, void** out, u32* outLen);

ZN_EXTERN_C_END
