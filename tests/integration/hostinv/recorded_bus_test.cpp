// The provider, loaded by the library, on a copy of the recorded tree: its objects, what it raises,
// and the calls it answers.
#include <algorithm>
#include <filesystem>
#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dump.h"
#include "expected_types.h"
#include "hostinv.h"
#include "loaded_bus.h"

namespace hostinv {
namespace {

namespace fs = std::filesystem;

constexpr GUID kRefreshInterface = HOSTINV_REFRESH_INTERFACE;
constexpr GUID kFilesInterface = HOSTINV_FILES_INTERFACE;
constexpr char kData[] = "fs:/srv/Daten für alle";

// What a call's callback has heard.
struct HeardReports {
  LoadedBus* bus = nullptr;
  bool answer = true;         // what the callback answers
  std::string digest;         // of the task, when it stood at 100 percent and still ran
  std::vector<u32> percents;  // of running reports
  std::promise<u32> finished;
};

// The digest in a task's output set.
std::string DigestOf(const LoadedBus& bus, const ObjectId& task) {
  Property2* output = nullptr;
  if (ObGetProperty(bus.Database(), task, "OutData", &output) != 0) return "(no output)";
  Property2* digest = nullptr;
  std::string text = "(no digest)";
  if (PsFindProperty(static_cast<ZnHandle>(output->Value), "Digest", &digest) == 0) {
    text = static_cast<const char*>(digest->Value);
    PsFreeProperty(digest);
  }
  PsFreeProperty(output);
  return text;
}

bool OnReport(TaskReport* report) {
  auto* heard = static_cast<HeardReports*>(report->context);
  if (report->state == TASK_STATE_FINISHED) {
    heard->finished.set_value(report->result);
    return true;
  }
  heard->percents.push_back(report->percentComplete);
  if (report->percentComplete == 100) {
    heard->digest = DigestOf(*heard->bus, report->taskId);
  }
  return heard->answer;
}

class RecordedBus : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static TemporaryFolder copy;  // to the end of the process, for both suites
    if (folder == nullptr) {
      folder = &copy;
      fs::copy(HOSTINV_TESTS "/tree", folder->Path() + "/tree",
               fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    LoadedBus::Start("Root = \"" + folder->Path() + "/tree/\"\nPeriod = 0\n");
  }

  void SetUp() override {
    ASSERT_EQ(bus_.StartStatus(), 0U);
    ASSERT_EQ(PsCreatePropset(&in_), 0U);
    ASSERT_EQ(PsCreatePropset(&out_), 0U);
    bus_.ForgetEvents();
  }

  void TearDown() override {
    PsDestroyPropset(in_);
    PsDestroyPropset(out_);
  }

  static void WriteTree(const std::string& name, const std::string& text) {
    folder->Write("tree/" + name, text);
  }

  u32 Call(const ObjectId& id, const GUID& interfaceId, u32 majorCode, u32 minorCode) {
    ObjectId answering{};
    ObjectId task{};
    return PrCallDispatch(bus_.Database(), id, &interfaceId, majorCode, minorCode, in_, out_, 0, 0,
                          nullptr, nullptr, &answering, &task);
  }

  u32 CallAsynchronously(const ObjectId& id, const GUID& interfaceId, u32 majorCode, u32 minorCode,
                         HeardReports* heard, ObjectId* task) {
    heard->bus = &bus_;
    ObjectId answering{};
    return PrCallDispatch(bus_.Database(), id, &interfaceId, majorCode, minorCode, in_, out_,
                          ZN_CALL_ASYNCHRONOUS, 0, heard, OnReport, &answering, task);
  }

  u32 Refresh() {
    return Call(bus_.Find("host"), kRefreshInterface, HOSTINV_REFRESH_MAJOR, HOSTINV_REFRESH);
  }
  u32 Rescan() {
    return Call(bus_.Find("host"), kRefreshInterface, HOSTINV_REFRESH_MAJOR, HOSTINV_RESCAN);
  }

  u32 Checksum(const std::string& key, const std::string& path) {
    SetPath(path);
    return Call(bus_.Find(key), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM);
  }

  void SetPath(const std::string& path) {
    Put(in_, "Path", ZN_TYPE_STRING, path.size() + 1, path.c_str());
  }

  static void Put(ZnHandle set, const char* name, u32 tag, std::size_t size, const void* value) {
    Property2 property{const_cast<char*>(name), tag, 0, static_cast<u32>(size),
                       const_cast<void*>(value)};
    ASSERT_FALSE(ZN_FAILED(PsSetProperty(set, &property)));
  }

  std::string OutputText(const char* name) {
    Property2* property = nullptr;
    if (PsFindProperty(out_, name, &property) != 0) return "(missing)";
    std::string text = static_cast<const char*>(property->Value);
    PsFreeProperty(property);
    return text;
  }

  static inline TemporaryFolder* folder = nullptr;
  LoadedBus& bus_ = LoadedBus::Get();
  ZnHandle in_ = nullptr;
  ZnHandle out_ = nullptr;
};

// Name, tag and flags of each property that a type declares itself, with a default that is empty.
std::vector<std::string> DeclaredProperties(ZnHandle database, const char* type) {
  std::vector<std::string> lines;
  ZnHandle set = nullptr;
  EXPECT_EQ(TypeGetTypeProperties(database, type, 0, &set), 0U);
  ZnHandle iterator = nullptr;
  EXPECT_EQ(PsOpenPropset(set, &iterator), 0U);
  Property2* property = nullptr;
  while (PsFindNextProperty(set, iterator, &property) == 0) {
    lines.push_back(std::string(property->Name) + " " + std::to_string(property->Type) + " " +
                    std::to_string(property->Flags));
    const auto* bytes = static_cast<const u8*>(property->Value);
    const bool isArray = (property->Type & ZN_TYPE_ARRAY) != 0;
    EXPECT_TRUE(isArray ? property->Size == 0
                        : std::all_of(bytes, bytes + property->Size, [](u8 b) { return b == 0; }))
        << lines.back();
    PsFreeProperty(property);
  }
  ZnCloseHandle(iterator);
  PsDestroyPropset(set);
  return lines;
}

TEST_F(RecordedBus, DeclaresItsTypesByItsDocument) {
  for (const TypeSchema& type : Types()) {
    SCOPED_TRACE(type.name);
    std::vector<std::string> expected;
    for (const PropertySchema& property : type.properties) {
      expected.push_back(std::string(property.name) + " " + std::to_string(property.tag) + " " +
                         std::to_string(property.flags));
    }
    EXPECT_THAT(DeclaredProperties(bus_.Database(), type.name),
                testing::UnorderedElementsAreArray(expected));
    u32 count = 0;
    char** supertypes = nullptr;
    ASSERT_EQ(TypeGetSuperTypeObjects(bus_.Database(), type.name, &count, &supertypes), 0U);
    ASSERT_EQ(count, 1U);
    EXPECT_STREQ(supertypes[0], type.supertype == nullptr ? "KELD_Object" : type.supertype);
    ZnFree(supertypes);
  }
}

TEST_F(RecordedBus, ShowsTheWholeMachine) {
  Inventory shown = bus_.Snapshot();
  for (auto& [key, item] : shown) {
    // Every object has it from its root type; the provider leaves it alone.
    EXPECT_EQ(item.properties["State"], Value(u32{0})) << key;
    item.properties.erase("State");
  }
  EXPECT_EQ(Dump(shown), ExpectedObjects());
}

TEST_F(RecordedBus, DeclaresDisksAndPartitionsAsBlockDevices) {
  EXPECT_TRUE(ObIsA(bus_.Database(), bus_.Find("block:sda"), kBlockType));
  EXPECT_TRUE(ObIsA(bus_.Database(), bus_.Find("block:sda1"), kBlockType));
  EXPECT_FALSE(ObIsA(bus_.Database(), bus_.Find(kData), kBlockType));
}

TEST_F(RecordedBus, MarksWhatOneSearchesForAsIndexed) {
  for (const auto& [key, name] : std::map<std::string, std::string>{
           {"block:sda", "Device"}, {"fs:/", "MountPoint"}, {"net:eno1", "Mac"}}) {
    Property2* property = nullptr;
    ASSERT_EQ(ObGetProperty(bus_.Database(), bus_.Find(key), name.c_str(), &property), 0U);
    EXPECT_EQ(property->Flags, ZN_PROPERTY_INDEXED) << name;
    PsFreeProperty(property);
  }
}

TEST_F(RecordedBus, TellsItsVersion) {
  Property2* property = nullptr;
  ASSERT_EQ(PrGetProperty(bus_.Provider(), "VERSION", &property), 0U);
  EXPECT_EQ(std::u16string(static_cast<const ZnWChar*>(property->Value)), u"1.0.0");
  PsFreeProperty(property);
}

TEST_F(RecordedBus, RaisesNothingForWhatHasNotChanged) {
  ASSERT_EQ(Refresh(), 0U);
  ASSERT_EQ(Rescan(), 0U);
  EXPECT_TRUE(bus_.Events().empty());
}

TEST_F(RecordedBus, RaisesOneChangeForOneChangedThing) {
  WriteTree("sys/class/net/eno1/statistics/rx_bytes", "900000000123\n");
  WriteTree("sys/class/net/eno1/statistics/rx_packets", "600000001\n");
  ASSERT_EQ(Refresh(), 0U);
  const std::vector<HeardEvent> events = bus_.Events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_NE(events[0].topic.find(".data.change."), std::string::npos);
  EXPECT_TRUE(ObCompareId(events[0].object, bus_.Find("net:eno1")));
  EXPECT_EQ(bus_.Get("net:eno1", "ReceivedBytes"), Value(std::uint64_t{900000000123}));
  WriteTree("sys/class/net/eno1/statistics/rx_bytes", "900000000000\n");
  WriteTree("sys/class/net/eno1/statistics/rx_packets", "600000000\n");
  ASSERT_EQ(Refresh(), 0U);
}

TEST_F(RecordedBus, RescanBringsAndTakesThings) {
  WriteTree("sys/class/net/new 0/mtu", "1400\n");
  ASSERT_EQ(Refresh(), 0U);
  EXPECT_TRUE(IsZero(bus_.Find("net:new 0"))) << "a refresh brings figures only";
  ASSERT_EQ(Rescan(), 0U);
  const ObjectId id = bus_.Find("net:new 0");
  ASSERT_FALSE(IsZero(id));
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.add."));
  EXPECT_EQ(bus_.Get(id, "Mtu"), Value(u32{1400}));
  fs::remove_all(folder->Path() + "/tree/sys/class/net/new 0");
  ASSERT_EQ(Rescan(), 0U);
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.delete."));
  EXPECT_FALSE(ObExists(bus_.Database(), id));
  EXPECT_TRUE(IsZero(bus_.Find("net:new 0")));
}

TEST_F(RecordedBus, RescanMakesADeletedObjectAnewWithItsRelations) {
  const std::string before = Dump(bus_.Snapshot());
  const ObjectId id = bus_.Find("block:sda1");
  ASSERT_EQ(ObDeleteObject(bus_.Database(), id), 0U);
  ASSERT_EQ(Refresh(), 0U);
  EXPECT_TRUE(IsZero(bus_.Find("block:sda1")));
  ASSERT_EQ(Rescan(), 0U);
  EXPECT_FALSE(IsZero(bus_.Find("block:sda1")));
  EXPECT_FALSE(ObCompareId(bus_.Find("block:sda1"), id));
  EXPECT_EQ(Dump(bus_.Snapshot()), before);
}

TEST_F(RecordedBus, RefreshesAsATaskToo) {
  WriteTree("proc/uptime", "900000.00 1.00\n");
  HeardReports heard;
  ObjectId task{};
  ASSERT_EQ(CallAsynchronously(bus_.Find("host"), kRefreshInterface, HOSTINV_REFRESH_MAJOR,
                               HOSTINV_REFRESH, &heard, &task),
            0U);
  EXPECT_EQ(heard.finished.get_future().get(), 0U);
  EXPECT_EQ(bus_.Get("host", "Uptime"), Value(std::uint64_t{900000}));
  EXPECT_FALSE(ObExists(bus_.Database(), task));
  WriteTree("proc/uptime", "864321.55 3300000.10\n");
  ASSERT_EQ(Refresh(), 0U);
}

struct WrongCodes {
  const char* why;
  GUID interfaceId;
  u32 majorCode;
  u32 minorCode;
  u32 status;
};

TEST_F(RecordedBus, RefusesWrongCodes) {
  GUID unknown = kFilesInterface;
  unknown.Data1 = 0;
  const WrongCodes kCases[] = {
      {"major of refresh", kRefreshInterface, 1, HOSTINV_REFRESH, ZNE_INVALID_MAJOR_CODE},
      {"minor of refresh", kRefreshInterface, 0, 0, ZNE_INVALID_MINOR_CODE},
      {"minor beyond rescan", kRefreshInterface, 0, 3, ZNE_INVALID_MINOR_CODE},
      {"major of files", kFilesInterface, 0, HOSTINV_CHECKSUM, ZNE_INVALID_MAJOR_CODE},
      {"minor of files", kFilesInterface, HOSTINV_FILES_MAJOR, 9, ZNE_INVALID_MINOR_CODE},
      {"interface", unknown, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM, ZNE_INTERFACE_NOT_FOUND},
  };
  for (const WrongCodes& c : kCases) {
    ObjectId answering{};
    EXPECT_EQ(PrCallProvider(bus_.Provider(), bus_.Find(kData), &c.interfaceId, c.majorCode,
                             c.minorCode, in_, out_, 0, 0, nullptr, nullptr, &answering, nullptr),
              c.status)
        << c.why;
  }
}

TEST_F(RecordedBus, ComputesAChecksum) {
  ASSERT_EQ(Checksum(kData, "Prüfung 1.txt"), 0U);
  EXPECT_EQ(OutputText("Digest"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(OutputText("Algorithm"), "SHA-256");
}

TEST_F(RecordedBus, TakesAWidePathToo) {
  const std::u16string path = u"/srv/Daten für alle/unten/readme.txt";
  Put(in_, "Path", ZN_TYPE_WIDESTRING, (path.size() + 1) * sizeof(ZnWChar), path.c_str());
  ASSERT_EQ(Call(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM), 0U);
  EXPECT_EQ(OutputText("Digest"),
            "d7a8fbb307d7809469ca9abcb0082e4f8d5651e46d3cdb762d02d0bf37c9e592");
}

TEST_F(RecordedBus, RefusesChecksumsItCannotMake) {
  EXPECT_EQ(Checksum(kData, "missing"), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(Checksum(kData, "unten"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Checksum(kData, "../../etc/os-release"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Checksum(kData, "hinaus"), ZNE_INVALID_ARGUMENTS) << "a link that leads out";
  EXPECT_EQ(Checksum(kData, "darin"), 0U) << "a link that stays";
  const u32 number = 1;
  ASSERT_EQ(PsDeleteProperty(in_, "Path"), 0U);
  EXPECT_EQ(Call(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM),
            ZNE_INVALID_ARGUMENTS)
      << "no path";
  Put(in_, "Path", ZN_TYPE_UINT32, sizeof(number), &number);
  EXPECT_EQ(Call(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM),
            ZNE_INVALID_ARGUMENTS)
      << "a path that is no text";
}

TEST_F(RecordedBus, ComputesChecksumsOnFileSystemsOnly) {
  SetPath("x");
  ObjectId answering{};
  const auto callOn = [&](const ObjectId& id) {
    return PrCallProvider(bus_.Provider(), id, &kFilesInterface, HOSTINV_FILES_MAJOR,
                          HOSTINV_CHECKSUM, in_, out_, 0, 0, nullptr, nullptr, &answering, nullptr);
  };
  EXPECT_EQ(callOn(bus_.Find("block:sda")), ZNE_NOT_SUPPORTED_FOR_OBJECT);
  EXPECT_EQ(callOn(ObjectId{}), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(RecordedBus, LeavesTheDigestOnTheTask) {
  WriteTree("srv/Daten für alle/million", std::string(1'000'000, 'a'));
  SetPath("million");
  HeardReports heard;
  ObjectId task{};
  ASSERT_EQ(CallAsynchronously(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR,
                               HOSTINV_CHECKSUM, &heard, &task),
            0U);
  EXPECT_FALSE(IsZero(task));
  EXPECT_EQ(heard.finished.get_future().get(), 0U);
  EXPECT_EQ(heard.digest, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  EXPECT_EQ(heard.percents, (std::vector<u32>{0, 26, 52, 78, 100}));
  EXPECT_FALSE(ObExists(bus_.Database(), task)) << "a finished task is gone";
}

TEST_F(RecordedBus, LeavesTheDigestHoweverShortTheFile) {
  // Such a job ends about when its call returns; many tries meet both orders. Each passes the
  // output set of the one before, as a caller in a loop would.
  for (int i = 0; i < 200; ++i) {
    SetPath("leer");
    HeardReports heard;
    ObjectId task{};
    ASSERT_EQ(CallAsynchronously(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR,
                                 HOSTINV_CHECKSUM, &heard, &task),
              0U);
    ASSERT_EQ(heard.finished.get_future().get(), 0U);
    ASSERT_EQ(heard.digest, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  }
}

TEST_F(RecordedBus, LeavesNoTaskForARefusedChecksum) {
  SetPath("missing");
  HeardReports heard;
  ObjectId task{};
  EXPECT_EQ(CallAsynchronously(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR,
                               HOSTINV_CHECKSUM, &heard, &task),
            ZNE_THING_NOT_FOUND);
  EXPECT_TRUE(IsZero(task));
  u32 count = 1;
  ObjectId* tasks = nullptr;
  ASSERT_EQ(DbGetObjects(bus_.Database(), "KELD_Task", &count, &tasks), 0U);
  EXPECT_EQ(count, 0U);
  ZnFree(tasks);
}

// A file so long that no test lives to see its digest; it takes no room on the disk.
class LongChecksum : public RecordedBus {
 protected:
  void SetUp() override {
    RecordedBus::SetUp();
    WriteTree("srv/Daten für alle/endless", "");
    fs::resize_file(folder->Path() + "/tree/srv/Daten für alle/endless", std::uintmax_t{1} << 42U);
    SetPath("endless");
  }

  u32 Start(HeardReports* heard, ObjectId* task) {
    return CallAsynchronously(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR,
                              HOSTINV_CHECKSUM, heard, task);
  }
};

TEST_F(LongChecksum, StopsThroughItsTask) {
  HeardReports heard;
  ObjectId task{};
  ASSERT_EQ(Start(&heard, &task), 0U);
  EXPECT_EQ(Call(task, kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_STOP), 0U);
  EXPECT_EQ(heard.finished.get_future().get(), ZNE_TASK_STOPPED);
  EXPECT_FALSE(ObExists(bus_.Database(), task));
}

TEST_F(LongChecksum, StopsThroughItsFileSystem) {
  HeardReports heard;
  ObjectId task{};
  ASSERT_EQ(Start(&heard, &task), 0U);
  Put(in_, "TaskId", ZN_TYPE_OBJECT_ID, sizeof(task), &task);
  EXPECT_EQ(Call(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_STOP), 0U);
  EXPECT_EQ(heard.finished.get_future().get(), ZNE_TASK_STOPPED);
}

TEST_F(LongChecksum, StopsWhenItsCallerWantsNoMore) {
  HeardReports heard;
  heard.answer = false;
  ObjectId task{};
  ASSERT_EQ(Start(&heard, &task), 0U);
  EXPECT_EQ(heard.finished.get_future().get(), ZNE_TASK_STOPPED);
  EXPECT_EQ(heard.percents, (std::vector<u32>{0}));
}

TEST_F(LongChecksum, KnowsNoOtherTasks) {
  const ObjectId none{1, 2, 3, {4}};
  Put(in_, "TaskId", ZN_TYPE_OBJECT_ID, sizeof(none), &none);
  EXPECT_EQ(Call(bus_.Find(kData), kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_STOP),
            ZNE_THING_NOT_FOUND);
}

}  // namespace
}  // namespace hostinv
