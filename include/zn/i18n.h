/* Messages for people. The bus never carries a finished text: a provider names a message of a
 * catalog, gives the values to insert and a plain default text, and whoever shows the message makes
 * text of it in the reader's language, with the catalog files at hand.
 *
 * A message has three forms:
 *  - I18nString: catalog, message number, default text ("name"). As a property its type is 16.
 *  - I18nFormatString: the same and a set of insertions, named "i1", "i2", ... As a property its
 *    type is 17.
 *  - a formatted-string property: a Property2 of type 2 whose value is a marshalled set, for
 *    interfaces that know bytes alone. Its insertions count from 0, and no function converts it to
 *    the second form.
 *
 * A template is the text of a message in a catalog. "%1" or "%{1}" in it stands for the insertion
 * of that number, from 1 on, in any order and as often as wanted; "%%" for a percent sign. A
 * specifier that is none of these ("%0", "%x", "%{1", "%{x}") ends the text in front of it.
 *
 * A catalog is a text file in UTF-8. A line is the message number in hexadecimal, "=", the text;
 * white space around either does not count, an empty line and one that begins with "#" are passed
 * over, the first line of a number counts, and a line has at most 1023 bytes. Which file holds
 * which catalog, in which language, is told by the objects of type KELD_Extension, which the
 * settings key "MessageCatalogs" makes at start (docs/settings.md).
 *
 * Locales are numbers: 0x409 (1033) is US English, 0x407 (1031) German. Locale 0 means 0x409, a
 * null skin "MiraSkin". There is no fallback to another locale or skin, nor to a record's name: a
 * caller that shows text does that.
 *
 * All functions here may be called from any thread, and from every slot of a provider.
 * ZNE_INVALID_ARGUMENTS answers a bad pointer, a handle of another kind, and a default text of more
 * than 131072 bytes; ZNE_OUT_OF_MEMORY a short memory. Both are not repeated below. Results are
 * written on success only, unless a description says otherwise.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* --- the three forms --- */

/* A record with its text behind it, one block that the caller frees with ZnFree. `*out` is null
 * after a failure. */
ZN_API u32 ZnMakeI18nStr(GUID catalog, u32 message, const char* name, I18nString** out);

/* A formatted-string property. The `count` further arguments are const ZnWChar*, the insertions in
 * order. `propertyName` is kept as the pointer it is. `*out` is one block, which the caller frees
 * with PsFreeProperty. Also refused: the zero catalog.
 *
 * Put into a set, the record becomes an int32 of its first four bytes; the message survives in the
 * record alone. */
ZN_API u32 ZnMakeFormattedString(Property2** out, const char* propertyName, GUID catalog,
                                 u32 message, const char* name, u32 count, ...);

/* Reads such a record, whose bytes need not be trusted. `*message` is a block for ZnFree,
 * `*inserts` a list for ZnFreeStringList; both are null after a failure.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a record of another type; ZNE_PROPERTY_NOT_FOUND
 * when the bytes hold no message; ZNE_UNEXPECTED when they are no set. */
ZN_API u32 ZnDecodeFormattedString(const Property2* in, I18nString** message, InsertList* inserts);

/* Frees each block of the list that is not null, then the list, which may be null. */
ZN_API u32 ZnFreeStringList(u32 count, void** list);

/* Fills catalog, message and name; the name is a copy that I18nDeleteFormatString frees. What the
 * record held before is not freed, and `insertions` stays as the caller set it. */
ZN_API u32 I18nAddFormatSpec(I18nFormatString* fmt, GUID catalog, u32 message, const char* name);

/* Adds the insertion of that number to the set that `fmt->insertions` names, which the caller has
 * made. Also returns ZNE_DUPLICATE_LOOKUP_KEY for a number that is there. */
ZN_API u32 I18nAddInsertionString(I18nFormatString* fmt, u32 index, const char* value);
ZN_API u32 I18nAddInsertionWideString(I18nFormatString* fmt, u32 index, const ZnWChar* value);
ZN_API u32 I18nAddInsertionI18n(I18nFormatString* fmt, u32 index, const I18nString* value);

/* A copy of an insertion: `*type` is ZN_TYPE_STRING, ZN_TYPE_WIDESTRING or ZN_TYPE_I18N, `*value` a
 * block for ZnFree with a text, a wide text or an I18nString. `type` may be null.
 *
 * Also returns ZNE_PROPERTY_NOT_FOUND without such an insertion, ZNE_UNEXPECTED for one of another
 * type. */
ZN_API u32 I18nGetInsertion(const I18nFormatString* fmt, u32 index, u32* type, void** value);

/* A deep copy. The caller deletes its content with I18nDeleteFormatString and frees the record with
 * ZnFree. Records without insertions have copies without. */
ZN_API u32 I18nCopyFormatString(const I18nFormatString* fmt, I18nFormatString** out);

/* Frees the name and destroys the insertions; the record itself stays the caller's. */
ZN_API u32 I18nDeleteFormatString(I18nFormatString* fmt);

/* --- localized text --- */

/* The text of a message in the catalog of a provider, or of a record's message in the record's
 * catalog, or of a format string with its insertions put in. `*out` is a new block, which the
 * caller frees with ZnFree.
 *
 *   hDb        the database whose extension objects are looked at; null for the system database.
 *   hProvider  null for the provider "system".
 *   skin       at most 256 bytes, or null.
 *   reserved   must be 0.
 *
 * An i18n insertion is inserted as its own text in that language, which is not expanded again.
 * Every other insertion stands in the text as it is, save that "%%" in it becomes "%" as well.
 *
 * Return ZN_OK; ZNE_CATALOG_NOT_PRESENT when no file is known for that catalog, locale and skin;
 * ZNE_THING_NOT_FOUND when the file has no such message; ZNE_UNEXPECTED when it cannot be opened;
 * ZNE_INVALID_ARGUMENTS, also for a null `hDb` without a system database and for a provider whose
 * catalog is no GUID; ZNE_PROVIDER_REG_NO_PROVIDERS without a provider "system";
 * ZNW_SHMEM_LOGIN_FAILED on a client copy that has not logged on; ZNE_NOT_IMPLEMENTED on one that
 * has no way to its server's files. The last one also: what I18nGetInsertion answers for a place
 * without an insertion. */
ZN_API u32 i18nGetLocalizedString(ZnHandle hDb, ZnHandle hProvider, u32 message, u32 locale,
                                  const char* skin, u32 reserved, ZnWChar** out);
ZN_API u32 i18nGetLocalizedStringFromi18n(ZnHandle hDb, I18nString msg, u32 locale,
                                          const char* skin, u32 reserved, ZnWChar** out);
ZN_API u32 ZnMakeLocalizedFormattedString(ZnHandle hDb, I18nFormatString fmt, u32 locale,
                                          const char* skin, u32 reserved, ZnWChar** out);

ZN_EXTERN_C_END
