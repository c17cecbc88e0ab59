// The Ev* exports: checks, traces, statuses, and the waits.
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/ev.h"
#include "zn/memory.h"

namespace zn::test {

namespace {

ZnHandle AllOnes() {
  return reinterpret_cast<ZnHandle>(UINTPTR_MAX);
}

std::string TooLong() {
  return std::string(0x2001, 'a');
}
std::string JustFits() {
  return std::string(0x2000, 'a');
}

void ExpectRefused(const char* name, u32 status) {
  EXPECT_EQ(status, ZNE_INVALID_ARGUMENTS) << name;
}

TEST(EvMatch, WorksWithoutASystemDatabase) {
  EXPECT_TRUE(EvMatch(nullptr, "a.b.c", "a.b"));
  EXPECT_FALSE(EvMatch(nullptr, "a.b", "a.b.c"));
  EXPECT_FALSE(EvMatch(nullptr, "a", "a.*"));
  EXPECT_TRUE(EvMatch(nullptr, JustFits().c_str(), JustFits().c_str()));
}

TEST(EvMatch, RefusesBadArgumentsWithFalse) {
  const TraceCapture trace;
  EXPECT_FALSE(EvMatch(AllOnes(), "a", "a"));
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"ZnAPI:Entering EvMatch", "ZnAPI:EvMatch: Invalid arguments",
                                      "ZnAPI:Exiting EvMatch: 0x80070057, 2147942487"}));
  EXPECT_FALSE(EvMatch(nullptr, nullptr, "a"));
  EXPECT_FALSE(EvMatch(nullptr, "a", nullptr));
  EXPECT_FALSE(EvMatch(nullptr, TooLong().c_str(), "a"));
  EXPECT_FALSE(EvMatch(nullptr, "a", TooLong().c_str()));
}

TEST(EvMatch, TracesEntryAndExit) {
  const TraceCapture trace;
  EXPECT_TRUE(EvMatch(nullptr, "a", "a"));
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"ZnAPI:Entering EvMatch", "ZnAPI:Exiting EvMatch: 0x0, 0"}));
}

TEST(EvTokens, GivesOneBlockWithPointersAndTexts) {
  char** tokens = nullptr;
  u32 count = 0;
  ASSERT_EQ(EvTokens("a..*.{b}", &tokens, &count), ZN_OK);
  ASSERT_EQ(count, 4u);
  EXPECT_STREQ(tokens[0], "a");
  EXPECT_STREQ(tokens[1], "");
  EXPECT_STREQ(tokens[2], "*");
  EXPECT_STREQ(tokens[3], "{b}");
  const char* expected = reinterpret_cast<char*>(tokens + 4);
  for (u32 i = 0; i < count; ++i) {
    EXPECT_EQ(tokens[i], expected) << "in order, in the same block";
    expected += std::strlen(tokens[i]) + 1;
  }
  ZnFree(tokens);
}

TEST(EvTokens, SplitsTheEmptyTextAndTheLongest) {
  char** tokens = nullptr;
  u32 count = 0;
  ASSERT_EQ(EvTokens("", &tokens, &count), ZN_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_STREQ(tokens[0], "");
  ZnFree(tokens);
  ASSERT_EQ(EvTokens(std::string(0x2000, '.').c_str(), &tokens, &count), ZN_OK);
  EXPECT_EQ(count, 0x2001u);
  EXPECT_STREQ(tokens[0x2000], "");
  ZnFree(tokens);
}

TEST(EvTokens, RefusesIllegalTokensAndAllocatesNothing) {
  for (const char* topic : {"a$b", "a.b*", "**", "a b", "\xC3\xA4"}) {
    char** tokens = nullptr;
    u32 count = 77;
    EXPECT_EQ(EvTokens(topic, &tokens, &count), ZNE_EVENT_STRING_INVALID) << topic;
    EXPECT_EQ(tokens, nullptr);
    EXPECT_EQ(count, 77u);
  }
}

TEST(EvTokens, RefusesBadArguments) {
  const TraceCapture trace;
  char** tokens = nullptr;
  u32 count = 0;
  EXPECT_EQ(EvTokens(nullptr, &tokens, &count), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:Entering EvTokens"));
  EXPECT_TRUE(trace.Has("ZnAPI:EvTokens: Invalid arguments"));
  EXPECT_TRUE(trace.Has("ZnAPI:Exiting EvTokens: 0x80070057, 2147942487"));
  EXPECT_EQ(EvTokens(TooLong().c_str(), &tokens, &count), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(EvTokens("a", nullptr, &count), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(EvTokens("a", &tokens, nullptr), ZNE_INVALID_ARGUMENTS);
}

TEST(EvExports, WithoutASystemDatabaseANullHandleIsNone) {
  const BusLock lock;
  DatabaseCallbacks callbacks;
  Database database(0, callbacks);
  static_cast<void>(RegisterBaseObjectTypes(database));
  Provider provider(&database, database.Types().FindType("KELD_Provider"), u"p", {}, nullptr,
                    false);
  const ZnHandle set = WrapPropertySet(PropertySet());
  ZnHandle out = nullptr;
  const TraceCapture trace;
  EXPECT_EQ(EvRegisterEvent(nullptr, provider.Handle(), "a", &out), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:EvRegisterEvent: Invalid database"));
  EXPECT_EQ(EvUnregisterEvent(nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:EvUnregisterEvent: Invalid database"));
  EXPECT_EQ(EvCreateWaitEvent(
                nullptr, [](const EventRecord*, void*) { return true; }, nullptr, &out),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:EvCreateWaitEvent: Invalid database"));
  EXPECT_EQ(EvRaiseEvent(nullptr, provider.Handle(), "a", set), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:EvRaiseEvent: Invalid database"));
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(DestroyPropertySet(set));
}

bool AcceptAll(const EventRecord*, void*) {
  return true;
}

class EvThreads : public EventTest {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    set_ = WrapPropertySet(PropertySet());
  }
  ~EvThreads() override { EXPECT_TRUE(DestroyPropertySet(set_)); }

  static ZnHandle MakeWait(bool (*predicate)(const EventRecord*, void*), void* context = nullptr) {
    ZnHandle wait = nullptr;
    EXPECT_EQ(EvCreateWaitEvent(nullptr, predicate, context, &wait), ZN_OK);
    return wait;
  }

  ZnHandle set_ = nullptr;
};

TEST_F(EvThreads, RegisterEventRefusesBadArguments) {
  const TraceCapture trace;
  ZnHandle out = nullptr;
  const ZnHandle provider = first_->Handle();
  ExpectRefused("database", EvRegisterEvent(AllOnes(), provider, "a", &out));
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"ZnAPI:Entering EvRegisterEvent",
                                      "ZnAPI:EvRegisterEvent: Invalid arguments",
                                      "ZnAPI:Exiting EvRegisterEvent: 0x80070057, 2147942487"}));
  ExpectRefused("provider as database", EvRegisterEvent(provider, provider, "a", &out));
  ExpectRefused("null provider", EvRegisterEvent(nullptr, nullptr, "a", &out));
  ExpectRefused("database as provider", EvRegisterEvent(nullptr, database_->Handle(), "a", &out));
  ExpectRefused("null topic", EvRegisterEvent(nullptr, provider, nullptr, &out));
  ExpectRefused("long topic", EvRegisterEvent(nullptr, provider, TooLong().c_str(), &out));
  ExpectRefused("empty topic", EvRegisterEvent(nullptr, provider, "", &out));
  ExpectRefused("null result", EvRegisterEvent(nullptr, provider, "a", nullptr));
  EXPECT_EQ(out, nullptr);
}

TEST_F(EvThreads, RegisterEventNullsItsResultWhenThePatternIsBad) {
  ZnHandle out = first_->Handle();
  EXPECT_EQ(EvRegisterEvent(nullptr, first_->Handle(), "a.b*", &out), ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(out, nullptr);
}

TEST_F(EvThreads, RegisterEventGivesARegistration) {
  const TraceCapture trace;
  const ZnHandle registration = Register(first_, "a", database_->Handle());
  EXPECT_EQ(HandleTag(registration), HANDLE_EVENT_REGISTRATION);
  EXPECT_EQ(trace.Messages(), (std::vector<std::string>{"ZnAPI:Entering EvRegisterEvent",
                                                        "ZnAPI:Exiting EvRegisterEvent: 0x0, 0"}));
}

TEST_F(EvThreads, UnregisterEventEndsTheRegistration) {
  const ZnHandle first = Register(first_, "a");
  const ZnHandle second = Register(first_, "a");
  Register(first_, "b");
  EXPECT_EQ(EvUnregisterEvent(nullptr, first), ZN_OK);
  ASSERT_EQ(Raise("a"), ZN_OK);
  ASSERT_EQ(Raise("b"), ZN_OK);
  EXPECT_EQ(heard.WaitFor(1)[0].topic, "b");
  EXPECT_EQ(EvUnregisterEvent(nullptr, second), ZNE_UNEXPECTED);
  EXPECT_EQ(EvUnregisterEvent(nullptr, first), ZNE_INVALID_ARGUMENTS);
}

TEST_F(EvThreads, UnregisterEventRefusesBadArguments) {
  const TraceCapture trace;
  ExpectRefused("database", EvUnregisterEvent(AllOnes(), Register(first_, "a")));
  EXPECT_TRUE(trace.Has("ZnAPI:EvUnregisterEvent: Invalid arguments"));
  ExpectRefused("null", EvUnregisterEvent(nullptr, nullptr));
  ExpectRefused("all ones", EvUnregisterEvent(nullptr, AllOnes()));
  ExpectRefused("another kind", EvUnregisterEvent(nullptr, set_));
}

TEST_F(EvThreads, RaiseEventRefusesBadArguments) {
  const TraceCapture trace;
  const ZnHandle provider = first_->Handle();
  ExpectRefused("database", EvRaiseEvent(AllOnes(), provider, "a", set_));
  EXPECT_TRUE(trace.Has("ZnAPI:Entering EvRaiseEvent"));
  EXPECT_TRUE(trace.Has("ZnAPI:EvRaiseEvent: Invalid arguments"));
  EXPECT_TRUE(trace.Has("ZnAPI:Exiting EvRaiseEvent: 0x80070057, 2147942487"));
  ExpectRefused("null provider", EvRaiseEvent(nullptr, nullptr, "a", set_));
  ExpectRefused("null topic", EvRaiseEvent(nullptr, provider, nullptr, set_));
  ExpectRefused("long topic", EvRaiseEvent(nullptr, provider, TooLong().c_str(), set_));
  ExpectRefused("null set", EvRaiseEvent(nullptr, provider, "a", nullptr));
  ExpectRefused("no set", EvRaiseEvent(nullptr, provider, "a", provider));
}

TEST_F(EvThreads, RaiseEventRefusesATopicWithOtherCharacters) {
  const ZnHandle provider = first_->Handle();
  EXPECT_EQ(EvRaiseEvent(nullptr, provider, "a.*", set_), ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(EvRaiseEvent(nullptr, provider, "a b", set_), ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(EvRaiseEvent(nullptr, provider, "", set_), ZN_OK);
  EXPECT_EQ(EvRaiseEvent(nullptr, provider, JustFits().c_str(), set_), ZN_OK);
}

TEST_F(EvThreads, RaiseEventTakesACopyOfTheSet) {
  Register(first_, "a");
  HandleThing<PropertySet>(set_)->Put("P", Value::UInt32(1));
  {
    const BusLock lock;  // the event is not delivered before the set has changed
    ASSERT_EQ(EvRaiseEvent(nullptr, first_->Handle(), "a", set_), ZN_OK);
    HandleThing<PropertySet>(set_)->Put("P", Value::UInt32(2));
  }
  EXPECT_EQ(heard.WaitFor(1)[0].data.FindValue("P", ZN_TYPE_UINT32)->AsUInt32(), 1u);
}

TEST_F(EvThreads, EveryCallNeedsALoggedOnDatabase) {
  {
    const BusLock lock;
    database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  }
  const TraceCapture trace;
  ZnHandle out = nullptr;
  EXPECT_EQ(EvRegisterEvent(nullptr, first_->Handle(), "a", &out), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:EvRegisterEvent: DB auth failed"));
  EXPECT_EQ(EvUnregisterEvent(nullptr, nullptr), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:EvUnregisterEvent: DB auth failed"));
  EXPECT_EQ(EvCreateWaitEvent(nullptr, AcceptAll, nullptr, &out), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:EvCreateWaitEvent: DB auth failed"));
  EXPECT_EQ(EvRaiseEvent(nullptr, first_->Handle(), "a", set_), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:EvRaiseEvent: DB auth failed"));
  EXPECT_EQ(out, nullptr);
  {
    const BusLock lock;
    EXPECT_FALSE(database_->Events().HasListeners());
    database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
  }
  const ZnHandle wait = MakeWait(AcceptAll);
  {
    const BusLock lock;
    database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  }
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:EvWaitForEvent: DB auth failed"));
  EXPECT_TRUE(EvMatch(nullptr, "a", "a")) << "it asks nothing of the session";
}

TEST_F(EvThreads, CreateWaitEventRefusesBadArguments) {
  const TraceCapture trace;
  ZnHandle out = nullptr;
  ExpectRefused("database", EvCreateWaitEvent(AllOnes(), AcceptAll, nullptr, &out));
  EXPECT_TRUE(trace.Has("ZnAPI:Entering EvCreateWaitEvent"));
  EXPECT_TRUE(trace.Has("ZnAPI:EvCreateWaitEvent: Invalid arguments"));
  EXPECT_TRUE(trace.Has("ZnAPI:Exiting EvCreateWaitEvent: 0x80070057, 2147942487"));
  ExpectRefused("predicate", EvCreateWaitEvent(nullptr, nullptr, nullptr, &out));
  ExpectRefused("result", EvCreateWaitEvent(nullptr, AcceptAll, nullptr, nullptr));
  EXPECT_EQ(out, nullptr);
}

TEST_F(EvThreads, WaitForEventRefusesBadArguments) {
  const TraceCapture trace;
  const ZnHandle wait = MakeWait(AcceptAll);
  ExpectRefused("database", EvWaitForEvent(AllOnes(), wait, 0));
  EXPECT_TRUE(trace.Has("ZnAPI:Entering EvWaitForEvent"));
  EXPECT_TRUE(trace.Has("ZnAPI:EvWaitForEvent: Invalid arguments"));
  EXPECT_TRUE(trace.Has("ZnAPI:Exiting EvWaitForEvent: 0x80070057, 2147942487"));
  ExpectRefused("null", EvWaitForEvent(nullptr, nullptr, 0));
  ExpectRefused("another kind", EvWaitForEvent(nullptr, set_, 0));
}

TEST_F(EvThreads, AWaitEndsWithTheEventItsPredicateAccepts) {
  Collected<std::string> seen;
  const ZnHandle wait = MakeWait(
      [](const EventRecord* event, void* context) {
        EXPECT_FALSE(fastLock.HeldByThisThread());
        static_cast<Collected<std::string>*>(context)->Add(event->topic);
        return std::string_view(event->topic) == "wanted";
      },
      &seen);
  EXPECT_EQ(HandleTag(wait), HANDLE_EVENT);
  std::thread waiter([wait] { EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZN_OK); });
  // A predicate that returns false leaves its waiter asleep.
  ASSERT_EQ(Raise("other"), ZN_OK);
  ASSERT_EQ(Raise("wanted"), ZN_OK);
  waiter.join();
  EXPECT_EQ(seen.Items()[0], "other");
  EXPECT_EQ(seen.Items()[1], "wanted");
}

TEST_F(EvThreads, AnEventBeforeTheWaitIsNotLost) {
  const ZnHandle wait = MakeWait(AcceptAll);
  ASSERT_EQ(Raise("a"), ZN_OK);
  Flush();
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZN_OK);
}

TEST_F(EvThreads, ATimeoutLooksLikeSuccess) {
  const ZnHandle wait = MakeWait([](const EventRecord*, void*) { return false; });
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 1), ZN_OK);
}

TEST_F(EvThreads, AWaitOfNoTimeConsumesTheHandle) {
  const ZnHandle wait = MakeWait(AcceptAll);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0), ZN_OK);
  EXPECT_EQ(HandleThing<void>(wait), reinterpret_cast<void*>(UINTPTR_MAX));
  {
    const BusLock lock;
    EXPECT_TRUE(database_->Events().Waits().empty());
  }
  const TraceCapture trace;
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZNE_EVENT_NOT_FOUND);
  EXPECT_TRUE(trace.Has("ZnAPI:Exiting EvWaitForEvent: 0xc100000d, 3238002701"));
  EXPECT_EQ(ZnCloseHandle(wait), ZN_OK);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0), ZNE_INVALID_ARGUMENTS);
}

TEST_F(EvThreads, AWaitEventBelongsToItsDatabase) {
  std::unique_ptr<Database> other;
  {
    const BusLock lock;
    other = std::make_unique<Database>(0, DatabaseCallbacks{});
  }
  const ZnHandle wait = MakeWait(AcceptAll);
  EXPECT_EQ(EvWaitForEvent(other->Handle(), wait, 0xFFFFFFFFu), ZNE_EVENT_NOT_FOUND);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0), ZN_OK) << "the miss has not consumed it";
  const BusLock lock;
  other.reset();
}

TEST_F(EvThreads, AWaitGivesTheLockBackAtItsDepth) {
  const ZnHandle wait = MakeWait(AcceptAll);
  FAST_LOCK();
  FAST_LOCK();
  // Nothing could be delivered if the lock stayed with the waiter.
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZN_OK);
  EXPECT_EQ(fastLock.HoldCount(), 2u);
  FAST_UNLOCK();
  FAST_UNLOCK();
}

TEST_F(EvThreads, AMissedWaitLeavesTheLockReleased) {
  const ZnHandle wait = MakeWait(AcceptAll);
  ASSERT_EQ(EvWaitForEvent(nullptr, wait, 0), ZN_OK);
  FAST_LOCK();
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0), ZNE_EVENT_NOT_FOUND);
  EXPECT_EQ(fastLock.HoldCount(), 0u) << "an outer holder has lost its lock";
  FAST_UNLOCK();  // and its unlock does nothing
  EXPECT_EQ(fastLock.Owner(), kNoThread);
}

TEST_F(EvThreads, OfTwoWaitsOnOneHandleBothReturn) {
  const ZnHandle wait = MakeWait(AcceptAll);
  std::thread other([wait] {
    const u32 status = EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu);
    EXPECT_TRUE(status == ZN_OK || status == ZNE_EVENT_NOT_FOUND) << status;
  });
  ASSERT_EQ(Raise("a"), ZN_OK);
  const u32 status = EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu);
  EXPECT_TRUE(status == ZN_OK || status == ZNE_EVENT_NOT_FOUND) << status;
  other.join();
}

TEST_F(EvThreads, AWaiterReturnsWhenItsDatabaseGoes) {
  std::unique_ptr<Database> passing;
  ZnHandle wait = nullptr;
  {
    const BusLock lock;
    passing = std::make_unique<Database>(0, DatabaseCallbacks{});
    ASSERT_EQ(EvCreateWaitEvent(passing->Handle(), AcceptAll, nullptr, &wait), ZN_OK);
  }
  const ZnHandle handle = passing->Handle();
  std::thread waiter([=] {
    const u32 status = EvWaitForEvent(handle, wait, 0xFFFFFFFFu);
    EXPECT_TRUE(status == ZN_OK || status == ZNE_INVALID_ARGUMENTS) << status;
  });
  {
    const BusLock lock;
    passing.reset();
  }
  waiter.join();
}

TEST_F(EvThreads, AClosedWaitHandleIsLeftAloneByItsWaiter) {
  Gate inside;
  const ZnHandle wait = MakeWait(
      [](const EventRecord*, void* context) {
        static_cast<Gate*>(context)->Open();
        return true;
      },
      &inside);
  std::thread waiter([wait] {
    const u32 status = EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu);
    // Not found: it came for the wait after the event, which had consumed it.
    EXPECT_TRUE(status == ZN_OK || status == ZNE_INVALID_ARGUMENTS || status == ZNE_EVENT_NOT_FOUND)
        << status;
  });
  EXPECT_EQ(ZnCloseHandle(wait), ZN_OK);
  ASSERT_EQ(Raise("a"), ZN_OK);
  ASSERT_TRUE(inside.Wait());
  waiter.join();
}

TEST_F(EvThreads, AWaitSeesEventsBeforeProvidersDo) {
  Collected<std::string> order;
  Register(first_, "a");
  onEvent = [&](int, const EventRecord&) { order.Add("provider"); };
  const ZnHandle wait = MakeWait(
      [](const EventRecord* event, void* context) {
        const bool isIt = std::string_view(event->topic) == "a";
        if (isIt) static_cast<Collected<std::string>*>(context)->Add("wait");
        return isIt;
      },
      &order);
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZN_OK);
  EXPECT_EQ(order.WaitFor(2), (std::vector<std::string>{"wait", "provider"}));
}

}  // namespace

}  // namespace zn::test
