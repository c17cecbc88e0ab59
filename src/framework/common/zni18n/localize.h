// Messages in the reader's language: the text of a message of a catalog, and a template with its
// insertions put in. In a local database the catalog file is read under the bus lock; a client copy
// has the text fetched with the lock released, so everything found before is dead after a call.
#pragma once

#include <string>

#include "framework/common/zni18n/catalog.h"
#include "framework/common/znprov/databaseref.h"
#include "zn/types.h"

namespace zn {

// What a client copy asks its owner for (DatabaseCallbacks::fetchMessage): the text of a message in
// the server's file at `path`.
struct MessageRequest {
  CatalogKey key;
  u32 message = 0;
  std::u16string path;
};

// The text of a message; the failures of FindCatalogFile and ReadMessage. ZNE_INVALID_ARGUMENTS for
// a database that is gone, ZNE_NOT_IMPLEMENTED for a client copy that cannot fetch. Under
// FAST_LOCK.
[[nodiscard]] u32 GetMessageText(const DatabaseRef& database, const CatalogKey& key, u32 message,
                                 std::u16string* out);

// The text of the format string's message with its insertions. An i18n insertion is its own text in
// the same language, inserted as it stands. Under FAST_LOCK.
[[nodiscard]] u32 MakeLocalizedText(const DatabaseRef& database, const I18nFormatString& fmt,
                                    const CatalogKey& key, std::u16string* out);

}  // namespace zn
