#pragma once

#include <Core/Export.h>
#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingType.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Orvan::Core::Logging {

// Writes every message as one line of a text file, flushed at once:
//
//   14:03:07.045 [WARNING] [   912] disk almost full
//
// (local time of day with milliseconds, level word, the writing thread's
// number). The file is truncated when the logger is built (unless Options
// ask to append) and starts with two head lines: the local date and time,
// then the library version.
//
// A file that cannot be opened is reported once on standard error; the
// logger then accepts every call without effect.
//
// A service that keeps its logs passes Options: keep the old content, drop
// the chatty levels, and rotate the file by size:
//
//   FileLogger::Options options;
//   options.append = true;
//   options.threshold = LoggingType::Info;
//   options.rotation = FileLogger::Rotation{10 * 1024 * 1024, 5};
//   auto log = std::make_shared<FileLogger>("service.log", options);
//   if (!log->isOpen()) { ... }
class ORVAN_CORE_EXPORT FileLogger : public LevelLogger {
public:
  // Size-based rotation. Before a line that would take the file past
  // `maximumBytes`, the file is renamed "<path>.1" (the one of that name
  // becoming "<path>.2", and so on up to "<path>.<keptFiles>", the oldest
  // being dropped) and a fresh file starts with the two head lines. A file
  // always holds at least one line after its head, so a single line longer
  // than the limit is written whole. With `keptFiles` 0 the file starts
  // afresh and nothing is kept. A log appended to that is already at its
  // limit is rotated before the new head. When the file cannot be renamed
  // (on Windows, another program holds it open without sharing), lines go
  // on into it and the rotation is tried again once it has grown by
  // `maximumBytes` more.
  struct Rotation {
    std::uint64_t maximumBytes = 10 * 1024 * 1024;
    std::size_t keptFiles = 3;
  };

  struct Options {
    // Keeps what the file holds and writes the head lines after it, instead
    // of emptying the file.
    bool append = false;
    // Lines less severe than this are not written (see LevelThreshold.h);
    // Verbose writes everything.
    LoggingType threshold = LoggingType::Verbose;
    // No rotation when empty: the file grows without bound.
    std::optional<Rotation> rotation;
    // Nothing on standard error when the file cannot be opened; ask isOpen().
    bool quiet = false;
  };

  // `path` is UTF-8.
  explicit FileLogger(const std::string& path);
  // With default Options, the same as the constructor above.
  FileLogger(const std::string& path, const Options& options);
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

  // Whether lines reach a file: false when the file could not be opened, or
  // when a rotated file could not be created.
  bool isOpen() const;

protected:
  void write(LoggingType type, const std::string& message) override;

private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

} // namespace Orvan::Core::Logging
