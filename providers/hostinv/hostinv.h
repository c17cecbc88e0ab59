/* The calls that the inventory provider answers: interface ids and codes, for its clients. The
 * objects, types and properties are told in docs/hostinv.md. */
#pragma once

#include "zn/types.h"

/* Refresh, on objects of type HostInv_Host: {E89E2FD0-07FB-11D2-A7C4-00A0C9249029}. */
#define HOSTINV_REFRESH_INTERFACE                            \
  {                                                          \
    0xE89E2FD0u, 0x07FBu, 0x11D2u, {                         \
      0xA7u, 0xC4u, 0x00u, 0xA0u, 0xC9u, 0x24u, 0x90u, 0x29u \
    }                                                        \
  }
#define HOSTINV_REFRESH_MAJOR 0u
#define HOSTINV_REFRESH 1u /* figures: counters, loads, sizes */
#define HOSTINV_RESCAN 2u  /* everything, things that came and went included */

/* Files, on objects of type HostInv_FileSystem and on the tasks of Checksum:
 * {7B1C5F52-0D3E-4A5B-9C86-2E8F4B7A61D3}. */
#define HOSTINV_FILES_INTERFACE                              \
  {                                                          \
    0x7B1C5F52u, 0x0D3Eu, 0x4A5Bu, {                         \
      0x9Cu, 0x86u, 0x2Eu, 0x8Fu, 0x4Bu, 0x7Au, 0x61u, 0xD3u \
    }                                                        \
  }
#define HOSTINV_FILES_MAJOR 1u
#define HOSTINV_CHECKSUM 1u /* in: "Path"; out: "Algorithm", "Digest", "Bytes" */
#define HOSTINV_STOP 2u     /* addressed to the task, or in: "TaskId" */
