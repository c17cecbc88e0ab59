// The machine this test runs on, compared with what the system itself says by other ways.
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include <gtest/gtest.h>

#include "inventory.h"
#include "machine.h"
#include "temporary_folder.h"

namespace hostinv {
namespace {

const InterfaceState* Find(const MachineState& state, const std::string& name) {
  const auto found = std::find_if(state.interfaces.begin(), state.interfaces.end(),
                                  [&](const InterfaceState& i) { return i.name == name; });
  return found == state.interfaces.end() ? nullptr : &*found;
}

// Waits until one of the machine's descriptors tells something, for five seconds at most.
Parts WaitForChange(Machine* machine) {
  std::vector<pollfd> descriptors;
  for (const Watch& watch : machine->Watches()) descriptors.push_back({watch.fd, watch.events, 0});
  Parts parts = 0;
  if (poll(descriptors.data(), descriptors.size(), 5000) <= 0) return parts;
  for (const pollfd& descriptor : descriptors) {
    if (descriptor.revents != 0) parts |= machine->Drain(descriptor.fd);
  }
  return parts;
}

// Runs `body` on a thread in namespaces of its own; false where that is not permitted.
template <typename Body>
bool RunUnshared(int flags, Body&& body) {
  bool permitted = false;
  std::thread([&] {
    permitted = unshare(flags) == 0;
    if (permitted) body();
  }).join();
  return permitted;
}

TEST(LiveMachine, AgreesWithTheSystem) {
  const auto machine = MakeLiveMachine();
  ASSERT_TRUE(machine);
  MachineState state;
  machine->Scan(kAllParts, &state);
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  EXPECT_EQ(state.host.name, names.nodename);
  EXPECT_EQ(state.host.kernel, names.release);
  EXPECT_EQ(state.host.architecture, names.machine);
  EXPECT_EQ(static_cast<long>(state.processors.size()), sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_EQ(state.memory.total, static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                    static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  const Inventory inventory = Describe(state);
  ASSERT_TRUE(inventory.contains("fs:/")) << "the root is shown, whatever it is";
  EXPECT_NE(inventory.at("fs:/").properties.at("Size"), Value(std::uint64_t{0}));
  const InterfaceState* loopback = Find(state, "lo");
  ASSERT_NE(loopback, nullptr);
  EXPECT_EQ(loopback->index, if_nametoindex("lo"));
}

TEST(LiveMachine, HearsOfInterfaces) {
  const bool permitted = RunUnshared(CLONE_NEWNET, [] {
    const auto machine = MakeLiveMachine();
    ASSERT_TRUE(machine);
    MachineState state;
    machine->Scan(kAllParts, &state);
    const InterfaceState* loopback = Find(state, "lo");
    ASSERT_NE(loopback, nullptr);
    EXPECT_TRUE(loopback->addresses.empty()) << "a new namespace's loopback is down";

    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_UP;
    ASSERT_EQ(ioctl(control, SIOCSIFFLAGS, &request), 0);
    close(control);

    ASSERT_EQ(WaitForChange(machine.get()), kPartInterfaces);
    machine->Scan(kPartInterfaces, &state);
    loopback = Find(state, "lo");
    ASSERT_NE(loopback, nullptr);
    EXPECT_EQ(loopback->addresses.front(), "127.0.0.1/8");
  });
  if (!permitted) GTEST_SKIP() << "a network namespace is not permitted here";
}

constexpr int kNotPermitted = 77;

// In a process of its own, for a mount table belongs to a process: binds the root to a folder and
// ends with 0 if the machine heard of it coming and going.
int FollowAMount(const std::string& target) {
  if (unshare(CLONE_NEWNS) != 0) return kNotPermitted;
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return kNotPermitted;
  const auto machine = MakeLiveMachine();
  if (!machine) return 1;
  const auto isShown = [&] {
    MachineState state;
    machine->Scan(kPartFileSystems, &state);
    return Describe(state).contains("fs:" + target);
  };
  if (isShown()) return 2;
  if (mount("/", target.c_str(), nullptr, MS_BIND, nullptr) != 0) return kNotPermitted;
  if (WaitForChange(machine.get()) != kPartFileSystems) return 3;
  if (!isShown()) return 4;
  if (umount(target.c_str()) != 0) return 5;
  if (WaitForChange(machine.get()) != kPartFileSystems) return 6;
  return isShown() ? 7 : 0;
}

TEST(LiveMachine, HearsOfMounts) {
  const TemporaryFolder folder;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(FollowAMount(folder.Path()));
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNotPermitted) {
    GTEST_SKIP() << "a mount namespace is not permitted here";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace hostinv
