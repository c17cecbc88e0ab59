// The providers of a database: a list in load order, which the end of the database empties from
// behind, so that a provider goes before those it depends on.
#include "framework/common/zncore/database.h"

#include <algorithm>
#include <new>

#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"

namespace zn {

namespace {

template <typename Test>
Provider* FindProvider(const std::vector<std::unique_ptr<Provider>>& providers,
                       Test&& test) noexcept {
  const auto found = std::find_if(providers.begin(), providers.end(),
                                  [&](const auto& provider) { return test(*provider); });
  return found == providers.end() ? nullptr : found->get();
}

}  // namespace

Provider* Database::FindProviderByName(std::u16string_view name) noexcept {
  return FindProvider(providers_, [&](const Provider& p) { return p.Name() == name; });
}

Provider* Database::FindProviderById(const ObjectId& id) noexcept {
  return FindProvider(providers_,
                      [&](const Provider& p) { return SameGuid(p.GetId().Value(), id); });
}

Provider* Database::FindProviderByHandle(ZnHandle handle) noexcept {
  return FindProvider(providers_, [&](const Provider& p) { return p.Handle() == handle; });
}

// What the fetch answers is no matter: what is here is here.
Provider* Database::LookUpProviderByName(std::u16string_view name) noexcept {
  FetchProviders();
  return FindProviderByName(name);
}

// The id may lie in an object that goes while the lock is given up.
Provider* Database::LookUpProviderById(const ObjectId& id) noexcept {
  const ObjectId wanted = id;
  FetchProviders();
  return FindProviderById(wanted);
}

void Database::FetchProviders() noexcept {
  if (IsLocal()) return;
  try {
    static_cast<void>(CompleteType(kProviderTypeName));
  } catch (const std::bad_alloc&) {  // then without
  }
}

void Database::ForgetProvidersComplete() noexcept {
  TypeObject* type = types_.FindType(kProviderTypeName);
  if (type != nullptr) type->SetIncomplete();
}

void Database::AddProvider(std::unique_ptr<Provider> provider) {
  providers_.push_back(std::move(provider));
}

std::unique_ptr<Provider> Database::TakeProvider(Provider* provider) noexcept {
  const auto place = std::find_if(providers_.begin(), providers_.end(),
                                  [&](const auto& entry) { return entry.get() == provider; });
  if (place == providers_.end()) return nullptr;
  std::unique_ptr<Provider> taken = std::move(*place);
  providers_.erase(place);
  events_.RemoveProvider(*taken);
  return taken;
}

void Database::UnloadProviders() noexcept {
  while (!providers_.empty()) {
    const std::unique_ptr<Provider> provider = TakeProvider(providers_.back().get());
    // Releases the lock, so the list may be another one afterwards.
    static_cast<void>(provider->Shutdown());
  }
}

}  // namespace zn
