// A private database read from hostile bytes: whatever the status, what stands can be written, and
// what was written once and read again writes the same bytes from then on.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "framework/common/znapi/databasebytes.h"
#include "support/common/status.h"
#include "zn/db.h"
#include "zn/memory.h"

namespace {

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

class PrivateDatabase {
 public:
  PrivateDatabase() { Require(DbCreatePrivateDatabase(&handle_) == ZN_OK, "a new database"); }
  ~PrivateDatabase() { Require(DbDeletePrivateDatabase(handle_) == ZN_OK, "its end"); }
  PrivateDatabase(const PrivateDatabase&) = delete;
  PrivateDatabase& operator=(const PrivateDatabase&) = delete;

  u32 Read(const void* data, size_t size) {
    return zn::DbUnmarshalPrivateDatabase(handle_, static_cast<u32>(size), data);
  }
  std::string Write() {
    u32 length = 0;
    void* data = nullptr;
    Require(zn::DbMarshalPrivateDatabase(handle_, &length, &data) == ZN_OK, "writing");
    std::string bytes(static_cast<const char*>(data), length);
    ZnFree(data);
    return bytes;
  }

 private:
  ZnHandle handle_ = nullptr;
};

// Reads what this library has written itself, and writes it again.
std::string Again(const std::string& bytes) {
  PrivateDatabase database;
  Require(database.Read(bytes.data(), bytes.size()) == ZN_OK, "reading what was written");
  return database.Write();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char none = 0;
  PrivateDatabase database;
  const u32 status = database.Read(size == 0 ? static_cast<const void*>(&none) : data, size);
  const std::string written = database.Write();
  if (ZN_FAILED(status)) return 0;
  // The first time the types may change their order: they are written by name.
  const std::string settled = Again(written);
  Require(Again(settled) == settled, "a round trip");
  return 0;
}
