// Private databases of a test, which go with it.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "framework/common/zncore/database.h"
#include "support/common/handle.h"
#include "zn/db.h"

namespace zn::test {

class PrivateDatabases {
 public:
  PrivateDatabases() = default;
  ~PrivateDatabases() {
    for (const ZnHandle handle : handles_) EXPECT_EQ(DbDeletePrivateDatabase(handle), ZN_OK);
  }
  PrivateDatabases(const PrivateDatabases&) = delete;
  PrivateDatabases& operator=(const PrivateDatabases&) = delete;

  ZnHandle Make() {
    ZnHandle handle = nullptr;
    EXPECT_EQ(DbCreatePrivateDatabase(&handle), ZN_OK);
    Keep(handle);
    return handle;
  }
  // One that was made in another way.
  void Keep(ZnHandle handle) { handles_.push_back(handle); }
  [[nodiscard]] static Database& At(ZnHandle handle) { return *HandleThing<Database>(handle); }

 private:
  std::vector<ZnHandle> handles_;
};

}  // namespace zn::test
