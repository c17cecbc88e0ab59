// Reading and writing single settings with defaults, over the ZnReg* calls.
#pragma once

#include <string>

#include "zn/settings.h"

namespace zn {

// A string below `key`: the value `name` of `subKey` (null: of `key` itself). `*out` is a new block
// for ZnFree. Text, expandable text and the string list count as strings (a list gives its first
// text); another type is ZNE_INVALID_ARGUMENTS, a missing key or value the status of the store.
// With a `fallback`, any of these failures gives a copy of it and 0 instead. ZNE_OUT_OF_MEMORY.
u32 ReadStringSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name,
                      const ZnWChar* fallback, ZnWChar** out) noexcept;

// The same as a text of ours; empty on failure without a fallback.
[[nodiscard]] u32 ReadTextSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name,
                                  std::u16string* out);

// A DWORD below `key`; any failure gives the fallback. Always 0.
u32 ReadDwordSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name, u32 fallback,
                     u32* out) noexcept;

// Writes a string value of an open key; the status of the store.
[[nodiscard]] u32 WriteStringSetting(ZnHandle key, const ZnWChar* name,
                                     const ZnWChar* value) noexcept;

// "InstallDir" of the root key, without a separator at its end and with '/' for '\\'; empty when it
// is not set.
[[nodiscard]] std::string InstallDirectory();

// The file that a string of the root key names, as UTF-8 with '/' for '\\'; empty when it is not
// set.
[[nodiscard]] std::string PathSetting(const ZnWChar* name);

// '/' for every '\\': settings and messages may carry either.
[[nodiscard]] std::string ToHostPath(std::string path);

}  // namespace zn
