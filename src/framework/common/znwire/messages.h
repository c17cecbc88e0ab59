// The messages between client and server: their numbers, the keys of their properties and the fixed
// values in them. One table for both sides. Every message is one marshalled property set in one
// frame; docs/wire-format.md shows each with its keys and types.
//
// Where a message's "Data" is a marshalled set inside a set, it is written as binary (session offer
// and answer) or as a property set (all others, see DataForm); readers take either.
#pragma once

#include <string_view>

#include "framework/common/zncore/changerecord.h"
#include "zn/types.h"

namespace zn::wire {

enum Message : u32 {
  kSessionOffer = 1,
  kSessionAnswer = 2,
  kLogon = 3,
  kLogonAnswer = 4,
  kCacheRequest = 5,
  kCacheAnswer = 6,
  kRequest = 7,
  kRequestAnswer = 8,
  kFileRequest = 9,
  kFileAnswer = 10,
  kChangeNotification = kChangeNotificationMessage,
  kEventNotification = 12,
  kChallengeRequest = 13,
  kChallengeAnswer = 14,
};

// How "Data" of a message is written. Readers take both forms.
enum class DataForm { kBinary, kPropertySet, kPlainBytes };
[[nodiscard]] constexpr DataForm DataFormOf(u32 message) noexcept {
  switch (message) {
    case kSessionOffer:
    case kSessionAnswer:
      return DataForm::kBinary;  // a marshalled property set
    case kLogon:
    case kFileAnswer:
    case kChallengeAnswer:
      return DataForm::kPlainBytes;
    default:
      return DataForm::kPropertySet;
  }
}

// Keys of every message.
inline constexpr std::string_view kMessageKey = "Message";  // uint32
inline constexpr std::string_view kResultKey = "Result";    // uint32, in every answer
inline constexpr std::string_view kDataKey = "Data";

// Session offer and answer: all uint32. The key index lies in "Data".
inline constexpr std::string_view kVersionKey = "Version";
inline constexpr std::string_view kEncryptionKey = "Encryption";
inline constexpr std::string_view kEncryptionKeyIndexKey = "EncryptionKeyIndex";
inline constexpr std::string_view kCompressionKey = "Compression";
inline constexpr std::string_view kAuthenticationKey = "Authentication";
inline constexpr std::string_view kPingTokenKey = "PingToken";    // answer only
inline constexpr std::string_view kShMemIndexKey = "ShMemIndex";  // answer only

// Challenge and logon.
inline constexpr std::string_view kLengthKey = "Length";                          // uint32
inline constexpr std::string_view kAuthenticationTypeKey = "AuthenticationType";  // uint32

// Cache request. Inside its "Data", by criterion (RequestCriteria of database.h): 1 "Data", an
// array of object id; 2 "Type"; 3 "Query"; 4 "Type" and "InterfaceId".
inline constexpr std::string_view kCriteriaKey = "Criteria";        // uint32
inline constexpr std::string_view kTypeKey = "Type";                // string
inline constexpr std::string_view kQueryKey = "Query";              // wide string
inline constexpr std::string_view kInterfaceIdKey = "InterfaceId";  // guid

// Cache answer: the lists inside its "Data". Readers take an array of propset for each.
inline constexpr std::string_view kObjectsKey = "Objects";      // array of object
inline constexpr std::string_view kProvidersKey = "Providers";  // array of provider
inline constexpr std::string_view kTypesKey = "Types";          // array of type object

// A marshalled object.
inline constexpr std::string_view kObjectTypeKey = "ObjectType";          // string
inline constexpr std::string_view kContainedTypesKey = "ContainedTypes";  // array of string
inline constexpr std::string_view kChildListKey = "ChildList";            // array of object id
inline constexpr std::string_view kParentListKey = "ParentList";          // array of object id
inline constexpr std::string_view kInterfaceListKey = "InterfaceList";    // array of propset
inline constexpr std::string_view kInterfaceKey = "Interface";            // guid
inline constexpr std::string_view kProviderKey = "Provider";              // object id
inline constexpr std::string_view kCreatorIdKey = "CreatorId";            // object id

// A marshalled provider.
inline constexpr std::string_view kNameKey = "Name";                          // wide string
inline constexpr std::string_view kExtensionIdKey = "ExtensionId";            // string
inline constexpr std::string_view kMessageCatalogIdKey = "MessageCatalogId";  // string

// Request and its answer.
inline constexpr std::string_view kObjectIdKey = "ObjectId";      // object id
inline constexpr std::string_view kMajorCodeKey = "MajorCode";    // uint32
inline constexpr std::string_view kMinorCodeKey = "MinorCode";    // uint32
inline constexpr std::string_view kFlagsKey = "Flags";            // uint32
inline constexpr std::string_view kReservedKey = "Reserved";      // uint32
inline constexpr std::string_view kProviderIdKey = "ProviderId";  // object id
inline constexpr std::string_view kTaskIdKey = "TaskId";          // object id

// File request: a wide string is written, a string is read too.
inline constexpr std::string_view kImageFileKey = "ImageFile";

// Notifications.
inline constexpr std::string_view kNotificationIdKey = "NotificationId";  // string
// In "Data" of the marker that orders answers behind changes; never leaves the server.
inline constexpr std::string_view kChangeNotifyServiceIdKey = "ChangeNotifyServiceId";  // uint32

// Discovery reply (UDP), in this order; it carries no "Message".
inline constexpr std::string_view kHostnameKey = "Hostname";        // string
inline constexpr std::string_view kDatabaseIdKey = "DatabaseId";    // object id
inline constexpr std::string_view kMiraVersionKey = "MiraVersion";  // uint32
inline constexpr std::string_view kMiraTypeKey = "MiraType";        // uint32
inline constexpr std::string_view kHostIpKey = "HostIP";            // array of uint32
inline constexpr std::string_view kServerFlagsKey = "ServerFlags";  // uint32
inline constexpr std::string_view kSupportedProtocolsKey =
    "SupportedProtocols";                                                   // array of propset
inline constexpr std::string_view kProtocolVersionKey = "ProtocolVersion";  // uint32
inline constexpr std::string_view kProtocolNameKey = "ProtocolName";        // string

// Values of the session options.
inline constexpr u32 kProtocolVersion = 30;
inline constexpr u32 kEncryptionDes = 2;   // the one cipher there is
inline constexpr u32 kEncryptionMask = 2;  // what a server agrees to
inline constexpr u32 kEncryptionKeys = 1;  // keys that each side counts as held
inline constexpr u32 kCompressionMask = 0;
inline constexpr u32 kAuthenticationPassword = 1;
inline constexpr u32 kAuthenticationSharedMemory = 2;
inline constexpr u32 kAuthenticationToken = 4;  // no host of ours grants it

// Bounds of the challenge.
inline constexpr u32 kMinChallengeLength = 512;
inline constexpr u32 kMaxChallengeLength = 2048;

// UDP commands: a datagram of one big-endian word.
inline constexpr u32 kDiscoveryCommand = 1;
inline constexpr u32 kPingCommand = 2;
inline constexpr u32 kMaxDatagram = 3072;

// The area in which a local client finds its logon GUID; for its name see AuthSharedMemoryName.
inline constexpr u32 kSharedMemoryBytes = 512;
inline constexpr u32 kSharedMemorySlots = 32;

}  // namespace zn::wire
