// The files that a server offers to its clients, as objects of type KELD_Extension. They are listed
// below two keys of the settings, of one form, and are made once, at start:
//
//   ClientExtensions\<id>\<skin>\<platform>\<locale>    code that a console loads for a provider
//   MessageCatalogs\<id>\<skin>\<platform>\<locale>     texts of messages (zni18n/catalog.h)
//       ImageFile     path of the file, required
//       Flags         number, 0 by default
//       every other text or number, of any of the four levels, is a property of the objects below
//
// Properties of an object: Id and Skin (string), Platform, Locale and Flags (uint32), ImageFile
// (wide string), FileSize (uint64), then those of the levels, the later over the earlier.
#pragma once

#include "zn/types.h"

namespace zn {

class Database;
class Provider;

// Makes the objects of both keys; a missing key is ZNE_CLIENT_EXT_REG_MISSING and does not keep the
// other from being read. A file that does not exist has no object, and nobody is told. The result
// is the last failure; the walk goes on where it can. Under FAST_LOCK.
[[nodiscard]] u32 CreateExtensionObjects(Database& database, Provider& provider);

}  // namespace zn
