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
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inventory.h"
#include "machine.h"
#include "patience.h"
#include "temporary_folder.h"

namespace hostinv {
namespace {

using ::testing::AnyOf;

const InterfaceState* Find(const MachineState& state, const std::string& name) {
  const auto found = std::find_if(state.interfaces.begin(), state.interfaces.end(),
                                  [&](const InterfaceState& i) { return i.name == name; });
  return found == state.interfaces.end() ? nullptr : &*found;
}

// Waits until the machine's descriptors have told of a change of `wanted` after which `isShown`
// holds, for a minute at most. Other parts may be told of meanwhile: others change them.
template <typename Condition>
bool WaitForChange(Machine* machine, Parts wanted, Condition&& isShown) {
  std::vector<pollfd> descriptors;
  for (const Watch& watch : machine->Watches()) descriptors.push_back({watch.fd, watch.events, 0});
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    const int ready = poll(descriptors.data(), descriptors.size(), 1000);
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    Parts told = 0;
    for (const pollfd& descriptor : descriptors) {
      if (descriptor.revents != 0) told |= machine->Drain(descriptor.fd);
    }
    if ((told & wanted) != 0 && isShown()) return true;
  }
  return false;
}

// What /proc says now: it changes with a processor switched off or a container's limits.
struct Totals {
  std::size_t processors = 0;
  std::uint64_t memory = 0;
};

Totals ReadTotals() {
  Totals totals;
  std::string line;
  for (std::ifstream file("/proc/cpuinfo"); std::getline(file, line);) {
    if (line.starts_with("processor\t")) ++totals.processors;
  }
  std::string name;
  for (std::ifstream file("/proc/meminfo"); std::getline(file, line);) {
    std::uint64_t kibibytes = 0;
    std::istringstream(line) >> name >> kibibytes;
    if (name == "MemTotal:") totals.memory = kibibytes * 1024;
  }
  return totals;
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
  const Totals before = ReadTotals();
  machine->Scan(kAllParts, &state);
  const Totals after = ReadTotals();
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  EXPECT_EQ(state.host.name, names.nodename);
  EXPECT_EQ(state.host.kernel, names.release);
  EXPECT_EQ(state.host.architecture, names.machine);
  EXPECT_THAT(state.processors.size(), AnyOf(before.processors, after.processors));
  EXPECT_THAT(state.memory.total, AnyOf(before.memory, after.memory));
  EXPECT_GT(state.processors.size(), 0U);
  EXPECT_GT(state.memory.total, 0U);
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

    const auto hasAddress = [&] {
      machine->Scan(kPartInterfaces, &state);
      loopback = Find(state, "lo");
      return loopback != nullptr && !loopback->addresses.empty();
    };
    ASSERT_TRUE(WaitForChange(machine.get(), kPartInterfaces, hasAddress));
    EXPECT_EQ(loopback->addresses.front(), "127.0.0.1/8");
  });
  if (!permitted) GTEST_SKIP() << "a network namespace is not permitted here";
}

constexpr int kNotPermitted = 77;

// In a process of its own, for a mount table belongs to a process: binds a folder onto itself and
// ends with 0 if the machine heard of it coming and going. The mount ends with the process; an
// exception would first remove the folder that the caller owns in both processes, hence none.
int FollowAMount(const std::string& target) noexcept {
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
  const char* path = target.c_str();
  if (mount(path, path, nullptr, MS_BIND, nullptr) != 0) return kNotPermitted;
  if (!WaitForChange(machine.get(), kPartFileSystems, isShown)) return 3;
  if (umount(path) != 0) return 4;
  const auto isGone = [&] { return !isShown(); };
  return WaitForChange(machine.get(), kPartFileSystems, isGone) ? 0 : 5;
}

TEST(LiveMachine, HearsOfMounts) {
  const TemporaryFolder folder;
  if (folder.IsInMemory()) GTEST_SKIP() << "the temporary folder is in memory: it is not shown";
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
