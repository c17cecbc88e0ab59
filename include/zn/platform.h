/* The platform's services for providers and programs: events, critical sections, threads,
 * libraries, pointer probes, time, names, versions, shared memory. Any thread may call any of them.
 * What ZnGetLastError answers is set by the calls that say so.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* ---- Events ---- */

/* An event, signalled when `initial` is not 0. With `autoReset` not 0 it lets one waiter go and is
 * clear again; else it lets all go until ZnResetEvent. Null when memory is short. The caller closes
 * it with ZnCloseEvent (ZnCloseHandle does not take it). */
ZN_API ZnHandle ZnCreateEvent(u8 autoReset, u8 initial);

/* Signals and clears. Whoever waits at the moment of ZnSetEvent goes, even if the event is cleared
 * before it runs; of an auto-reset event one waiter goes for each call. False when the handle is no
 * open event. */
ZN_API bool ZnSetEvent(ZnHandle event);
ZN_API bool ZnResetEvent(ZnHandle event);

/* Closes an event; who still waits on it gets 0xFFFFFFFF. False when the handle is no open event.
 */
ZN_API bool ZnCloseEvent(ZnHandle event);

/* Waits at most `timeoutMs` milliseconds, 0xFFFFFFFF: without limit. Not a status but the raw
 * result: 0 signalled, 258 out of time, 0xFFFFFFFF no open event (or closed meanwhile). */
ZN_API u32 ZnWaitForEvent(ZnHandle event, u32 timeoutMs);

/* ---- Critical sections ---- */

/* A lock that its holder may take again. `*section` is one pointer in the caller's structure: set
 * by Initialize (null when memory is short), cleared by Delete, which nobody may hold it across.
 * Enter and Leave do nothing on a null one; only the holder leaves. */
ZN_API void ZnInitializeCriticalSection(void** section);
ZN_API void ZnDeleteCriticalSection(void** section);
ZN_API void ZnEnterCriticalSection(void** section);
ZN_API void ZnLeaveCriticalSection(void** section);

/* ---- Threads and handles ---- */

/* Starts `start(argument)` on a thread of its own. `attributes` has no effect. `stackSize` is in
 * bytes, rounded up to what the system takes, 0 for its default. Bit 2 of `flags` (begin suspended)
 * is refused, since nothing could resume the thread; other bits have no effect. `*threadId` (may be
 * null) receives the thread's number. The result is a handle for ZnCloseHandle, which may be closed
 * while the thread runs; null on failure (see ZnGetLastError). */
ZN_API ZnHandle ZnCreateThread(void* attributes, u32 stackSize, u32 (*start)(void*), void* argument,
                               u32 flags, u32* threadId);

/* Ends the calling thread; its C++ scopes are unwound. Does not return. */
ZN_API void ZnExitThread(u32 code);

/* Does nothing: a thread stopped from outside would hold its locks for ever. Always true. */
ZN_API bool ZnTerminateThread(ZnHandle thread, u32 code);

/* Closes a property iterator, a wait event of EvCreateWaitEvent, a thread, or a named system object
 * (shared memory, named mutex: released with it). 0; ZNE_INVALID_ARGUMENTS for any other handle and
 * for one that is closed already. */
ZN_API u32 ZnCloseHandle(ZnHandle handle);

/* Sleeps for at least so many milliseconds. */
ZN_API void ZnSleep(u32 ms);

/* ---- Libraries ---- */

/* Loads a library, all its symbols resolved at once and hidden from other libraries. '\\' counts as
 * '/'. A path is tried as it is given, then, if relative, below <InstallDir>/providers; a bare name
 * in <InstallDir>/providers, then where the system's loader looks. Each is tried as given, with
 * ".so" added, and as "lib<name>.so". Null on failure (see ZnGetLastError: ENOENT when there is no
 * such file, ENOEXEC when there is and it does not load). Loading again counts; each load wants its
 * ZnFreeLibrary. */
ZN_API void* ZnLoadLibraryA(const char* path);
ZN_API void* ZnLoadLibraryW(const ZnWChar* path);

/* The address of an exported symbol; null when there is none (see ZnGetLastError). */
ZN_API void* ZnGetProcAddress(void* library, const char* name);

/* Gives one load back. False for null and on failure. */
ZN_API bool ZnFreeLibrary(void* library);

/* ---- Pointers ---- */

/* Non-zero for a pointer that a call may not touch. This platform has no probe for memory: null,
 * the first 4096 addresses and all-ones are bad, and all else is taken as good; `n` has no effect.
 * A text is bad also when no terminator stands within its first `max` + 1 units. */
ZN_API int ZnIsBadReadPtr(const void* p, size_t n);
ZN_API int ZnIsBadWritePtr(void* p, size_t n);
ZN_API int ZnIsBadCodePtr(const void* p);
ZN_API int ZnIsBadStringPtrA(const char* p, size_t max);
ZN_API int ZnIsBadStringPtrW(const ZnWChar* p, size_t max);

/* ---- Time and names ---- */

/* The current local time as "Sat Nov 21 14:41:57 2026\n", in a buffer of the calling thread that
 * lasts until its next call. Never null. */
ZN_API char* ZnGetTime(void);

/* The current time: seconds since 1970 in the high 32 bits, in the low ones microseconds of
 * millisecond grain. */
ZN_API i64 ZnGetMiraTime(void);

/* The host's name, cut to 15 units, in a new block of 16 units for ZnFree; null when there is none
 * or memory is short. */
ZN_API ZnWChar* ZnGetComputerName(void);

/* Reads a password from the terminal (without one: from the standard input) up to the end of the
 * line or 255 bytes, showing a '*' for each character; a backspace takes one back. `*out` is a new
 * block of 256 bytes for ZnFree, terminated; who has used it should overwrite it first.
 * 0; ZNE_INVALID_ARGUMENTS for a bad pointer; ZNE_OUT_OF_MEMORY; ZNE_UNEXPECTED when reading fails
 * or is broken off with Ctrl-C, which then acts as usual. */
ZN_API u32 ZnGetPassword(char** out);

/* The error number (errno's numbers) of the calling thread's last failure in a call that refers
 * here; 0 when there was none. Success does not clear it. */
ZN_API u32 ZnGetLastError(void);

/* ---- Versions ---- */

/* The version of the interface: 3 and 0. ZNE_INVALID_ARGUMENTS for a bad pointer. */
ZN_API u32 ZnGetMiraVersion(u32* major, u32* minor);

/* The version of the library, 3.0.0.0. ZNE_INVALID_ARGUMENTS for a bad pointer, traced. */
ZN_API u32 ZnGetLibVersion(u32* a, u32* b, u32* c, u32* d);

/* "Linux#<kernel release>#<processor>#<VERSION>" in a new block for ZnFree: the processor is the
 * machine number of the host's executables in decimal (62 is x86-64), VERSION the text of that name
 * under HkeyMiraRoot, empty when there is none. ZNE_INVALID_ARGUMENTS; ZNE_OUT_OF_MEMORY. */
ZN_API u32 ZnGetVersionString(ZnWChar** out);

/* ---- Shared memory ---- */

/* Makes a named area of `size` bytes, all zero, that this user alone may open, and maps it for
 * writing. An area of that name which is there already loses its name first. Separators in the name
 * count as '_'. The result is the view and `*handle` the area's handle: both go with ZnDeleteShMem.
 * Null on failure (see ZnGetLastError), traced at level 6; null for bad arguments. */
ZN_API void* ZnCreateShMem(const char* name, u32 size, ZnHandle* handle);

/* Maps an existing area for reading; the view goes with ZnCloseShMem. Null on failure (see
 * ZnGetLastError), traced at level 6. */
ZN_API void* ZnOpenShMem(const char* name);

/* Unmaps a view. ZNE_INVALID_ARGUMENTS when it is none. */
ZN_API u32 ZnCloseShMem(void* view);

/* Unmaps a view and closes the area of the handle, whose name goes too. ZNE_INVALID_ARGUMENTS when
 * either is none, and then nothing is done. */
ZN_API u32 ZnDeleteShMem(void* view, ZnHandle handle);

/* ---- The rest ---- */

/* Takes the process's locale, in all categories, from the environment. To be called before other
 * threads run. */
ZN_API void ZnSetLocale(void);

ZN_EXTERN_C_END
