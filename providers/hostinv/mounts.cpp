// Mounted file systems by libmount; see the header.
#include "mounts.h"

#include <libmount/libmount.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "text.h"

namespace hostinv {
namespace {

struct TableDeleter {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IteratorDeleter {
  void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};

bool IsShown(libmnt_fs* mount, std::string_view type, std::string_view target) {
  constexpr std::array<std::string_view, 3> kGuestTypes = {"overlay", "virtiofs", "vboxsf"};
  if (target == "/") return type != "rootfs";  // the kernel's own, always under another one
  if (std::find(kGuestTypes.begin(), kGuestTypes.end(), type) != kGuestTypes.end()) return true;
  return mnt_fs_is_pseudofs(mount) == 0;
}

// One mount may be read-only although its file system is not, and the other way round.
bool IsReadOnly(libmnt_fs* mount) {
  const auto has = [](const char* options) {
    return options != nullptr && mnt_optstr_get_option(options, "ro", nullptr, nullptr) == 0;
  };
  return has(mnt_fs_get_vfs_options(mount)) || has(mnt_fs_get_fs_options(mount));
}

FileSystemState Describe(libmnt_fs* mount) {
  FileSystemState state;
  const dev_t number = mnt_fs_get_devno(mount);
  state.source = Text(mnt_fs_get_source(mount));
  state.number = std::to_string(major(number)) + ":" + std::to_string(minor(number));
  state.mountPoint = Text(mnt_fs_get_target(mount));
  state.type = Text(mnt_fs_get_fstype(mount));
  state.readOnly = IsReadOnly(mount);
  // A dead server would hold the asking thread for ever. The root is asked all the same: without
  // it nothing here would run.
  state.sampled = mnt_fs_is_netfs(mount) == 0 || state.mountPoint == "/";
  return state;
}

void Add(FileSystemState&& state, std::vector<FileSystemState>* list) {
  const auto same = [&](const FileSystemState& f) { return f.mountPoint == state.mountPoint; };
  const auto old = std::find_if(list->begin(), list->end(), same);
  if (old == list->end()) {
    list->push_back(std::move(state));
  } else {
    *old = std::move(state);
  }
}

}  // namespace

std::vector<FileSystemState> ReadMounts(const std::string& root) {
  std::vector<FileSystemState> list;
  const std::unique_ptr<libmnt_table, TableDeleter> table(mnt_new_table());
  const std::unique_ptr<libmnt_iter, IteratorDeleter> iterator(mnt_new_iter(MNT_ITER_FORWARD));
  const std::string path = root + "/proc/self/mountinfo";
  if (!table || !iterator || mnt_table_parse_file(table.get(), path.c_str()) != 0) return list;
  libmnt_fs* mount = nullptr;
  while (mnt_table_next_fs(table.get(), iterator.get(), &mount) == 0) {
    FileSystemState state = Describe(mount);
    if (IsShown(mount, state.type, state.mountPoint)) Add(std::move(state), &list);
  }
  return list;
}

}  // namespace hostinv
