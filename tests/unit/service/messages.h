// The messages of a client as property sets, for tests that speak to a service by hand: over a
// socket, or straight into its dispatcher. Their fields: docs/wire-format.md.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znwire/nestedset.h"
#include "support/common/text.h"
#include "ucl/common/cipher.h"
#include "ucl/common/credentials.h"
#include "zn/memory.h"
#include "zn/types.h"

namespace zn::test {

[[nodiscard]] inline PropertySet MessageOf(u32 number) {
  PropertySet set;
  set.Put("Message", Value::UInt32(number));
  return set;
}

[[nodiscard]] inline PropertySet OfferOf(u32 authentication = 1, u32 encryption = 2,
                                         u32 keyCount = 1, u32 compression = 0) {
  PropertySet data;
  data.Put("EncryptionKeyIndex", Value::UInt32(keyCount));
  PropertySet set = MessageOf(1);
  set.Put("Version", Value::UInt32(30));
  set.Put("Encryption", Value::UInt32(encryption));
  set.Put("Compression", Value::UInt32(compression));
  set.Put("Authentication", Value::UInt32(authentication));
  set.Put("Data", wire::AsBinary(data));
  return set;
}

[[nodiscard]] inline PropertySet ChallengeRequestOf(u32 length = 512) {
  PropertySet set = MessageOf(13);
  set.Put("Length", Value::UInt32(length));
  return set;
}

[[nodiscard]] inline PropertySet LogonOf(std::string_view challenge, const Credentials& credentials,
                                         u32 type = 1) {
  std::vector<u8> block;
  EXPECT_EQ(BuildCredentialBlock(challenge, credentials, &block), ZN_OK);
  void* cipher = nullptr;
  u32 length = 0;
  EXPECT_EQ(EncipherBlock(block.data(), static_cast<u32>(block.size()), 2, 0, &cipher, &length),
            ZN_OK);
  PropertySet set = MessageOf(3);
  set.Put("Data", Value::Binary(cipher, length));
  set.Put("AuthenticationType", Value::UInt32(type));
  ZnFree(cipher);
  return set;
}

// Objects of a type.
[[nodiscard]] inline PropertySet CacheRequestOf(const char* type = "KELD_Object") {
  PropertySet data;
  data.Put("Type", Value::Text(std::string_view(type)));
  PropertySet set = MessageOf(5);
  set.Put("Criteria", Value::UInt32(2));
  set.Put("Data", Value::Set(std::move(data)));
  return set;
}

[[nodiscard]] inline PropertySet CallOf(const ObjectId& object, const GUID& interfaceId,
                                        u32 majorCode, u32 minorCode, PropertySet data = {},
                                        u32 flags = 0) {
  PropertySet set = MessageOf(7);
  set.Put("ObjectId", Value::Id(object));
  set.Put("InterfaceId", Value::Guid(interfaceId));
  set.Put("MajorCode", Value::UInt32(majorCode));
  set.Put("MinorCode", Value::UInt32(minorCode));
  set.Put("Data", Value::Set(std::move(data)));
  set.Put("Flags", Value::UInt32(flags));
  set.Put("Reserved", Value::UInt32(0));
  return set;
}

[[nodiscard]] inline PropertySet FileRequestOf(const std::string& path) {
  PropertySet set = MessageOf(9);
  set.Put("ImageFile", Value::WideText(std::u16string_view(ToWide(path))));
  return set;
}

}  // namespace zn::test
