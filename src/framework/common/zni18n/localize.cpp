// Localized texts: see the header.
#include "framework/common/zni18n/localize.h"

#include "framework/common/fmtstr/formatstring.h"
#include "framework/common/fmtstr/template.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"

namespace zn {

namespace {

// What a client copy hands to its owner, which has a copy of the server's file.
[[nodiscard]] u32 FetchMessage(Database& database, const MessageRequest& request,
                               std::u16string* out) {
  const DatabaseCallbacks callbacks = database.Callbacks();
  if (callbacks.fetchMessage == nullptr) return ZNE_NOT_IMPLEMENTED;
  const Database::Pin pin(database);
  const BusRelease release;
  return callbacks.fetchMessage(request, out, callbacks.context);
}

// The insertions of a format string as texts.
class FormatInsertions final : public InsertionSource {
 public:
  FormatInsertions(const DatabaseRef& database, const I18nFormatString& fmt, const CatalogKey& key)
      : database_(database), fmt_(fmt), key_(key) {}

  // Looked up anew each time: the set may change while the lock is free.
  [[nodiscard]] u32 Append(u32 index, std::u16string* out) override {
    const auto lookUp = [this](const I18nParts& parts, std::u16string* text) {
      CatalogKey key = key_;
      key.catalog = parts.catalog;
      return GetMessageText(database_, key, parts.message, text);
    };
    return AppendInsertion(fmt_, index, ZNE_UNEXPECTED, lookUp, out);
  }

 private:
  const DatabaseRef& database_;
  const I18nFormatString& fmt_;
  const CatalogKey& key_;
};

}  // namespace

u32 GetMessageText(const DatabaseRef& ref, const CatalogKey& key, u32 message,
                   std::u16string* out) {
  Database* database = ref.Find();
  if (database == nullptr) return ZNE_INVALID_ARGUMENTS;
  std::u16string path;
  ZN_RETURN_IF_FAILED(FindCatalogFile(*database, key, &path));
  if (database->IsLocal()) return ReadMessage(path, message, out);
  return FetchMessage(*database, {key, message, path}, out);
}

u32 MakeLocalizedText(const DatabaseRef& database, const I18nFormatString& fmt,
                      const CatalogKey& key, std::u16string* out) {
  std::u16string text;
  ZN_RETURN_IF_FAILED(GetMessageText(database, key, fmt.message, &text));
  FormatInsertions insertions(database, fmt, key);
  return ExpandTemplate(text, insertions, out);
}

}  // namespace zn
