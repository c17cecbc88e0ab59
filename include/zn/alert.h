/* Alerts: published kinds of notable occurrences, each with a topic, a severity and texts for the
 * operator, and the raising of them.
 *
 * Publishing makes an object of type KELD_SystemAlerts, an ordinary object of its database. Its
 * property "GenericAlertPropset" (a set) holds
 *
 *   AlertTopic                                string
 *   AlertSeverity, AlertFlag                  uint32
 *   AlertMsg, FriendlyAlertName, Description, RecommendedAction   i18n
 *   ClassificationName                        i18n, where one was given
 *   AlertMsgInsertionStringCount, RecommendedActionInsertionStringCount   uint32
 *
 * and "UserDefinedPropset" the template of the user properties, where one was given.
 *
 * A raised alert is an event under the alert's topic. Its data is a set of
 *
 *   GenericAlertPropset  set: AlertTopic, AlertSeverity, AlertFlag, FriendlyAlertName,
 *                        ClassificationName and Description as published; AlertMsg and
 *                        RecommendedAction as format strings with their insertions;
 *                        TimeStampSeconds (uint32, seconds since 1970); AlertGUID (guid, new for
 *                        each raise)
 *   UserDefinedPropset   set, where the raise brought one
 *   SourceComputer, SourceProvider   wide string
 *
 * Insertion places stand in the text of the message and of the recommended action: "%1" or "%{1}",
 * numbers from 1 to 64, "%%" for a percent sign. A text's places are 1 to N without a gap, each
 * once, in any order.
 *
 * All functions here may be called from any thread, and from every slot of a provider. A null
 * database handle names the system database; ZNE_INVALID_ARGUMENTS answers a bad handle, a bad
 * pointer and a text beyond its limit (8192 bytes for a topic), ZNW_SHMEM_LOGIN_FAILED a client
 * copy that has not logged on, ZNE_OUT_OF_MEMORY a short memory. These are not repeated below.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Publishes an alert; the provider owns its object. Everything is copied.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS for a topic that is null or empty, a flag of 4 or more, a
 * severity outside 1 to 4, a message, friendly name, description or recommended action that is
 * missing or has no text; ZNE_ALERT_REREGISTER when the topic is published already, by whomever;
 * ZNE_INSERTION_FORMAT_INVALID for places that are not 1 to N, each once. Nothing is left behind by
 * a refused publish. */
ZN_API u32 ObPublishAlert(ZnHandle hDb, ZnHandle hProvider, const AlertDescriptor* alert);

/* Takes a published alert back; the provider need not be the one that published it. Returns ZN_OK
 * or ZNE_ALERT_OBJECT_NOT_FOUND. */
ZN_API u32 ObUnpublishAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic);

/* Raises a published alert.
 *
 *   hInsertions      a set with the insertions: "AlertMsg1", "AlertMsg2", ... and
 *                    "RecommendedAction1", ..., each a string, wide string or i18n. Null where the
 *                    texts have no places. What it has beyond the places, without a gap behind
 *                    them, goes along.
 *   hUserProperties  a set with at least the names of the alert's template; null where there is no
 *                    template. Both stay the caller's.
 *
 * Returns ZN_OK; ZNE_ALERT_OBJECT_NOT_FOUND; ZNE_INSERTION_STRINGS_INVALID when an insertion is
 * missing or of another type; ZNE_USER_PROPSET_INVALID; ZNE_INSERTION_FORMAT_INVALID when the
 * alert's object was given another text meanwhile, ZNE_PROPERTY_NOT_FOUND when its message was
 * taken from it; else what EvRaiseEvent answers. Nothing of a refused raise is sent. */
ZN_API u32 ObRaiseAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle hInsertions,
                        ZnHandle hUserProperties);

/* Alerts are events: these two do what EvRegisterEvent and EvUnregisterEvent do. "event.alert" as
 * the topic hears every alert whose topic begins with these tokens. */
ZN_API u32 ObRegisterAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic,
                           ZnHandle* registration);
ZN_API u32 ObUnregisterAlert(ZnHandle hDb, ZnHandle registration);

ZN_EXTERN_C_END
