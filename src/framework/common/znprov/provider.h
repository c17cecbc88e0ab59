// A provider: the object that stands for a plug-in (or for a program that registered itself) in a
// database, its callback table and the calls into it. Lives in the provider list of its database,
// not in the object table. Every call runs under FAST_LOCK; the slots run with it released.
#pragma once

#include <memory>
#include <string_view>

#include "framework/common/widestring/widestring.h"
#include "framework/common/zncore/baseobject.h"
#include "support/common/handle.h"
#include "zn/types.h"

namespace zn {

class Database;

inline constexpr std::u16string_view kSystemProviderName = u"system";

// The words of one provider call.
struct ProviderCallArguments {
  ObjectId object;
  const GUID* interfaceId;
  u32 majorCode;
  u32 minorCode;
  ZnHandle in;
  ZnHandle out;
  u32 flags;
  u32 reserved;
  void* context;
  TaskCallback callback;
};

class Provider final : public BaseObject {
 public:
  // `library` is a shared reference to the module, which is unloaded with the last one: the
  // provider has one, and so has every slot while it runs. Null for a program that registered
  // itself, and for a provider that came over the wire. Of a built-in provider Call and Event alone
  // are kept.
  Provider(Database* database, TypeObject* type, std::u16string_view name,
           const ProviderCallbacks& callbacks, std::shared_ptr<void> library, bool isBuiltIn);
  // Releases the bus lock while the library is unloaded.
  ~Provider() override;

  [[nodiscard]] Database& GetDatabase() const noexcept { return *database_; }
  [[nodiscard]] ZnHandle Handle() const noexcept { return handle_.Get(); }
  [[nodiscard]] const WideString& Name() const noexcept { return name_; }
  [[nodiscard]] bool IsBuiltIn() const noexcept { return isBuiltIn_; }
  // Set at the end of its registration; its objects raise nothing before.
  [[nodiscard]] bool IsRegistered() const noexcept { return registered_; }
  void SetRegistered() noexcept { registered_ = true; }
  [[nodiscard]] const ProviderCallbacks& Callbacks() const noexcept { return callbacks_; }

  [[nodiscard]] const String& ClientExtension() const noexcept { return clientExtension_; }
  [[nodiscard]] const String& MessageCatalog() const noexcept { return messageCatalog_; }
  void SetExtensions(std::string_view clientExtension, std::string_view messageCatalog);

  // The guarded call: ZNE_NOT_IMPLEMENTED without the slot, ZNE_SHUTDOWN_STARTED once a stop has
  // begun, ZNE_PROVIDER_ACCESS_VIOLATED for whatever it throws. Releases the bus lock; this object
  // may be gone afterwards.
  [[nodiscard]] u32 Call(const ProviderCallArguments& call, const ObjectId& taskId,
                         ZnHandle* answeringProvider);
  // The other slots, with the same guard and the same statuses; a stop does not refuse them.
  [[nodiscard]] u32 Initialize();
  [[nodiscard]] u32 Shutdown();
  [[nodiscard]] u32 SendEvent(const EventRecord* event);
  // The version text: empty without the slot, after a failure, and for a text that cannot be read.
  [[nodiscard]] WideString GetVersion();

 private:
  Database* database_;  // borrowed owner
  OwnedHandle handle_;
  WideString name_;
  ProviderCallbacks callbacks_;
  std::shared_ptr<void> library_;
  bool isBuiltIn_;
  bool registered_ = false;
  String clientExtension_;
  String messageCatalog_;
};

// Provider calls running now, and the flag that refuses further ones. Under FAST_LOCK.
[[nodiscard]] u32 CallsInProgress() noexcept;
void SetShuttingDown(bool stopping) noexcept;
[[nodiscard]] bool IsShuttingDown() noexcept;
// Returns when no call is running, however long that takes: after SetShuttingDown(true). Releases
// the bus lock while it waits; not from a provider call, which would wait for itself.
void WaitForCallsToEnd() noexcept;

}  // namespace zn
