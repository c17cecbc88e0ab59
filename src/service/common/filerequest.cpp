// The request for a file: message catalogs and other files that the service offers to its clients.
// Only what the server itself published goes out: files that an extension object names, and the
// logs of the installation. The whole file travels in one message.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/recordhead.h"
#include "service/common/exchange.h"
#include "service/common/filerule.h"
#include "support/common/fastlock.h"
#include "support/common/helpers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"

namespace zn {

namespace {

constexpr const char* kStartedTopic = "event.keld.dom.downloadfile.started";
constexpr const char* kCompletedTopic = "event.keld.dom.downloadfile.completed";
// What a message can carry beside its other properties.
constexpr u64 kLargestFile = 0xFFFFFFFFu - 1024;

// The path that the client asks for; false when there is none.
[[nodiscard]] bool ReadPath(const PropertySet& request, std::u16string* path) {
  const Property* image = request.Find(wire::kImageFileKey);
  if (image == nullptr) return false;
  if (image->TypeTag() == ZN_TYPE_WIDESTRING) {
    *path = image->GetValue().AsWideText();
    return true;
  }
  if (image->TypeTag() != ZN_TYPE_STRING) return false;
  *path = ToWide(image->GetValue().AsText());
  return true;
}

// Whether an extension object of the system database names exactly this path. The objects are
// looked at one by one: a query would need the type to declare the property, which a document may
// leave out, and a path may hold what ends the text of a query.
[[nodiscard]] bool IsPublished(const std::u16string& path) {
  const BusLock lock;
  Database* database = ZnGetSystemDatabase();
  TypeObject* type = database == nullptr ? nullptr : database->Types().FindType("KELD_Extension");
  if (type == nullptr) return false;
  std::vector<DBNode*> nodes;
  type->CollectInstances(&nodes);
  for (const DBNode* node : nodes) {
    const Value* image = node->Properties().FindValue(wire::kImageFileKey, ZN_TYPE_WIDESTRING);
    if (image != nullptr && image->AsWideText() == path) return true;
  }
  return false;
}

[[nodiscard]] bool IsAllowed(const std::u16string& path) {
  // A text that is cut at its first zero would be one file to the rule and another to the host.
  if (path.find(u'\0') != std::u16string::npos) return false;
  if (IsPublished(path)) return true;
  std::u16string installDir;
  {
    const BusLock lock;
    installDir = InstallDirAtStart();
  }
  return IsLogOfInstallation(path, installDir);
}

void RaiseDownloadEvent(const char* topic, const std::u16string& path) {
  PropertySet data;
  data.Put(wire::kImageFileKey, Value::WideText(std::u16string_view(path)));
  const BusLock lock;
  Database* database = ZnGetSystemDatabase();
  if (database == nullptr) return;
  Provider* system = database->FindProviderByName(kSystemProviderName);
  if (system == nullptr) return;
  // Who listens hears it; the transfer does not depend on it.
  static_cast<void>(RaiseEvent(*database, system->Handle(), topic, data, kRaiseLocalFlags));
}

struct CloseFile {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};

// The whole answer's bytes but for its end. A file that has grown shorter meanwhile is sent as it
// is.
void WriteContent(std::FILE* file, u32 size, BinaryWriter& stream) {
  static constexpr auto kData = wire::HeadOf(ZN_TYPE_BINARY, "Data");
  stream.WriteUInt32(3);
  wire::WriteHead(stream, kData);
  wire::CountPlace length(stream);
  const u32 begin = stream.Buffer().Size();
  if (size != 0) {
    u8* place = stream.Extend(size);
    size = static_cast<u32>(std::fread(place, 1, size, file));
  }
  stream.Buffer().CutTo(begin + size);
  length.Set(size);
}

[[nodiscard]] u32 SendFile(const std::u16string& path, BinaryWriter& stream) {
  const std::string name = ToHostPath(ToNarrow(path));
  std::error_code error;
  // Of anything else (a folder, a pipe, a device) there is no size to send.
  if (!std::filesystem::is_regular_file(name, error)) return ZNE_PROVIDER_IMAGE_DAMAGED;
  const u64 size = std::filesystem::file_size(name, error);
  if (error || size > kLargestFile) return ZNE_PROVIDER_IMAGE_DAMAGED;
  RaiseDownloadEvent(kStartedTopic, path);
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(name.c_str(), "rb"));
  if (file == nullptr) return ZNE_UNEXPECTED;
  WriteContent(file.get(), static_cast<u32>(size), stream);
  RaiseDownloadEvent(kCompletedTopic, path);
  return ZN_OK;
}

}  // namespace

u32 ServeFileRequest(Exchange& exchange) {
  if (exchange.server.traces.Dispatch()) {
    ZN_TRACE(6, "DownloadFile by client %ul %ul", exchange.address, exchange.connectionId);
  }
  exchange.answer.Put(wire::kMessageKey, Value::UInt32(wire::kFileAnswer));
  std::u16string path;
  if (!ReadPath(exchange.request, &path)) return ZNE_INVALID_ARGUMENTS;
  if (!IsAllowed(path)) return ZNE_CLIENT_NOT_AUTHORIZED;
  const u32 status = SendFile(path, exchange.bytes);
  if (!ZN_FAILED(status)) WriteAnswerEnd(exchange.bytes, wire::kFileAnswer, status);
  return status;
}

}  // namespace zn
