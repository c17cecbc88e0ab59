#include "service/common/clienttable.h"

#include <gmock/gmock.h>

#include "support/common/fastlock.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ClientPtr Make(u32 address, u32 id, u32 state = kClientLoggedOn) {
  auto client = std::make_shared<ClientEntry>(address, id, "host", "host");
  client->state = state;
  return client;
}

std::vector<u32> Ids(const ClientList& clients) {
  std::vector<u32> ids;
  for (const ClientPtr& client : *clients) ids.push_back(client->connectionId);
  return ids;
}

TEST(ClientTable, FindsByAddressAndConnection) {
  ClientTable table;
  table.Add(Make(1, 1));
  table.Add(Make(2, 1));
  table.Add(Make(1, 2));
  EXPECT_EQ(table.Count(), 3u);
  EXPECT_EQ(table.Find(2, 1)->address, 2u);
  EXPECT_EQ(table.Find(2, 2), nullptr);
  EXPECT_EQ(table.Find(1, 2)->SessionKey(), (u64{1} << 32) | 2);
}

TEST(ClientTable, ListsWhoHearsInTheOrderOfTheConnects) {
  ClientTable table;
  table.Add(Make(1, 5));
  table.Add(Make(1, 3, 3));
  table.Add(Make(1, 4));
  table.Add(Make(1, 1, 0));
  size_t count = 0;
  EXPECT_THAT(Ids(table.Listeners(&count)), ElementsAre(5, 4));
  EXPECT_EQ(count, 4u);
}

TEST(ClientTable, MakesTheListAnewAfterAChangeOnly) {
  ClientTable table;
  const ClientPtr client = Make(1, 1, 3);
  table.Add(client);
  size_t count = 0;
  const ClientList before = table.Listeners(&count);
  EXPECT_EQ(table.Listeners(&count), before);
  client->state = kClientLoggedOn;
  EXPECT_EQ(table.Listeners(&count), before);
  table.StateChanged();
  EXPECT_THAT(Ids(table.Listeners(&count)), ElementsAre(1));
}

TEST(ClientTable, ARoundKeepsAnEntryThatIsRemovedMeanwhile) {
  ClientTable table;
  table.Add(Make(1, 1));
  size_t count = 0;
  const ClientList round = table.Listeners(&count);
  EXPECT_NE(table.Remove(1, 1), nullptr);
  EXPECT_EQ(table.Remove(1, 1), nullptr) << "a second removal is none";
  EXPECT_THAT(Ids(round), ElementsAre(1));
  EXPECT_THAT(*table.Listeners(&count), IsEmpty());
  EXPECT_EQ(count, 0u);
}

TEST(ClientTable, ANewConnectionTakesTheKeyOver) {
  ClientTable table;
  table.Add(Make(1, 1));
  const ClientPtr second = Make(1, 1);
  table.Add(second);
  EXPECT_EQ(table.Count(), 1u);
  EXPECT_EQ(table.Find(1, 1), second);
  size_t count = 0;
  EXPECT_THAT(Ids(table.Listeners(&count)), ElementsAre(1));
}

TEST(ConnectedClients, NeverFallBelowNone) {
  const BusLock lock;
  ConnectedClients clients;
  clients.Remove();
  EXPECT_EQ(clients.Count(), 0u);
  clients.Add();
  clients.Add();
  clients.Remove();
  EXPECT_EQ(clients.Count(), 1u);
}

}  // namespace

}  // namespace zn::test
