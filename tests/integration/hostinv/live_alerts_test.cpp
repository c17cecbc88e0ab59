// The alert of a lost link on the machine this runs on, in a network namespace of its own.
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "alert_listener.h"
#include "loaded_bus.h"

namespace hostinv {
namespace {

// An interface without hardware, of the first kind that this kernel has; false without any.
bool AddInterface(const char* name) {
  nl_sock* socket = nl_socket_alloc();
  nl_connect(socket, NETLINK_ROUTE);
  bool added = false;
  for (const char* type : {"dummy", "ifb", "bridge"}) {
    rtnl_link* link = rtnl_link_alloc();
    rtnl_link_set_name(link, name);
    rtnl_link_set_type(link, type);
    added = added || rtnl_link_add(socket, link, NLM_F_CREATE | NLM_F_EXCL) == 0;
    rtnl_link_put(link);
  }
  nl_socket_free(socket);
  return added;
}

// As `ip link set NAME up` and `down` do.
bool SwitchInterface(const char* name, bool on) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::string(name).copy(request.ifr_name, IFNAMSIZ - 1);
  bool done = ioctl(socket, SIOCGIFFLAGS, &request) == 0;
  const int flags = on ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP;
  request.ifr_flags = static_cast<short>(flags);
  done = done && ioctl(socket, SIOCSIFFLAGS, &request) == 0;
  close(socket);
  return done;
}

TEST(LiveAlerts, ALinkThatIsLostAndComesBackIsHeard) {
  // Before the library starts its threads: they inherit the namespace.
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "a network namespace is not permitted here";
  LoadedBus& bus = LoadedBus::Start("Period = 100\nAlertUsedPercent = 0\n" + CatalogSettings());
  ASSERT_EQ(bus.StartStatus(), 0U);
  AlertListener::Start(bus.Database());
  if (!AddInterface("hostinv0")) GTEST_SKIP() << "this kernel has no virtual interfaces";
  ASSERT_TRUE(SwitchInterface("hostinv0", true));
  const auto state = [&] {
    return IsZero(bus.Find("net:hostinv0")) ? Value() : bus.Get("net:hostinv0", "LinkState");
  };
  ASSERT_TRUE(bus.WaitUntil([&] {
    return state() == Value(std::string("unknown")) || state() == Value(std::string("up"));
  }));
  EXPECT_TRUE(AlertListener::Take().empty()) << "a link that comes is no alert";

  ASSERT_TRUE(SwitchInterface("hostinv0", false));
  const std::vector<HeardAlert> lost = AlertListener::WaitFor(1);
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost[0].topic, "event.alert.hostinv.interface.linklost");
  EXPECT_EQ(lost[0].text,
            "Die Netzwerkschnittstelle hostinv0 hat ihre Verbindung verloren. / "
            "Prüfen Sie das Kabel von hostinv0 und das Gerät am anderen Ende.");
  EXPECT_TRUE(ObCompareId(lost[0].object, bus.Find("net:hostinv0")));

  ASSERT_TRUE(SwitchInterface("hostinv0", true));
  const std::vector<HeardAlert> back = AlertListener::WaitFor(1);
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(back[0].topic, "event.alert.hostinv.interface.linkback");
}

}  // namespace
}  // namespace hostinv
