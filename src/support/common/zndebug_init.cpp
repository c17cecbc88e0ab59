// Where the trace file and its level come from: the key "Tracing\<component>" of the settings.
#include "support/common/zndebug.h"

#include <exception>
#include <filesystem>
#include <iterator>
#include <string>

#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "zn/memory.h"
#include "zn/trace.h"

namespace zn {

namespace {

constexpr u32 kDefaultLevel = 3;
constexpr u32 kDefaultSize = 4096;
constexpr size_t kPathLimit = 1000;  // units of a path, the terminator among them
constexpr size_t kNameLimit = std::size(TraceFlagRow{}.name);

std::u16string TraceKey(const ZnWChar* component) {
  return std::u16string(u"Tracing\\") + component;
}

// <InstallDir>/Logs/znmira.log; empty when there is no InstallDir, the folder for temporary files
// when the two together are too long.
std::string DefaultPath() {
  constexpr std::string_view kFile = "/Logs/znmira.log";
  const std::string folder = InstallDirectory();
  if (folder.empty()) return {};
  if (ToWide(folder).size() + kFile.size() >= kPathLimit) return TemporaryFolder();
  std::error_code ignored;  // a folder that cannot be made shows when the file is opened
  if (std::filesystem::is_directory(folder, ignored)) {
    std::filesystem::create_directory(folder + "/Logs", ignored);
  }
  return folder + std::string(kFile);
}

std::string TracePath(const ZnWChar* key) {
  std::u16string text;
  const u32 status = ReadTextSetting(HkeyMiraRoot(), key, u"TraceFile", &text);
  return ZN_FAILED(status) ? DefaultPath() : ToHostPath(ToNarrow(text));
}

// Sets the flag of each row whose name is a value of the key, whatever its type. A flag that is set
// stays set: the table's owner clears it.
void RefreshFlags(const ZnWChar* key, TraceFlagRow* table) {
  if (!IsGoodPointer(table)) return;
  ZnHandle opened = nullptr;
  if (ZN_FAILED(ZnRegOpenKeyEx(HkeyMiraRoot(), key, 0, 0, &opened))) return;
  for (TraceFlagRow* row = table; row->name[0] != 0; ++row) {
    const std::u16string_view cell(row->name, kNameLimit);  // a full one has no terminator
    const std::u16string name(cell.substr(0, cell.find(u'\0')));
    if (!ZN_FAILED(ZnRegQueryValueEx(opened, name.c_str(), nullptr, nullptr, nullptr, nullptr))) {
      row->flag = 1;
    }
  }
  static_cast<void>(ZnRegCloseKey(opened));
}

u32 InitTrace(const ZnWChar* component, u32 size, TraceFlagRow* table) {
  const std::u16string key = TraceKey(component);
  u32 level = kDefaultLevel;
  ReadDwordSetting(HkeyMiraRoot(), key.c_str(), u"TRACELEVEL", kDefaultLevel, &level);
  // Read and carried like the size, and without effect: the file is always opened anew.
  ZnWChar* overwrite = nullptr;
  ZN_RETURN_IF_FAILED(
      ReadStringSetting(HkeyMiraRoot(), key.c_str(), u"OverwriteMode", u"Off", &overwrite));
  const TraceOptions options = {static_cast<int>(level), size == 0 ? kDefaultSize : size,
                                std::u16string_view(overwrite) == u"On"};
  ZnFree(overwrite);
  OpenTrace(TracePath(key.c_str()), options);
  RefreshFlags(key.c_str(), table);
  return ZN_OK;
}

}  // namespace

}  // namespace zn

extern "C" {

u32 ZnTraceInit(const ZnWChar* component, u32 size, TraceFlagRow* table) {
  if (!zn::IsGoodPointer(component)) return ZNE_INVALID_ARGUMENTS;
  try {
    return zn::InitTrace(component, size, table);
  } catch (const std::exception&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

u32 ZnTraceRefresh(const ZnWChar* component, TraceFlagRow* table) {
  if (!zn::IsGoodPointer(component)) return ZNE_INVALID_ARGUMENTS;
  try {
    zn::RefreshFlags(zn::TraceKey(component).c_str(), table);
    return ZN_OK;
  } catch (const std::exception&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

}  // extern "C"
