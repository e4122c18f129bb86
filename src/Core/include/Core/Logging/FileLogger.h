#pragma once

#include <Core/Export.h>
#include <Core/Logging/LevelLogger.h>

#include <chrono>
#include <memory>
#include <string>

namespace Orvan::Core::Logging {

// Writes every message as one line of a text file, flushed at once:
//
//   14:03:07.045 [WARNING] [   912] disk almost full
//
// (local time of day with milliseconds, level word, the writing thread's
// number). The file is truncated when the logger is built and starts with
// two head lines: the local date and time, then the library version.
//
// A file that cannot be opened is reported once on standard error; the
// logger then accepts every call without effect.
class ORVAN_CORE_EXPORT FileLogger : public LevelLogger {
public:
  // `path` is UTF-8.
  explicit FileLogger(const std::string& path);
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  // Stops the memory spy first, then closes the file.
  ~FileLogger() override;

  // Asks the attached memory spy for a sample now; without one, does nothing.
  void triggerLogMemory() override;

  // Writes the memory column legend and starts a memory spy that samples
  // every `period` (back to back for zero or less) into this file, at the
  // verbose level. A spy already running is stopped first, which can take up
  // to one of its periods. Must not run concurrently with triggerLogMemory or
  // another attachMemorySpyer on the same logger.
  void attachMemorySpyer(std::chrono::milliseconds period);

protected:
  void write(LoggingType type, const std::string& message) override;

private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

} // namespace Orvan::Core::Logging
