/* Types shared by every family of exports: integers, handles, ids, and the flat records that cross
 * the boundary. Layouts are natural for the platform (LP64 here) with the fields in this order and
 * are pinned by assertions below; a record is checked by sizeof, never by a literal.
 *
 * Conventions of the whole interface:
 *  - Narrow text is UTF-8 whatever the locale; wide text is UTF-16 in ZnWChar units.
 *  - A block that a call hands out belongs to the caller and is released with ZnFree, or with the
 *    function its description names.
 *  - A database handle of 0 names the system database of the process.
 *  - Any thread may call any function unless its description says otherwise.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <assert.h>
#include <uchar.h>
#endif

#if defined(ZN_STATIC)
#define ZN_API
#elif defined(_WIN32)
#define ZN_API __declspec(dllexport)
#else
#define ZN_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define ZN_EXTERN_C_BEGIN extern "C" {
#define ZN_EXTERN_C_END }
#define ZN_NODISCARD [[nodiscard]]
#define ZN_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define ZN_EXTERN_C_BEGIN
#define ZN_EXTERN_C_END
#define ZN_NODISCARD __attribute__((warn_unused_result))
#define ZN_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

ZN_EXTERN_C_BEGIN

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef uint64_t u64;
typedef int32_t i32;
typedef int64_t i64;

/* One UTF-16 unit, whatever wchar_t is on this platform. */
typedef char16_t ZnWChar;

/* A handle points to a record {u32 tag, void* thing}. The tag tells what it stands for; a handle of
 * another kind, a freed one or a foreign pointer is refused by every call. */
typedef struct ZnHandleRecord* ZnHandle;

/* Kinds of handle (the tag word). */
#define HANDLE_PROPITER 1u           /* iterator over a property set */
#define HANDLE_PROPSET 2u            /* property set */
#define HANDLE_DATABASE 3u           /* database; lives as long as the database */
#define HANDLE_PROVIDER 4u           /* provider; lives as long as the provider */
#define HANDLE_EVENT 5u              /* wait event */
#define HANDLE_THREAD 7u             /* thread */
#define HANDLE_SYSOBJECT 8u          /* named system object */
#define HANDLE_EVENT_REGISTRATION 9u /* event registration */
#define HANDLE_CLIENT 0x200000u      /* client session */

typedef struct GUID {
  u32 Data1;
  u16 Data2;
  u16 Data3;
  u8 Data4[8];
} GUID;

/* The id of an object, provider, type or database. Meaningful only together with a database. */
typedef GUID ObjectId;

/* Type tags of values. Bit 31 makes the array of a type. */
#define ZN_TYPE_BOOLEAN 1u
#define ZN_TYPE_INT32 2u
#define ZN_TYPE_UINT32 3u
#define ZN_TYPE_INT64 4u
#define ZN_TYPE_UINT64 5u
#define ZN_TYPE_STRING 6u
#define ZN_TYPE_WIDESTRING 7u
#define ZN_TYPE_BINARY 8u
#define ZN_TYPE_GUID 9u
#define ZN_TYPE_PROPSET 10u
#define ZN_TYPE_OBJECT_ID 11u
#define ZN_TYPE_OBJECT 12u
#define ZN_TYPE_PROVIDER 13u
#define ZN_TYPE_DATABASE 14u
#define ZN_TYPE_TYPE_OBJECT 15u
#define ZN_TYPE_I18N 16u
#define ZN_TYPE_I18N_FORMAT_STRING 17u
#define ZN_TYPE_TIME 0x10005u
#define ZN_TYPE_ARRAY 0x80000000u

/* Property flags. */
#define ZN_PROPERTY_HIDDEN 1u
#define ZN_PROPERTY_NO_DISPLAY 2u
#define ZN_PROPERTY_REMOTE_ONLY 4u
#define ZN_PROPERTY_INDEXED 8u
/* In Property2::Flags only: the readable span of Value is computed from Type, Value and Size. */
#define ZN_PROPERTY_COMPUTED_SPAN 0x80000000u

/* Object flags. The low 16 bits are the callers'; the rest belongs to the library. */
#define OBJECT_HIDDEN 0x00000001u
#define OBJECT_NODISPLAY 0x00000002u

/* Event flags as a receiver reads them in EventRecord::flags. */
#define EVENT_LOCAL 0x1u
#define EVENT_REMOTE 0x2u
#define EVENT_TASK 0x4u
#define EVENT_HAS_DATA 0x8u
#define EVENT_OWNS_DATA 0x10000u

/* A property as it crosses the boundary. For a scalar Size is the byte size of the value, for an
 * array the number of elements. What Value points to, by tag:
 *   1 one byte; 2, 3 four bytes; 4, 5, time eight bytes; 6 NUL-terminated text; 7 zero-terminated
 *   UTF-16; 8 the bytes; 9, 11 a GUID; 10 a property-set handle; 14 a private-database handle;
 *   16 an I18nString; 17 an I18nFormatString; 12, 13 and 15 have no flat form.
 *   Arrays: the elements one after the other; pointers for tags 6 and 7, handles for tag 10,
 *   records for tags 16 and 17. There is no flat array of 8, 12, 13, 14 and 15.
 * Value holds the handle itself (not its address) for the scalar tags 10 and 14. For those tags
 * Size may be 8 or 16 on input and is 8 on output; for tag 16 it may be strlen(name) + 25 or
 * strlen(name) + sizeof(I18nString) + 1, for tag 17 28 or sizeof(I18nFormatString), and is the
 * sizeof figure on output. */
typedef struct Property2 {
  char* Name;
  u32 Type;
  u32 Flags;
  u32 Size;
  void* Value;
} Property2;

/* A localizable message: catalog, message number, default text. */
typedef struct I18nString {
  GUID catalog;
  u32 message;
  char* name;
} I18nString;

/* A localizable message with insertions (a property set with "i1", "i2", ...), or a null handle. */
typedef struct I18nFormatString {
  GUID catalog;
  u32 message;
  char* name;
  ZnHandle insertions;
} I18nFormatString;

/* The insertions of a formatted message: `count` wide texts, null where one is missing. The list
 * and its texts belong to the caller, who frees them with ZnFreeStringList(count, items). */
typedef struct InsertList {
  u32 count;
  ZnWChar** items;
} InsertList;

/* What a provider fills in to publish an alert (zn/alert.h). */
typedef struct AlertDescriptor {
  const char* topic;                   /* required; also the alert's key */
  u32 flag;                            /* below 4; carried to whoever hears the alert */
  u32 severity;                        /* 1 to 4, 1 the most severe */
  const I18nString* message;           /* required, with its text; may hold insertion places */
  const I18nString* classification;    /* may be null */
  const I18nString* friendlyName;      /* required, with its text */
  const I18nString* description;       /* required, with its text */
  const I18nString* recommendedAction; /* required, with its text; may hold insertion places */
  ZnHandle userProperties;             /* set whose names every raise must bring; may be null */
} AlertDescriptor;

/* What a provider's Event slot and a wait predicate receive. The first five fields are common to
 * both forms; `data` may be read only when size == sizeof(EventRecord). A record of any other size
 * is a LocalEventRecord. Valid during the call only. */
typedef struct EventRecord {
  u32 size;
  u32 flags;
  const char* topic;
  ZnHandle provider; /* who raised it, or null */
  ZnHandle database;
  ZnHandle data;
} EventRecord;

/* An object's change: size is sizeof(LocalEventRecord) + 1 + strlen(typeName), or exactly
 * sizeof(LocalEventRecord) when there is no object. `data` is set when flags has EVENT_HAS_DATA. */
typedef struct LocalEventRecord {
  u32 size;
  u32 flags;
  const char* topic;
  ZnHandle provider; /* always null */
  ZnHandle database;
  ObjectId objectId;
  const char* typeName;
  ZnHandle data;
} LocalEventRecord;

/* Progress of an asynchronous call: what a provider hands to the callback of the call. */
#define TASK_STATE_CREATED 1u
#define TASK_STATE_FINISHED 2u
#define TASK_STATE_RUNNING 3u
typedef struct TaskReport {
  u32 result;
  void* context;
  ObjectId taskId;
  u32 percentComplete;
  u32 state;
} TaskReport;

/* Receives progress. A provider reports through the callback it was given and stops working when
 * the answer is false: the task is gone. */
typedef bool (*TaskCallback)(TaskReport* report);

/* Flag of a provider call: run it as a task. */
#define ZN_CALL_ASYNCHRONOUS 1u

/* The provider contract: six slots, filled by the entry point. Every slot runs with no lock of the
 * library held and may call the library; an exception it lets out is caught and reported as
 * ZNE_PROVIDER_ACCESS_VIOLATED. A missing slot answers ZNE_NOT_IMPLEMENTED. */
typedef struct ProviderCallbacks {
  /* One call. `id` may be the zero id. `in` and `out` are property-set handles owned by the caller
   * and valid during the call. With ZN_CALL_ASYNCHRONOUS in `flags`, `callback`, `context` and
   * `taskId` are kept and used for reports until one with TASK_STATE_FINISHED; else `taskId` points
   * to the zero id. `answeringProvider` may be set to another provider's handle. */
  u32 (*Call)(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags,
              u32 reserved, void* context, TaskCallback callback, const GUID* interfaceId,
              const ObjectId* taskId, ZnHandle* answeringProvider);
  /* Once, after the provider object was made: create the objects here. A failure unloads it. */
  u32 (*Initialize)(ZnHandle database, ZnHandle provider, u32 reserved1, u32 reserved2);
  /* Once, before the library is unloaded: end the threads here. */
  u32 (*Shutdown)(ZnHandle database);
  /* Never called. */
  u32 (*Reserved)(void*, void*, void*, void*, void*);
  /* One event that matches a registration; runs on the raise thread. */
  u32 (*Event)(const EventRecord* event);
  /* Optional: the version text, a ZnAlloc block that the library frees. */
  u32 (*GetVersion)(ZnWChar** text);
} ProviderCallbacks;

/* The entry point of a provider library, by default named "ProviderEntry": fills the table and does
 * nothing else, since no provider object exists yet. */
typedef u32 (*ProviderEntryFunction)(const ZnWChar* name, u32 reserved,
                                     ProviderCallbacks* callbacks);

/* Callbacks of the process that hosts the system database. The change callback runs on the change
 * thread with a property set that tells one change; the event callback runs on the raise thread. */
typedef void (*ZnChangeCallback)(ZnHandle change);
typedef bool (*ZnEventCallback)(const EventRecord* event, u32 parameter);

/* One row of a trace table: the name of a value and the flag that its presence sets. A table ends
 * at a row with an empty name. */
typedef struct TraceFlagRow {
  ZnWChar name[100];
  u8 flag;
} TraceFlagRow;

/* A list of blocks, as the tokenizers fill it: each item and the array are freed with ZnFree. */
typedef struct Vector {
  u32 count;
  void** items;
} Vector;

ZN_STATIC_ASSERT(sizeof(GUID) == 16, "GUID");
ZN_STATIC_ASSERT(sizeof(ZnWChar) == 2, "ZnWChar");
ZN_STATIC_ASSERT(sizeof(TraceFlagRow) == 202, "TraceFlagRow");
#if UINTPTR_MAX == UINT64_MAX
ZN_STATIC_ASSERT(sizeof(Property2) == 32 && offsetof(Property2, Value) == 24, "Property2");
ZN_STATIC_ASSERT(sizeof(I18nString) == 32 && offsetof(I18nString, name) == 24, "I18nString");
ZN_STATIC_ASSERT(sizeof(I18nFormatString) == 40 && offsetof(I18nFormatString, insertions) == 32,
                 "I18nFormatString");
ZN_STATIC_ASSERT(sizeof(InsertList) == 16 && offsetof(InsertList, items) == 8, "InsertList");
ZN_STATIC_ASSERT(sizeof(AlertDescriptor) == 64 && offsetof(AlertDescriptor, message) == 16 &&
                     offsetof(AlertDescriptor, userProperties) == 56,
                 "AlertDescriptor");
ZN_STATIC_ASSERT(sizeof(EventRecord) == 40 && offsetof(EventRecord, data) == 32, "EventRecord");
ZN_STATIC_ASSERT(sizeof(LocalEventRecord) == 64 && offsetof(LocalEventRecord, objectId) == 32 &&
                     offsetof(LocalEventRecord, typeName) == 48 &&
                     offsetof(LocalEventRecord, data) == 56,
                 "LocalEventRecord");
ZN_STATIC_ASSERT(sizeof(TaskReport) == 40 && offsetof(TaskReport, taskId) == 16 &&
                     offsetof(TaskReport, state) == 36,
                 "TaskReport");
ZN_STATIC_ASSERT(sizeof(ProviderCallbacks) == 48, "ProviderCallbacks");
#endif

ZN_EXTERN_C_END
