// The status table and the test of failure.
#include "support/common/status.h"

#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "zn/text.h"

namespace zn {
namespace {

TEST(Status, EveryRowIsFoundByItsCode) {
  constexpr GUID kClass = {
      0x8bcc2df0, 0x62cf, 0x11d4, {0x80, 0xc5, 0x00, 0xc0, 0x4f, 0xbc, 0xef, 0xdd}};
  std::set<u32> codes;
  for (u32 i = 0; i < kStatusRowCount; ++i) {
    const StatusRow& row = StatusRows()[i];
    SCOPED_TRACE(row.text);
    EXPECT_TRUE(codes.insert(row.code).second) << "a code stands twice";
    EXPECT_EQ(ZnLookupStatusRow(row.code), &row);
    EXPECT_STREQ(ZnSysGetErrorString(0, row.code), row.text);
    EXPECT_EQ(std::memcmp(&row.messageClass, &kClass, sizeof(kClass)), 0);
  }
  EXPECT_EQ(codes.size(), 124u);
}

struct TextCase {
  u32 code;
  const char* text;
};
constexpr TextCase kTexts[] = {
    {0x80070057u, "Invalid arguments."},
    {0x80000009u, "Access Denied."},
    {0x8007000Eu, "Out of memory."},
    {0x80004001u, "Not implemented."},
    {0x41000021u, "Server in process."},
    {0xC1000001u, "An unexpected error occured."},
    {0xC1000010u, "Object not found."},
    {0x41000040u, "The message has more fragments."},
    {0xC1000040u, "Client Extensions/Message Catalogs registry entry is missing."},
    {0x81000057u, "Failed to init DCOM.  Error code is %1"},
    {0xC1000063u, "ZnTrace: %1"},
    {0xC1000019u, "The object has an unexpected number of parents."},
    {0xC100001Cu, "The object has an unexpected number of parents."},
    {0xC120000Au, "Unable to use callback thread to do send\neceive"},
    {0x81210001u, "Socket is disconnected"},
    {0x41210001u, "The data trnasfer not done yet"},
    {0xC1210001u, "This version socket DLL is not supported by this system"},
    {0x8122000Au, "None"},
    {0u, "Unknown"},
    {0xFFFFFFFEu, "Unknown"},
    {0xC1FFFFFFu, "Unknown"},
};

TEST(Status, TextsAreAsGiven) {
  for (const TextCase& c : kTexts) {
    SCOPED_TRACE(c.code);
    EXPECT_STREQ(ZnSysGetErrorString(0, c.code), c.text);
    EXPECT_STREQ(ZnSysGetErrorString(12345, c.code), c.text) << "the first argument has no effect";
  }
}

TEST(Status, TheUnknownRowIsOneOfItsOwn) {
  const StatusRow* row = ZnLookupStatusRow(0);
  EXPECT_EQ(row->code, 0xFFFFFFFEu);
  EXPECT_EQ(row, ZnLookupStatusRow(0xFFFFFFFEu));
  EXPECT_EQ(row->messageClass.Data1, 0x8bcc2df0u);
}

TEST(Status, TheTableIsInOrder) {
  EXPECT_EQ(StatusRows()[0].code, ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(StatusRows()[1].code, ZNE_ACCESS_DENIED);
  EXPECT_EQ(StatusRows()[2].code, ZNE_OUT_OF_MEMORY);
  EXPECT_EQ(StatusRows()[3].code, ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(StatusRows()[kStatusRowCount - 1].code, ZNW_ALERT_STOP_ACTION);
}

struct FailureCase {
  const char* why;
  u32 status;
  bool failed;
};
constexpr FailureCase kFailures[] = {
    {"success", 0, false},
    {"an error of the bus", 0xC1000010u, true},
    {"a warning of the bus is no failure", 0x81000054u, false},
    {"information of the bus", 0x41000012u, false},
    {"facility 0 fails with any value", 1, true},
    {"facility 0 fails with any value", 0x40000001u, true},
    {"a general code", 0x80070057u, true},
    {"a warning of the sockets", 0x81210001u, true},
    {"information of the sockets", 0x41210001u, false},
    {"an error of the connections", 0xC1200004u, true},
};

TEST(Status, TheTestOfFailureGoesByFacility) {
  for (const FailureCase& c : kFailures) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(ZN_FAILED(c.status), c.failed);
    EXPECT_EQ(ZN_SUCCEEDED(c.status), !c.failed);
  }
}

}  // namespace
}  // namespace zn
