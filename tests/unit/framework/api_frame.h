// What every exported function of the standard frame owes its callers, asked of a table of them:
// the refusals of a handle, their statuses and the texts traced.
#pragma once

#include <functional>
#include <string>

#include "support/common/handle.h"
#include "tests/unit/framework/fixture.h"
#include "zn/ob.h"

namespace zn::test {

// One function with good arguments but for the database handle, which is given.
struct FramedCall {
  const char* name;
  std::function<u32(ZnHandle hDb)> call;
};

[[nodiscard]] inline ZnHandle AllOnesHandle() noexcept {
  return reinterpret_cast<ZnHandle>(UINTPTR_MAX);
}

class FrameTest : public StoreTest {
 protected:
  // With the lines it traces.
  template <typename Call>
  static auto Traced(Call&& call, std::vector<std::string>* messages) {
    const TraceCapture traces;
    auto result = call();
    *messages = traces.Messages();
    return result;
  }
  template <typename Call>
  static std::vector<std::string> MessagesOf(Call&& call) {
    const TraceCapture traces;
    static_cast<void>(call());
    return traces.Messages();
  }
  [[nodiscard]] static std::string Entering(const std::string& name) {
    return "ZnAPI:Entering " + name;
  }
  [[nodiscard]] static std::string Exiting(const std::string& name, u32 status) {
    char text[64];
    std::snprintf(text, sizeof(text), ": 0x%x, %u", status, status);
    return "ZnAPI:Exiting " + name + text;
  }

  // Refused with that status, and traced between entry and exit with that text.
  static void ExpectRefusal(const FramedCall& f, ZnHandle hDb, u32 status, const std::string& why) {
    std::vector<std::string> messages;
    EXPECT_EQ(Traced([&] { return f.call(hDb); }, &messages), status) << why;
    EXPECT_THAT(messages,
                testing::ElementsAre(Entering(f.name), std::string("ZnAPI:") + f.name + ": " + why,
                                     Exiting(f.name, status)));
  }

  void ExpectStandardFrame(const FramedCall& f) {
    SCOPED_TRACE(f.name);
    const ZnHandle good = database_->Handle();
    ExpectRefusal(f, AllOnesHandle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");
    ExpectRefusal(f, provider_->Handle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");

    libraryAlive.store(0);
    ExpectRefusal(f, good, ZNE_INVALID_ARGUMENTS, "Invalid arguments");
    libraryAlive.store(1);

    SetSystemDatabase(nullptr);
    ExpectRefusal(f, nullptr, ZNE_INVALID_ARGUMENTS, "Invalid database");
    SetSystemDatabase(database_.get());

    database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
    ExpectRefusal(f, good, ZNW_SHMEM_LOGIN_FAILED, "DB auth failed");
    ExpectRefusal(f, nullptr, ZNW_SHMEM_LOGIN_FAILED, "DB auth failed");
    database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);

    // With good arguments the call gets past the frame, and traces its ends.
    std::vector<std::string> messages;
    const u32 status = Traced([&] { return f.call(good); }, &messages);
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages.front(), Entering(f.name));
    EXPECT_EQ(messages.back(), Exiting(f.name, status));
    EXPECT_FALSE(ZN_FAILED(status)) << std::hex << status;
  }

  // "Invalid arguments" for each of them, with nothing else traced in between.
  static void ExpectInvalidArguments(const char* name,
                                     std::initializer_list<std::function<u32()>> calls) {
    int row = 0;
    for (const auto& call : calls) {
      SCOPED_TRACE(std::string(name) + " row " + std::to_string(row++));
      ExpectRefusal({name, [&](ZnHandle) { return call(); }}, nullptr, ZNE_INVALID_ARGUMENTS,
                    "Invalid arguments");
    }
  }

  [[nodiscard]] ZnHandle Db() const { return database_->Handle(); }
  [[nodiscard]] ZnHandle ProviderHandle() const { return provider_->Handle(); }
  // An object made through the exports.
  ObjectId MakeObject(const char* type = "KELD_Object") {
    ObjectId id{};
    EXPECT_EQ(ObCreateObject(Db(), ProviderHandle(), type, &id), ZN_OK);
    static_cast<void>(TakeTold());
    return id;
  }
};

}  // namespace zn::test
