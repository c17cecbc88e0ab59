// Files of the server, and the catalogs among them. A file that was fetched stays in the user's
// tree; a catalog is fetched where it is not there yet, and is never refreshed, so it takes its
// name only when all of it is there.
#include "clientsvc/common/clientsession.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <utility>

#include "framework/common/fmtstr/formatstring.h"
#include "framework/common/fmtstr/template.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znwire/messages.h"
#include "support/common/download_path.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/db.h"
#include "zn/i18n.h"
#include "zn/memory.h"
#include "zn/ob.h"
#include "zn/ps.h"

namespace zn {

namespace {

constexpr u32 kClientLocale = 0x409;
constexpr u32 kClientPlatform = 2;
constexpr std::string_view kClientSkin = "MiraSkin";

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

[[nodiscard]] File OpenFile(const std::string& path, const char* mode) {
  return File(std::fopen(ToHostPath(path).c_str(), mode));
}

// Whether all of it was written.
[[nodiscard]] bool WriteFile(const std::string& path, std::string_view bytes) {
  File file = OpenFile(path, "wb");
  if (file == nullptr) return false;
  const bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  return std::fclose(file.release()) == 0 && isWritten;
}

// The same under a name of its own first: a part of a file would be taken for the file for good.
void WriteWholeFile(const std::string& path, std::string_view bytes) {
  static std::atomic<u32> number{0};
  const std::string part =
      ToHostPath(path) + "." + std::to_string(CurrentThreadId()) + "." + std::to_string(++number);
  const bool isDone =
      WriteFile(part, bytes) && std::rename(part.c_str(), ToHostPath(path).c_str()) == 0;
  if (!isDone) static_cast<void>(std::remove(part.c_str()));
}

// A device or a pipe among the fetched files would be none of ours.
[[nodiscard]] bool IsFileThere(const std::string& path) {
  FileStatus status;
  return GetFileStatus(path, &status) && status.isRegular;
}

[[nodiscard]] std::string TextOfGuid(const GUID& id) {
  std::string text(kGuidTextLength, '\0');
  FormatGuid(id, text.data());
  return text;
}

// The name of the server's file where the object stands for that catalog on a client.
[[nodiscard]] bool IsClientCatalog(const PropertySet& extension, std::string_view id,
                                   std::u16string* serverFile) {
  const Value* idText = extension.FindValue("Id", ZN_TYPE_STRING);
  const Value* locale = extension.FindValue("Locale", ZN_TYPE_UINT32);
  const Value* platform = extension.FindValue("Platform", ZN_TYPE_UINT32);
  const Value* skin = extension.FindValue("Skin", ZN_TYPE_STRING);
  const Value* file = extension.FindValue(wire::kImageFileKey, ZN_TYPE_WIDESTRING);
  if (idText == nullptr || locale == nullptr || platform == nullptr || skin == nullptr ||
      file == nullptr) {
    return false;
  }
  if (CompareNoCase(idText->AsText(), id) != 0 || locale->AsUInt32() != kClientLocale ||
      platform->AsUInt32() != kClientPlatform || skin->AsText() != kClientSkin) {
    return false;
  }
  *serverFile = file->AsWideText();
  return true;
}

// The statuses of ZnBuildDownloadPath, as a reader of messages gives them on.
[[nodiscard]] u32 StatusOfPath(int made) noexcept {
  switch (made) {
    case kPathMade:
      return ZN_OK;
    case kPathNoTree:
      return ZNE_CLIENT_NOT_AUTHORIZED;
    case kPathNoMemory:
      return ZNE_OUT_OF_MEMORY;
    default:
      return ZNE_UNEXPECTED;
  }
}

}  // namespace

u32 ClientSession::FetchFile(std::u16string_view name, PropertySet* answer,
                             std::string_view* bytes) {
  if (IsLost()) return ZNE_INVALID_ARGUMENTS;
  PropertySet request;
  request.Put(wire::kImageFileKey, Value::WideText(name));
  request.Put(wire::kMessageKey, Value::UInt32(wire::kFileRequest));
  ZN_RETURN_IF_FAILED(SendSet(request, answer));
  const Value* result = answer->FindValue(wire::kResultKey, ZN_TYPE_UINT32);
  if (result != nullptr && result->AsUInt32() != ZN_OK) return result->AsUInt32();
  const Value* data = answer->FindValue(wire::kDataKey, ZN_TYPE_BINARY);
  if (data == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  *bytes = data->AsBinary();
  return ZN_OK;
}

u32 ClientSession::DownloadFile(std::u16string_view name, const std::string& localPath) {
  PropertySet answer;
  std::string_view bytes;
  const u32 status = FetchFile(name, &answer, &bytes);
  if (status != ZN_OK) return status;
  // Contract: what cannot be written is not reported.
  static_cast<void>(WriteFile(localPath, bytes));
  return ZN_OK;
}

u32 ClientSession::LoadCatalog(const std::string& idText, u32 platform, u32 locale,
                               const std::string& skin, const std::u16string& serverFile,
                               std::string* localFile) {
  DownloadRequest path;
  path.serverFile = ToNarrow(serverFile);
  ZN_RETURN_IF_FAILED(StatusOfPath(ZnBuildDownloadPath(idText, skin, platform, locale, &path)));
  *localFile = path.localPath;
  if (IsFileThere(path.localPath)) return ZN_OK;
  PropertySet answer;
  std::string_view bytes;
  const u32 status = FetchFile(serverFile, &answer, &bytes);
  if (status == ZN_OK) WriteWholeFile(path.localPath, bytes);
  return status;
}

u32 ClientSession::FetchMessage(const MessageRequest& request, std::u16string* text) {
  std::string localFile;
  ZN_RETURN_IF_FAILED(LoadCatalog(TextOfGuid(request.key.catalog), request.key.platform,
                                  request.key.locale, request.key.skin, request.path, &localFile));
  const File file = IsFileThere(localFile) ? OpenFile(localFile, "r") : nullptr;
  if (file == nullptr) {
    ZN_TRACE(6, "ClientSvc: Unable to open catalog %s", localFile.c_str());
    return ZNE_UNEXPECTED;
  }
  std::string narrow;
  if (!FindMessage(file.get(), request.message, &narrow)) return ZNE_THING_NOT_FOUND;
  *text = ToWide(narrow);
  return ZN_OK;
}

u32 ClientSession::FindCatalog(const GUID& id, std::u16string* serverFile) {
  const ZnHandle database = DatabaseHandle();
  if (database == nullptr) return ZNE_UNEXPECTED;
  u32 count = 0;
  ObjectId* ids = nullptr;
  const u32 listed = DbGetObjects(database, kExtensionTypeName.data(), &count, &ids);
  if (listed != ZN_OK) return listed;
  const std::vector<ObjectId> objects(ids, ids + count);
  ZnFree(ids);
  const std::string idText = TextOfGuid(id);
  for (const ObjectId& object : objects) {
    ZnHandle properties = nullptr;
    const u32 status = ObGetProperties(database, object, &properties);
    if (status != ZN_OK) return status;
    const bool isMatch = IsClientCatalog(*HandleThing<PropertySet>(properties), idText, serverFile);
    static_cast<void>(PsDestroyPropset(properties));
    if (isMatch) return ZN_OK;
  }
  return ZN_OK;
}

u32 ClientSession::LookUpMessage(const std::string& catalog, u32 message,
                                 std::string_view defaultText, std::u16string* out) {
  if (catalog.empty()) {
    *out = ToWide(defaultText);
    return ZN_OK;
  }
  std::string path;
  {
    const MutexLock lock(mutex_);
    const auto entry = catalogs_.find(catalog);
    if (entry == catalogs_.end()) return ZNE_CATALOG_NOT_PRESENT;
    path = entry->second;
  }
  const File file = OpenFile(path, "r");
  std::string narrow;
  if (file == nullptr || !FindMessage(file.get(), message, &narrow) || narrow.empty()) {
    return ZNE_THING_NOT_FOUND;
  }
  *out = ToWide(narrow);
  return ZN_OK;
}

// The insertions of a format string with the texts of one catalog, or with their default texts. One
// that cannot be used is left out, and its status kept.
class CatalogInsertions final : public InsertionSource {
 public:
  CatalogInsertions(ClientSession& session, const I18nFormatString& formatted,
                    const std::string& catalog)
      : session_(session), formatted_(formatted), catalog_(catalog) {}

  [[nodiscard]] u32 Append(u32 index, std::u16string* out) override {
    const u32 status = AppendValue(index, out);
    if (!ZN_FAILED(status_)) status_ = status;
    return ZN_OK;
  }
  [[nodiscard]] u32 Status() const noexcept { return status_; }

 private:
  [[nodiscard]] u32 AppendValue(u32 index, std::u16string* out) {
    const BusLock lock;  // the set may be the caller's and in use
    const auto lookUp = [this](const I18nParts& parts, std::u16string* text) {
      return session_.LookUpMessage(catalog_, parts.message, parts.name, text);
    };
    return AppendInsertion(formatted_, index, ZNE_NOT_SUPPORTED_FOR_OBJECT, lookUp, out);
  }

  ClientSession& session_;
  const I18nFormatString& formatted_;
  const std::string& catalog_;
  u32 status_ = ZN_OK;
};

u32 ClientSession::MakeFormattedString(const I18nFormatString& formatted, std::u16string* out,
                                       bool* isMade) {
  if (IsLost()) return ZNE_INVALID_ARGUMENTS;
  std::u16string serverFile;
  ZN_RETURN_IF_FAILED(FindCatalog(formatted.catalog, &serverFile));
  std::string catalog;
  if (!serverFile.empty()) {
    const std::string id = TextOfGuid(formatted.catalog);
    std::string localFile;
    const u32 status = LoadCatalog(id, kClientPlatform, kClientLocale, std::string(kClientSkin),
                                   serverFile, &localFile);
    if (localFile.empty()) return ZNE_UNEXPECTED;
    // Without the file the default texts have to do.
    if (!ZN_FAILED(status) && IsFileThere(localFile)) {
      const MutexLock lock(mutex_);
      catalogs_.emplace(id, localFile);
      catalog = id;
    }
  }
  std::u16string text;
  const std::string_view name =
      IsGoodPointer(formatted.name) ? std::string_view(formatted.name) : std::string_view();
  ZN_RETURN_IF_FAILED(LookUpMessage(catalog, formatted.message, name, &text));
  CatalogInsertions insertions(*this, formatted, catalog);
  ZN_RETURN_IF_FAILED(ExpandTemplate(text, insertions, out));
  *isMade = true;
  return insertions.Status();
}

}  // namespace zn
