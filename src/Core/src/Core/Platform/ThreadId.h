#pragma once

namespace Orvan::Core::Platform {

// The operating system's number for the calling thread: what debuggers,
// `ps -L` and the Windows tools show.
unsigned long long currentThreadId();

} // namespace Orvan::Core::Platform
