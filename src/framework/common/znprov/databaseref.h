// A database to be found again after the bus lock was given up: a private one may be gone by then,
// and its handle record may stand for a later one.
#pragma once

#include "framework/common/zncore/database.h"
#include "support/common/handle.h"

namespace zn {

class DatabaseRef {
 public:
  explicit DatabaseRef(const Database& database) noexcept
      : handle_(database.Handle()), id_(database.GetId()) {}

  // The database, or null when it is gone. Under FAST_LOCK.
  [[nodiscard]] Database* Find() const noexcept {
    if (!IsValidHandle(handle_, HANDLE_DATABASE)) return nullptr;
    auto* database = HandleThing<Database>(handle_);
    return database->GetId() == id_ ? database : nullptr;
  }

 private:
  ZnHandle handle_;
  InternedId id_;
};

}  // namespace zn
