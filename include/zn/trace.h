/* The trace: one text file per process. Lines have a level from 1 (flow and detail) over 3
 * (rejected arguments), 4 (recoverable oddities), 5 (missing optional features) to 6 (errors); a
 * line is written when its level is at or above the configured one. A line is Sat Nov 21 14:41:57
 * 2026 :  <message> and is on its way to the disk before the call returns. Any thread may trace at
 * any time; nothing that goes wrong with the file reaches a caller.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Writes one line. The format is printf's, with one difference: wide text is UTF-16, so "%S" and
 * "%ls" take a ZnWChar text, "%C" and "%lc" a ZnWChar, and UTF-8 is written. A precision of wide
 * text counts its units. "%n" stores nothing. A null format writes nothing. Always 0. Without
 * ZnTraceInit, and after ZnTraceClose, it does nothing. */
ZN_API u32 ZnTrace(int level, const char* format, ...);

/* Opens the trace file, anew and empty, in place of one that is open. What it reads from the
 * settings stands under the key "Tracing\<component>":
 *   TRACELEVEL     number, default 3: the level from which lines are written
 *   TraceFile      text, default <InstallDir>/Logs/znmira.log (the folder Logs is made if it is
 *                  missing): the file; a relative path is relative to the current folder
 *   OverwriteMode  text, default "Off": read, without effect
 * Then ZnTraceRefresh is done with `table`, which may be null. `size` is carried without effect (0
 * means 4096): the file has no size limit. A file that cannot be opened writes "Open failed" to
 * the standard error stream and leaves tracing silent.
 * 0; ZNE_INVALID_ARGUMENTS for a bad component; ZNE_OUT_OF_MEMORY. */
ZN_API u32 ZnTraceInit(const ZnWChar* component, u32 size, TraceFlagRow* table);

/* For each row up to the first with an empty name: sets the flag to 1 when the key of the component
 * has a value of that name, of whatever type. A flag that is set already stays set. The table is
 * the caller's; nothing of it is kept. 0; ZNE_INVALID_ARGUMENTS for a bad component;
 * ZNE_OUT_OF_MEMORY. */
ZN_API u32 ZnTraceRefresh(const ZnWChar* component, TraceFlagRow* table);

/* Closes the file; later lines are dropped. */
ZN_API void ZnTraceClose(void);

ZN_EXTERN_C_END
