#pragma once

#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace Orvan::Tool {

struct FetchOutcome {
  enum class Status { Done, Cancelled, Failed };
  Status status = Status::Failed;
  std::string error;
  std::uint64_t bytes = 0;
  double seconds = 0.0;
};

// Reads the file `finfo` names with the library's stream and writes its bytes
// to `output` (standard output when empty), showing progress on standard
// error. The bytes go first to a temporary file beside `output`, which then
// replaces it, so that a failed or cancelled fetch leaves no partial file.
// While it runs, the library's direct diagnostics are routed into the log.
FetchOutcome fetchFile(const Core::FileInfo& finfo, const std::filesystem::path& output,
                       const Core::Process::CancelationToken& token);

} // namespace Orvan::Tool
