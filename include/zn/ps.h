/* Property sets: named, typed, flagged values, at most one of a name, in the byte order of their
 * names. A set at the boundary is a handle of kind HANDLE_PROPSET; a property crosses as a
 * Property2 (zn/types.h), in and out as a copy.
 *
 * Sets belong to no database: they work in any process, with or without a server or a system
 * database. Whoever makes a set, or is handed one by a call that says so, owns it and destroys it
 * with PsDestroyPropset. A record that a call here hands out is one block, which the caller frees
 * with PsFreeProperty, never with ZnFree. A record that a call here takes stays the caller's.
 *
 * All functions here may be called from any thread, on one set too, and from every slot of a
 * provider; none of them waits for anything but the lock of the library. A handle of another kind,
 * a destroyed one, a bad pointer or a text beyond its limit is refused with ZNE_INVALID_ARGUMENTS,
 * and after ShutdownServer so is every handle. Every function that allocates may answer
 * ZNE_OUT_OF_MEMORY. These are not repeated below. Results are written on success only.
 *
 * A property name has at most 4096 bytes; names are compared by byte, with case. In a record that
 * the caller passes it is made of the letters A to Z and a to z, digits, "_" and blanks, the first
 * of them a letter or "_"; it may be empty.
 *
 * A record that the caller passes is also refused when its value does not suit its type: a scalar
 * needs a Value and a Size that is the size of the value (for a widestring any but 0; for an int32
 * any but 0, of which up to four bytes are read), an array both or neither. A string has its
 * terminator within Size; wide text and the texts of arrays are read up to theirs. Handles in the
 * value must be live ones; what they stand for is copied. Types that have no flat form are refused.
 * Of Flags the low 12 bits are stored; the bit ZN_PROPERTY_COMPUTED_SPAN is accepted.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Makes an empty set. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 PsCreatePropset(ZnHandle* out);

/* Destroys the set with all it holds; the handle is dead from then on. Returns ZN_OK, or
 * ZNE_INVALID_ARGUMENTS, also for a set that is destroyed already. */
ZN_API u32 PsDestroyPropset(ZnHandle set);

/* Adds a property. Returns ZN_OK; ZNE_INVALID_ARGUMENTS; ZNE_DUPLICATE_LOOKUP_KEY when the set has
 * one of that name, which stays as it is. */
ZN_API u32 PsAddProperty(ZnHandle set, const Property2* p);

/* Adds a property, or gives the present one of that name the value; the present one keeps its
 * flags. Returns ZN_OK; ZNI_PROPSET_UNCHANGED (a success) when the present value is equal, see
 * PsMergePropsets; ZNE_INVALID_ARGUMENTS, also for another type than the present value has. */
ZN_API u32 PsSetProperty(ZnHandle set, const Property2* p);

/* Takes the property away. Returns ZN_OK, ZNE_INVALID_ARGUMENTS, or ZNE_PROPERTY_NOT_FOUND when
 * there is none of that name. */
ZN_API u32 PsDeleteProperty(ZnHandle set, const char* name);

/* Frees a record that a call of the library handed out, with all that hangs on it: the set or the
 * private database of a record of type 10 or 14, the sets of an array of 10, the names and
 * insertions of format strings (17 and its array). What the caller has destroyed already is passed
 * over. Not for records that the caller laid out. Takes the lock of the library only where a
 * record holds handles.
 *
 * Returns ZN_OK, or ZNE_INVALID_ARGUMENTS for a bad pointer and for a type that has no flat form
 * (12, 13, 15, arrays of 8 and 12 to 15, unknown ones); nothing is freed then. */
ZN_API u32 PsFreeProperty(Property2* p);

/* A copy of the property of that name. `*out` is a new record, which the caller frees with
 * PsFreeProperty. For type 10 it holds a new set, for type 14 a new private database.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a value that has no flat form;
 * ZNE_PROPERTY_NOT_FOUND; for a database whose content does not fit together what its making
 * answers, such as ZNE_TYPE_NOT_FOUND. */
ZN_API u32 PsFindProperty(ZnHandle set, const char* name, Property2** out);

/* Makes a new set with copies of all properties, nested sets too; values of type "object" (12)
 * alone are shared by the copies. The caller destroys it with PsDestroyPropset. Returns ZN_OK or
 * ZNE_INVALID_ARGUMENTS. */
ZN_API u32 PsCopyPropset(ZnHandle set, ZnHandle* out);

/* Adds or sets in `target` every property of `source`, in the order of names, as PsSetProperty
 * does; `source` stays as it is.
 *
 * Values are compared by their bytes, text with its case. A nested set counts as equal when all
 * that it has stands equal in the other, whatever else that one has: a value may so be kept
 * although the new one has more.
 *
 * Returns ZN_OK; ZNI_PROPSET_UNCHANGED (a success) when nothing changed, also for an empty source;
 * ZNE_INVALID_ARGUMENTS, also at the first property whose type differs: what stood before it has
 * been merged then. */
ZN_API u32 PsMergePropsets(ZnHandle target, ZnHandle source);

/* Makes an iterator at the first property. It is a position and nothing else: it may be used on
 * any set, and changes to a set between steps shift what the position means. One iterator is used
 * by one thread at a time. The caller frees it with ZnCloseHandle or ZnFree. Returns ZN_OK or
 * ZNE_INVALID_ARGUMENTS. */
ZN_API u32 PsOpenPropset(ZnHandle set, ZnHandle* outIterator);

/* A copy of the property at the iterator's position, in the order of names, and moves on. `*out` is
 * a new record, which the caller frees with PsFreeProperty.
 *
 * Returns ZN_OK; ZNE_NO_MORE_PROPERTIES at the end, as often as it is asked; and what
 * PsFindProperty answers for a value without a flat form or a database that cannot be made: the
 * iterator stays where it is then. */
ZN_API u32 PsFindNextProperty(ZnHandle set, ZnHandle iterator, Property2** out);

/* The set in the binary form that travels between processes: big-endian, without a header, at most
 * 2^32 - 1 bytes. `*out` is a new block of `*outLen` bytes, which the caller frees with ZnFree; an
 * empty set gives four bytes. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 PsMarshalPropset(ZnHandle set, void** out, u32* outLen);

/* Makes a set from `len` bytes of that form; the caller destroys it with PsDestroyPropset. The
 * bytes need not be trusted: counts and lengths beyond the bytes at hand fail at once, and sets may
 * nest 256 deep, the outermost among them. Of a name that comes twice the first property stays. Any
 * name and all 32 bits of flags are taken as they come; bytes behind the set are ignored.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a null `data`; ZNE_UNEXPECTED for bytes that end
 * early, an unknown type or a nesting too deep. */
ZN_API u32 PsUnmarshalPropset(const void* data, u32 len, ZnHandle* out);

/* The set in another dress.
 *
 *   format       0: text for people, with its terminator, which `*outLen` counts;
 *                1: the binary form of PsMarshalPropset;
 *                2: XML for logs, with its terminator, which `*outLen` counts. Nothing is escaped,
 *                binary values are left out, and it is not read back.
 *   out, outLen  receive a new block and its length in bytes; the caller frees it with ZnFree.
 *
 * Returns ZN_OK, or ZNE_INVALID_ARGUMENTS, also for another format. */
ZN_API u32 PsSPrintf(u32 format, ZnHandle set, void** out, u32* outLen);

/* Makes a formatted-string property (zn/i18n.h, ZnMakeFormattedString), without insertions or with
 * the index as the one insertion, and adds it to the set. What the set holds then is an int32 of
 * the first four bytes: whoever wants the message in a set adds an I18nString (type 16) or an
 * I18nFormatString (17).
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for the zero catalog; ZNE_DUPLICATE_LOOKUP_KEY. */
ZN_API u32 PsAddI18nString(ZnHandle set, GUID catalog, u32 message, const char* name,
                           const char* propertyName);
ZN_API u32 PsAddI18nStringWithIndex(ZnHandle set, GUID catalog, u32 message, const char* name,
                                    i32 index, const char* propertyName);

ZN_EXTERN_C_END
