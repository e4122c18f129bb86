#pragma once

#include <Core/Export.h>
#include <Core/Process/CancelationToken.h>

#include <optional>
#include <string>
#include <vector>

namespace Orvan::Core::System {

// Runs an external program and blocks until it has ended or been cancelled.
//
// `command` is the whole command line, program first; the program is looked
// up through the system's usual search. `workingDirectory` is the child's
// current directory; an empty text keeps the caller's. `token` may be null;
// otherwise it is polled once per one-second wait cycle and, once
// cancellation is requested, the program is terminated.
//
// Returns the program's exit code; 1 when the exit code cannot be read or
// reads "still active"; 0 when the program could not be started (only the
// log tells that apart from success); no value after a cancellation. Every
// step is logged through the logging facade; system failures are logged, not
// thrown.
//
//   const auto code = System::run("tar xf data.tar", "/tmp/work", &token);
//   if (!code) { /* cancelled */ }
ORVAN_CORE_EXPORT std::optional<unsigned long long> run(const std::string& command, const std::string& workingDirectory,
                                                        const Process::CancelationToken* token);

// The command line that run splits back into exactly `words` on this
// platform: the POSIX shell's quoting on POSIX (a word of plain characters as
// it is, any other in single quotes), the C runtime's on Windows. Words must
// not hold a NUL character.
//
//   System::run(System::commandLine({"tar", "xf", "my data.tar"}), "", &token);
ORVAN_CORE_EXPORT std::string commandLine(const std::vector<std::string>& words);

} // namespace Orvan::Core::System
