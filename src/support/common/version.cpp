// Names and versions of the library and its host.
#include <exception>
#include <string>

#include "support/common/block.h"
#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr u32 kMajor = 3;
constexpr u32 kMinor = 0;
constexpr size_t kComputerNameUnits = 16;  // the terminator among them

u32 MakeVersionString(ZnWChar** out) {
  const HostVersion host = GetHostVersion();
  std::u16string product;  // stays empty when the settings do not tell
  static_cast<void>(ReadTextSetting(HkeyMiraRoot(), nullptr, u"VERSION", &product));
  const std::string text =
      host.name + '#' + host.release + '#' + std::to_string(host.processor) + '#';
  ZnWChar* block = TextToBlock(std::u16string_view(ToWide(text) + product));
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  return ZN_OK;
}

ZnWChar* MakeComputerName() {
  const std::u16string name = ToWide(GetHostName());
  if (name.empty()) return nullptr;
  auto* block = static_cast<ZnWChar*>(ZnAlloc(kComputerNameUnits * sizeof(ZnWChar)));
  if (block == nullptr) return nullptr;
  size_t units = std::min(name.size(), kComputerNameUnits - 1);
  // A character of two units is not cut in half.
  if (units < name.size() && name[units] >= 0xDC00 && name[units] <= 0xDFFF) --units;
  name.copy(block, units);
  return block;
}

}  // namespace

}  // namespace zn

extern "C" {

u32 ZnGetMiraVersion(u32* major, u32* minor) {
  if (!zn::IsGoodPointer(major) || !zn::IsGoodPointer(minor)) return ZNE_INVALID_ARGUMENTS;
  *major = zn::kMajor;
  *minor = zn::kMinor;
  return ZN_OK;
}

u32 ZnGetLibVersion(u32* a, u32* b, u32* c, u32* d) {
  if (!zn::IsGoodPointer(a) || !zn::IsGoodPointer(b) || !zn::IsGoodPointer(c) ||
      !zn::IsGoodPointer(d)) {
    ZN_TRACE(3, "ZnAPI:ZnGetLibVersion: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  *a = zn::kMajor;
  *b = zn::kMinor;
  *c = 0;
  *d = 0;
  return ZN_OK;
}

u32 ZnGetVersionString(ZnWChar** out) {
  if (!zn::IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  try {
    return zn::MakeVersionString(out);
  } catch (const std::exception&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

ZnWChar* ZnGetComputerName(void) {
  try {
    return zn::MakeComputerName();
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // extern "C"
