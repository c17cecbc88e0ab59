// What a hostile server pushes to a client copy: one input is a row of pushes, each a big-endian
// 16-bit length and its bytes. Whatever they say, the copy stays whole: an object that is here is
// in its type's list, its children and interfaces can be read, and its properties survive a round
// trip. Requests that a push must not make end the program.
#include <cstdlib>
#include <string>
#include <vector>

#include "clientsvc/common/clientsession.h"
#include "framework/common/zncore/clientcopy.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"

namespace {

using namespace zn;

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr GUID kObject = {1, 0, 0, {0}};
constexpr GUID kOther = {2, 0, 0, {0}};

void Install(Database& database, const GUID& id) {
  PropertySet form;
  form.Put("ObjectId", Value::Id(id));
  form.Put("ObjectType", Value::Text("KELD_Object"));
  form.Put("Flags", Value::UInt32(0));
  form.Put("Data", Value::Set(PropertySet()));
  Require(database.InstallObject(form) == ZN_OK);
}

// A copy with base types, two objects, a complete type and a listener for all that is raised.
ZnHandle MakeCopy() {
  DatabaseCallbacks callbacks;
  callbacks.forwardRequest = [](PropertySet&, PropertySet*, void*) -> u32 { std::abort(); };
  callbacks.forwardProviderCall = [](PropertySet&, ObjectId*, ObjectId*, PropertySet*,
                                     void*) -> u32 { std::abort(); };
  const ZnHandle copy = CreateClientCopy(callbacks);
  Require(copy != nullptr && SetLoggedOn(copy, true));
  const BusLock lock;
  auto& database = *HandleThing<Database>(copy);
  Require(RegisterBaseObjectTypes(database) == ZN_OK);
  Install(database, kObject);
  Install(database, kOther);
  database.Types().FindType("KELD_Object")->SetComplete();
  ProviderCallbacks slots{};
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  auto provider = std::make_unique<Provider>(&database, database.Types().FindType("KELD_Provider"),
                                             u"ears", slots, nullptr, false);
  Provider& ears = *provider;
  database.AddProvider(std::move(provider));
  ZnHandle registration = nullptr;
  Require(database.Events().Add(ears, "event", &registration) == ZN_OK);
  return copy;
}

void Look(Database& database) {
  std::vector<ObjectId> ids;
  Require(database.ListInstances(kRootTypeName, &ids) == ZN_OK);
  for (const ObjectId& id : ids) {
    const DBNode* node = database.FindCached(id);
    Require(node != nullptr && node->GetType() != nullptr);
    BinaryWriter writer;
    node->Properties().Marshal(writer);
    PropertySet again;
    BinaryReader reader(writer.Buffer().Data(), writer.Buffer().Size());
    Require(again.Unmarshal(reader) == ZN_OK);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  static const bool started = zn::StartEventThreads(0);
  Require(started);
  const ZnHandle copy = MakeCopy();
  while (size >= 2) {
    const size_t length = std::min<size_t>(size - 2, size_t{data[0]} << 8 | data[1]);
    static_cast<void>(ApplyPush(copy, data + 2, static_cast<u32>(length)));
    data += 2 + length;
    size -= 2 + length;
  }
  {
    const BusLock lock;
    Look(*HandleThing<Database>(copy));
  }
  Require(DeleteClientCopy(copy));
  return 0;
}
