#pragma once

#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Orvan::Tool {

struct FetchOutcome {
  // NotConnected: the server's name could not be resolved, or connecting
  // failed for good; Failed: the transfer or the output failed.
  enum class Status { Done, Cancelled, TimedOut, NotConnected, Failed };
  Status status = Status::Failed;
  std::string error;
  std::uint64_t bytes = 0;
  double seconds = 0.0;
};

// Reads the file `finfo` names with the library's stream and writes its bytes
// to `output` (standard output when empty), showing progress on standard
// error. The bytes go first to a temporary file beside `output`, which then
// replaces it, so that a failed or cancelled fetch leaves no partial file.
// A cancellation of `token` ends it within a second, even while it waits for
// a silent server.
struct FetchLimits {
  // No byte for this long: the fetch fails as timed out.
  std::optional<std::chrono::milliseconds> idleTimeout;
  // The whole fetch, connection included, may take this long.
  std::optional<std::chrono::milliseconds> maxTime;
};
FetchOutcome fetchFile(const Core::FileInfo& finfo, const std::filesystem::path& output,
                       const Core::Process::CancelationToken& token, const FetchLimits& limits = {});

} // namespace Orvan::Tool
