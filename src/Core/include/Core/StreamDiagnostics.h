#pragma once

#include <Core/Export.h>

namespace Orvan::Core {

// Where a remote stream reports what it does, for the whole process.
//
// Console (the default): each chunk received writes "<buffer>\tRead: <n>b."
//   to standard output, and a socket error writes its message, padded with
//   NULs, to standard error.
// Log: each chunk goes to the logging facade at the debug level as
//   "Read: <n> b. from <address>:<port>", and a socket error at the error
//   level as one line naming the address, the port and the cause; nothing
//   reaches the standard streams.
// Silent: neither; the errors still reach the host as exceptions or as the
//   stream's bad state.
//
// The setting may change at any time, from any thread; a stream reads it at
// each chunk and each error.
enum class StreamDiagnostics { Console, Log, Silent };

ORVAN_CORE_EXPORT void setStreamDiagnostics(StreamDiagnostics diagnostics);
ORVAN_CORE_EXPORT StreamDiagnostics streamDiagnostics();

} // namespace Orvan::Core
