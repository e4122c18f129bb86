#include "../Logging/LogFile.h"

#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/DichotomicLogger.h>
#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <FacadeReset.h>
#include <OutputCapture.h>
#include <RecordingLogger.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace Logging = Orvan::Core::Logging;
using Logging::LoggingType;
using Orvan::Testing::LogLine;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::splitLines;
using Orvan::Testing::TemporaryDirectory;

namespace {

constexpr int THREADS = 8;
constexpr int MESSAGES_PER_THREAD = 500;

constexpr LoggingType LEVELS[] = {LoggingType::Info, LoggingType::Warning, LoggingType::Error, LoggingType::Debug,
                                  LoggingType::Verbose};

// The message a thread writes at `index`: unique, and of a length that varies
// from a few characters to a few hundred, so that lines straddle the standard
// output's buffer and a torn line cannot pass for another one.
std::string messageText(int thread, int index)
{
  std::string text = "t" + std::to_string(thread) + "-m" + std::to_string(index) + "-";
  text.append(static_cast<std::size_t>((index * 37 + thread * 11) % 300), static_cast<char>('a' + (index + thread) % 26));
  return text;
}

LoggingType levelOf(int thread, int index)
{
  return LEVELS[static_cast<std::size_t>(thread + index) % std::size(LEVELS)];
}

void logThroughFacade(LoggingType level, const std::string& message)
{
  switch (level) {
  case LoggingType::Info:
    Logging::logInfo(message);
    break;
  case LoggingType::Warning:
    Logging::logWarning(message);
    break;
  case LoggingType::Error:
    Logging::logError(message);
    break;
  case LoggingType::Debug:
    Logging::logDebug(message);
    break;
  case LoggingType::Verbose:
    Logging::logVerbose(message);
    break;
  }
}

const char* fileWord(LoggingType level)
{
  switch (level) {
  case LoggingType::Info:
    return "INFO   ";
  case LoggingType::Warning:
    return "WARNING";
  case LoggingType::Error:
    return "ERROR  ";
  case LoggingType::Debug:
    return "DEBUG  ";
  case LoggingType::Verbose:
    return "VERBOSE";
  }
  return "";
}

std::string consoleTagOf(LoggingType level)
{
  return std::string("[") + fileWord(level) + "] ";
}

// Every thread writes its messages through the facade, all starting at once.
void logFromEightThreads()
{
  std::vector<std::thread> threads;
  for (int thread = 0; thread < THREADS; ++thread) {
    threads.emplace_back([thread] {
      for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
        logThroughFacade(levelOf(thread, index), messageText(thread, index));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

class StressLogging : public Orvan::Testing::FacadeReset {};

// Puts a real pipe behind the process's standard output while it lives; a
// thread of its own drains the pipe, so that writers never block on a full
// pipe. release() puts the standard output back and returns every byte.
class StandardOutputPipe {
public:
  StandardOutputPipe()
  {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("cannot create a pipe");
    }
    readEnd = ends[0];
    std::cout.flush();
    std::fflush(stdout);
    saved = ::fcntl(1, F_DUPFD_CLOEXEC, 3);
    ::dup2(ends[1], 1);
    ::close(ends[1]);
    reader = std::thread([this] {
      char buffer[4096];
      for (;;) {
        const ssize_t count = ::read(readEnd, buffer, sizeof(buffer));
        if (count < 0 && errno == EINTR) {
          continue;
        }
        if (count <= 0) {
          return;
        }
        received.append(buffer, static_cast<std::size_t>(count));
      }
    });
  }

  ~StandardOutputPipe() { release(); }

  StandardOutputPipe(const StandardOutputPipe&) = delete;
  StandardOutputPipe& operator=(const StandardOutputPipe&) = delete;

  // The last write end goes with the standard output's descriptor, so the
  // reader meets the end of the pipe once it has read everything.
  std::string release()
  {
    if (saved >= 0) {
      std::cout.flush();
      std::fflush(stdout);
      ::dup2(saved, 1);
      ::close(saved);
      saved = -1;
      reader.join();
      ::close(readEnd);
    }
    return received;
  }

private:
  int readEnd = -1;
  int saved = -1;
  std::thread reader;
  std::string received;
};

} // namespace

TEST_F(StressLogging, EightThreadsThroughADichotomicLoggerWriteWholeCountedLinesToTheFileAndThePipe)
{
  TemporaryDirectory directory;
  const auto path = directory / "stress.log";
  std::string piped;
  {
    StandardOutputPipe pipe;
    auto file = std::make_shared<Logging::FileLogger>(path.string());
    auto console = std::make_shared<Logging::CoutLogger>();
    auto both = std::make_shared<Logging::DichotomicLogger>(Logging::DichotomicLogger::FilteredLogger{console},
                                                            Logging::DichotomicLogger::CompleteLogger{file});
    Logging::setLogger(both);
    logFromEightThreads();
    Logging::setLogger({});
    piped = pipe.release();
  }

  // The file: the two head lines, then every message once, whole, at its
  // level, and each thread under one thread number of its own.
  const std::vector<std::string> fileLines = Orvan::Testing::readLogLines(path);
  ASSERT_EQ(fileLines.size(), 2u + THREADS * MESSAGES_PER_THREAD);
  EXPECT_EQ(fileLines[0].rfind("[Y-m-d X]", 0), 0u);
  EXPECT_EQ(parseLogLine(fileLines[1]).message, "7.6.3");
  std::map<std::string, LogLine> fileByMessage;
  for (std::size_t index = 2; index < fileLines.size(); ++index) {
    const LogLine line = parseLogLine(fileLines[index]);
    ASSERT_TRUE(line.wellFormed) << "line " << index << ": " << fileLines[index];
    EXPECT_TRUE(fileByMessage.emplace(line.message, line).second) << "twice: " << line.message;
  }
  std::set<std::string> threadFields;
  for (int thread = 0; thread < THREADS; ++thread) {
    std::set<std::string> fieldsOfThread;
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      const auto found = fileByMessage.find(messageText(thread, index));
      ASSERT_NE(found, fileByMessage.end()) << messageText(thread, index);
      EXPECT_EQ(found->second.level, fileWord(levelOf(thread, index)));
      fieldsOfThread.insert(found->second.thread);
    }
    EXPECT_EQ(fieldsOfThread.size(), 1u) << "thread " << thread;
    threadFields.insert(fieldsOfThread.begin(), fieldsOfThread.end());
  }
  EXPECT_EQ(threadFields.size(), static_cast<std::size_t>(THREADS));

  // The pipe: the banner once; info once through the console logger;
  // warnings and errors twice, the console logger's line and the echo;
  // nothing of debug and verbose. The console logger and the echo share no
  // lock, yet every line is whole: each is handed to the stream in one piece.
  std::map<std::string, int> expected{{"Lib Version: 7.6.3", 1}};
  for (int thread = 0; thread < THREADS; ++thread) {
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      const LoggingType level = levelOf(thread, index);
      if (level == LoggingType::Info) {
        expected[consoleTagOf(level) + messageText(thread, index)] = 1;
      } else if (level == LoggingType::Warning || level == LoggingType::Error) {
        expected[consoleTagOf(level) + messageText(thread, index)] = 2;
      }
    }
  }
  ASSERT_FALSE(piped.empty());
  EXPECT_EQ(piped.back(), '\n');
  std::map<std::string, int> seen;
  std::size_t notWhole = 0;
  for (const std::string& line : splitLines(piped)) {
    ++seen[line];
    if (expected.count(line) == 0) {
      ++notWhole;
      if (notWhole <= 5) {
        ADD_FAILURE() << "not a whole line: " << line.substr(0, 120);
      }
    }
  }
  EXPECT_EQ(notWhole, 0u);
  EXPECT_TRUE(seen == expected) << seen.size() << " distinct lines against " << expected.size();
}

// A full disk: every write of the file logger fails. Logging goes on without
// a crash, an exception or a word on standard error, and the other side of a
// dichotomic logger still receives every message.
TEST_F(StressLogging, FileLoggerOnAFullDiskKeepsAcceptingCallsFromEightThreads)
{
  auto recorder = std::make_shared<RecordingLogger>();
  OutputCapture errors(2);
  OutputCapture output(1);
  {
    auto full = std::make_shared<Logging::FileLogger>("/dev/full");
    full->attachMemorySpyer(std::chrono::milliseconds(1));
    auto both = std::make_shared<Logging::DichotomicLogger>(Logging::DichotomicLogger::FilteredLogger{recorder},
                                                            Logging::DichotomicLogger::CompleteLogger{full});
    Logging::setLogger(both);
    EXPECT_NO_THROW(logFromEightThreads());
    EXPECT_NO_THROW(Logging::triggerLogMemory());
    EXPECT_NO_THROW(Logging::logError("still accepted after the failures"));
    Logging::setLogger({});
  }
  const std::string printed = output.release();
  EXPECT_EQ(errors.release(), "");

  std::size_t filtered = 0;
  for (int thread = 0; thread < THREADS; ++thread) {
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      const LoggingType level = levelOf(thread, index);
      filtered += level == LoggingType::Info || level == LoggingType::Warning || level == LoggingType::Error ? 1 : 0;
    }
  }
  const std::vector<RecordingLogger::Line> lines = recorder->lines();
  ASSERT_EQ(lines.size(), filtered + 1);
  EXPECT_EQ(lines.back(), (RecordingLogger::Line{LoggingType::Error, "still accepted after the failures"}));
  EXPECT_NE(printed.find("[ERROR  ] still accepted after the failures\n"), std::string::npos);
}
