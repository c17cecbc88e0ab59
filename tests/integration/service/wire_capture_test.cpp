// The captures of docs/wire-format.md: a whole session, byte for byte. A client that knows nothing
// but the page sends the client's frames as they stand there, and what comes back must be the
// server's frames as they stand there; the tap of the communication layer must have seen the same.
//
// With ZN_WRITE_CAPTURES=<file> the session is run and its frames, as the tap saw them, are written
// to that file in the form of the page.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>

#include <gmock/gmock.h>

#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "service/common/broadcast.h"
#include "service/common/server.h"
#include "support/common/status.h"
#include "tests/integration/service/raw_client.h"
#include "tests/unit/framework/bus_fixture.h"
#include "tests/unit/support/temporary.h"
#include "zn/ev.h"

namespace zn::test {

namespace {

constexpr const char* kPage = ZN_SOURCE_DIR "/docs/wire-format.md";
constexpr const char* kFile = "/tmp/zn-wire-capture.txt";
constexpr GUID kObject = {
    0x10000001, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
constexpr GUID kProvider = {
    0x20000002, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

// --- Annotated bytes ---------------------------------------------------------------------------

// Lines of hexadecimal bytes, each piece with what it means behind a ';'.
class Annotator {
 public:
  explicit Annotator(std::string_view bytes) : reader_(bytes.data(), bytes.size()) {}
  [[nodiscard]] std::string Frame(u32 payloadLength) {
    Piece(22, "head marker and its 0");
    Piece(4, "reserved");
    Number("length of the payload");
    Number("type: 1 response, 2 request, 3 one-way");
    Number("id");
    Number("status");
    if (payloadLength != 0) Set("");
    Piece(22, "end marker and its 0");
    return text_;
  }
  [[nodiscard]] std::string SetOnly() {
    Set("");
    return text_;
  }

 private:
  static std::string Hex(const u8* at, size_t count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < count; ++i) {
      if (i != 0) hex += ' ';
      hex += kDigits[at[i] >> 4];
      hex += kDigits[at[i] & 15];
    }
    return hex;
  }
  void Line(const u8* at, size_t count, const std::string& meaning) {
    constexpr size_t kRow = 32;
    for (size_t done = 0; done < count || count == 0; done += kRow) {
      text_ += Hex(at + done, std::min(kRow, count - done));
      if (done == 0 && !meaning.empty()) text_ += "  ; " + meaning;
      text_ += '\n';
      if (count == 0) break;
    }
  }
  const u8* Piece(size_t count, const std::string& meaning) {
    const u8* at = reader_.Take(count);
    EXPECT_NE(at, nullptr) << meaning;
    Line(at, count, meaning);
    return at;
  }
  u32 Peek() {
    BinaryReader ahead = reader_;
    u32 value = 0;
    EXPECT_EQ(ahead.ReadUInt32(&value), ZN_OK);
    return value;
  }
  u32 Number(const std::string& meaning) {
    const u32 value = Peek();
    char number[32];
    std::snprintf(number, sizeof number, value > 0xFFFF ? "%s = 0x%08x" : "%s = %u", "", value);
    Piece(4, meaning + number);
    return value;
  }
  void Set(const std::string& indent) {
    const u32 count = Peek();
    Piece(4, indent + "set of " + std::to_string(count));
    for (u32 i = 0; i < count; ++i) Property(indent + "  ");
  }
  // Tag, name, flags and, where it is short, the value, on one line.
  void Property(const std::string& indent) {
    BinaryReader ahead = reader_;
    u32 tag = 0;
    const u8* name = nullptr;
    u32 length = 0;
    EXPECT_EQ(ahead.ReadUInt32(&tag), ZN_OK);
    EXPECT_EQ(ahead.ReadCounted(1, &name, &length), ZN_OK);
    const std::string key(reinterpret_cast<const char*>(name), length);
    Piece(4, indent + "tag " + TagName(tag));
    Piece(4 + length, indent + "name \"" + key + "\"");
    Piece(4, indent + "flags");
    Value(tag, indent + "value");
  }
  static std::string TagName(u32 tag) {
    const std::string name = zn::Value::Default(tag).TypeName();
    return std::to_string(tag & 0xFFFFFF) + ", " + name;
  }
  void Value(u32 tag, const std::string& indent) {
    if ((tag & ZN_TYPE_ARRAY) != 0) {
      const u32 count = Peek();
      Piece(4, indent + ": " + std::to_string(count) + " elements");
      for (u32 i = 0; i < count; ++i) Value(tag & ~ZN_TYPE_ARRAY, indent);
      return;
    }
    switch (tag) {
      case ZN_TYPE_BOOLEAN:
        Piece(1, indent);
        return;
      case ZN_TYPE_UINT32:
      case ZN_TYPE_INT32:
        Number(indent);
        return;
      case ZN_TYPE_STRING:
        Piece(4, indent + ": length");
        Text(indent);
        return;
      case ZN_TYPE_WIDESTRING:
        Counted(2, indent + ": units, then the units");
        return;
      case ZN_TYPE_BINARY:
        Counted(1, indent + ": length, then the bytes");
        return;
      case ZN_TYPE_GUID:
      case ZN_TYPE_OBJECT_ID:
        Piece(16, indent);
        return;
      default:
        Set(indent.substr(0, indent.size() - 5) + "  ");
    }
  }
  // The length has been written.
  void Text(const std::string& indent) {
    const u32 length = LastWord();
    const u8* at = reader_.Take(length);
    if (length == 0) return;
    Line(at, length,
         indent + " \"" + std::string(reinterpret_cast<const char*>(at), length) + "\"");
  }
  u32 LastWord() const {
    const size_t end = text_.rfind("  ; ");
    u32 value = 0;
    for (const char c : text_.substr(end - 11, 11)) {
      if (c == ' ') continue;
      const int digit = std::isdigit(static_cast<unsigned char>(c)) != 0 ? c - '0' : c - 'a' + 10;
      value = value << 4 | static_cast<u32>(digit);
    }
    return value;
  }
  void Counted(size_t unit, const std::string& meaning) {
    const u32 count = Peek();
    Piece(4, meaning);
    if (count != 0) Piece(count * unit, "");
  }

  BinaryReader reader_;
  std::string text_;
};

// --- The page ----------------------------------------------------------------------------------

struct Captured {
  bool byClient = false;
  std::string title;
  std::string bytes;

  [[nodiscard]] u32 Message() const {
    const std::string_view payload = std::string_view(bytes).substr(42, bytes.size() - 64);
    const PropertySet set = SetOf(payload);
    const Value* number = set.FindValue("Message", ZN_TYPE_UINT32);
    return number == nullptr ? 0 : number->AsUInt32();
  }
};

[[nodiscard]] std::string BytesOfLine(const std::string& line) {
  std::string digits;
  for (const char c : line.substr(0, line.find(';'))) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) digits += c;
  }
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

// The blocks that open with this word: ```frame client, ```frame server, ```datagram.
[[nodiscard]] std::vector<Captured> ReadBlocks(const std::string& word) {
  std::vector<Captured> blocks;
  std::ifstream page(kPage);
  EXPECT_TRUE(page.is_open()) << kPage;
  bool inside = false;
  const std::string opening = "```" + word;
  for (std::string line; std::getline(page, line);) {
    if (inside && line == "```") {
      inside = false;
    } else if (inside) {
      blocks.back().bytes += BytesOfLine(line);
    } else if (line.compare(0, opening.size(), opening) == 0) {
      inside = true;
      blocks.push_back({line.find("client") != std::string::npos, line, {}});
    }
  }
  return blocks;
}

// --- The session -------------------------------------------------------------------------------

class OnePassword final : public LogonHost {
 public:
  [[nodiscard]] bool LogOn(const LogonAttempt& attempt) override {
    return attempt.user == u"anna" && attempt.password == u"secret";
  }
  [[nodiscard]] bool IsMember(GroupKind, std::u16string_view, std::u16string_view,
                              std::u16string_view) override {
    return false;
  }
  [[nodiscard]] bool MayLoadDrivers(std::u16string_view, std::u16string_view) override {
    return true;
  }
  void EndDelays() override {}
};

struct Seen {
  std::mutex mutex;
  std::vector<Captured> frames;
};

class WireCapture : public BusTest {
 protected:
  void SetUp() override {
    server_ = std::make_unique<ServerObject>(transport_, host_);
    current = server_.get();
    server_->random = [](void* out, size_t count) noexcept {
      for (size_t i = 0; i < count; ++i) static_cast<u8*>(out)[i] = static_cast<u8>(i);
      return true;
    };
    server_->pingToken = 0x010200C0;  // 192.0.2.1 as its bytes stand
    ASSERT_NO_FATAL_FAILURE(BusTest::SetUp());
    SetClientsPresentTest([] { return current->connectedClients.Count() != 0; });
    MakeContent();
    ASSERT_TRUE(server_->sender.Start());
    server_->isReady = true;
    server_->allLoaded.Open();
    Listen();
    UCLSetTap(OnFrame, &seen_);
  }
  void TearDown() override {
    UCLSetTap(nullptr, nullptr);
    server_->serviceIds.EndWaits();
    UCLCloseServer(transport_.Server());
    server_->sender.Stop();
    BusTest::TearDown();
    UCLCleanup();
    SetClientsPresentTest(nullptr);
    server_.reset();
  }

  [[nodiscard]] DatabaseCallbacks SystemCallbacks() const override {
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle change) {
      if (current->sender.ChangeNotify(*HandleThing<PropertySet>(change))) {
        current->sender.RunRound();
      }
    };
    callbacks.eventCallback = [](const EventRecord* event, u32) {
      return current->sender.EventNotify(*event);
    };
    return callbacks;
  }

  // A lamp with a switch, and a file for clients; their ids are fixed.
  void MakeContent() {
    provider_ = MakeProvider(u"lamps");
    {
      const BusLock lock;
      HandleThing<Provider>(provider_)->SetId(InternedId(kProvider));
      PropertySet properties;
      properties.Put("Name", Value::WideText(u"Lamp"));
      properties.Put("On", Value::Bool(0));
      PropertySet form;
      form.Put("ObjectId", Value::Id(kObject));
      form.Put("ObjectType", Value::Text(std::string_view("KELD_Object")));
      form.Put("Flags", Value::UInt32(0));
      form.Put("CreatorId", Value::Id(kProvider));
      form.Put("Data", Value::Set(std::move(properties)));
      ASSERT_EQ(database_->InstallObject(form), ZN_OK);
      PropertySet file;
      file.Put("ImageFile", Value::WideText(std::u16string_view(ToWide(kFile))));
      DBNode* node = nullptr;
      ASSERT_EQ(database_->CreateDBNode(HandleThing<Provider>(provider_), "KELD_Extension", 0,
                                        &node, nullptr),
                ZN_OK);
      ASSERT_FALSE(ZN_FAILED(node->SetProperties(file)));
    }
    ASSERT_EQ(ObRegisterInterface(nullptr, kObject, provider_, &kTestInterface), ZN_OK);
    // Another of these tests may be reading it: it is there whole throughout.
    const std::string beside = kFile + std::to_string(getpid());
    WriteFile(beside, "1A = Lamp\n");
    std::filesystem::rename(beside, kFile);
    script.call = [](const SlotCall& call) -> u32 {
      bool on = call.minorCode != 0;
      char name[] = "On";
      const Property2 property{name, ZN_TYPE_BOOLEAN, 0, 1, &on};
      HandleThing<PropertySet>(call.out)->Put("Watts", Value::UInt32(8));
      return ObSetProperty(nullptr, call.id, &property);
    };
  }

  void Listen() {
    ASSERT_EQ(UCLStartup(), ZN_OK);
    UclServerOptions options;
    options.bindAddress = "127.0.0.1";
    options.freePort = true;
    u32 handle = 0;
    ASSERT_EQ(UCLCreateServer(&handle, nullptr, OnData, OnConnection, 0, &options), ZN_OK);
    transport_.SetServer(handle);
    ASSERT_EQ(UCLGetServerPort(handle, &port_), ZN_OK);
  }

  static u32 OnData(u32, u32* address, u32* connectionId, u32 length, void* data, void** outData,
                    u32* outLength, void*) {
    return ZnSendReceive(*current, length, data, outLength, outData, *address, *connectionId);
  }
  static u32 OnConnection(char* host, char* again, u32* address, u32* connectionId, u32 connected,
                          void*) {
    if (connected != 0) return ClientConnected(*current, host, again, *address, *connectionId);
    ClientDisconnected(*current, *address, *connectionId);
    return ZN_OK;
  }
  static void OnFrame(const UclTapFrame& frame, void* context) {
    auto& seen = *static_cast<Seen*>(context);
    const std::string_view payload(static_cast<const char*>(frame.payload), frame.length);
    const std::lock_guard<std::mutex> lock(seen.mutex);
    seen.frames.push_back(
        {!frame.sent, {}, FrameBytes(frame.type, frame.id, payload, frame.status)});
  }

  void RaiseAnEvent() const {
    const Propset data;
    data.Set().Put("Reason", Value::Text(std::string_view("dusk")));
    ASSERT_EQ(EvRaiseEvent(nullptr, provider_, "event.lamps.dusk", data.Get()), ZN_OK);
  }
  [[nodiscard]] std::vector<Captured> TakeSeen() {
    const std::lock_guard<std::mutex> lock(seen_.mutex);
    return seen_.frames;
  }

  static inline ServerObject* current = nullptr;
  UclTransport transport_;
  OnePassword host_;
  std::unique_ptr<ServerObject> server_;
  ZnHandle provider_ = nullptr;
  u32 port_ = 0;
  Seen seen_;
};

// --- Writing the captures ----------------------------------------------------------------------

PropertySet CacheRequestById() {
  std::vector<Value> ids;
  ids.push_back(Value::Id(kObject));
  PropertySet data;
  data.Put("Data", Value::Array(ZN_TYPE_OBJECT_ID, std::move(ids)));
  PropertySet set = MessageOf(5);
  set.Put("Criteria", Value::UInt32(1));
  set.Put("Data", Value::Set(std::move(data)));
  return set;
}

const char* TitleOf(u32 message) {
  static const std::map<u32, const char*> kTitles = {
      {0, "the answer to a message that is refused, or unknown"},
      {1, "session offer"},
      {2, "session answer"},
      {3, "logon"},
      {4, "logon answer"},
      {5, "cache request"},
      {6, "cache answer"},
      {7, "request"},
      {8, "request answer"},
      {9, "file request"},
      {10, "file answer"},
      {11, "change notification"},
      {12, "event notification"},
      {13, "challenge request"},
      {14, "challenge answer"},
  };
  const auto found = kTitles.find(message);
  return found == kTitles.end() ? "unknown message" : found->second;
}

TEST_F(WireCapture, IsWrittenWhenItIsAskedFor) {
  const char* target = std::getenv("ZN_WRITE_CAPTURES");
  if (target == nullptr) GTEST_SKIP() << "set ZN_WRITE_CAPTURES to a file to make them anew";
  {
    RawClient client(port_);
    static_cast<void>(client.Ask(CacheRequestById()));  // of a stranger
    ASSERT_EQ(client.LogOn(u"anna", u"secret"), ZN_OK);
    static_cast<void>(client.Ask(CacheRequestById()));
    static_cast<void>(client.Ask(CallOf(kObject, kTestInterface, 0, 1)));
    RaiseAnEvent();
    RawFrame event;
    ASSERT_TRUE(client.Receive(&event));
    static_cast<void>(client.Ask(FileRequestOf(kFile)));
  }
  std::ofstream out(target);
  for (const Captured& frame : TakeSeen()) {
    const auto length = static_cast<u32>(frame.bytes.size() - 64);
    const u32 message = frame.Message();
    out << "\n"
        << (frame.byClient ? "Client" : "Server") << ": " << TitleOf(message)
        << (message == 0 ? "" : " (" + std::to_string(message) + ")") << ".\n\n"
        << "```frame " << (frame.byClient ? "client" : "server") << "\n"
        << Annotator(frame.bytes).Frame(length) << "```\n";
  }
  const std::string reply = DiscoveryReply("host.example", {0x010200C0}, {kObject, 30, 0});
  out << "\nDiscovery reply.\n\n```datagram discovery reply\n"
      << Annotator(reply).SetOnly() << "```\n";
}

// --- Replaying them ----------------------------------------------------------------------------

TEST_F(WireCapture, IsReplayedByteForByte) {
  const std::vector<Captured> page = ReadBlocks("frame");
  ASSERT_GE(page.size(), 15u);
  {
    RawClient client(port_);
    for (const Captured& frame : page) {
      SCOPED_TRACE(TitleOf(frame.Message()));
      if (frame.byClient) {
        ASSERT_TRUE(client.SendBytes(frame.bytes));
        continue;
      }
      if (frame.Message() == 12) RaiseAnEvent();
      RawFrame answer;
      ASSERT_TRUE(client.Receive(&answer));
      ASSERT_EQ(FrameBytes(answer.type, answer.id, answer.payload, answer.status), frame.bytes);
    }
  }
  const std::vector<Captured> seen = TakeSeen();
  ASSERT_EQ(seen.size(), page.size());
  for (size_t i = 0; i < page.size(); ++i) {
    EXPECT_EQ(seen[i].byClient, page[i].byClient) << i;
    EXPECT_EQ(seen[i].bytes, page[i].bytes) << i;
  }
}

TEST_F(WireCapture, ShowsEveryMessage) {
  std::vector<u32> shown;
  for (const Captured& frame : ReadBlocks("frame")) shown.push_back(frame.Message());
  for (u32 message = 1; message <= 14; ++message) {
    EXPECT_NE(std::find(shown.begin(), shown.end(), message), shown.end()) << message;
  }
}

TEST(WireDatagrams, AreThoseOfThePage) {
  const std::vector<Captured> blocks = ReadBlocks("datagram");
  ASSERT_EQ(blocks.size(), 4u);
  EXPECT_EQ(blocks[0].bytes, std::string("\0\0\0\1", 4));
  EXPECT_EQ(blocks[1].bytes, std::string("\0\0\0\2", 4));
  EXPECT_EQ(blocks[2].bytes, std::string("\x01\x02\x00\xC0", 4));
  EXPECT_EQ(blocks[3].bytes, DiscoveryReply("host.example", {0x010200C0}, {kObject, 30, 0}));
}

}  // namespace

}  // namespace zn::test
