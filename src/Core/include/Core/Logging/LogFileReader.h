#pragma once

#include <Core/Export.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Logging/MemorySpy.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Orvan::Core::Logging {

// A local date and time to the millisecond, as a log file tells it (the file
// holds no time zone).
struct ORVAN_CORE_EXPORT LogDateTime {
  int year = 1970;
  unsigned month = 1;
  unsigned day = 1;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned millisecond = 0;

  // Milliseconds since 1970-01-01 00:00:00.000 of the same wall clock: the
  // difference of two of them is the time between them (daylight saving
  // changes aside).
  std::int64_t milliseconds() const;

  // "2026-11-24 14:03:07.045".
  std::string toString() const;
};

// One line of a log file, or one piece of it, read back.
struct LogRecord {
  enum class Kind {
    // The second head line: `message` is the library's version.
    Version,
    // Any other line: `message` is the text after the prefix. Also a line
    // that has no prefix (the continuation of a message written on several
    // lines, a line cut by a full disk): it takes the time, level and thread
    // of the line before it, `continuation` is set and `message` is the whole
    // line.
    Message,
    // A workflow step starting ("===> name"): `name`, `depth`.
    StepEnter,
    // A workflow step ending ("<=== name 12.345 ms"): `name`, `depth`,
    // `elapsed`.
    StepLeave,
    // A progress line of a workflow step ("name/text 3.2 s"): `name`,
    // `text`, `depth` (one more than its step's), `elapsed` since the step
    // started.
    StepIntermediate,
    // A memory sample: `memory`.
    Memory,
  };

  Kind kind = Kind::Message;
  // 1 for the first line of the file.
  std::uint64_t lineNumber = 0;
  LogDateTime time;
  // The level word; a version line has none.
  std::optional<LoggingType> level;
  unsigned long long thread = 0;
  bool continuation = false;
  // The text after the prefix, as written (workflow tabs included).
  std::string message;

  // Workflow lines: the number of tab characters before the text.
  unsigned depth = 0;
  std::string name;
  std::string text;
  // The duration written on leave and intermediate lines. It is read from
  // its text: to the microsecond below one second ("12.345 ms"), to a tenth
  // of a second above ("3.2 s").
  std::chrono::microseconds elapsed{0};

  // Memory samples: the six figures in bytes, read back from their text,
  // which was cut down when written: each figure is a lower bound, exact to
  // the KiB up to 100 MiB, to the MiB up to 10 GiB and to the GiB above
  // (the true value is below the figure plus that unit). Exactly 1 MiB and
  // exactly 1 GiB are written as "000KB" and "000MB", and read as 0.
  MemoryUsageCapture memory;
};

// A file that is not a log file of this library, or that cannot be read. The
// text is a sentence naming the file.
class ORVAN_CORE_EXPORT LogFileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Reads a log file written by FileLogger, WorkflowLogger and MemorySpy, one
// record per line, while holding only a bounded buffer (about 1 MiB)
// whatever the size of the file.
//
// A file still being written can be followed: next() returns nullptr when
// the complete lines written so far are read, and returns the lines appended
// since when called again later. A last line without its line end is held
// back until its line end arrives, or until finish() says that the file is
// complete (a file cut short): it is then read as it stands.
//
// The first line must be the head ("[Y-m-d X]" and a date and time): any
// other start is refused with a LogFileError from next(), as is an empty
// file once finished. A line of more than MAX_LINE bytes is read in pieces.
class ORVAN_CORE_EXPORT LogFileReader {
public:
  static constexpr std::size_t MAX_LINE = 1024 * 1024;

  // `path` is UTF-8. Throws LogFileError when the file cannot be opened.
  explicit LogFileReader(const std::string& path);
  ~LogFileReader();
  LogFileReader(const LogFileReader&) = delete;
  LogFileReader& operator=(const LogFileReader&) = delete;

  // The next record, valid until the next call; nullptr when every complete
  // line written so far has been read (or every line, once finished). Throws
  // LogFileError when the file turns out not to be a log file.
  const LogRecord* next();

  // Says that nothing more will be written: a last line without its line
  // end is then read too.
  void finish();

  // The head's date and time and the version, once read.
  const std::optional<LogDateTime>& started() const;
  const std::string& version() const;

  // Bytes of the file consumed so far.
  std::uint64_t bytesRead() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

// The same reading over bytes handed in by the caller, for logs that come
// from elsewhere than a file: feed() appends bytes, next() and finish() are
// those of LogFileReader. `source` names the log in error messages.
class ORVAN_CORE_EXPORT LogTextReader {
public:
  explicit LogTextReader(std::string source);
  ~LogTextReader();
  LogTextReader(const LogTextReader&) = delete;
  LogTextReader& operator=(const LogTextReader&) = delete;

  void feed(std::string_view bytes);
  const LogRecord* next();
  void finish();
  const std::optional<LogDateTime>& started() const;
  const std::string& version() const;

private:
  friend class LogFileReader;
  struct Impl;
  std::unique_ptr<Impl> impl;
};

} // namespace Orvan::Core::Logging
