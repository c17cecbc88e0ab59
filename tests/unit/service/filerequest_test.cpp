// File requests: which files go out, and what is told of it.
#include <filesystem>

#include <gmock/gmock.h>

#include "service/common/filerule.h"
#include "tests/unit/service/service_fixture.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/support/temporary.h"
#include "zn/ev.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct RuleCase {
  const char* why;
  const char16_t* path;
  const char16_t* installDir;
  bool allowed;
};
constexpr RuleCase kRuleCases[] = {
    {"a log", u"/opt/zn/logs/znmira.log", u"/opt/zn", true},
    {"without regard to case", u"/opt/zn/Logs/znmira.log", u"/OPT/zn", true},
    {"an installation with a separator at its end", u"/opt/zn/logs/a", u"/opt/zn/", true},
    {"the other separators", u"\\opt\\zn\\logs\\a", u"/opt/zn", true},
    {"the same, the other way round", u"/opt/zn/logs/a", u"\\opt\\zn\\", true},
    {"another folder", u"/opt/zn/other/a", u"/opt/zn", false},
    {"a folder below", u"/opt/zn/logs/old/a", u"/opt/zn", false},
    {"a folder above", u"/opt/zn/logs", u"/opt/zn", false},
    {"two separators between", u"/opt/zn//logs/a", u"/opt/zn", false},
    {"two separators before the name", u"/opt/zn/logs//a", u"/opt/zn", false},
    {"a step up", u"/opt/zn/x/../logs/a", u"/opt/zn", false},
    {"a step up as the name", u"/opt/zn/logs/..", u"/opt/zn", false},
    {"a step up in the installation too", u"/opt/../zn/logs/a", u"/opt/../zn", false},
    {"no separator", u"znmira.log", u"", false},
    {"no installation", u"/logs/a", u"", false},
    {"nothing", u"", u"/opt/zn", false},
    {"no separator between installation and logs", u"/opt/znlogs/a", u"/opt/zn", false},
    {"the root as installation", u"/logs/a", u"/", true},
};
TEST(LogRule, LetsTheLogsOfTheInstallationPass) {
  for (const RuleCase& row : kRuleCases) {
    EXPECT_EQ(IsLogOfInstallation(row.path, row.installDir), row.allowed) << row.why;
  }
}

class Files : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    LogOn();
    provider_ = MakeProvider();
  }
  Reply Ask(const std::string& path) { return Send(FileRequestOf(path)); }
  void Publish(const std::string& path) {
    const BusLock lock;
    DBNode* node = nullptr;
    ASSERT_EQ(database_->CreateDBNode(HandleThing<Provider>(provider_), "KELD_Extension", 0, &node,
                                      nullptr),
              ZN_OK);
    ASSERT_FALSE(ZN_FAILED(node->SetProperty(
        Property("ImageFile", Value::WideText(std::u16string_view(ToWide(path)))))));
  }
  // The topics and paths of download events, heard in this process.
  void Follow() {
    script.event = [this](const EventRecord* event) {
      const PropertySet& data = *HandleThing<PropertySet>(event->data);
      heard_.Add(std::string(event->topic) + " " +
                 ToNarrow(data.FindValue("ImageFile", ZN_TYPE_WIDESTRING)->AsWideText()));
      return ZN_OK;
    };
    ZnHandle registration = nullptr;
    ASSERT_EQ(EvRegisterEvent(nullptr, provider_, "event.keld.dom.downloadfile", &registration),
              ZN_OK);
  }

  TemporaryFolder folder_;
  ZnHandle provider_ = nullptr;
  Collected<std::string> heard_;
};

TEST_F(Files, SendsAPublishedFileAsItIs) {
  std::string content;
  for (int i = 0; i < 100000; ++i) content += static_cast<char>(i * 7);
  WriteFile(folder_ / "catalog.cat", content);
  Publish(folder_ / "catalog.cat");
  Follow();
  const Reply reply = Ask(folder_ / "catalog.cat");
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 10u);
  EXPECT_EQ(reply.set.Count(), 3u);
  EXPECT_EQ(reply.set.FindValue("Data", ZN_TYPE_BINARY)->AsBinary(), content);
  EXPECT_THAT(heard_.WaitFor(2),
              ElementsAre("event.keld.dom.downloadfile.started " + (folder_ / "catalog.cat"),
                          "event.keld.dom.downloadfile.completed " + (folder_ / "catalog.cat")));
}

TEST_F(Files, SendsAnEmptyFile) {
  WriteFile(folder_ / "empty", "");
  Publish(folder_ / "empty");
  const Reply reply = Ask(folder_ / "empty");
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(reply.set.FindValue("Data", ZN_TYPE_BINARY)->AsBinary(), "");
}

TEST_F(Files, TakesANarrowPathToo) {
  WriteFile(folder_ / "a", "text");
  Publish(folder_ / "a");
  PropertySet request = MessageOf(9);
  request.Put("ImageFile", Value::Text(std::string_view(folder_ / "a")));
  EXPECT_EQ(Send(request).Result(), ZN_OK);
}

TEST_F(Files, RefusesAFileThatWasNotPublished) {
  WriteFile(folder_ / "a", "text");
  WriteFile(folder_ / "b", "text");
  Publish(folder_ / "a");
  Follow();
  for (const std::string& path : {folder_ / "b", std::string("/etc/shadow"), std::string(),
                                  folder_ / "a\" OR", folder_ / "./a"}) {
    const Reply reply = Ask(path);
    EXPECT_EQ(reply.Result(), ZNE_CLIENT_NOT_AUTHORIZED) << path;
    EXPECT_EQ(NumberOf(reply.set, "Message"), 10u);
    EXPECT_FALSE(reply.Has("Data"));
  }
  EXPECT_THAT(heard_.Items(), IsEmpty());
}

TEST_F(Files, RefusesAPathWithAZeroInIt) {
  WriteFile(folder_ / "a", "text");
  Publish(folder_ / "a");
  EXPECT_EQ(Ask((folder_ / "a") + std::string("\0.log", 5)).Result(), ZNE_CLIENT_NOT_AUTHORIZED);
}

TEST_F(Files, TellsThatAPublishedFileIsMissing) {
  Publish(folder_ / "gone");
  Publish(folder_.Path());
  Follow();
  EXPECT_EQ(Ask(folder_ / "gone").Result(), ZNE_PROVIDER_IMAGE_DAMAGED);
  EXPECT_EQ(Ask(folder_.Path()).Result(), ZNE_PROVIDER_IMAGE_DAMAGED);
  EXPECT_THAT(heard_.Items(), IsEmpty());
}

TEST_F(Files, TellsThatAFileCannotBeOpenedAndNotThatItWasSent) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  WriteFile(folder_ / "closed", "text");
  Publish(folder_ / "closed");
  Follow();
  {
    const FewDescriptors few(0);
    EXPECT_EQ(Ask(folder_ / "closed").Result(), ZNE_UNEXPECTED);
  }
  EXPECT_THAT(heard_.WaitFor(1),
              ElementsAre("event.keld.dom.downloadfile.started " + (folder_ / "closed")));
}

TEST_F(Files, RefusesARequestWithoutAPath) {
  EXPECT_EQ(Send(MessageOf(9)).Result(), ZNE_INVALID_ARGUMENTS);
  PropertySet request = MessageOf(9);
  request.Put("ImageFile", Value::UInt32(1));
  EXPECT_EQ(Send(request).Result(), ZNE_INVALID_ARGUMENTS);
}

}  // namespace

}  // namespace zn::test
