#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LevelThreshold.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Logging/MemorySpy.h>
#include <Core/Version.h>
#include <Utils/FileHelper.h>

#include "Logging/LevelText.h"
#include "Platform/LocalTime.h"
#include "Platform/LogFile.h"
#include "Platform/ThreadId.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <limits>
#include <locale>
#include <mutex>
#include <sstream>

// Every line is "HH:MM:SS.mmm [LEVEL  ] [thread] message" and is flushed at
// once. The prefix is built in a small buffer without any stream formatting:
// the time of day is formatted once per second and reused, and each thread
// formats its own number once. The whole line is then handed to the system in
// one write, with no buffer in between that would need flushing. So a line
// costs little more than that write.

namespace Orvan::Core::Logging {

namespace {

// Long enough for any prefix: the time text, ".mmm", the bracketed word and
// a thread number of up to twenty digits.
constexpr std::size_t PREFIX_CAPACITY = 128;
constexpr std::size_t TIME_CAPACITY = 64;
constexpr std::size_t MAX_KEPT_LINE_CAPACITY = 64 * 1024;

// The calling thread's number, right-aligned in a field of six blanks and
// never cut, formatted the first time the thread writes a line.
struct ThreadNumberText {
  char text[24];
  std::size_t length = 0;
};

const ThreadNumberText& threadNumberText()
{
  thread_local ThreadNumberText cached;
  if (cached.length == 0) {
    char digits[24];
    std::size_t count = 0;
    unsigned long long number = Platform::currentThreadId();
    do {
      digits[count++] = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number != 0);
    while (cached.length + count < 6) {
      cached.text[cached.length++] = ' ';
    }
    while (count != 0) {
      cached.text[cached.length++] = digits[--count];
    }
  }
  return cached;
}

std::string formatLocalTime(std::time_t time, const char* pattern)
{
  const std::tm local = Platform::localTime(time);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::put_time(&local, pattern);
  return text.str();
}

// "<path>.<number>".
std::filesystem::path numbered(const std::filesystem::path& path, std::size_t number)
{
  std::filesystem::path result = path;
  result += "." + std::to_string(number);
  return result;
}

// Renames `from` to `to`, dropping a file already called `to` first (a
// rename does not replace a file everywhere); false when `from` is still
// there under its name.
bool moveOver(const std::filesystem::path& from, const std::filesystem::path& to)
{
  std::error_code error;
  if (!std::filesystem::exists(from, error)) {
    return false;
  }
  std::filesystem::remove(to, error);
  std::filesystem::rename(from, to, error);
  return !error;
}

void reportUnopenable(const std::string& path)
{
  std::cerr << "Failed to open file " << path << ". Logging is disabled\n";
}

} // namespace

struct FileLogger::Impl {
  // The open log file, or -1 when it could not be opened (logging disabled).
  // Read without the mutex to skip a disabled logger's lines at once; only
  // a rotation changes it after the head, under the mutex.
  std::atomic<int> file{-1};
  std::mutex mutex;
  std::unique_ptr<MemorySpy> memorySpy;

  Options options;
  std::string pathText; // as given, for the message on standard error
  std::filesystem::path path;

  // With rotation: the bytes in the file, and whether a line follows the
  // head (a file never rotates with its head alone). Guarded by `mutex`
  // once the head is written.
  std::uint64_t fileBytes = 0;
  bool bodyStarted = false;

  // The "%X" text of the second `cachedSecond`; guarded by `mutex` once the
  // head is written.
  std::time_t cachedSecond = std::numeric_limits<std::time_t>::min();
  char cachedTime[TIME_CAPACITY] = {};
  std::size_t cachedTimeLength = 0;

  // The line being written, kept from one line to the next to spare an
  // allocation; guarded by `mutex`.
  std::string line;

  // Whether the last write stopped inside its line (a full disk, a file size
  // limit): the next line then starts with a line end of its own, so that it
  // is not glued to the cut one. Guarded by `mutex`.
  bool lineCut = false;

  // Formats the prefix into `buffer` and returns its length. The clock is
  // read once: the time of day and the milliseconds come from one reading.
  std::size_t formatPrefix(char* buffer, const char* word, std::size_t wordLength)
  {
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    auto seconds = sinceEpoch / 1000;
    auto milliseconds = sinceEpoch % 1000;
    if (milliseconds < 0) {
      seconds -= 1;
      milliseconds += 1000;
    }
    if (static_cast<std::time_t>(seconds) != cachedSecond) {
      const std::string text = formatLocalTime(static_cast<std::time_t>(seconds), "%X");
      cachedTimeLength = std::min(text.size(), TIME_CAPACITY);
      std::memcpy(cachedTime, text.data(), cachedTimeLength);
      cachedSecond = static_cast<std::time_t>(seconds);
    }

    std::size_t length = 0;
    const auto append = [&](const char* text, std::size_t size) {
      std::memcpy(buffer + length, text, size);
      length += size;
    };
    append(cachedTime, cachedTimeLength);
    const char fraction[4] = {'.', static_cast<char>('0' + milliseconds / 100),
                              static_cast<char>('0' + milliseconds / 10 % 10),
                              static_cast<char>('0' + milliseconds % 10)};
    append(fraction, sizeof(fraction));
    append(" [", 2);
    append(word, wordLength);
    append("] [", 3);
    const ThreadNumberText& thread = threadNumberText();
    append(thread.text, thread.length);
    append("] ", 2);
    return length;
  }

  // Prefix, message as it stands, line end, in one write. The caller holds
  // the mutex, except while the head is written.
  void writeLine(const char* word, std::size_t wordLength, const char* message, std::size_t messageLength)
  {
    char prefix[PREFIX_CAPACITY];
    const std::size_t prefixLength = formatPrefix(prefix, word, wordLength);
    line.clear();
    line.append(prefix, prefixLength);
    line.append(message, messageLength);
    line.push_back('\n');
    if (options.rotation) {
      rotateIfFull();
    }
    writeWholeLine();
    if (line.capacity() > MAX_KEPT_LINE_CAPACITY) {
      std::string().swap(line); // a huge message does not pin its memory
    }
  }

  // Writes `line` (which ends with its line end), first ending a line that
  // the last write cut.
  void writeWholeLine()
  {
    const std::size_t lineStart = lineCut ? 1 : 0;
    if (lineCut) {
      line.insert(line.begin(), '\n');
    }
    const std::size_t written = Platform::writeToFile(file.load(std::memory_order_relaxed), line.data(), line.size());
    if (options.rotation) {
      fileBytes += Platform::storedSize(line.data(), written);
    }
    if (written > lineStart) {
      lineCut = written < line.size();
    } else if (written == lineStart) {
      lineCut = false; // the cut line is ended; this one was not started
    }
  }

  void writeLockedLine(LoggingType type, const std::string& message)
  {
    if (!reachesThreshold(type, options.threshold) || file.load(std::memory_order_relaxed) < 0) {
      return;
    }
    const std::lock_guard lock(mutex);
    if (file.load(std::memory_order_relaxed) < 0) {
      return; // a rotation could not create the new file
    }
    writeLine(levelWord(type), 7, message.data(), message.size());
    bodyStarted = true;
  }

  // The head: "[Y-m-d X]" and the local date and time, then the version.
  void writeHead()
  {
    bodyStarted = false;
    line = "[Y-m-d X]" + formatLocalTime(std::time(nullptr), "%Y-%m-%d %X") + "\n";
    writeWholeLine();
    writeLine("VERSION ", 8, VERSION, std::strlen(VERSION));
  }

  // Rotates before `line` when it would take the file past the limit.
  void rotateIfFull()
  {
    const std::uint64_t lineBytes = Platform::storedSize(line.data(), line.size()) + (lineCut ? 1 : 0);
    if (bodyStarted && fileBytes + lineBytes > options.rotation->maximumBytes) {
      std::string pending;
      pending.swap(line); // the head is written through `line`
      rotate();
      line.swap(pending);
    }
  }

  // Shifts the kept files by one, the oldest dropped, renames the log to
  // "<path>.1" and starts a fresh one. The file is closed first: Windows
  // does not rename an open file.
  void rotate()
  {
    // `file` keeps its closed number until the new file is open: a writer
    // checking it before taking the mutex must wait for the new file, not
    // take the logger for disabled and drop its line.
    Platform::closeFile(file.load(std::memory_order_relaxed));
    const std::size_t kept = options.rotation->keptFiles;
    bool renamed = true;
    if (kept > 0) {
      for (std::size_t number = kept; number > 1; --number) {
        moveOver(numbered(path, number - 1), numbered(path, number));
      }
      renamed = moveOver(path, numbered(path, 1));
    }
    // A log that could not be renamed is reopened to go on after its
    // content; it is tried again once it has grown by the limit once more.
    const int reopened = renamed ? Platform::openTruncatedTextFile(path) : Platform::openAppendedTextFile(path);
    if (reopened < 0) {
      file.store(-1, std::memory_order_relaxed);
      if (!options.quiet) {
        reportUnopenable(pathText);
      }
      return;
    }
    file.store(reopened, std::memory_order_relaxed);
    lineCut = false;
    fileBytes = 0;
    if (renamed || Platform::fileSize(reopened) == 0) {
      writeHead();
    }
  }
};

FileLogger::FileLogger(const std::string& path)
    : FileLogger(path, Options{})
{
}

FileLogger::FileLogger(const std::string& path, const Options& options)
    : impl(std::make_unique<Impl>())
{
  impl->options = options;
  impl->pathText = path;
  impl->path = Utils::FileHelper::toPath(path);
  const int file =
      options.append ? Platform::openAppendedTextFile(impl->path) : Platform::openTruncatedTextFile(impl->path);
  if (file < 0) {
    if (!options.quiet) {
      reportUnopenable(path);
    }
    return;
  }
  impl->file.store(file, std::memory_order_relaxed);

  if (options.rotation && options.append) {
    impl->fileBytes = Platform::fileSize(file);
    if (impl->fileBytes > 0 && impl->fileBytes >= options.rotation->maximumBytes) {
      impl->rotate(); // a full log from an earlier run: this run starts a fresh one
      return;
    }
  }
  impl->writeHead();
}

FileLogger::~FileLogger()
{
  // The spy's thread writes into this logger: it is stopped before anything
  // else goes.
  impl->memorySpy.reset();
  const int file = impl->file.load(std::memory_order_relaxed);
  if (file >= 0) {
    Platform::closeFile(file);
  }
}

bool FileLogger::isOpen() const
{
  return impl->file.load(std::memory_order_relaxed) >= 0;
}

void FileLogger::write(LoggingType type, const std::string& message)
{
  impl->writeLockedLine(type, message);
}

void FileLogger::triggerLogMemory()
{
  if (impl->memorySpy) {
    impl->memorySpy->wakeUp();
  }
}

void FileLogger::attachMemorySpyer(std::chrono::milliseconds period)
{
  impl->writeLockedLine(LoggingType::Verbose, MEMORY_LEGEND);
  // Replacing the spy stops and joins the previous one before the new one
  // starts.
  impl->memorySpy = std::make_unique<MemorySpy>(*this, period);
  impl->memorySpy->start();
}

} // namespace Orvan::Core::Logging
