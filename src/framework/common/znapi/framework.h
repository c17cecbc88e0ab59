// Start and stop of what every process with databases needs: locale, event threads, and at the end
// the databases with their providers. The exported starts (of a server, of a client, of a program
// that calls ZnInitialize alone) are built on these.
#pragma once

#include <string>

#include "zn/types.h"

namespace zn {

// Sets the locale and starts the event threads, which hand `parameter` to the event callbacks.
// False when a thread cannot be started. A second start is ignored.
[[nodiscard]] bool StartFramework(u32 parameter) noexcept;

// Ends the refresh and event threads, unloads the providers of every listed database in the reverse
// of their load order, and deletes these databases, the system database among them. A server's stop
// ends the library's life before it deletes them: every handle is refused from then on, for good.
// A stop that comes while one is under way, from a provider's Shutdown or another thread, returns
// at once.
enum class LibraryLife { kGoesOn, kEnds };
void StopFramework(LibraryLife life) noexcept;

// The installation directory as ZnInitialize read it; empty before. Under FAST_LOCK.
[[nodiscard]] const std::u16string& InstallDirAtStart() noexcept;

}  // namespace zn
