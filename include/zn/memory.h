/* Memory that crosses the boundary. Every block that a call of the library hands out comes from
 * here and goes back with ZnFree, and a block made here may be handed to calls that take ownership.
 * Blocks are ordinary ones of the C runtime's heap without headers or guards: ZnFree and free are
 * interchangeable, and so are ZnAlloc and malloc but for the clearing. Any thread.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* A block of `size` bytes, all zero; the caller frees it with ZnFree. Null when memory is short.
 * For size 0: what the runtime gives for it, null or a block without room; ZnFree takes either. */
ZN_API void* ZnAlloc(u32 size);

/* The block with room for `size` bytes, at a new place perhaps: the contents are kept as far as
 * they fit, added bytes are not cleared, the old pointer is dead. A null `block` allocates. Null
 * when memory is short, and then the old block stands as it was. */
ZN_API void* ZnRealloc(void* block, u32 size);

/* Frees a block; null is allowed. Given a handle, it frees the handle's record and not what the
 * record stands for; a handle that is freed already is left alone. */
ZN_API void ZnFree(void* block);

/* The same three with the caller's place in the source, which is accepted and dropped. */
ZN_API void* _ZnAlloc(u32 size, const char* file, u32 line);
ZN_API void* _ZnRealloc(void* block, u32 size, const char* file, u32 line);
ZN_API void _ZnFree(void* block, const char* file, u32 line);

/* Hooks of an allocator that tracks its blocks. This one does not: they do nothing, at any time. */
ZN_API void CheckMemory(void);
ZN_API void _ZnDumpAllocations(void);

ZN_EXTERN_C_END
