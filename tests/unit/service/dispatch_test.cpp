// The dispatcher: buffers in, answers out.
#include <gmock/gmock.h>

#include "tests/unit/service/service_fixture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Dispatch = ServiceTest;

constexpr std::string_view kGarbage("\0\0\0\x05garbage", 11);

TraceFlagRow allTraces[] = {{u"Dispatch", 1}, {u"Notify", 1}, {u"", 0}};

struct BadArguments {
  const char* text;
  u32 length;
  const void* in;
  bool hasOut;
};
constexpr char kSomeBytes[4] = {};
constexpr BadArguments kBadArguments[] = {
    {"ZnSendReceive: ulcInData = 0", 0, kSomeBytes, true},
    {"ZnSendReceive: pbInData is bad", 4, nullptr, true},
    {"ZnSendReceive: ppbOutData is bad", 4, kSomeBytes, false},
};

TEST_F(Dispatch, RefusesBadArgumentsWithoutAnAnswer) {
  server_->traces.Use(allTraces);
  for (const BadArguments& row : kBadArguments) {
    SCOPED_TRACE(row.text);
    const TraceCapture trace(6);
    u32 length = 7;
    void* out = &length;
    EXPECT_EQ(
        ZnSendReceive(*server_, row.length, row.in, &length, row.hasOut ? &out : nullptr, kPeer, 1),
        ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(length, 7u);
    EXPECT_EQ(out, &length);
    EXPECT_THAT(trace.Messages(), ElementsAre(row.text));
  }
}

TEST_F(Dispatch, IsSilentAboutBadArgumentsUnlessItsTraceIsOn) {
  TraceFlagRow notifyOnly[] = {{u"Dispatch", 0}, {u"Notify", 1}, {u"", 0}};
  for (TraceFlagRow* table : {static_cast<TraceFlagRow*>(nullptr), notifyOnly}) {
    server_->traces.Use(table);
    const TraceCapture trace(6);
    u32 length = 0;
    void* out = nullptr;
    EXPECT_EQ(ZnSendReceive(*server_, 0, kSomeBytes, &length, &out, kPeer, 1),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(trace.Messages(), IsEmpty());
  }
}

TEST_F(Dispatch, DropsAStrangerWhoSendsNoPropertySet) {
  Connect();
  const TraceCapture trace(6);
  const Reply reply = SendBytes(kGarbage);
  EXPECT_EQ(reply.status, ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnSendReceive: Unauthorized bad client"));
  EXPECT_THAT(transport_.disconnected.Items(), ElementsAre(std::pair(kPeer, 1u)));
}

TEST_F(Dispatch, AnswersBadBytesOfAClientThatIsLoggedOn) {
  LogOn();
  const TraceCapture trace(6);
  const Reply reply = SendBytes(kGarbage);
  EXPECT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(reply.set.Count(), 1u);
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnSendReceive: Out of memory"));
  EXPECT_THAT(transport_.disconnected.Items(), IsEmpty());
}

TEST_F(Dispatch, EveryTruncationOfALogonCostsAStrangerItsConnection) {
  Connect();
  const std::string whole = BytesOf(LogonOf(Challenge(), Anna()));
  for (size_t length = 1; length < whole.size(); ++length) {
    const Reply reply = SendBytes(std::string_view(whole).substr(0, length));
    ASSERT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS) << length;
  }
  EXPECT_EQ(transport_.disconnected.Items().size(), whole.size() - 1);
  EXPECT_EQ(Send(SetOf(whole)).Result(), ZN_OK);
}

TEST_F(Dispatch, AnswersAMessageWithoutANumberWithTheResultAlone) {
  Connect();
  for (const bool loggedOn : {false, true}) {
    SCOPED_TRACE(loggedOn);
    if (loggedOn) LogOn(2);
    PropertySet set;
    set.Put("Length", Value::UInt32(512));
    const Reply reply = Send(set, loggedOn ? 2 : 1);
    EXPECT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(reply.set.Count(), 1u);
    EXPECT_EQ(reply.status, ZNE_INVALID_ARGUMENTS) << "the frame carries the result too";
  }
}

TEST_F(Dispatch, AStrangerMakesNoNames) {
  Connect();
  PropertyName name;
  // Set up as bytes: a set would make the name itself.
  std::string bytes = BytesOf(MessageOf(4711));
  bytes.replace(bytes.find("Message"), 7, "Mxyzzyq");
  EXPECT_EQ(SendBytes(bytes).Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_FALSE(PropertyName::Find("Mxyzzyq", &name));
  LogOn(2);
  EXPECT_EQ(SendBytes(bytes, 2).Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(PropertyName::Find("Mxyzzyq", &name));
}

TEST_F(Dispatch, AnswersANumberOfAnotherTypeLikeNone) {
  Connect();
  PropertySet set;
  set.Put("Message", Value::Int32(1));
  EXPECT_EQ(Send(set).Result(), ZNE_INVALID_ARGUMENTS);
}

TEST_F(Dispatch, MakesNoAnswerBeforeTheDatabaseStands) {
  server_->isReady = false;
  Connect();
  for (const u32 message : {3u, 5u, 7u, 9u, 2u, 4711u}) {
    const Reply reply = Send(MessageOf(message));
    EXPECT_EQ(reply.status, ZNE_SERVER_NOT_READY) << message;
    EXPECT_FALSE(reply.hasAnswer) << message;
  }
  EXPECT_EQ(Send(OfferOf()).Result(), ZN_OK);
}

TEST_F(Dispatch, ServesAStrangerTheWayToALogonAndNothingElse) {
  Connect();
  for (const u32 message : {5u, 7u, 9u, 2u, 4u, 6u, 11u, 12u, 4711u}) {
    const Reply reply = Send(MessageOf(message));
    EXPECT_EQ(reply.Result(), ZNE_CLIENT_NOT_AUTHORIZED) << message;
    EXPECT_EQ(reply.set.Count(), 1u) << message;
  }
}

TEST_F(Dispatch, TakesAnUnknownConnectionForAStranger) {
  EXPECT_EQ(Send(MessageOf(5), 99).Result(), ZNE_CLIENT_NOT_AUTHORIZED);
  EXPECT_EQ(Send(OfferOf(), 99).Result(), ZN_OK);
  EXPECT_EQ(Send(ChallengeRequestOf(), 99).Result(), ZNE_UNEXPECTED);
  EXPECT_EQ(Send(MessageOf(3), 99).Result(), ZNE_UNEXPECTED);
}

TEST_F(Dispatch, AnswersAnUnknownMessageOfALoggedOnClientWithAGoodResultAndNoNumber) {
  LogOn();
  for (const u32 message : {0u, 2u, 4u, 6u, 8u, 10u, 11u, 12u, 14u, 4711u, 0xFFFFFFFFu}) {
    const Reply reply = Send(MessageOf(message));
    EXPECT_EQ(reply.Result(), ZN_OK) << message;
    EXPECT_EQ(reply.set.Count(), 1u) << message;
  }
}

TEST_F(Dispatch, IgnoresWhatStandsBehindACompleteSet) {
  LogOn();
  EXPECT_EQ(SendBytes(BytesOf(MessageOf(4711)) + "trailing").Result(), ZN_OK);
}

TEST_F(Dispatch, TracesCacheRequestsAndDownloadsWhenItsTraceIsOn) {
  LogOn(3);
  server_->traces.Use(allTraces);
  const TraceCapture trace(6);
  Send(CacheRequestOf(), 3);
  Send(FileRequestOf("nothing"), 3);
  EXPECT_TRUE(trace.Has("CacheRequest by client 16777343l 3l"));
  EXPECT_TRUE(trace.Has("DownloadFile by client 16777343l 3l"));
}

}  // namespace

}  // namespace zn::test
