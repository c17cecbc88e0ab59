// The provider, loaded by the library, on the machine this runs on, in a network namespace of its
// own: what comes, changes and goes is followed without anybody asking.
#include <fcntl.h>
#include <linux/loop.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "checksum.h"
#include "loaded_bus.h"
#include "patience.h"

namespace hostinv {
namespace {

// Changes the namespace's interfaces, as an administrator would.
class Links {
 public:
  Links() : socket_(nl_socket_alloc()) { nl_connect(socket_, NETLINK_ROUTE); }
  ~Links() { nl_socket_free(socket_); }
  Links(const Links&) = delete;
  Links& operator=(const Links&) = delete;

  // An interface without hardware, of the first kind that this kernel has.
  bool AddInterface(const char* name) {
    return AddOfType(name, "dummy") || AddOfType(name, "ifb") || AddOfType(name, "bridge");
  }

  bool AddOfType(const char* name, const char* type) {
    rtnl_link* link = rtnl_link_alloc();
    rtnl_link_set_name(link, name);
    rtnl_link_set_type(link, type);
    const bool added = rtnl_link_add(socket_, link, NLM_F_CREATE | NLM_F_EXCL) == 0;
    rtnl_link_put(link);
    return added;
  }

  bool SetMtu(const char* name, unsigned mtu) {
    rtnl_link* named = Named(name);
    rtnl_link* change = rtnl_link_alloc();
    rtnl_link_set_mtu(change, mtu);
    const bool done = rtnl_link_change(socket_, named, change, 0) == 0;
    rtnl_link_put(change);
    rtnl_link_put(named);
    return done;
  }

  bool AddAddress(const char* name, const char* text) {
    nl_addr* local = nullptr;
    if (nl_addr_parse(text, AF_INET, &local) != 0) return false;
    rtnl_addr* address = rtnl_addr_alloc();
    rtnl_addr_set_ifindex(address, static_cast<int>(if_nametoindex(name)));
    rtnl_addr_set_local(address, local);
    const bool added = rtnl_addr_add(socket_, address, 0) == 0;
    rtnl_addr_put(address);
    nl_addr_put(local);
    return added;
  }

  bool Delete(const char* name) {
    rtnl_link* named = Named(name);
    const bool deleted = rtnl_link_delete(socket_, named) == 0;
    rtnl_link_put(named);
    return deleted;
  }

 private:
  static rtnl_link* Named(const char* name) {
    rtnl_link* link = rtnl_link_alloc();
    rtnl_link_set_ifindex(link, static_cast<int>(if_nametoindex(name)));
    return link;
  }

  nl_sock* socket_;
};

class LiveBus : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Before the library starts its threads: they inherit the namespaces.
    ownNetwork = unshare(CLONE_NEWNET) == 0;
    ownMounts =
        unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    LoadedBus::Start("Period = 100\n");
  }

  void SetUp() override { ASSERT_EQ(bus_.StartStatus(), 0U); }

  static inline bool ownNetwork = false;
  static inline bool ownMounts = false;
  LoadedBus& bus_ = LoadedBus::Get();
};

TEST_F(LiveBus, ShowsThisMachine) {
  const Inventory shown = bus_.Snapshot();
  for (const char* key : {"host", "memory", "cpu:0", "fs:/", "net:lo"}) {
    EXPECT_TRUE(shown.contains(key)) << key;
  }
  EXPECT_NE(bus_.Get("memory", "Total"), Value(std::uint64_t{0}));
  EXPECT_EQ(bus_.Get("net:lo", "Mac"), Value(std::string("00:00:00:00:00:00")));
}

TEST_F(LiveBus, SamplesByItselfOnItsPeriod) {
  const Value before = bus_.Get("host", "Uptime");
  EXPECT_TRUE(bus_.WaitUntil([&] { return bus_.Get("host", "Uptime") != before; }));
}

TEST_F(LiveBus, FollowsAnInterfaceFromItsComingToItsGoing) {
  if (!ownNetwork) GTEST_SKIP() << "a network namespace is not permitted here";
  Links links;
  bus_.ForgetEvents();
  if (!links.AddInterface("hostinv0")) GTEST_SKIP() << "this kernel has no virtual interfaces";
  ASSERT_TRUE(bus_.WaitUntil([&] { return !IsZero(bus_.Find("net:hostinv0")); }));
  const ObjectId id = bus_.Find("net:hostinv0");
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.add."));
  EXPECT_EQ(bus_.Get(id, "Name"), Value(std::u16string(u"hostinv0")));
  u32 parents = 0;
  ObjectId* list = nullptr;
  ASSERT_TRUE(bus_.WaitForEvent(id, ".relation.parent."));
  ASSERT_EQ(ObGetParentObjects(bus_.Database(), id, nullptr, &parents, &list), 0U);
  ASSERT_EQ(parents, 1U);
  EXPECT_TRUE(ObCompareId(list[0], bus_.Find("host")));
  ZnFree(list);

  ASSERT_TRUE(links.SetMtu("hostinv0", 1234));
  EXPECT_TRUE(bus_.WaitUntil([&] { return bus_.Get(id, "Mtu") == Value(u32{1234}); }));
  ASSERT_TRUE(links.AddAddress("hostinv0", "192.0.2.77/24"));
  const Value addresses = std::vector<std::string>{"192.0.2.77/24"};
  EXPECT_TRUE(bus_.WaitUntil([&] { return bus_.Get(id, "Addresses") == addresses; }));

  ASSERT_TRUE(links.Delete("hostinv0"));
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.delete."));
  EXPECT_FALSE(ObExists(bus_.Database(), id));
}

// A folder mounted onto itself, until the end of the scope. Onto itself, so that whoever removes
// the folder while it is mounted removes nothing else.
class BoundFolder {
 public:
  explicit BoundFolder(const std::string& path)
      : path_(path),
        isMounted_(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0) {}
  ~BoundFolder() {
    if (isMounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  BoundFolder(const BoundFolder&) = delete;
  BoundFolder& operator=(const BoundFolder&) = delete;

  bool IsMounted() const { return isMounted_; }
  // The mount is busy for as long as the provider asks it for its size.
  bool Unmount() {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (umount(path_.c_str()) != 0) {
      if (errno != EBUSY || std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    isMounted_ = false;
    return true;
  }

 private:
  std::string path_;
  bool isMounted_;
};

// The key of the file system that holds a folder.
std::string HolderOf(const LoadedBus& bus, std::filesystem::path path) {
  while (path != "/" && IsZero(bus.Find("fs:" + path.string()))) path = path.parent_path();
  return "fs:" + path.string();
}

TEST_F(LiveBus, FollowsAMountFromItsComingToItsGoing) {
  if (!ownMounts) GTEST_SKIP() << "a mount namespace is not permitted here";
  const TemporaryFolder folder;
  if (folder.IsInMemory()) GTEST_SKIP() << "the temporary folder is in memory: it is not shown";
  folder.Write("a folder é/file", "");
  const std::string target = folder.Path() + "/a folder é";
  const std::string holder = HolderOf(bus_, folder.Path());
  bus_.ForgetEvents();
  BoundFolder bound(target);
  if (!bound.IsMounted()) GTEST_SKIP() << "mounting is not permitted here";
  ASSERT_TRUE(bus_.WaitUntil([&] { return !IsZero(bus_.Find("fs:" + target)); }));
  const ObjectId id = bus_.Find("fs:" + target);
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.add."));
  EXPECT_EQ(bus_.Get(id, "MountPoint"), Value(target));
  EXPECT_EQ(bus_.Get(id, "Size"), bus_.Get(holder, "Size"));
  EXPECT_EQ(bus_.Get(id, "Device"), bus_.Get(holder, "Device"));
  ASSERT_TRUE(bound.Unmount());
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.delete."));
  EXPECT_TRUE(IsZero(bus_.Find("fs:" + target)));
}

// A file as a disk, until the end of the scope.
class LoopDisk {
 public:
  explicit LoopDisk(const std::string& path) {
    const Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    number_ = control.IsOpen() ? ioctl(control.Get(), LOOP_CTL_GET_FREE) : -1;
    if (number_ < 0) return;
    device_ = Descriptor(open(("/dev/" + Name()).c_str(), O_RDWR | O_CLOEXEC));
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    isAttached_ = device_.IsOpen() && ioctl(device_.Get(), LOOP_SET_FD, file.Get()) == 0;
  }
  ~LoopDisk() { Detach(); }
  LoopDisk(const LoopDisk&) = delete;
  LoopDisk& operator=(const LoopDisk&) = delete;

  bool IsAttached() const { return isAttached_; }
  std::string Name() const { return "loop" + std::to_string(number_); }
  // The kernel lets go of the file when the last descriptor closes.
  void Detach() {
    if (isAttached_) ioctl(device_.Get(), LOOP_CLR_FD, 0);
    isAttached_ = false;
    device_ = Descriptor();
  }

 private:
  int number_ = -1;
  Descriptor device_;
  bool isAttached_ = false;
};

TEST_F(LiveBus, FollowsADiskFromItsComingToItsGoing) {
  const TemporaryFolder folder;
  folder.Write("disk", std::string(1U << 20U, '\0'));
  bus_.ForgetEvents();
  LoopDisk disk(folder.Path() + "/disk");
  if (!disk.IsAttached()) GTEST_SKIP() << "a loop device is not to be had here";
  const std::string key = "block:" + disk.Name();
  ASSERT_TRUE(bus_.WaitUntil([&] { return !IsZero(bus_.Find(key)); }));
  const ObjectId id = bus_.Find(key);
  EXPECT_EQ(bus_.Get(id, "Size"), Value(std::uint64_t{1U << 20U}));
  EXPECT_EQ(bus_.Get(id, "Device"), Value("/dev/" + disk.Name()));
  disk.Detach();
  EXPECT_TRUE(bus_.WaitForEvent(id, ".object.delete."));
  EXPECT_TRUE(IsZero(bus_.Find(key)));
}

}  // namespace
}  // namespace hostinv
