// The machine this process runs on: block devices by libudev, interfaces by libnl-route, sizes by
// statvfs, and the descriptors that tell of changes. Without udevd (a container, a bare machine)
// the devices still come out of /sys through libudev, and the kernel's own messages are followed in
// place of udevd's.
#include <fcntl.h>
#include <libudev.h>
#include <poll.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <memory>

#include "block_devices.h"
#include "machine.h"
#include "netlink.h"
#include "text.h"

namespace hostinv {
namespace {

struct UdevDeleter {
  void operator()(udev* context) const { udev_unref(context); }
  void operator()(udev_device* device) const { udev_device_unref(device); }
  void operator()(udev_enumerate* list) const { udev_enumerate_unref(list); }
  void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
};
template <typename T>
using UdevPointer = std::unique_ptr<T, UdevDeleter>;

UdevPointer<udev_monitor> MakeMonitor(udev* context) {
  const bool daemonRuns = access("/run/udev/control", F_OK) == 0;
  UdevPointer<udev_monitor> monitor(
      udev_monitor_new_from_netlink(context, daemonRuns ? "udev" : "kernel"));
  if (!monitor) return nullptr;
  udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "block", nullptr);
  if (udev_monitor_enable_receiving(monitor.get()) < 0) return nullptr;
  return monitor;
}

class LiveMachine final : public Machine {
 public:
  explicit LiveMachine(std::unique_ptr<Netlink> netlink)
      : Machine(""),
        netlink_(std::move(netlink)),
        udev_(udev_new()),
        monitor_(udev_ ? MakeMonitor(udev_.get()) : nullptr),
        mounts_(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {}

  ~LiveMachine() override {
    if (mounts_ >= 0) close(mounts_);
  }

  std::vector<Watch> Watches() const override {
    std::vector<Watch> watches = {{netlink_->ChangeDescriptor(), POLLIN}};
    if (monitor_) watches.push_back({udev_monitor_get_fd(monitor_.get()), POLLIN});
    // The kernel marks a changed mount table with POLLPRI; being polled is what clears the mark.
    if (mounts_ >= 0) watches.push_back({mounts_, POLLPRI});
    return watches;
  }

  Parts Drain(int fd) override {
    if (fd == mounts_) return kPartFileSystems;
    if (fd == netlink_->ChangeDescriptor()) return netlink_->DrainChanges() ? kPartInterfaces : 0;
    Parts parts = 0;
    while (UdevPointer<udev_device>(udev_monitor_receive_device(monitor_.get()))) {
      parts = kPartBlocks;
    }
    return parts;
  }

 protected:
  std::vector<BlockState> ReadBlocks() override {
    std::vector<BlockState> list;
    const UdevPointer<udev_enumerate> all(udev_ ? udev_enumerate_new(udev_.get()) : nullptr);
    if (!all) return list;
    udev_enumerate_add_match_subsystem(all.get(), "block");
    udev_enumerate_scan_devices(all.get());
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(all.get())) {
      const UdevPointer<udev_device> device(
          udev_device_new_from_syspath(udev_.get(), udev_list_entry_get_name(entry)));
      if (!device) continue;
      BlockState block = ReadOne(device.get());
      if (IsInUse(block)) list.push_back(std::move(block));
    }
    return list;
  }

  std::vector<InterfaceState> ReadInterfaces() override { return netlink_->Interfaces(); }

  void SampleFileSystems(std::vector<FileSystemState>* fileSystems) override {
    for (FileSystemState& state : *fileSystems) {
      struct statvfs usage {};
      if (!state.sampled || statvfs(state.mountPoint.c_str(), &usage) != 0) continue;
      state.size = usage.f_blocks * usage.f_frsize;
      state.used = (usage.f_blocks - usage.f_bfree) * usage.f_frsize;
      state.free = usage.f_bavail * usage.f_frsize;
    }
  }

  void SampleInterfaces(std::vector<InterfaceState>* interfaces) override {
    netlink_->Sample(interfaces);
  }

 private:
  static BlockState ReadOne(udev_device* device) {
    std::string disk;
    if (Text(udev_device_get_devtype(device)) == "partition") {
      udev_device* parent = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk");
      if (parent != nullptr) disk = Text(udev_device_get_sysname(parent));
    }
    return ReadBlockDevice(Text(udev_device_get_syspath(device)), disk, [device](const char* key) {
      return Text(udev_device_get_property_value(device, key));
    });
  }

  std::unique_ptr<Netlink> netlink_;
  UdevPointer<udev> udev_;
  UdevPointer<udev_monitor> monitor_;
  int mounts_;
};

}  // namespace

std::unique_ptr<Machine> MakeLiveMachine() {
  auto netlink = Netlink::Open();
  if (!netlink) return nullptr;
  return std::make_unique<LiveMachine>(std::move(netlink));
}

}  // namespace hostinv
