/* Events: hearing, awaiting and raising what happens on the bus.
 *
 * An event has a topic, a dotted string of tokens such as
 * "event.keld.dom.object.KELD_Disk.data.change.{...}". Who registers gives a pattern: a prefix of
 * the topics wanted, in which a token "*" stands for any token. The fifth token of a pattern that
 * begins with "event.keld.dom.object" is a type and also answers for the types derived from it.
 *
 * Two threads of the library deliver. The raise thread takes the events in the order in which they
 * were queued and runs, for each, the predicates of the wait events, then the Event slots of the
 * registered providers, then the event callback of the database; all receivers of one event run
 * before the next event. The change thread hands changes to the change callback. None of these
 * runs with a lock of the library held, and all of them may call the library.
 *
 * Common to all functions: text is UTF-8; a topic or pattern has at most 8192 characters and a
 * terminator; a database handle of 0 names the system database. Every function may be called by
 * any thread, also within a callback, unless its description says otherwise. Where a function
 * fails, its outputs are as they were, unless its description says otherwise.
 *
 * Statuses that all functions with a database handle return:
 *   ZNE_INVALID_ARGUMENTS   a bad handle, text or output; or no such database
 *   ZNW_SHMEM_LOGIN_FAILED  a client copy whose session has not logged on. This is a warning:
 *                           ZN_FAILED is false for it, and nothing was done
 *   ZNE_OUT_OF_MEMORY       nothing was done
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Whether a topic matches a pattern. Characters are not checked, tokens compare byte by byte. A
 * trailing "*" of the pattern asks for a token of its own: "a.*" does not match "a", while a
 * registration on "a.*" hears "a".
 *
 * hDb:     the database whose types decide the fifth token of an object topic; without a system
 *          database 0 is good too, and such a token then matches nothing but "*".
 * topic:   borrowed, as is pattern.
 * Returns false for a bad handle or text as well, with the trace of an invalid argument. */
ZN_API bool EvMatch(ZnHandle hDb, const char* topic, const char* pattern);

/* Splits a topic or pattern at its points and checks the tokens by the rule for patterns: "*"
 * alone, or letters, digits, ':', '_', '-', '{', '}'. An empty token is legal: "a..b" has three
 * tokens and "" has one.
 *
 * tokens:  one block that holds the pointers and the texts they point to; the caller frees the
 *          block, and nothing else, with ZnFree.
 * count:   the number of tokens.
 * Returns 0, ZNE_INVALID_ARGUMENTS for a bad text or a null output, ZNE_EVENT_STRING_INVALID for
 * an illegal token, ZNE_OUT_OF_MEMORY. */
ZN_API u32 EvTokens(const char* topic, char*** tokens, u32* count);

/* Registers a provider for the topics that a pattern matches: its Event slot runs once for each
 * event, whatever the number of patterns that match. Trailing "*" tokens are dropped; "*" alone
 * hears everything. A second registration on the same pattern gives a second handle on the one
 * registration: the first EvUnregisterEvent ends it, and the other handle is stale.
 *
 * hProvider:    the provider to be called. When it is unloaded its registrations end by themselves.
 * topic:        the pattern, borrowed, not empty.
 * registration: a handle of kind 9 for EvUnregisterEvent, valid until then or until the database
 *               goes. Null after ZNE_EVENT_STRING_INVALID.
 * Returns 0, ZNE_EVENT_STRING_INVALID for an illegal token, ZNE_INVALID_ARGUMENTS also for the
 * empty pattern, and the statuses common to all. */
ZN_API u32 EvRegisterEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic,
                           ZnHandle* registration);

/* Ends a registration and frees its handle. An event that is being delivered at this moment may
 * still arrive.
 *
 * Returns 0; ZNE_INVALID_ARGUMENTS for a handle that is no registration; ZNE_UNEXPECTED when
 * another handle of the same pattern has ended the registration already, and this handle then
 * stays allocated; and the statuses common to all. */
ZN_API u32 EvUnregisterEvent(ZnHandle hDb, ZnHandle registration);

/* Makes a wait event: from now on `predicate` sees every event of the database, and the first one
 * it accepts ends, or forestalls, the wait of EvWaitForEvent.
 *
 * predicate:  runs on the raise thread with no lock held, for every event until the wait is over;
 *             it must be quick. The record is valid during the call only. It may still be running
 *             when EvWaitForEvent returns, so `context` must outlive that.
 * context:    handed to the predicate, not looked at.
 * waitHandle: a handle of kind 5, good for one wait; the caller frees it with ZnCloseHandle.
 *             Without a wait the predicate stays in use until the database goes.
 * Returns 0, ZNE_UNEXPECTED when the system has no event to give, and the statuses common to
 * all. */
ZN_API u32 EvCreateWaitEvent(ZnHandle hDb, bool (*predicate)(const EventRecord*, void*),
                             void* context, ZnHandle* waitHandle);

/* Waits until the predicate of a wait event has accepted an event or the time is over; the two
 * cannot be told apart by the result. Either way the wait event is consumed. Not to be called
 * within a predicate or an Event slot: no event arrives while one of these waits.
 *
 * timeoutMs: milliseconds; 0 returns at once, 0xFFFFFFFF waits without limit.
 * Returns 0, ZNE_EVENT_NOT_FOUND for a wait event that has been consumed or belongs to another
 * database, and the statuses common to all. */
ZN_API u32 EvWaitForEvent(ZnHandle hDb, ZnHandle waitHandle, u32 timeoutMs);

/* Raises an event: queues it for the listeners of this process and for the clients, and returns
 * without waiting for any of them.
 *
 * hProvider: who raises it; receivers find it in the record.
 * topic:     letters, digits, '.', ':', '_', '-', '{', '}'; a "*" is not legal. Copied.
 * hPropset:  the event's data, copied; the caller keeps the set.
 * Returns 0, ZNE_EVENT_STRING_INVALID for a topic with other characters, ZNW_SERVICE_UNAVAILABLE
 * while the event threads do not run (a warning, for which ZN_FAILED is false: nothing was
 * queued), and the statuses common to all. */
ZN_API u32 EvRaiseEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle hPropset);

ZN_EXTERN_C_END
