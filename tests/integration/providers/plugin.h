// What the plug-in of the loading tests and the tests themselves know of each other.
#pragma once

#include "zn/types.h"

inline constexpr GUID kPluginInterface = {
    0x0A1B2C3D, 0x4E5F, 0x4061, {0x72, 0x83, 0x94, 0xA5, 0xB6, 0xC7, 0xD8, 0xE9}};
